// CZtRecordMgr: duplicate and Null record removal. The engines that cannot run here (SQL Server,
// Oracle) get the old walk with its exact statement; the engines we run get the same outcome
// set-based (see zt/recordset/recordset_utils.h for the rules per engine).
#include <map>
#include <string_view>

#include "platform/sql_text.h"
#include "recordset/record_mgr_internal.h"
#include "zt/recordset/recordset_utils.h"

namespace zt {

using platform::BracketName;

namespace {
constexpr const char* kTypeName = "CZtRecordMgr";
}  // namespace

namespace recordset {

namespace {

bool IsEmptyName(const Variant& v) {
  return v.IsEmpty() || v.IsNull() || v.ToText().empty();
}

}  // namespace

std::optional<std::vector<std::string>> DuplicateColumns(const Variant& columns) {
  const VariantArray* a = columns.AsArray();
  if (!a || a->items.empty() || IsEmptyName(a->items.front())) return std::nullopt;
  std::vector<std::string> names;
  for (const Variant& v : a->items)
    if (!IsEmptyName(v)) names.push_back(v.ToText());
  return names;
}

std::string DuplicateWalkStatement(const std::string& table,
                                   const std::vector<std::string>& names) {
  const std::string& first = names.front();
  std::string select = " [" + first + "]";
  std::string join;
  for (std::size_t i = 1; i < names.size(); ++i) {
    select += ", [" + names[i] + "]";
    join += " AND [" + names[i] + "]= a.[" + names[i] + "]";
  }
  // The blanks are those of the old statement, down to the doubled ones.
  return "SELECT " + select + " FROM [" + table + "] AS a WHERE ( [" + first + "]  In " +
         " (SELECT [" + first + "] FROM [" + table + "] As tmp " + " GROUP BY " + select +
         " HAVING Count(*)>1 " + join + ")) " + " ORDER BY " + select;
}

std::string NullRecordsCondition(const Variant& columns) {
  const VariantArray* a = columns.AsArray();
  if (!a) return {};
  std::string condition;
  for (const Variant& v : a->items) {
    if (IsEmptyName(v)) continue;
    condition += (condition.empty() ? "" : " OR ") + ("([" + v.ToText() + "] IS NULL)");
  }
  return condition;
}

std::string NullRecordsStatement(const std::string& table, const Variant& columns) {
  const std::string condition = NullRecordsCondition(columns);
  if (table.empty() || condition.empty()) return {};
  return " DELETE FROM [" + table + "] WHERE " + condition;
}

bool RemoveNullRecords(const std::string& table, const std::shared_ptr<Connection>& cn,
                       const Variant& columns, std::int64_t* deleted) {
  Trap at(kTypeName, "RemoveNullRecords");
  return at.Reraising([&] {
    at = 10;
    if (deleted) *deleted = 0;
    if (!cn) return false;
    const std::string sql = NullRecordsStatement(table, columns);
    if (sql.empty()) return false;
    at = 20;
    std::int64_t n = 0;
    cn->Execute(sql, &n, ado::adCmdText | ado::adExecuteNoRecords);
    if (deleted) *deleted = n;
    return true;
  });
}

}  // namespace recordset

namespace {

using recordset::DuplicateColumns;
using recordset::DuplicateWalkStatement;

// How an engine removes duplicates. Engines not in the table take the old walk.
enum class Way { kWalk, kRowIdentity, kKeyOrGroups };
struct EngineWay {
  std::string_view engine;
  Way way;
  std::string_view row_identity;  // for kRowIdentity
  // The all-empty first group goes in the same statement as the other duplicates (one pass
  // over the table) instead of after a count of its own. PostgreSQL computes the extra window
  // column with the row number; SQLite buffers every partition for lead(), which costs more
  // than the separate count.
  bool empty_group_inline = false;
};
constexpr EngineWay kWays[] = {
    {"SQLite", Way::kRowIdentity, "rowid", false},
    {"PostgreSQL", Way::kRowIdentity, "ctid", true},
    {"MariaDB", Way::kKeyOrGroups, "", false},
    {"MySQL", Way::kKeyOrGroups, "", false},
};

EngineWay WayOf(const Connection& cn) {
  const std::string engine = cn.Engine();
  for (const EngineWay& w : kWays)
    if (w.engine == engine) return w;
  return {"", Way::kWalk, "", false};
}

std::string Join(const std::vector<std::string>& parts, std::string_view glue,
                 std::string_view prefix = {}) {
  std::string out;
  for (const auto& p : parts)
    out += (out.empty() ? "" : std::string(glue)) + std::string(prefix) + p;
  return out;
}

std::int64_t ScalarInt(Connection& cn, const std::string& sql) {
  auto rs = cn.Execute(sql);
  if (rs->Eof()) return 0;
  const Variant v = rs->Fields(0).Value();
  return v.IsNull() ? 0 : v.ToInt64();
}

// The statements of the set-based removal for one table and column list, built once.
class DuplicatePlan {
 public:
  DuplicatePlan(Connection& cn, EngineWay way, const std::string& table,
                const std::vector<std::string>& names)
      : cn_(cn), way_(way), table_(BracketName(table)) {
    for (const auto& n : names) cols_.push_back(BracketName(n));
    col_list_ = Join(cols_, ", ");
    for (const auto& c : cols_)
      not_null_ += (not_null_.empty() ? "" : " AND ") + c + " IS NOT NULL";
    BuildEmptyGroupTests();
  }

