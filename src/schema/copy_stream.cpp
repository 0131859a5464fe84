// The streaming copy of a table's rows (see copy_stream.h).
#include "schema/copy_stream.h"

#include <future>
#include <map>
#include <utility>

#include "platform/sql_text.h"
#include "schema/copy_rules.h"
#include "zt/error.h"

namespace zt::schema {

namespace {

// One column that is written: where it is in the source row, and the target field the rules
// judge the value against.
struct CopyColumn {
  int source_index = 0;
  std::string source_name;
  CopyTarget target;
};

std::string Bracketed(const std::string& name) {
  return "[" + name + "]";
}

std::string SelectAll(const std::string& table) {
  return "SELECT * FROM " + Bracketed(table);
}

std::shared_ptr<Recordset> OpenForward(const std::string& sql,
                                       const std::shared_ptr<Connection>& cn) {
  auto rs = std::make_shared<Recordset>();
  rs->Open(sql, cn, ado::adOpenForwardOnly, ado::adLockReadOnly);
  return rs;
}

// The target's fields in their order, each with the source column of the same name; fields
// the source lacks and row-version fields (they fill themselves) are left out.
// `same_layout` tells whether both tables have exactly the same columns in the same order.
std::vector<CopyColumn> MatchColumns(Recordset& source, const std::shared_ptr<Connection>& target,
                                     const std::string& table, bool& same_layout) {
  auto probe = OpenForward(SelectAll(table) + " WHERE 1=0", target);
  FieldsCollection& tf = probe->GetFields();
  FieldsCollection& sf = source.GetFields();
  std::vector<CopyColumn> out;
  for (std::int32_t i = 0; i < tf.Count(); ++i) {
    Field& f = tf.Item(i);
    const int s = sf.IndexOf(f.Name());
    if (s < 0 || (f.Attributes() & ado::adFldRowVersion)) continue;
    out.push_back({s, sf.Item(s).Name(), {f.Name(), f.Type(), f.DefinedSize(), f.Attributes()}});
  }
  same_layout = static_cast<std::int32_t>(out.size()) == tf.Count() &&
                static_cast<std::int32_t>(out.size()) == sf.Count();
  for (std::size_t i = 0; same_layout && i < out.size(); ++i)
    same_layout = out[i].source_index == static_cast<int>(i);
  probe->Close();
  return out;
}

// The table's name as the target engine keeps it. Bracketed names in SQL text are folded as
// the engine folds unquoted names, while the bulk path quotes the name exactly as given; so the
// bulk load is addressed by the name the engine lists (as given when it lists it so, else the
// one that differs only in case).
std::string StoredTableName(const std::shared_ptr<Connection>& target, const std::string& table) {
  auto rs = target->OpenSchema(ado::adSchemaTables);
  std::string folded;
  for (; !rs->Eof(); rs->MoveNext()) {
    const Variant v = rs->Value("TABLE_NAME");
    if (v.IsNull()) continue;
    const std::string name = v.ToText();
    if (name == table) return name;
    if (folded.empty() && platform::AsciiLower(name) == platform::AsciiLower(table)) folded = name;
  }
  return folded.empty() ? table : folded;
}

// The counting shared by every path: rows written, records refused with their first texts.
class Tally {
 public:
  Tally(StreamCopyResult& result, const StreamCopyOptions& options)
      : result_(result), options_(options) {}
  void Written() {
    ++result_.rows;
    Step();
  }
  // `source` is positioned on the refused record.
  void Refused(Recordset& source, const std::string& message) {
    ++result_.failed;
    if (options_.refused) {
      FieldsCollection& f = source.GetFields();
      if (names_.empty())
        for (std::int32_t i = 0; i < f.Count(); ++i) names_.push_back(f.Item(i).Name());
      values_.resize(names_.size());
      for (std::size_t i = 0; i < names_.size(); ++i)
        values_[i] = f.Item(static_cast<std::int32_t>(i)).Value();
      options_.refused(names_, values_, message);
    }
    if (result_.messages.size() < options_.max_messages) result_.messages.push_back(message);
    Step();
  }
  void Reset() {
    result_.rows = result_.failed = 0;
    result_.messages.clear();
    done_ = 0;
    if (options_.restart) options_.restart();
  }
  void End() {
    if (options_.progress) options_.progress(done_);
  }

