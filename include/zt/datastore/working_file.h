// The working copy that a compaction of an SQLite data store writes beside the database.
#pragma once

#include "zt/export.h"

namespace zt {

// Deletes the working copy of a compaction running in this process, if there is one. Safe to
// call from a signal handler (it only unlinks a name kept for this purpose): a program that
// stops on SIGINT or SIGTERM calls it so that no full copy of the database stays behind. A
// copy left by a process that was killed outright is removed by the next compaction.
ZT_EXPORT void RemoveCompactionWorkingFile() noexcept;

}  // namespace zt