  // Whether the first duplicate group in the engine's sort order holds only Empty-equal values
  // (and so goes as a whole). Queries only.
  bool FirstGroupIsEmpty() const {
    if (empty_cond_.empty()) return false;
    if (ScalarInt(cn_, "SELECT COUNT(*) FROM " + table_ + " WHERE " + empty_cond_) < 2)
      return false;
    // Groups that sort before the empty one (a negative number, say) come first in the walk.
    return ScalarInt(cn_, "SELECT COUNT(*) FROM (SELECT " + cols_.front() + " AS zt_x FROM " +
                              table_ + " WHERE " + not_null_ + " AND (" + before_empty_ +
                              ") GROUP BY " + col_list_ + " HAVING COUNT(*) > 1) AS zt_b") == 0;
  }
  std::string EmptyGroupDelete() const { return "DELETE FROM " + table_ + " WHERE " + empty_cond_; }

  // Every row after the first of its group, as one statement (the row-identity engines). With
  // the empty group inline, also the first row of the all-empty group when that group comes
  // first: lead() tells that the group has a second row, and the test for duplicate groups that
  // sort before the empty one is an uncorrelated subquery the engine runs only when such a row
  // comes up.
  std::string RowIdentityDelete() const {
    const std::string rid(way_.row_identity);
    const bool inline_empty = EmptyGroupInline();
    std::string select = "SELECT " + rid + ", row_number() OVER zt_w AS zt_rn";
    std::string first_too;
    if (inline_empty) {
      select += ", lead(" + rid + ") OVER zt_w AS zt_next, CASE WHEN " + empty_cond_ +
                " THEN 1 ELSE 0 END AS zt_e";
      first_too = " OR (zt_e = 1 AND zt_next IS NOT NULL AND NOT EXISTS (SELECT 1 FROM " + table_ +
                  " WHERE " + not_null_ + " AND (" + before_empty_ + ") GROUP BY " + col_list_ +
                  " HAVING COUNT(*) > 1))";
    }
    return "DELETE FROM " + table_ + " WHERE " + rid + " IN (SELECT " + rid + " FROM (" + select +
           " FROM " + table_ + " WHERE " + not_null_ + " WINDOW zt_w AS (PARTITION BY " +
           col_list_ + " ORDER BY " + rid + ")) AS zt_d WHERE zt_rn > 1" + first_too + ")";
  }
  // Whether RowIdentityDelete removes the empty first group itself.
  bool EmptyGroupInline() const { return way_.empty_group_inline && !empty_cond_.empty(); }

