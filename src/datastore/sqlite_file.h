// Whole-file operations on the SQLite file behind a Jet data store: create, delete with its
// companions, compact, size. They work on the file directly, not through a cached connection,
// because each of them needs the file to itself.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace zt::ds {

// Creates an empty database file. An existing file is an error (error 58): a data store is
// never created over somebody's data.
void CreateSqliteFile(const std::string& path);

// The files that belong to a database file and go with it: the old lock file (same name, ".ldb")
// and SQLite's rollback journal, write-ahead log and shared-memory index.
std::vector<std::string> CompanionFiles(const std::string& path);

// Deletes the file and every companion that exists; `deleted` is told each path removed. A
// missing database file is error 53.
void DeleteSqliteFile(const std::string& path,
                      const std::function<void(const std::string&)>& deleted);

// Rebuilds the file through a working copy in the same folder and copies the result back into
// the same file, so connections that other programs hold stay on it. The working copy is
// "temp." + file name + "." + six random characters + ".mdb", created exclusively (a planted
// name or symbolic link is never written through) with the original's permissions, and removed
// on every way out; copies that a killed run left behind are removed first. Needs the file to
// itself: while another connection holds it, this fails with the engine's busy error and the
// file is left as it was. Returns the working copy's name.
std::string CompactSqliteFile(const std::string& path);

// Bytes on disk: the file plus its write-ahead log.
std::int64_t SqliteFileSize(const std::string& path);

// True when `path` is a readable SQLite database (header checked, schema read) or an Access
// file (header checked); otherwise false with the reason in `why`.
bool IsDatabaseFile(const std::string& path, std::string* why = nullptr);

}  // namespace zt::ds