 private:
  void Step() {
    ++done_;
    if (options_.progress && options_.progress_every > 0 && done_ % options_.progress_every == 0)
      options_.progress(done_);
  }
  StreamCopyResult& result_;
  const StreamCopyOptions& options_;
  std::int64_t done_ = 0;
  std::vector<std::string> names_;
  std::vector<Variant> values_;
};

// The current source record judged by the rules: false when the record is refused (`message`
// says why). Values are passed on untouched; a value the rules leave out becomes Null, and
// `written` (when given) marks which columns carry a value.
bool JudgeRecord(Recordset& source, const std::vector<CopyColumn>& columns, bool limited,
                 std::vector<Variant>& values, std::vector<bool>* written, std::string& message) {
  FieldsCollection& sf = source.GetFields();
  for (std::size_t i = 0; i < columns.size(); ++i) {
    Variant v = sf.Item(columns[i].source_index).Value();
    switch (DecideCopyValue(columns[i].target, v, limited, &message)) {
      case CopyDecision::kRefuseRecord:
        return false;
      case CopyDecision::kSkip:
        values[i] = Variant::Null();
        if (written) (*written)[i] = false;
        break;
      case CopyDecision::kWrite:
        values[i] = CopyValueFor(columns[i].target, std::move(v));
        if (written) (*written)[i] = true;
        break;
    }
  }
  return true;
}

std::vector<std::string> TargetNames(const std::vector<CopyColumn>& columns) {
  std::vector<std::string> names;
  for (const CopyColumn& c : columns) names.push_back(c.target.name);
  return names;
}

// Thrown past the source loop when the engine refused the bulk load (not the source).
struct BulkRefused {};

// Whether a failed bulk load was the engine refusing the data, which the record-by-record
// copy then counts per record. A lost server, a time-out or a deadlock ends the copy instead:
// going on record by record would only hide the real cause behind the next failure.
[[noreturn]] void RefuseOrRethrow(const ZtError& e) {
  switch (e.Category()) {
    case ErrorCategory::kNone:
    case ErrorCategory::kOther:
    case ErrorCategory::kIntegrity:
    case ErrorCategory::kData:
      throw BulkRefused{};
    default:
      throw;
  }
}

void CopyBulk(Recordset& source, const std::shared_ptr<Connection>& target,
              const std::string& table, const std::vector<CopyColumn>& columns,
              const StreamCopyOptions& options, Tally& tally) {
  BulkInserter bulk(*target, StoredTableName(target, table), TargetNames(columns));
  std::vector<Variant> values(columns.size());
  std::string message;
  for (; !source.Eof(); source.MoveNext()) {
    if (!JudgeRecord(source, columns, options.limited_messages, values, nullptr, message)) {
      tally.Refused(source, message);
      continue;
    }
    try {
      bulk.AddRow(values);
    } catch (const ZtError& e) {
      RefuseOrRethrow(e);
    }
    tally.Written();
  }
  try {
    bulk.Finish();
  } catch (const ZtError& e) {
    RefuseOrRethrow(e);
  }
}

// Record by record, as the record-by-record copy does: each accepted record is one INSERT of
// the columns that carry a value (the others keep the table's default), under a savepoint so
// that a record the engine refuses is counted and the transaction goes on.
void CopyPerRecord(Recordset& source, const std::shared_ptr<Connection>& target,
                   const std::string& table, const std::vector<CopyColumn>& columns,
                   const StreamCopyOptions& options, Tally& tally) {
  const bool own = !target->InTransaction();
  if (own) target->BeginTrans();
  try {
    // One prepared INSERT per set of written columns; few sets occur in practice, and the
    // cache is emptied should a table produce many.
    std::map<std::vector<bool>, std::unique_ptr<PreparedStatement>> inserts;
    std::vector<Variant> values(columns.size());
    std::vector<bool> written(columns.size());
    std::string message;
    for (; !source.Eof(); source.MoveNext()) {
      if (!JudgeRecord(source, columns, options.limited_messages, values, &written, message)) {
        tally.Refused(source, message);
        continue;
      }
      // A record with no value at all still becomes a row: its first column is written Null.
      bool any = false;
      for (bool w : written) any = any || w;
      if (!any && !written.empty()) written[0] = true;
      auto it = inserts.find(written);
      if (it == inserts.end()) {
        if (inserts.size() >= 64) inserts.clear();
        std::string names, marks;
        for (std::size_t i = 0; i < columns.size(); ++i) {
          if (!written[i]) continue;
          names += (names.empty() ? "" : ", ") + Bracketed(columns[i].target.name);
          marks += marks.empty() ? "?" : ", ?";
        }
        it = inserts
                 .emplace(written, std::make_unique<PreparedStatement>(
                                       *target, "INSERT INTO " + Bracketed(table) + " (" + names +
                                                    ") VALUES (" + marks + ")"))
                 .first;
      }
      PreparedStatement& st = *it->second;
      int p = 0;
      for (std::size_t i = 0; i < columns.size(); ++i) {
        if (!written[i]) continue;
        const std::int32_t type = columns[i].target.type;
        const std::string* bytes = values[i].AsString();
        if (bytes && (type == 128 || type == 204 || type == 205))
          st.BindBytes(p++, *bytes);
        else
          st.Bind(p++, values[i]);
      }
      target->Execute("SAVEPOINT zt_copy_record", nullptr, ado::adExecuteNoRecords);
      try {
        st.Execute();
      } catch (const ZtError& e) {
        // ROLLBACK TO keeps the savepoint open: released too, or every refused row would nest
        // one more (on SQLite a page bitmap each, 700 MB for a million refused rows).
        target->Execute("ROLLBACK TO SAVEPOINT zt_copy_record", nullptr, ado::adExecuteNoRecords);
        target->Execute("RELEASE SAVEPOINT zt_copy_record", nullptr, ado::adExecuteNoRecords);
        tally.Refused(source, e.Description());
        continue;
      }
      target->Execute("RELEASE SAVEPOINT zt_copy_record", nullptr, ado::adExecuteNoRecords);
      tally.Written();
    }
    if (own) target->CommitTrans();
  } catch (...) {
    if (own && target->InTransaction()) target->RollbackTrans();
    throw;
  }
}

// The file behind an SQLite connection's main database, "" for one in memory.
std::string SqliteFile(const std::shared_ptr<Connection>& cn) {
  auto rs = cn->Execute("SELECT file FROM pragma_database_list WHERE name = 'main'");
  if (!rs || rs->Eof()) return {};
  const Variant v = rs->Fields(0).Value();
  return v.IsNull() ? std::string() : v.ToText();
}

// The rows for which INSERT ... SELECT would not give what the rules give, as an SQL condition
// ("" when there can be none): a text longer than its target field, anything but text in a text
// field, anything but a number in a numeric one (the rules leave those out, INSERT ... SELECT
// would not).
std::string RefusalCondition(const std::vector<CopyColumn>& columns) {
  std::string where;
  for (const CopyColumn& c : columns) {
    const std::string col = Bracketed(c.source_name);
    std::string test;
    switch (c.target.type) {
      case ado::adChar:
      case ado::adWChar:
      case ado::adVarChar:
      case ado::adVarWChar:
        // Written so that the common row (a short text) costs the fewest steps: about a
        // third of the check's time on a table of short texts.
        if (c.target.defined_size > 0)
          test = "length(" + col + ") > " + std::to_string(c.target.defined_size) + " OR typeof(" +
                 col + ") IN ('integer', 'real', 'blob')";
        break;
      case ado::adSmallInt:
      case ado::adInteger:
      case ado::adSingle:
      case ado::adDouble:
      case ado::adBoolean:
      case ado::adNumeric:
      case 139:
        // A text that reads as a number converts as the rules would write it; comparing it
        // with its own cast applies numeric affinity to it, and only a number survives that
        // (a blob never equals a number).
        test = "typeof(" + col + ") IN ('text', 'blob') AND NOT (" + col + " = CAST(" + col +
               " AS INTEGER) OR " + col + " = CAST(" + col + " AS REAL))";
        break;
      default:
        break;
    }
    if (!test.empty()) where += (where.empty() ? "" : " OR ") + ("(" + test + ")");
  }
  return where;
}

// One INSERT ... SELECT from the attached source file, kept only when a read-only pass over the
// source finds no row that the rules would judge differently. When both tables have the same
// columns in the same order the statement names none, which lets SQLite copy the records without
// decoding them (its transfer optimisation); the check is kept apart from it for that reason, and
// runs on the source's own connection in a second thread while the rows go in, so that the copy
// costs about one pass rather than two. A refused row undoes the INSERT before it is committed.
bool CopyAttached(const std::shared_ptr<Connection>& source,
                  const std::shared_ptr<Connection>& target, const std::string& table,
                  const std::string& into_table, const std::vector<CopyColumn>& columns,
                  bool same_layout, StreamCopyResult& result) {
  const std::string file = SqliteFile(source);
  if (file.empty() || file == SqliteFile(target)) return false;
  std::string into, from;
  if (same_layout) {
    from = "*";
  } else {
    for (const CopyColumn& c : columns) {
      into += (into.empty() ? " (" : ", ") + Bracketed(c.target.name);
      from += (from.empty() ? "" : ", ") + Bracketed(c.source_name);
    }
    into += ")";
  }
  try {
    target->Execute("ATTACH DATABASE " + platform::SqlLiteral(file) + " AS zt_copy_source", nullptr,
                    ado::adExecuteNoRecords);
  } catch (const ZtError&) {
    return false;  // the source file cannot be attached (locked, unreadable): the general path
  }
  // Only this thread uses the source connection until the check is joined below.
  const std::string refused = RefusalCondition(columns);
  std::future<bool> refusals;
  if (!refused.empty())
    refusals = std::async(std::launch::async, [&] {
      try {
        auto rs =
            source->Execute("SELECT 1 FROM " + Bracketed(table) + " WHERE " + refused + " LIMIT 1");
        return rs && !rs->Eof();
      } catch (const ZtError&) {
        return true;  // not known to be clean: the general path judges each record
      }
    });
  std::int64_t affected = 0;
  bool copied = false;
  try {
    target->BeginTrans();
    try {
      target->Execute("INSERT INTO main." + Bracketed(into_table) + into + " SELECT " + from +
                          " FROM zt_copy_source." + Bracketed(table),
                      &affected, ado::adExecuteNoRecords);
      if (refusals.valid() && refusals.get()) {
        target->RollbackTrans();
      } else {
        target->CommitTrans();
        copied = true;
      }
    } catch (...) {
      if (target->InTransaction()) target->RollbackTrans();
      throw;
    }
  } catch (const ZtError&) {
    // A constraint of the target the rules cannot see: the general path counts it per record.
  }
  if (refusals.valid()) refusals.wait();
  target->Execute("DETACH DATABASE zt_copy_source", nullptr, ado::adExecuteNoRecords);
  if (!copied) return false;
  result.rows = affected;
  result.path = StreamPath::kAttach;
  return true;
}

}  // namespace

StreamCopyResult StreamTableRows(const std::shared_ptr<Connection>& source,
                                 const std::shared_ptr<Connection>& target,
                                 const std::string& table, const StreamCopyOptions& options) {
  StreamCopyResult result;
  Tally tally(result, options);
  const std::string& into = options.target_table.empty() ? table : options.target_table;
  auto rs = OpenForward(SelectAll(table), source);
  bool same_layout = false;
  const std::vector<CopyColumn> columns = MatchColumns(*rs, target, into, same_layout);
  const bool caller_transaction = target->InTransaction();
  // No column in common: there is nothing to write (an empty record is not a copy).
  if (columns.empty()) return result;

  if (options.allow_attach && !caller_transaction && source->Engine() == "SQLite" &&
      target->Engine() == "SQLite" &&
      CopyAttached(source, target, table, into, columns, same_layout, result)) {
    rs->Close();
    if (options.progress) options.progress(result.rows);
    return result;
  }

  if (!caller_transaction) {
    try {
      CopyBulk(*rs, target, into, columns, options, tally);
      tally.End();
      return result;
    } catch (const BulkRefused&) {
      // The load is undone; the source is read again and each record judged on its own.
      tally.Reset();
      rs->Close();
      rs = OpenForward(SelectAll(table), source);
    }
  }
  result.path = StreamPath::kPerRecord;
  CopyPerRecord(*rs, target, into, columns, options, tally);
  tally.End();
  return result;
}

}  // namespace zt::schema