  // The same by primary key (MariaDB): a multi-table DELETE over a derived table, which MariaDB
  // materialises, so that the table can be read and changed in one statement.
  std::string KeyDelete(const std::vector<std::string>& key) const {
    std::vector<std::string> k, on;
    for (const auto& c : key) {
      k.push_back(BracketName(c));
      on.push_back("zt_t." + BracketName(c) + " = zt_d." + BracketName(c));
    }
    return "DELETE zt_t FROM " + table_ + " AS zt_t INNER JOIN (SELECT " + Join(k, ", ") +
           ", row_number() OVER (PARTITION BY " + col_list_ + " ORDER BY " + Join(k, ", ") +
           ") AS zt_rn FROM " + table_ + " WHERE " + not_null_ + ") AS zt_d ON " +
           Join(on, " AND ") + " WHERE zt_d.zt_rn > 1";
  }

  std::string GroupsQuery() const {
    return "SELECT " + col_list_ + ", COUNT(*) AS zt_n FROM " + table_ + " WHERE " + not_null_ +
           " GROUP BY " + col_list_ + " HAVING COUNT(*) > 1";
  }
  std::string GroupDelete(std::int64_t limit) const {
    std::string where;
    for (const auto& c : cols_) where += (where.empty() ? "" : " AND ") + c + " = ?";
    return "DELETE FROM " + table_ + " WHERE " + where + " LIMIT " + std::to_string(limit);
  }

  // Rows after the first of their group, counted.
  std::string CountQuery() const {
    return "SELECT COUNT(*) FROM (SELECT row_number() OVER (PARTITION BY " + col_list_ +
           " ORDER BY " + col_list_ + ") AS zt_rn FROM " + table_ + " WHERE " + not_null_ +
           ") AS zt_d WHERE zt_rn > 1";
  }

  std::size_t ColumnCount() const { return cols_.size(); }

 private:
  // What "equal to Empty" means per column type: 0, false or ''. A column of another type
  // (date, binary, GUID) never is, and then no group goes as a whole.
  void BuildEmptyGroupTests() {
    auto rs = cn_.Execute("SELECT " + col_list_ + " FROM " + table_ + " WHERE 1 = 0");
    std::vector<std::string> empty_values;
    for (std::size_t i = 0; i < cols_.size(); ++i) {
      const std::int32_t t = rs->Fields(static_cast<std::int32_t>(i)).Type();
      switch (t) {
        case ado::adBoolean:
          empty_values.push_back("FALSE");
          break;
        case ado::adSmallInt:
        case ado::adInteger:
        case ado::adSingle:
        case ado::adDouble:
        case ado::adCurrency:
        case ado::adTinyInt:
        case ado::adUnsignedTinyInt:
        case ado::adBigInt:
        case ado::adNumeric:
          empty_values.push_back("0");
          break;
        case ado::adChar:
        case ado::adWChar:
        case ado::adVarChar:
        case ado::adVarWChar:
        case ado::adLongVarChar:
        case ado::adLongVarWChar:
          empty_values.push_back("''");
          break;
        default:
          return;
      }
    }
    std::string equal_so_far;
    for (std::size_t i = 0; i < cols_.size(); ++i) {
      const std::string eq = cols_[i] + " = " + empty_values[i];
      before_empty_ += (before_empty_.empty() ? "(" : " OR (") + equal_so_far + cols_[i] + " < " +
                       empty_values[i] + ")";
      equal_so_far += eq + " AND ";
      empty_cond_ += (empty_cond_.empty() ? "" : " AND ") + eq;
    }
  }

