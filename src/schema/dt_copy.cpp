// CZtDTMgr: copying tables, their structure and their rows, within one database and between
// any two data stores. The value rules of a copy live in copy_rules (DecideCopyValue); the rows
// of a table copy go through CopyRows, the one place a faster path can take over.
//
// Nothing half-done across databases: a table copy runs in one target transaction where the
// engine's DDL is transactional (SQLite, PostgreSQL, SQL Server), so a failure rolls back the
// new table or the old rows alike. MariaDB commits each DDL statement by itself: its structure
// is created first, the rows then go in one transaction, and a table this copy created is
// dropped again when the copy fails. The source is only read.
#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <map>
#include <optional>
#include <set>

#include "platform/dialect.h"
#include "platform/driver.h"
#include "platform/errors.h"
#include "platform/sql_text.h"
#include "schema/copy_rules.h"
#include "schema/copy_stream.h"
#include "schema/dt_copy_state.h"
#include "zt/datastore.h"
#include "zt/error_codes.h"
#include "zt/error_handling.h"
#include "zt/event_logger.h"
#include "zt/resources.h"
#include "zt/schema/data_type.h"
#include "zt/schema/dt_mgr.h"
#include "zt/trap.h"

namespace zt {

namespace {

constexpr std::string_view kTypeName = "CZtDTMgr";
// The database named in ERR_DB_NOT_ALREADY_IN_SQL_SVR is not on the server.
constexpr std::int32_t kDbNotInSqlServer = 9032;
// Progress is reported every this many rows.
constexpr std::int64_t kProgressEvery = 5000;

void Log(const std::string& text, std::int32_t type = kEventInformation) {
  ZtLog_LogEvent(text, nullptr, type, kLevelDiagnostic);
}

std::string Br(const std::string& name) {
  return "[" + name + "]";
}

bool StartsWithMSys(const std::string& name) {
  return name.size() >= 4 && (name[0] == 'M' || name[0] == 'm') &&
         (name[1] == 'S' || name[1] == 's') && (name[2] == 'y' || name[2] == 'Y') &&
         (name[3] == 's' || name[3] == 'S');
}

std::int64_t CountRows(Connection& cn, const std::string& table) {
  auto rs = cn.Execute("SELECT COUNT(*) FROM " + Br(table));
  return rs->Eof() ? 0 : rs->Fields(0).Value().ToInt64();
}

// The target's column type of a source field: the narrowest type of the target engine that holds
// every value of the field exactly (the dialect's column model), so a 64-bit integer stays 64-bit,
// a double a double, an exact decimal exact and an unbounded text unbounded. SQL Server keeps the
// names its data types table has always given (binary as TIMESTAMP, Byte as SMALLINT included),
// for the codes that table names; what it does not name goes by the model too. `dao` comes back
// 10 when the caller adds the text's length itself, 1 for a Boolean, 0 otherwise.
std::string TargetType(Field& f, Connection& target, std::int32_t provider, std::int32_t& dao,
                       bool boolean) {
  platform::ColumnInfo c;
  c.type = boolean ? ado::adBoolean : f.Type();
  c.defined_size = f.DefinedSize();
  c.precision = f.Precision();
  c.scale = f.NumericScale();
  dao = c.type == ado::adBoolean ? 1 : 0;
  if (provider == kProviderSqlServer) {
    CZtDataType types;
    std::int32_t code = c.type;
    std::int32_t kind = kTypeKindOleDb;
    const std::int32_t size = static_cast<std::int32_t>(f.DefinedSize());
    const bool text = code == ado::adVarChar || code == ado::adVarWChar;
    std::string name;
    if (!text || (size > 0 && size <= 4000)) name = types.GetTypeName(code, size, provider, kind);
    if (!name.empty()) {
      if (text) dao = 10;
      return name;
    }
  }
  return target.Dialect().ColumnTypeOf(c);
}

// MariaDB declares the application's Booleans TINYINT(1), which its driver reports as a byte
// like any TINYINT: the declared type in the catalog tells them apart.
std::set<std::string> BooleanColumns(Connection& cn, const std::string& table) {
  std::set<std::string> out;
  const std::string engine = platform::AsciiLower(cn.Engine());
  if (engine != "mariadb" && engine != "mysql") return out;
  auto rs = cn.Execute(
      "SELECT COLUMN_NAME FROM information_schema.COLUMNS WHERE TABLE_SCHEMA = DATABASE() AND "
      "TABLE_NAME = " +
      platform::SqlLiteral(table) + " AND COLUMN_TYPE = 'tinyint(1)'");
  for (; !rs->Eof(); rs->MoveNext()) out.insert(rs->Fields(0).Value().ToText());
  return out;
}

// The defaults of `table`'s columns that the target can take, by lower-case column name. With
// `objects`, each default of the source is an entry there: kept with its text, or not with why.
std::map<std::string, std::string> ColumnDefaults(Connection& cn, const std::string& table,
                                                  std::vector<StoreObjectResult>* objects) {
  std::vector<Variant> r;
  r.reserve(3);
  r.emplace_back();
  r.emplace_back();
  r.emplace_back(table);
  // Access and SQLite files write a text default in double quotes.
  const std::string engine = platform::AsciiLower(cn.Engine());
  const bool jet = engine == "sqlite" || engine == "access";
  std::map<std::string, std::string> out;
  auto rs = cn.OpenSchema(ado::adSchemaColumns, Variant::Array(std::move(r)));
  for (; !rs->Eof(); rs->MoveNext()) {
    const Variant d = rs->Value("COLUMN_DEFAULT");
    if (d.IsNull() || d.IsEmpty()) continue;
    const std::string column = rs->Value("COLUMN_NAME").ToText();
    std::string reason;
    const std::string literal = schema::TranslateDefault(d.ToText(), jet, &reason);
    if (!literal.empty()) out[platform::AsciiLower(column)] = literal;
    if (objects && (!literal.empty() || !reason.empty()))
      objects->push_back({"default", table, column, !literal.empty(),
                          literal.empty() ? reason : "DEFAULT " + literal});
  }
  return out;
}

// " DEFAULT x" for a column of the target, "" when it has none. A Boolean takes the engine's
// spelling of a number's truth (PostgreSQL's BOOLEAN takes no -1).
std::string DefaultClause(const std::map<std::string, std::string>& defaults,
                          const std::string& column, bool boolean, std::int32_t provider) {
  const auto it = defaults.find(platform::AsciiLower(column));
  if (it == defaults.end()) return {};
  std::string value = it->second;
  if (boolean && provider == kProviderPostgreSql) {
    if (value.front() == '\'') return {};
    value = std::strtod(value.c_str(), nullptr) != 0 ? "TRUE" : "FALSE";
  }
  return " DEFAULT " + value;
}

// The primary key first: the table has its key before anything else refers to its rows.
std::vector<IndexNameInfo> PrimaryFirst(std::vector<IndexNameInfo> indexes) {
  std::stable_partition(indexes.begin(), indexes.end(),
                        [](const IndexNameInfo& i) { return i.kind == kIndexKindPrimaryKey; });
  return indexes;
}

// The engine's error, with MSG_COULDNT_COPY_TBL_STRUCTURE in front of its description.
[[noreturn]] void RaiseStructureNotCopied(const ZtError& e, const std::string& table) {
  VariantArray args;
  args.items = {Variant(table)};
  throw ZtError(
      e.Number(), e.Source(),
      ZtErr_GetMessage("MSG_COULDNT_COPY_TBL_STRUCTURE", "", args) + " " + e.Description());
}

bool Nullable(Field& f) {
  return (f.Attributes() & ado::adFldIsNullable) != 0;
}

// The source's fields, from a query that returns none of its rows.
std::shared_ptr<Recordset> EmptySelect(Connection& cn, const std::string& table) {
  return cn.Execute("SELECT * FROM " + Br(table) + " WHERE -1=0");
}

// The closing line of a copy's refusals, as the record-by-record copy writes it.
void NoteFailedRecords(TableCopyResult& result, const std::string& table) {
  if (result.failed <= 0) return;
  VariantArray args;
  args.items = {Variant(result.failed), Variant(table), Variant(table)};
  result.messages.push_back(ZtErr_GetMessage("NUM_FAILED_RECORDS", "", args));
}

// A working table's name: the prefix, as much of the table's name as the engine keeps whole
// beside it (cut on a character boundary) and eight hex digits of a hash of the whole name. The
// same table always gets the same working table, so the next copy clears what a killed one left;
// no table a user names by hand ("zt_copy_calls") is ever taken for one.
std::string WorkName(const Connection& cn, const std::string& prefix, const std::string& table) {
  std::size_t limit = cn.Dialect().MaxNameBytes();
  if (limit == 0) limit = 128;
  std::uint32_t h = 2166136261u;  // FNV-1a
  for (unsigned char c : prefix + table) h = (h ^ c) * 16777619u;
  char tail[16];
  std::snprintf(tail, sizeof tail, "_%08x", static_cast<unsigned>(h));
  std::string part = table.substr(0, limit - std::min(limit, prefix.size() + std::strlen(tail)));
  // Never end inside a UTF-8 sequence.
  while (!part.empty() && (static_cast<unsigned char>(part.back()) & 0xC0) == 0x80) part.pop_back();
  if (!part.empty() && (static_cast<unsigned char>(part.back()) & 0x80)) part.pop_back();
  return prefix + part + tail;
}

// The engine's error with a working table's name replaced by the user's table, which is the
// only table the caller knows of.
ZtError NamingUserTable(const ZtError& e, const std::string& work, const std::string& table) {
  ErrorInfo info = e.Info();
  for (std::size_t at = 0; (at = info.description.find(work, at)) != std::string::npos;
       at += table.size())
    info.description.replace(at, work.size(), table);
  return ZtError(std::move(info));
}

// Refuses a name the engine would cut, and a replacement whose deletes would reach into other
// tables through their relationships, before anything is made or removed.
void RequireSafeTarget(Connection& cn, const std::string& table, bool rows_replaced) {
  const std::size_t max = cn.Dialect().MaxNameBytes();
  if (max && table.size() > max)
    throw ZtError(AdoErrorNumber(AdoError::kInvalidArgument), std::string(kTypeName),
                  "The table name '" + table + "' is longer than the " + std::to_string(max) +
                      " bytes " + std::string(cn.Dialect().Engine()) +
                      " keeps; it would be cut to another name.");
  if (!rows_replaced) return;
  const auto touched = cn.Dialect().TablesChangedByDelete(cn, table);
  if (touched.empty()) return;
  std::string names;
  for (const auto& t : touched) names += (names.empty() ? "" : ", ") + Br(t);
  throw ZtError(hr::kIntegrity, std::string(kTypeName),
                "The rows of table " + Br(table) + " cannot be replaced: " + names +
                    " refer to them with ON DELETE CASCADE or SET NULL and would change too. "
                    "Append the rows instead, or copy those tables as well after removing "
                    "the relationship.");
}

void RollbackQuietly(Connection& cn) {
  try {
    if (cn.InTransaction()) cn.RollbackTrans();
  } catch (const ZtError&) {
    // The copy's own error is the one to report.
  }
}

}  // namespace

// ---- Whole tables ------------------------------------------------------------------------------

bool CZtDTMgr::CopyTable(CZtDataStore& source, const std::shared_ptr<Connection>& source_cn,
                         const std::string& table, CZtDataStore& target, std::int32_t options) {
  Trap at(kTypeName, "CopyTable");
  if (!copy_->in_store_copy) copy_->results.clear();
  copy_->results.push_back(TableCopyResult{});
  // Nothing adds to the results while this table is copied.
  TableCopyResult& result = copy_->results.back();
  result.table = table;
  const auto started = std::chrono::steady_clock::now();
  const auto finish = [&](bool ok) {
    result.copied = ok;
    result.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    return ok;
  };
  try {
    return at.Reraising([&] {
      at = 10;
      if (table.empty() || !source_cn)
        platform::RaiseAdo(AdoError::kInvalidArgument, std::string(kTypeName),
                           "(a table name and a source connection)");
      at = 20;
      if (source_cn == target.DataStoreConnection())
        return finish(CopyTableSameDB(source, source_cn, table, target, options));
      at = 30;
      return finish(CopyTableDifferentDB(source, source_cn, table, target, options, result));
    });
  } catch (const ZtError& e) {
    result.error = e.Description();
    finish(false);
    throw;
  }
}

bool CZtDTMgr::CopyTableSameDB(CZtDataStore& /*source*/,
                               const std::shared_ptr<Connection>& source_cn,
                               const std::string& table, CZtDataStore& target,
                               std::int32_t options) {
  Trap at(kTypeName, "CopyTableSameDB");
  return at.Reraising([&] {
    const std::shared_ptr<Connection>& cn = source_cn;
    const std::int32_t provider = target.GeneralProviderType();
    at = 10;
    if ((options & kCopyReplace) && TableExists(cn, table)) DeleteTable(cn, table);
    at = 20;
    const std::string db = target.DataStoreName();
    if (provider == kProviderSqlServer) {
      try {
        RunStatement(*cn, "sp_dboption '" + db + "','select into/bulkcopy','true' ");
        copy_->bulk_copy_switched_on = true;
      } catch (const ZtError&) {
        Err().Clear();
        Log(std::string(kTypeName) + ".CopyTableSameDB, Error running " +
                " 'sp_dboption' to set 'select into/bulkcopy','true' in the SQL Server." + "\n" +
                "Please ensure the 'tesselapplication' login in the SQL Server has enough " +
                "permissions to run this command.",
            kEventWarning);
      }
    }
    at = 30;
    if (!TableExists(cn, table)) {
      // SQL Server's SELECT INTO; the other engines have CREATE TABLE ... AS SELECT, one
      // statement that makes the table and fills it.
      if (provider == kProviderSqlServer) {
        try {
          RunStatement(*cn, "SELECT * INTO " + Br(table) + " FROM " + Br(table) + " ");
        } catch (const ZtError&) {
          // The database is left with the option as it was found.
          if (copy_->bulk_copy_switched_on) {
            try {
              RunStatement(*cn, "sp_dboption '" + db + "','select into/bulkcopy','false' ");
              copy_->bulk_copy_switched_on = false;
            } catch (const ZtError&) {
              // The copy's own error is the one to report.
            }
          }
          throw;
        }
      } else {
        RunStatement(*cn, "CREATE TABLE " + Br(table) + " AS SELECT * FROM " + Br(table));
      }
    }
    // Option 2 asks the target for no further step here: the engines keep their statistics
    // themselves.
    at = 50;
    if (provider == kProviderSqlServer && copy_->bulk_copy_switched_on) {
      RunStatement(*cn, "sp_dboption '" + db + "','select into/bulkcopy','false' ");
      copy_->bulk_copy_switched_on = false;
    }
    return true;
  });
}

bool CZtDTMgr::CopyTableDifferentDB(CZtDataStore& source,
                                    const std::shared_ptr<Connection>& source_cn,
                                    const std::string& table, CZtDataStore& target,
                                    std::int32_t options, TableCopyResult& result) {
  Trap at(kTypeName, "CopyTableDifferentDB");
  return at.Reraising([&] {
    at = 10;
    const std::shared_ptr<Connection> cn = target.GetConnection(1);
    const std::int32_t provider = target.GeneralProviderType();
    const bool ddl_in_tx = cn->Dialect().TransactionalDdl();
    at = 15;
    // Relationships are looked up on the engines that report them (SQL Server's statements stay
    // those it has always been sent).
    const bool relationships =
        provider == kProviderJet || provider == kProviderPostgreSql || provider == kProviderMySql;
    RequireSafeTarget(*cn, table,
                      relationships && !(options & kCopyAppend) && TableExists(cn, table));
    // A new or replaced table between the engines that run here goes the fast way; rows added
    // to a table that stays (append, or its rows replaced) go record by record in one
    // transaction.
    const auto streams = [](std::int32_t p) {
      return p == kProviderJet || p == kProviderPostgreSql || p == kProviderMySql;
    };
    const bool fast = !DryRun() && streams(provider) && streams(ProviderOfConnection(*source_cn)) &&
                      !cn->InTransaction();
    if (fast && !(options & kCopyAppend) && ((options & kCopyReplace) || !TableExists(cn, table)))
      return CopyTableByStreaming(source, source_cn, table, target, options, result);
    // Rows appended to a table that stays go in by the engine's bulk load as well, which is
    // all or nothing by itself; a load the engine refuses (a key that exists already) is undone
    // and redone record by record, so each refused record is counted and the rest kept.
    if (fast && (options & kCopyAppend) && TableExists(cn, table)) {
      AppendByStreaming(source_cn, table, cn, result);
      return true;
    }
    // Rows replaced in a table that stays: loaded into a working table first, then swapped in
    // by the engine in one transaction. A swap the engine refuses goes record by record below.
    if (fast && !(options & (kCopyAppend | kCopyReplace)) && TableExists(cn, table) &&
        ReplaceRowsByStreaming(source_cn, table, target, result))
      return true;
    bool began = false;
    bool created = false;
    const auto begin = [&] {
      if (!cn->InTransaction()) {
        cn->BeginTrans();
        began = true;
      }
    };
    try {
      if (ddl_in_tx) begin();
      at = 20;
      if ((options & kCopyReplace) && TableExists(cn, table)) DeleteTable(cn, table);
      at = 30;
      if (!TableExists(cn, table)) {
        bool ok = false;
        try {
          ok = provider == kProviderJet
                   ? CopyTableStructureJet(source_cn, cn, table, table, options & kCopyIndexes)
                   : CopyTableStructure(source_cn, cn, table, table, options & kCopyIndexes,
                                        provider);
        } catch (const ZtError& e) {
          result.error = e.Description();
          Err().Clear();
        }
        if (!ok) {
          // The structure may be half made on an engine without transactional DDL.
          if (began) RollbackQuietly(*cn);
          if (!ddl_in_tx && TableExists(cn, table)) DeleteTable(cn, table);
          Log("Table Structure not Copied from " + source.DataStoreName() + " to " + table);
          return false;
        }
        // The primary key always comes with the structure where the library composes it: rows
        // appended later must not double.
        if (!(options & kCopyIndexes) &&
            (provider == kProviderJet || provider == kProviderPostgreSql ||
             provider == kProviderMySql))
          CopyIndexesByPlan(source_cn, *cn, table, table, {}, /*primary_only=*/true);
        created = true;
      }
      at = 40;
      if (!ddl_in_tx) begin();
      if (!(options & kCopyAppend) && !created) target.DeleteTableRecords(table);
      at = 50;
      CopyRows(source_cn, cn, table, result);
      at = 60;
      if (began) cn->CommitTrans();
    } catch (...) {
      if (began) RollbackQuietly(*cn);
      if (created && !ddl_in_tx) {
        try {
          DeleteTable(cn, table);
        } catch (const ZtError&) {
          Err().Clear();
        }
      }
      throw;
    }
    return true;
  });
}

bool CZtDTMgr::CopyTableByStreaming(CZtDataStore& source,
                                    const std::shared_ptr<Connection>& source_cn,
                                    const std::string& table, CZtDataStore& target,
                                    std::int32_t options, TableCopyResult& result) {
  const std::shared_ptr<Connection> cn = target.GetConnection(1);
  const std::int32_t provider = target.GeneralProviderType();
  // The rows go into a working table that takes the table's name only when it is complete, so
  // that a copy stopped at any point (an error, a lost server, a killed process) leaves the
  // target's table as it was: absent, or the old one.
  // A working table left by a killed copy of this table is nobody's data and goes now.
  const std::string work = WorkName(*cn, "zt_copy_", table);
  if (TableExists(cn, work)) DeleteTable(cn, work);
  bool ok = false;
  try {
    ok = provider == kProviderJet
             ? CopyTableStructureJet(source_cn, cn, table, work, false, /*key_for=*/table)
             : CopyTableStructure(source_cn, cn, table, work, false, provider);
  } catch (const ZtError& e) {
    result.error = e.Description();
    Err().Clear();
  }
  const auto drop_work = [&] { DropWorkTable(cn, work); };
  if (!ok) {
    drop_work();
    Log("Table Structure not Copied from " + source.DataStoreName() + " to " + table);
    return false;
  }
  try {
    StreamRowsInto(source_cn, table, cn, work, result);
    const bool replace = TableExists(cn, table);
    const bool indexes = (options & kCopyIndexes) != 0;
    // Indexes the target refuses are a structure that could not be copied, as when they come
    // with the CREATE TABLE: the copy is undone and reported, not raised.
    const auto make_indexes = [&](const std::string& on_table) {
      try {
        CopyIndexesByPlan(source_cn, *cn, table, table, on_table, !indexes,
                          /*key_made=*/provider == kProviderJet);
        return true;
      } catch (const ZtError& e) {
        VariantArray args;
        args.items = {Variant(table)};
        result.error =
            ZtErr_GetMessage("MSG_COULDNT_COPY_TBL_STRUCTURE", "", args) + " " + e.Description();
        Err().Clear();
        return false;
      }
    };
    const auto structure_refused = [&] {
      drop_work();
      Log("Table Structure not Copied from " + source.DataStoreName() + " to " + table);
      copy_->table.clear();
      return false;
    };
    if (!cn->Dialect().TransactionalDdl()) {
      // MariaDB keeps index names per table: the working table gets them under the final names,
      // and one RENAME TABLE swaps the names at once.
      if (!make_indexes(work)) return structure_refused();
      const std::string old = WorkName(*cn, "zt_old_", table);
      if (replace) {
        if (TableExists(cn, old)) DeleteTable(cn, old);
        RunStatement(*cn, "RENAME TABLE " + Br(table) + " TO " + Br(old) + ", " + Br(work) +
                              " TO " + Br(table));
        DeleteTable(cn, old);
      } else {
        RunStatement(*cn, "RENAME TABLE " + Br(work) + " TO " + Br(table));
      }
    } else {
      // SQLite and PostgreSQL keep index names per database: the old table and its indexes go
      // first, and the swap with the new indexes is one transaction.
      cn->BeginTrans();
      try {
        platform::WithTableSwap(*cn, [&] {
          if (replace) RunStatement(*cn, "DROP TABLE " + Br(table));
          RunStatement(*cn, "ALTER TABLE " + Br(work) + " RENAME TO " + Br(table));
        });
        if (replace) platform::RequireWorkingViews(*cn);
        if (!make_indexes(table)) {
          RollbackQuietly(*cn);
          return structure_refused();
        }
        cn->CommitTrans();
      } catch (...) {
        RollbackQuietly(*cn);
        throw;
      }
    }
    if (replace) Log("Table [" + table + "] deleted.");
    ReportProgress(result.rows + result.failed, true);
    copy_->table.clear();
  } catch (const ZtError& e) {
    copy_->table.clear();
    drop_work();
    throw NamingUserTable(e, work, table);
  } catch (...) {
    copy_->table.clear();
    drop_work();
    throw;
  }
  return true;
}

void CZtDTMgr::StreamRowsInto(const std::shared_ptr<Connection>& source_cn,
                              const std::string& table, const std::shared_ptr<Connection>& cn,
                              const std::string& into, TableCopyResult& result) {
  result.source_rows = CountRows(*source_cn, table);
  copy_->table = table;
  copy_->total = result.source_rows;
  ReportProgress(0, false);
  schema::StreamCopyOptions stream;
  stream.limited_messages = UseLimitedErrorMessages();
  stream.target_table = into;
  stream.progress = [&](std::int64_t rows) { ReportProgress(rows, false); };
  if (copy_->rejects) {
    stream.refused = [&](const std::vector<std::string>& columns,
                         const std::vector<Variant>& values, const std::string& reason) {
      CopyReject r;
      r.table = table;
      r.columns = columns;
      r.values = values;
      r.reason = reason;
      copy_->rejects(r);
    };
    stream.restart = [&] {
      CopyReject r;
      r.table = table;
      r.restart = true;
      copy_->rejects(r);
    };
  }
  const schema::StreamCopyResult rows = schema::StreamTableRows(source_cn, cn, table, stream);
  result.rows = copy_->copied = rows.rows;
  result.failed = copy_->failed = rows.failed;
  result.messages = rows.messages;
  NoteFailedRecords(result, table);
}

void CZtDTMgr::DropWorkTable(const std::shared_ptr<Connection>& cn, const std::string& work) {
  try {
    if (TableExists(cn, work)) DeleteTable(cn, work);
  } catch (const ZtError&) {
    Err().Clear();  // the copy's own outcome is the one to report
  }
}

void CZtDTMgr::AppendByStreaming(const std::shared_ptr<Connection>& source_cn,
                                 const std::string& table, const std::shared_ptr<Connection>& cn,
                                 TableCopyResult& result) {
  struct Reset {
    CopyState& s;
    ~Reset() { s.table.clear(); }
  } reset{*copy_};
  StreamRowsInto(source_cn, table, cn, {}, result);
  ReportProgress(result.rows + result.failed, true);
}

bool CZtDTMgr::ReplaceRowsByStreaming(const std::shared_ptr<Connection>& source_cn,
                                      const std::string& table, CZtDataStore& target,
                                      TableCopyResult& result) {
  const std::shared_ptr<Connection> cn = target.GetConnection(1);
  const std::int32_t provider = target.GeneralProviderType();
  // The working table takes the target table's own shape, so that the copy rules judge each
  // value against the columns it ends up in, and the swap is a plain INSERT ... SELECT *.
  const std::string work = WorkName(*cn, "zt_rows_", table);
  if (TableExists(cn, work)) DeleteTable(cn, work);
  bool made = false;
  try {
    made = provider == kProviderJet ? CopyTableStructureJet(cn, cn, table, work, false)
                                    : CopyTableStructure(cn, cn, table, work, false, provider);
  } catch (const ZtError&) {
    Err().Clear();
  }
  if (!made) {
    DropWorkTable(cn, work);
    return false;  // the record-by-record copy goes on without it
  }
  struct Reset {
    CopyState& s;
    ~Reset() { s.table.clear(); }
  } reset{*copy_};
  bool swapped = false;
  try {
    StreamRowsInto(source_cn, table, cn, work, result);
    cn->BeginTrans();
    try {
      RunStatement(*cn, "DELETE FROM " + Br(table));
      RunStatement(*cn, "INSERT INTO " + Br(table) + " SELECT * FROM " + Br(work));
      cn->CommitTrans();
      swapped = true;
    } catch (const ZtError& e) {
      RollbackQuietly(*cn);
      const auto c = e.Category();
      if (c != ErrorCategory::kIntegrity && c != ErrorCategory::kData &&
          c != ErrorCategory::kOther && c != ErrorCategory::kNone)
        throw;
      // A row the engine refuses: the record-by-record copy counts it, from a clean result.
      Err().Clear();
      result.rows = result.failed = 0;
      result.messages.clear();
    }
  } catch (const ZtError& e) {
    DropWorkTable(cn, work);
    throw NamingUserTable(e, work, table);
  } catch (...) {
    DropWorkTable(cn, work);
    throw;
  }
  DropWorkTable(cn, work);
  if (swapped) ReportProgress(result.rows + result.failed, true);
  return swapped;
}

// ---- Structure -------------------------------------------------------------------------------

bool CZtDTMgr::CopyTableStructure(const std::shared_ptr<Connection>& source_cn,
                                  const std::shared_ptr<Connection>& target_cn,
                                  const std::string& table, const std::string& new_table,
                                  bool create_indexes, std::int32_t target_provider) {
  Trap at(kTypeName, "CopyTableStructure");
  at.Key(", BaseTable:" + table + ", NewTable:" + new_table +
         ", fCreateIndexes:" + (create_indexes ? "True" : "False") +
         ", TargetProviderType:" + std::to_string(target_provider));
  return at.Reraising([&] {
    try {
      at = 10;
      auto rs = EmptySelect(*source_cn, table);
      const auto booleans = BooleanColumns(*source_cn, table);
      // SQL Server and Oracle get the statement they always got; the engines that run here
      // get the columns' literal defaults as well.
      const bool defaults_too =
          target_provider == kProviderPostgreSql || target_provider == kProviderMySql;
      const auto defaults = defaults_too
                                ? ColumnDefaults(*source_cn, table,
                                                 source_cn != target_cn ? &copy_->objects : nullptr)
                                : std::map<std::string, std::string>{};
      at = 20;
      std::string columns;
      auto& fields = rs->GetFields();
      for (std::int32_t i = 0; i < fields.Count(); ++i) {
        Field& f = fields.Item(i);
        std::int32_t dao = 0;
        std::string column =
            " [" + f.Name() + "] " +
            TargetType(f, *target_cn, target_provider, dao, booleans.count(f.Name()) > 0);
        if (dao == 10) column += " (" + std::to_string(f.DefinedSize()) + ")";
        column += DefaultClause(defaults, f.Name(), dao == 1, target_provider);
        bool nullable = Nullable(f);
        if (target_provider == kProviderSqlServer && dao == 1) {
          column += " DEFAULT '0' ";
          nullable = false;
        }
        if (!nullable) column += " NOT NULL ";
        columns += column + ",";
      }
      if (!columns.empty()) columns.pop_back();
      at = 30;
      const std::string sql = "CREATE TABLE [" + new_table + "] (" + columns + " )";
      Log("CopyTableStructure: Creating table: " + sql);
      RunStatement(*target_cn, sql);
      at = 40;
      if (!create_indexes) return true;
      const auto indexes = PrimaryFirst(GetTableIndexes(source_cn, table));
      if (target_provider == kProviderSqlServer || target_provider == kProviderOracle) {
        const auto st = CreateTableIndexesSQLStatements(source_cn, table, indexes, {}, false);
        std::vector<std::string> statements;
        for (const auto& c : st.constraints)
          statements.push_back("ALTER TABLE [" + new_table + "] ADD " + c);
        statements.insert(statements.end(), st.plain.begin(), st.plain.end());
        for (const auto& s : statements) {
          Log("CopyTableStructure: Creating indexes: " + s);
          if (!s.empty()) RunStatement(*target_cn, s);
        }
      } else {
        CopyIndexesByPlan(source_cn, *target_cn, table, new_table);
      }
      return true;
    } catch (const ZtError& e) {
      RaiseStructureNotCopied(e, new_table);
    }
  });
}

// A Jet target is an SQLite file read through the DAO view: its columns are declared with the
// Jet names (TEXT(50), LONG, BIT, CURRENCY ...) so that they read back as the DAO types they
// came from; keys and indexes get their names through the engine's own index plans.
bool CZtDTMgr::CopyTableStructureJet(const std::shared_ptr<Connection>& source_cn,
                                     const std::shared_ptr<Connection>& target_cn,
                                     const std::string& table, const std::string& new_table,
                                     bool create_indexes, const std::string& key_for) {
  Trap at(kTypeName, "CopyTableStructureJet");
  at.Key(", BaseTable:" + table + ", NewTable:" + new_table);
  return at.Reraising([&] {
    try {
      at = 10;
      auto rs = EmptySelect(*source_cn, table);
      const auto booleans = BooleanColumns(*source_cn, table);
      const auto defaults =
          ColumnDefaults(*source_cn, table, source_cn != target_cn ? &copy_->objects : nullptr);
      // SQLite takes a primary key only with the table's definition: declared here, the rows
      // go in once instead of being copied again by a rebuild that adds the key.
      std::optional<IndexNameInfo> key;
      if (!key_for.empty())
        for (auto& index : GetTableIndexes(source_cn, table))
          if (index.kind == kIndexKindPrimaryKey) key = std::move(index);
      const std::string rowid_key =
          key && key->columns.size() == 1 ? key->columns.front() : std::string();
      std::string columns;
      auto& fields = rs->GetFields();
      for (std::int32_t i = 0; i < fields.Count(); ++i) {
        Field& f = fields.Item(i);
        std::int32_t dao = 0;
        std::string type =
            TargetType(f, *target_cn, kProviderJet, dao, booleans.count(f.Name()) > 0);
        // A 64-bit key of one column declared INTEGER is the table's rowid: no second b-tree
        // to keep, and rows in key order append (INTEGER reads back as the same 64-bit type).
        // A key the source numbers itself (an AutoNumber, a serial) becomes the rowid too, the
        // one column SQLite numbers: new rows then continue after the highest copied key.
        const bool integer = f.Type() == ado::adSmallInt || f.Type() == ado::adInteger ||
                             f.Type() == 16 || f.Type() == 17 || f.Type() == 18 || f.Type() == 19 ||
                             f.Type() == 20 || f.Type() == 21;
        if (rowid_key == f.Name() &&
            (platform::AsciiLower(type) == "bigint" || (integer && f.AutoIncrement())))
          type = "INTEGER";
        std::string column = " [" + f.Name() + "] " + type;
        column += DefaultClause(defaults, f.Name(), dao == 1, kProviderJet);
        if (!Nullable(f)) column += " NOT NULL";
        columns += column + ",";
      }
      if (!columns.empty()) columns.pop_back();
      if (key) {
        std::string list;
        for (const auto& c : key->columns) list += (list.empty() ? "[" : ", [") + c + "]";
        columns += ", CONSTRAINT [" + GeneratedIndexName(key_for, key->name, key->kind) +
                   "] PRIMARY KEY (" + list + ")";
      }
      at = 20;
      const std::string sql = "CREATE TABLE [" + new_table + "] (" + columns + " )";
      Log("CopyTableStructure: Creating table: " + sql);
      RunStatement(*target_cn, sql);
      at = 30;
      if (create_indexes)
        CopyIndexesByPlan(source_cn, *target_cn, table, new_table, {}, false, key.has_value());
      return true;
    } catch (const ZtError& e) {
      RaiseStructureNotCopied(e, new_table);
    }
  });
}

// The engines' index plans are composed the way CreateIndex composes them (names by the PK_ /
// UN_ / IN_ rules), but run here statement by statement, so that they join the transaction the
// copy of the table runs in.
void CZtDTMgr::CopyIndexesByPlan(const std::shared_ptr<Connection>& source_cn,
                                 Connection& target_cn, const std::string& table,
                                 const std::string& new_table, const std::string& on_table,
                                 bool primary_only, bool key_made) {
  const std::string& target_table = on_table.empty() ? new_table : on_table;
  for (const auto& index : PrimaryFirst(GetTableIndexes(source_cn, table))) {
    if (primary_only && index.kind != kIndexKindPrimaryKey) break;
    if (key_made && index.kind == kIndexKindPrimaryKey) continue;
    // An engine that folds names (PostgreSQL) reports "in_..." for an "IN_..." index: the
    // prefix is the library's, in its own spelling, so that it is not added a second time.
    std::string written = index.name;
    for (const char* prefix : {"IN_", "UN_"})
      if (written.size() > 3 &&
          platform::AsciiLower(written.substr(0, 3)) == platform::AsciiLower(prefix))
        written.replace(0, 3, prefix);
    const std::string name = GeneratedIndexName(new_table, written, index.kind);
    const auto plan = target_cn.Dialect().PlanCreateIndex(target_cn, target_table, index.columns,
                                                          name, index.kind);
    for (const auto& sql : plan.statements) {
      Log("CopyTableStructure: Creating indexes: " + sql);
      RunStatement(target_cn, sql);
    }
  }
}

// ---- Rows ------------------------------------------------------------------------------------

void CZtDTMgr::CopyRows(const std::shared_ptr<Connection>& source_cn,
                        const std::shared_ptr<Connection>& target_cn, const std::string& table,
                        TableCopyResult& result) {
  if (ProviderOfConnection(*source_cn) != ProviderOfConnection(*target_cn))
    CopyHeterogeneousRecordset(source_cn, target_cn, table, result);
  else
    CopyRecordsOfTable(source_cn, target_cn, table, result);
}

void CZtDTMgr::CopyHeterogeneousRecordset(const std::shared_ptr<Connection>& source_cn,
                                          const std::shared_ptr<Connection>& target_cn,
                                          const std::string& table, TableCopyResult& result) {
  Trap at(kTypeName, "CopyHeterogeneousRecordset");
  at.Reraising([&] {
    at = 10;
    CopyRecordsOfTable(source_cn, target_cn, table, result);
    at = 20;
    const std::int64_t target_rows = CountRows(*target_cn, table);
    Log("Successfully copied from " + source_cn->Engine() + " " + Br(table) + " (" +
        std::to_string(result.source_rows) + ") to " + target_cn->Engine() + " " + Br(table) +
        " (" + std::to_string(target_rows));
  });
}

void CZtDTMgr::CopyRecordsOfTable(const std::shared_ptr<Connection>& source_cn,
                                  const std::shared_ptr<Connection>& target_cn,
                                  const std::string& table, TableCopyResult& result) {
  const std::string sql = "SELECT * FROM " + Br(table);
  result.source_rows = CountRows(*source_cn, table);
  auto source = std::make_shared<Recordset>();
  source->Open(sql, source_cn, ado::adOpenForwardOnly, ado::adLockReadOnly);
  auto target = std::make_shared<Recordset>();
  target->Open(sql, target_cn, ado::adOpenKeyset, ado::adLockOptimistic);
  copy_->table = table;
  copy_->total = result.source_rows;
  copy_->record_savepoints =
      ProviderOfConnection(*target_cn) == kProviderPostgreSql && target_cn->InTransaction();
  struct Reset {
    CopyState& s;
    ~Reset() {
      s.table.clear();
      s.total = -1;
      s.record_savepoints = false;
    }
  } reset{*copy_};
  ReportProgress(0, false);
  CopyRecordset(source, target, {}, &result.messages);
  result.rows = copy_->copied;
  result.failed = copy_->failed;
  ReportProgress(copy_->copied + copy_->failed, true);
  source->Close();
  target->Close();
}

void CZtDTMgr::ReportProgress(std::int64_t rows_done, bool done) {
  if (!copy_->progress || copy_->table.empty()) return;
  CopyProgress p;
  p.table = copy_->table;
  p.rows_done = rows_done;
  p.rows_total = copy_->total;
  p.done = done;
  copy_->progress(p);
}

void CZtDTMgr::CopyRecordset(const std::shared_ptr<Recordset>& source,
                             const std::shared_ptr<Recordset>& target, const Variant& filter,
                             std::vector<std::string>* messages) {
  Trap at(kTypeName, "CopyRecordset");
  at.Key(" , Source: " + (source ? source->Source() : std::string()) +
         " , Target: " + (target ? target->Source() : std::string()) +
         " , Filter: " + (filter.IsEmpty() || filter.IsNull() ? std::string() : filter.ToText()));
  at.Reraising([&] {
    at = 10;
    copy_->copied = 0;
    copy_->failed = 0;
    if (!filter.IsEmpty() && !filter.IsNull()) source->SetFilter(filter);
    at = 20;
    const std::shared_ptr<Connection> target_cn = target->ActiveConnection();
    const bool savepoints = copy_->record_savepoints && target_cn;
    while (!source->Eof()) {
      if (savepoints) target_cn->Execute("SAVEPOINT zt_copy_record");
      try {
        CopyRecord(target, source, true);
        if (savepoints) target_cn->Execute("RELEASE SAVEPOINT zt_copy_record");
        ++copy_->copied;
      } catch (const ZtError& e) {
        if (savepoints) {
          // Released as well: ROLLBACK TO leaves the savepoint open for the next to nest in.
          target_cn->Execute("ROLLBACK TO SAVEPOINT zt_copy_record");
          target_cn->Execute("RELEASE SAVEPOINT zt_copy_record");
        }
        Err().Clear();
        ++copy_->failed;
        // The first refusals are kept with their reasons; the count says the rest.
        if (messages && messages->size() < 20) messages->push_back(e.Description());
      }
      const std::int64_t done = copy_->copied + copy_->failed;
      if (done % kProgressEvery == 0) ReportProgress(done, false);
      source->MoveNext();
    }
    at = 30;
    if (copy_->failed > 0 && messages) {
      VariantArray args;
      args.items = {Variant(copy_->failed), Variant(source->Source()), Variant(target->Source())};
      messages->push_back(ZtErr_GetMessage("NUM_FAILED_RECORDS", "", args));
    }
    Log(std::string(kTypeName) + ".CopyRecordset, Copied:" + std::to_string(copy_->copied) +
        ", Failed:" + std::to_string(copy_->failed));
  });
}

void CZtDTMgr::CopyRecord(const std::shared_ptr<Recordset>& target,
                          const std::shared_ptr<Recordset>& source, bool add_new) {
  Trap at(kTypeName, "CopyRecord");
  at.Key(", SourcePosition: " + std::to_string(source->AbsolutePosition()) +
         ", SourceStatus: " + std::to_string(source->EditMode()));
  at.Reraising([&] {
    at = 10;
    if (add_new) target->AddNew();
    try {
      at = 20;
      auto& fields = target->GetFields();
      for (std::int32_t i = 0; i < fields.Count(); ++i) {
        Field& f = fields.Item(i);
        // Only the fields present in both are written.
        if (!source->HasField(f.Name())) continue;
        CopyFieldValue(f, source->Value(f.Name()));
      }
      at = 30;
      target->Update();
    } catch (...) {
      // The refused record leaves nothing behind in the target's edit buffer.
      target->CancelUpdate();
      throw;
    }
  });
}

void CZtDTMgr::CopyFieldValue(Field& target, const Variant& value) {
  schema::CopyTarget t;
  t.name = target.Name();
  t.type = target.Type();
  t.defined_size = target.DefinedSize();
  t.attributes = target.Attributes();
  std::string message;
  switch (schema::DecideCopyValue(t, value, limited_messages_, &message)) {
    case schema::CopyDecision::kWrite:
      target.SetValue(schema::CopyValueFor(t, value));
      break;
    case schema::CopyDecision::kSkip:
      break;
    case schema::CopyDecision::kRefuseRecord:
      throw ZtError(vbObjectError, std::string(kTypeName), message);
  }
}

std::int64_t CZtDTMgr::RecordsCopied() const {
  return copy_->copied;
}

std::int64_t CZtDTMgr::RecordsFailed() const {
  return copy_->failed;
}

void CZtDTMgr::SetCopyProgress(CopyProgressSink sink) {
  copy_->progress = std::move(sink);
}

void CZtDTMgr::SetCopyRejects(CopyRejectSink sink) {
  copy_->rejects = std::move(sink);
}

const std::vector<TableCopyResult>& CZtDTMgr::LastCopyResults() const {
  return copy_->results;
}

// ---- Data stores -------------------------------------------------------------------------------

std::vector<std::string> CZtDTMgr::GetTables(const std::shared_ptr<Connection>& cn) {
  Trap at(kTypeName, "GetTables", "");
  at.NoStep();
  return at.Reraising([&] {
    std::vector<std::string> out;
    auto rs = cn->OpenSchema(ado::adSchemaTables);
    for (; !rs->Eof(); rs->MoveNext()) {
      const std::string name = rs->Value("TABLE_NAME").ToText();
      if (rs->Value("TABLE_TYPE").ToText() == "TABLE" && !StartsWithMSys(name)) out.push_back(name);
    }
    return out;
  });
}

bool CZtDTMgr::CopyPhysicalDataStore(CZtDataStore& source, CZtDataStore& target,
                                     CZtDataStore& copied, bool must_exist_on_sql_server,
                                     std::vector<std::string>* not_copied) {
  Trap at(kTypeName, "CopyPhysicalDataStore", ", line # ");
  copy_->results.clear();
  copy_->objects.clear();
  copy_->in_store_copy = true;
  struct Reset {
    CopyState& s;
    ~Reset() { s.in_store_copy = false; }
  } reset{*copy_};
  return at.Reraising([&] {
    at = 10;
    Log("Copying from Data Store: " + copied.DataStoreName() + " to " + target.DataStoreName());
    at = 20;
    std::shared_ptr<Connection> target_cn;
    try {
      target_cn = target.GetConnection(1);
    } catch (const ZtError&) {
      Err().Clear();
    }
    if (!target_cn) {
      if (must_exist_on_sql_server && target.GeneralProviderType() == kProviderSqlServer) {
        VariantArray args;
        args.items = {Variant(target.DataStoreName()), Variant(target.Location())};
        ZtErr_RaiseFormatted(kDbNotInSqlServer, "ERR_DB_NOT_ALREADY_IN_SQL_SVR",
                             std::string(kTypeName), args);
      }
      target.CreatePhysicalDataStore();
      target_cn = target.GetConnection(1);
    }
    at = 30;
    const std::shared_ptr<Connection> source_cn = source.GetConnection(1);
    bool all = true;
    for (const auto& name : GetTables(source_cn)) {
      bool ok = false;
      try {
        ok = CopyTable(source, source_cn, name, target, kCopyIndexes);
      } catch (const ZtError&) {
        Err().Clear();
      }
      if (!ok) {
        Log("Table " + name + " was not copied.", kEventWarning);
        if (not_copied) not_copied->push_back(name + " not copied");
        all = false;
      }
    }
    at = 35;
    // Identities, relationships and views: what is not kept is logged with its reason and
    // listed in LastCopyObjects; the tables themselves are complete either way.
    std::vector<std::string> copied;
    for (const auto& r : copy_->results)
      if (r.copied) copied.push_back(r.table);
    CopyStoreObjects(source_cn, target, copied, copied, true);
    at = 40;
    // The row counts of both sides, table by table: what the copy says it did is checked
    // against what the target now holds.
    for (auto& r : copy_->results) {
      if (!r.copied) continue;
      r.source_rows = CountRows(*source_cn, r.table);
      r.target_rows = CountRows(*target_cn, r.table);
      if (r.source_rows != r.target_rows)
        Log("CopyPhysicalDataStore: table " + r.table + " has " + std::to_string(r.source_rows) +
                " rows in the source and " + std::to_string(r.target_rows) + " in the target.",
            kEventWarning);
    }
    return all;
  });
}

bool CZtDTMgr::VerifySameFields(CZtDataStore& source, CZtDataStore& target,
                                const std::string& table) {
  Trap at(kTypeName, "VerifySameFields");
  return at.Reraising([&] {
    at = 10;
    auto a = EmptySelect(*source.GetConnection(1), table);
    auto b = EmptySelect(*target.GetConnection(1), table);
    at = 20;
    return VerifySameFields_Recordset(*a, *b);
  });
}

bool CZtDTMgr::VerifySameFields_Recordset(Recordset& source, Recordset& target) {
  auto& a = source.GetFields();
  auto& b = target.GetFields();
  if (a.Count() != b.Count()) return false;
  for (std::int32_t i = 0; i < a.Count(); ++i)
    if (!b.Has(a.Item(i).Name())) return false;
  return true;
}

}  // namespace zt
