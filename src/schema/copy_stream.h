// The rows of one table copied between two connections by streaming: the source is read with a
// forward-only cursor, CopyFieldValue's rules (copy_rules.h) are applied to each value in memory
// and the accepted rows go to the target through the engine's bulk path. The per-record results
// (rows written, rows refused and why) are those of the record-by-record copy.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "zt/export.h"
#include "zt/platform.h"

namespace zt::schema {

struct ZT_TEST_EXPORT StreamCopyOptions {
  // The shorter wording of the "too long" refusal (UseLimitedErrorMessages).
  bool limited_messages = false;
  // Called with the rows read so far every `progress_every` rows and once at the end.
  std::function<void(std::int64_t rows_done)> progress;
  std::int64_t progress_every = 5000;
  // How many refusal texts the result keeps (the counters count them all).
  std::size_t max_messages = 20;
  // Both connections on SQLite files: copy with ATTACH + INSERT ... SELECT when no value would
  // be refused or left out (false: always the general path).
  bool allow_attach = true;
  // Every refused record: the source's column names and the record's values, and the reason.
  std::function<void(const std::vector<std::string>& columns, const std::vector<Variant>& values,
                     const std::string& reason)>
      refused;
  // Called when a bulk load the engine refused is redone record by record: the refusals reported
  // so far are void and come again.
  std::function<void()> restart;
  // The target table's name when it differs from the source's (a working table that is renamed
  // once it is complete); "" : the same name.
  std::string target_table;
};

// How the rows went over.
enum class StreamPath {
  kAttach,    // both SQLite files: one INSERT ... SELECT
  kBulk,      // the engine's bulk load (COPY, multi-row INSERT, prepared INSERTs)
  kPerRecord  // one INSERT per record under a savepoint, inside one transaction
};

struct ZT_TEST_EXPORT StreamCopyResult {
  std::int64_t rows = 0;              // records written
  std::int64_t failed = 0;            // records refused, by the rules or by the engine
  std::vector<std::string> messages;  // the first refusals' texts
  StreamPath path = StreamPath::kBulk;
};

// Copies every row of `table` in `source` into the table of that name in `target`, which must
// exist. Only columns present in both (names compared without regard to case) are written;
// row-version columns of the target never are.
//
// Atomicity: when `target` is not in a transaction, the rows of this call are kept all or
// nothing (the bulk load is its own transaction; the per-record path opens one and commits it at
// the end, with refused records left out). A bulk load the engine refuses (a key or constraint
// the rules cannot see) is undone and the table is copied again record by record, so that each
// record the engine refuses is counted and the rest written. When `target` is already in a
// transaction opened with BeginTrans, the rows go record by record inside it (a bulk load
// cannot join a caller's transaction) and the caller commits or rolls back.
//
// Raises the engine's error when the source cannot be read, or the target table's columns
// cannot be learnt; the target is then as it was.
ZT_TEST_EXPORT StreamCopyResult StreamTableRows(const std::shared_ptr<Connection>& source,
                                                const std::shared_ptr<Connection>& target,
                                                const std::string& table,
                                                const StreamCopyOptions& options = {});

}  // namespace zt::schema