  Connection& cn_;
  EngineWay way_;
  std::string table_;
  std::vector<std::string> cols_;
  std::string col_list_, not_null_, empty_cond_, before_empty_;
};

std::vector<std::string> PrimaryKey(Connection& cn, const std::string& table) {
  auto rs = cn.OpenSchema(ado::adSchemaPrimaryKeys,
                          Variant::Array({Variant(), Variant(), Variant(table)}));
  std::map<std::int64_t, std::string> ordered;
  std::int64_t n = 0;
  while (!rs->Eof()) {
    const Variant ord = rs->HasField("ORDINAL") ? rs->Value("ORDINAL") : Variant();
    ordered[ord.IsNull() || ord.IsEmpty() ? n : ord.ToInt64()] = rs->Value("COLUMN_NAME").ToText();
    ++n;
    rs->MoveNext();
  }
  std::vector<std::string> key;
  for (auto& [_, name] : ordered) key.push_back(name);
  return key;
}

// One duplicate group per statement, for a MariaDB table without a primary key: nothing else
// tells two equal rows apart. The group keys are read first (they are the duplicates only).
std::int64_t DeleteByGroups(Connection& cn, const DuplicatePlan& plan) {
  std::vector<std::vector<Variant>> groups;
  {
    auto rs = cn.Execute(plan.GroupsQuery());
    while (!rs->Eof()) {
      std::vector<Variant> row;
      for (std::size_t i = 0; i <= plan.ColumnCount(); ++i)
        row.push_back(rs->Fields(static_cast<std::int32_t>(i)).Value());
      groups.push_back(std::move(row));
      rs->MoveNext();
    }
  }
  std::map<std::int64_t, std::unique_ptr<PreparedStatement>> by_limit;
  std::int64_t deleted = 0;
  for (const auto& g : groups) {
    const std::int64_t limit = g.back().ToInt64() - 1;
    auto& stmt = by_limit[limit];
    if (!stmt) stmt = std::make_unique<PreparedStatement>(cn, plan.GroupDelete(limit));
    for (std::size_t i = 0; i < plan.ColumnCount(); ++i) stmt->Bind(static_cast<int>(i), g[i]);
    deleted += stmt->Execute();
  }
  return deleted;
}

// The old walk: the duplicates in sort order, each record compared with the last kept one.
std::int64_t Walk(const std::shared_ptr<Connection>& cn, const std::string& table,
                  const std::vector<std::string>& names, Trap& at) {
  at = 40;
  auto rs = std::make_shared<Recordset>();
  rs->Open(DuplicateWalkStatement(table, names), cn, ado::adOpenKeyset, ado::adLockOptimistic,
           ado::adCmdText);
  at = 50;
  // Starts Empty: a first record of 0, "" or Null values counts as a duplicate of it.
  std::vector<Variant> match(static_cast<std::size_t>(rs->GetFields().Count()));
  std::int64_t deleted = 0;
  at = 60;
  while (!rs->Eof()) {
    bool duplicate = true;
    for (std::size_t i = 0; i < match.size() && duplicate; ++i) {
      const auto c = Variant::Compare(rs->Fields(static_cast<std::int32_t>(i)).Value(), match[i]);
      if (c && *c != 0) duplicate = false;  // a comparison with Null counts as equal
    }
    if (duplicate) {
      at = 70;
      rs->Delete();
      ++deleted;
    } else {
      for (std::size_t i = 0; i < match.size(); ++i)
        match[i] = rs->Fields(static_cast<std::int32_t>(i)).Value();
    }
    at = 80;
    rs->MoveNext();
  }
  at = 90;
  CZTADOUtilities().CloseRecordsetADO(rs);
  return deleted;
}

// The set-based removal, in one transaction (the caller's when one is open).
std::int64_t SetBased(Connection& cn, EngineWay way, const std::string& table,
                      const std::vector<std::string>& names, Trap& at) {
  at = 100;
  const bool own = !cn.InTransaction();
  if (own) cn.BeginTrans();
  try {
    at = 110;
    DuplicatePlan plan(cn, way, table, names);
    std::int64_t deleted = 0, n = 0;
    at = 120;
    if (!plan.EmptyGroupInline() && plan.FirstGroupIsEmpty()) {
      cn.Execute(plan.EmptyGroupDelete(), &n, ado::adExecuteNoRecords);
      deleted += n;
    }
    at = 130;
    if (way.way == Way::kRowIdentity) {
      cn.Execute(plan.RowIdentityDelete(), &n, ado::adExecuteNoRecords);
      deleted += n;
    } else {
      const auto key = PrimaryKey(cn, table);
      at = 140;
      if (!key.empty()) {
        cn.Execute(plan.KeyDelete(key), &n, ado::adExecuteNoRecords);
        deleted += n;
      } else {
        deleted += DeleteByGroups(cn, plan);
      }
    }
    at = 150;
    if (own) cn.CommitTrans();
    return deleted;
  } catch (...) {
    if (own && cn.InTransaction()) {
      try {
        cn.RollbackTrans();
      } catch (const ZtError&) {
        // the statement's own error is the one to report
      }
    }
    throw;
  }
}

std::shared_ptr<Connection> RequireOpen(const std::shared_ptr<Connection>& cn) {
  if (!cn || cn->State() != ado::adStateOpen)
    throw ZtError(AdoErrorNumber(AdoError::kObjectClosed), kTypeName,
                  "Operation is not allowed when the object is closed.");
  return cn;
}

}  // namespace

bool CZtRecordMgr::RemoveDuplicateRecords(const std::string& table,
                                          const std::shared_ptr<Connection>& cn,
                                          const Variant& columns) {
  Trap at(kTypeName, "RemoveDuplicateRecords");
  return at.Reraising([&] {
    at = 10;
    last_deleted_ = 0;
    const auto names = DuplicateColumns(columns);
    if (!names) return false;
    at = 20;
    RequireOpen(cn);
    const EngineWay way = WayOf(*cn);
    at = 30;
    last_deleted_ =
        way.way == Way::kWalk ? Walk(cn, table, *names, at) : SetBased(*cn, way, table, *names, at);
    return true;
  });
}

std::vector<std::string> CZtRecordMgr::DuplicateRemovalStatements(
    const std::string& table, const std::shared_ptr<Connection>& cn, const Variant& columns) {
  Trap at(kTypeName, "DuplicateRemovalStatements");
  return at.Reraising([&] {
    at = 10;
    const auto names = DuplicateColumns(columns);
    if (!names) return std::vector<std::string>{};
    RequireOpen(cn);
    const EngineWay way = WayOf(*cn);
    if (way.way == Way::kWalk)
      return std::vector<std::string>{DuplicateWalkStatement(table, *names)};
    at = 20;
    DuplicatePlan plan(*cn, way, table, *names);
    std::vector<std::string> out;
    if (!plan.EmptyGroupInline() && plan.FirstGroupIsEmpty())
      out.push_back(plan.EmptyGroupDelete());
    if (way.way == Way::kRowIdentity) {
      out.push_back(plan.RowIdentityDelete());
    } else if (const auto key = PrimaryKey(*cn, table); !key.empty()) {
      out.push_back(plan.KeyDelete(key));
    } else {
      out.push_back(plan.GroupsQuery());
      out.push_back(plan.GroupDelete(1) + " (per group, LIMIT its count - 1)");
    }
    return out;
  });
}

std::int64_t CZtRecordMgr::CountDuplicateRecords(const std::string& table,
                                                 const std::shared_ptr<Connection>& cn,
                                                 const Variant& columns) {
  Trap at(kTypeName, "CountDuplicateRecords");
  return at.Reraising([&] {
    at = 10;
    const auto names = DuplicateColumns(columns);
    if (!names) return std::int64_t{0};
    RequireOpen(cn);
    at = 20;
    DuplicatePlan plan(*cn, WayOf(*cn), table, *names);
    // A first group that goes as a whole loses its kept record too.
    return ScalarInt(*cn, plan.CountQuery()) + (plan.FirstGroupIsEmpty() ? 1 : 0);
  });
}

}  // namespace zt
