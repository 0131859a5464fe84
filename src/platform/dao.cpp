// The DAO view over an SQLite file.
#include "zt/platform/dao.h"

#include <cctype>
#include <regex>

#include "platform/errors.h"
#include "platform/sql_text.h"
#include "platform/type_map.h"

namespace zt::dao {

using platform::AdoError;
using platform::AsciiLower;
using platform::BracketName;
using platform::RaiseAdo;

namespace {

constexpr const char* kSource = "DAO.Database";

// `s` as an SQL string literal.
std::string Literal(const std::string& s) {
  std::string out = "'";
  for (char c : s) out += c == '\'' ? std::string("''") : std::string(1, c);
  return out + "'";
}

// The constraint that stands for AllowZeroLength = False; its exact text is how the property is
// read back from the table's definition.
std::string NoZeroLengthClause(const std::string& column) {
  return " CONSTRAINT " + BracketName("zt_nozerolength_" + column) + " CHECK (" +
         BracketName(column) + " <> '')";
}

// End (one past) of a quoted part starting at i, or i when none starts there.
std::size_t SkipQuoted(const std::string& s, std::size_t i) {
  const char c = s[i];
  if (c != '\'' && c != '"' && c != '`' && c != '[') return i;
  const char close = c == '[' ? ']' : c;
  std::size_t j = i + 1;
  while (j < s.size()) {
    if (s[j] == close) {
      if (j + 1 < s.size() && s[j + 1] == close) {
        j += 2;
        continue;
      }
      return j + 1;
    }
    ++j;
  }
  return s.size();
}

// A CREATE TABLE statement cut into its head ("CREATE TABLE x"), its column and constraint items
// and its tail (after the closing parenthesis: WITHOUT ROWID ...).
struct TableSql {
  std::string head, tail;
  std::vector<std::string> items;
};

TableSql SplitCreate(const std::string& sql) {
  TableSql t;
  std::size_t i = 0;
  while (i < sql.size() && sql[i] != '(') {
    const std::size_t e = SkipQuoted(sql, i);
    i = e == i ? i + 1 : e;
  }
  if (i >= sql.size())
    RaiseAdo(AdoError::kInvalidArgument, kSource, "(unreadable table definition)");
  t.head = sql.substr(0, i);
  int depth = 0;
  std::string item;
  for (++i; i < sql.size(); ++i) {
    const std::size_t e = SkipQuoted(sql, i);
    if (e != i) {
      item.append(sql, i, e - i);
      i = e - 1;
      continue;
    }
    const char c = sql[i];
    if (c == '(') ++depth;
    if (c == ')' && depth-- == 0) break;
    if (c == ',' && depth == 0) {
      t.items.push_back(item);
      item.clear();
      continue;
    }
    item += c;
  }
  t.items.push_back(item);
  t.tail = i < sql.size() ? sql.substr(i + 1) : "";
  return t;
}

// The column name an item defines (unquoted), or "" for a table constraint.
std::string ItemName(const std::string& item) {
  std::size_t i = 0;
  while (i < item.size() && std::isspace(static_cast<unsigned char>(item[i]))) ++i;
  if (i >= item.size()) return {};
  const std::size_t e = SkipQuoted(item, i);
  if (e != i) {
    std::string n = item.substr(i + 1, e - i - 2);
    const char q = item[i] == '[' ? ']' : item[i];
    std::string out;
    for (std::size_t k = 0; k < n.size(); ++k) {
      out += n[k];
      if (n[k] == q && k + 1 < n.size() && n[k + 1] == q) ++k;
    }
    return out;
  }
  std::size_t j = i;
  while (j < item.size() && !std::isspace(static_cast<unsigned char>(item[j]))) ++j;
  const std::string word = item.substr(i, j - i);
  for (const char* kw : {"constraint", "primary", "unique", "check", "foreign"})
    if (AsciiLower(word) == kw) return {};
  return word;
}

std::int32_t DaoSize(const platform::TypeMapping& t) {
  switch (t.dao_type) {
    case dbText:
    case dbBinary:
      return static_cast<std::int32_t>(t.defined_size);
    case dbMemo:
    case dbLongBinary:
      return 0;
    case dbBoolean:
    case dbByte:
      return 1;
    case dbInteger:
      return 2;
    case dbLong:
    case dbSingle:
      return 4;
    case dbGUID:
    case dbDecimal:
      return 16;
    default:
      return 8;
  }
}

}  // namespace

// ------------------------------------------------------------------------------ Field

void Field::SetRequired(bool required) {
  if (required == required_) return;
  table_->db_->AlterColumn(*table_, name_, required, allow_zero_length_);
}

void Field::SetAllowZeroLength(bool allow) {
  if (type_ != dbText && type_ != dbMemo)
    RaiseAdo(AdoError::kInvalidArgument, kSource,
             "(AllowZeroLength applies to Text and Memo fields only)");
  if (allow == allow_zero_length_) return;
  table_->db_->AlterColumn(*table_, name_, required_, allow);
}

// --------------------------------------------------------------------------- TableDef

Field& TableDef::Fields(std::int32_t index) {
  if (index < 0 || index >= FieldCount())
    RaiseAdo(AdoError::kItemNotFound, kSource, "(" + std::to_string(index) + ")");
  return fields_[static_cast<std::size_t>(index)];
}

Field& TableDef::Fields(const std::string& name) {
  for (Field& f : fields_)
    if (AsciiLower(f.name_) == AsciiLower(name)) return f;
  RaiseAdo(AdoError::kItemNotFound, kSource, "(" + name + ")");
}

std::int64_t TableDef::RecordCount() const {
  return db_->cn_->Execute("SELECT COUNT(*) FROM " + BracketName(name_))
      ->Fields(0)
      .Value()
      .ToInt64();
}

// --------------------------------------------------------------------------- Database

std::shared_ptr<Database> Database::OpenDatabase(const std::string& path, bool read_only) {
  auto db = std::make_shared<Database>();
  db->cn_ = std::make_shared<zt::Connection>();
  std::string quoted;  // a path may hold ";" or '"': quoted, with '"' doubled
  for (char c : path) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
  std::string text = "Provider=SQLite;Data Source=\"" + quoted + "\";";
  if (read_only) text += "Mode=Read;";
  db->cn_->Open(text);
  db->path_ = path;
  return db;
}

void Database::Close() {
  cn_->Close();
  tables_.clear();
  tables_loaded_ = false;
}

void Database::LoadTables() {
  if (tables_loaded_) return;
  auto rs = cn_->Execute(
      "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite\\_%' "
      "ESCAPE '\\' ORDER BY name");
  std::vector<TableDef> tables;
  while (!rs->Eof()) {
    TableDef t;
    t.db_ = this;
    t.name_ = rs->Fields(0).Value().ToText();
    tables.push_back(std::move(t));
    rs->MoveNext();
  }
  tables_ = std::move(tables);
  for (TableDef& t : tables_) {
    const std::string sql = cn_->Execute(
                                   "SELECT sql FROM sqlite_master WHERE type = 'table' AND "
                                   "name = " +
                                   Literal(t.name_))
                                ->Fields(0)
                                .Value()
                                .ToText();
    auto cols = cn_->Execute("SELECT name, type, \"notnull\" FROM pragma_table_info(" +
                             Literal(t.name_) + ") ORDER BY cid");
    while (!cols->Eof()) {
      Field f;
      f.table_ = &t;
      f.name_ = cols->Fields(0).Value().ToText();
      const auto m = platform::MapTypeName(cols->Fields(1).Value().ToText(), 0, 0, 0, true);
      f.type_ = m.dao_type;
      f.size_ = DaoSize(m);
      f.required_ = cols->Fields(2).Value().ToInt32() != 0;
      f.allow_zero_length_ = (f.type_ == dbText || f.type_ == dbMemo) &&
                             sql.find(NoZeroLengthClause(f.name_)) == std::string::npos;
      t.fields_.push_back(std::move(f));
      cols->MoveNext();
    }
  }
  tables_loaded_ = true;
}

std::int32_t Database::TableDefCount() {
  LoadTables();
  return static_cast<std::int32_t>(tables_.size());
}

TableDef& Database::TableDefs(std::int32_t index) {
  LoadTables();
  if (index < 0 || index >= TableDefCount())
    RaiseAdo(AdoError::kItemNotFound, kSource, "(" + std::to_string(index) + ")");
  return tables_[static_cast<std::size_t>(index)];
}

TableDef& Database::TableDefs(const std::string& name) {
  LoadTables();
  for (TableDef& t : tables_)
    if (AsciiLower(t.name_) == AsciiLower(name)) return t;
  RaiseAdo(AdoError::kItemNotFound, kSource, "(" + name + ")");
}

std::int64_t Database::Execute(const std::string& sql) {
  std::int64_t n = 0;
  cn_->Execute(sql, &n);
  return n;
}

// SQLite's documented way to change a column: build the new table beside the old one, copy the
// rows, drop the old table, rename the new one, then create the indexes, triggers and views
// again, all in one transaction with foreign-key enforcement paused and checked before commit.
void Database::AlterColumn(TableDef& table, const std::string& column, bool required,
                           bool allow_zero) {
  if (cn_->InTransaction())
    RaiseAdo(AdoError::kIllegalOperation, kSource,
             "(a table cannot be rebuilt inside a transaction)");
  auto scalar = [&](const std::string& sql) { return cn_->Execute(sql)->Fields(0).Value(); };
  const std::string create =
      scalar("SELECT sql FROM sqlite_master WHERE type = 'table' AND name = " +
             Literal(table.name_))
          .ToText();
  TableSql parts = SplitCreate(create);
  bool found = false;
  for (std::string& item : parts.items) {
    if (AsciiLower(ItemName(item)) != AsciiLower(column)) continue;
    found = true;
    const std::string zero = NoZeroLengthClause(column);
    if (const auto at = item.find(zero); at != std::string::npos) item.erase(at, zero.size());
    static const std::regex kNotNull(R"(\s+NOT\s+NULL(\s+ON\s+CONFLICT\s+\w+)?)",
                                     std::regex::icase);
    item = std::regex_replace(item, kNotNull, "");
    while (!item.empty() && std::isspace(static_cast<unsigned char>(item.back()))) item.pop_back();
    if (required) item += " NOT NULL";
    if (!allow_zero) item += zero;
  }
  if (!found) RaiseAdo(AdoError::kItemNotFound, kSource, "(" + column + ")");

  std::vector<std::string> columns;
  {
    auto rs = cn_->Execute("SELECT name FROM pragma_table_info(" + Literal(table.name_) +
                           ") ORDER BY cid");
    for (; !rs->Eof(); rs->MoveNext()) columns.push_back(rs->Fields(0).Value().ToText());
  }
  std::string column_list;
  for (const auto& c : columns) column_list += (column_list.empty() ? "" : ", ") + BracketName(c);
  std::vector<std::string> recreate, views;
  {
    auto rs = cn_->Execute(
        "SELECT type, name, sql FROM sqlite_master WHERE sql IS NOT NULL AND "
        "((type IN ('index', 'trigger') AND tbl_name = " +
        Literal(table.name_) + ") OR type = 'view') ORDER BY type = 'view'");
    for (; !rs->Eof(); rs->MoveNext()) {
      const std::string sql = rs->Fields(2).Value().ToText();
      if (rs->Fields(0).Value().ToText() != "view") {
        recreate.push_back(sql);
      } else if (AsciiLower(sql).find(AsciiLower(table.name_)) != std::string::npos) {
        views.push_back(rs->Fields(1).Value().ToText());
        recreate.push_back(sql);
      }
    }
  }
  std::string body;
  for (const auto& item : parts.items) body += (body.empty() ? "" : ",") + item;
  const std::string temp = "zt_rebuild_" + table.name_;

  const bool fk_on = scalar("PRAGMA foreign_keys").ToInt32() != 0;
  if (fk_on) cn_->Execute("PRAGMA foreign_keys = OFF");
  cn_->BeginTrans();
  try {
    for (const auto& v : views) cn_->Execute("DROP VIEW " + BracketName(v));
    cn_->Execute("CREATE TABLE " + BracketName(temp) + " (" + body + ")" + parts.tail);
    cn_->Execute("INSERT INTO " + BracketName(temp) + " (" + column_list + ") SELECT " +
                 column_list + " FROM " + BracketName(table.name_));
    cn_->Execute("DROP TABLE " + BracketName(table.name_));
    cn_->Execute("ALTER TABLE " + BracketName(temp) + " RENAME TO " + BracketName(table.name_));
    for (const auto& sql : recreate) cn_->Execute(sql);
    auto bad = cn_->Execute("PRAGMA foreign_key_check");
    if (bad->State() == ado::adStateOpen && !bad->Eof())
      throw ZtError(platform::hr::kIntegrity, kSource,
                    "The change would break a relationship of table '" +
                        bad->Fields(0).Value().ToText() + "'.");
    cn_->CommitTrans();
  } catch (...) {
    try {
      cn_->RollbackTrans();
    } catch (const ZtError&) {
      // The rebuild's own error is the one to report.
    }
    if (fk_on) cn_->Execute("PRAGMA foreign_keys = ON");
    throw;
  }
  if (fk_on) cn_->Execute("PRAGMA foreign_keys = ON");
  // Field objects handed out stay valid: only their properties change.
  for (Field& f : table.fields_) {
    if (AsciiLower(f.name_) != AsciiLower(column)) continue;
    f.required_ = required;
    f.allow_zero_length_ = allow_zero;
  }
}

std::unique_ptr<Recordset> Database::OpenRecordset(const std::string& source, std::int32_t type) {
  auto out = std::make_unique<Recordset>();
  out->rs_ = std::make_shared<zt::Recordset>();
  const bool writable = type == dbOpenTable || type == dbOpenDynaset;
  out->rs_->Open(source, cn_,
                 type == dbOpenForwardOnly ? ado::adOpenForwardOnly
                 : writable                ? ado::adOpenKeyset
                                           : ado::adOpenStatic,
                 writable ? ado::adLockOptimistic : ado::adLockReadOnly,
                 type == dbOpenTable ? ado::adCmdTable : ado::adCmdUnknown);
  return out;
}

// --------------------------------------------------------------------------- Recordset

void Recordset::SetValue(const std::string& field, const Variant& value) {
  if (!editing_) throw ZtError(3020, kSource, "Update or CancelUpdate without AddNew or Edit.");
  rs_->Fields(field).SetValue(value);
}

void Recordset::Edit() {
  if (rs_->Eof() || rs_->Bof()) RaiseAdo(AdoError::kNoCurrentRecord, kSource);
  if (rs_->LockType() == ado::adLockReadOnly) RaiseAdo(AdoError::kNotUpdatable, kSource);
  editing_ = true;
}

void Recordset::AddNew() {
  rs_->AddNew();
  editing_ = true;
}

void Recordset::Update() {
  if (!editing_) throw ZtError(3020, kSource, "Update or CancelUpdate without AddNew or Edit.");
  rs_->Update();
  editing_ = false;
}

void Recordset::CancelUpdate() {
  rs_->CancelUpdate();
  editing_ = false;
}

void Recordset::Delete() {
  rs_->Delete();
}

void Recordset::FindFrom(const std::string& criteria, bool from_start) {
  zt::Recordset& r = *rs_;
  const std::int64_t before = r.AbsolutePosition();
  if (from_start) {
    r.MoveFirst();
    r.Find(criteria);
  } else {
    r.Find(criteria, 1);
  }
  no_match_ = r.Eof();
  if (no_match_ && before > 0) {  // DAO keeps the position when nothing matches
    r.MoveFirst();
    r.Move(before - 1);
  }
}

void Recordset::FindFirst(const std::string& criteria) {
  FindFrom(criteria, true);
}
void Recordset::FindNext(const std::string& criteria) {
  FindFrom(criteria, false);
}

}  // namespace zt::dao
