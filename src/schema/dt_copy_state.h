// What CZtDTMgr keeps between and during its copies: the counters of the last CopyRecordset,
// the progress sink, the per-table results, and whether it switched SQL Server's bulk mode on.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "zt/schema/dt_mgr.h"

namespace zt {

struct CZtDTMgr::CopyState {
  std::int64_t copied = 0;
  std::int64_t failed = 0;
  CopyProgressSink progress;
  CopyRejectSink rejects;
  std::vector<TableCopyResult> results;
  // Relationships, identities, defaults and views: kept or not, with why.
  std::vector<StoreObjectResult> objects;
  // Set when "select into/bulkcopy" was switched on by this object and not yet off again.
  bool bulk_copy_switched_on = false;
  // Inside CopyPhysicalDataStore the results of every table are kept together.
  bool in_store_copy = false;
  // The table whose rows are being copied (for progress), and its row count when known.
  std::string table;
  std::int64_t total = -1;
  // PostgreSQL aborts a whole transaction on one failed statement: each record of a copy inside
  // a transaction gets its own savepoint there, so that one refused record stays one refusal.
  bool record_savepoints = false;
};

}  // namespace zt
