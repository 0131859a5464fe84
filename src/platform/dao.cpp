// The DAO view over an SQLite file.
#include "zt/platform/dao.h"

#include <cctype>
#include <regex>

#include "platform/dialect.h"
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

// The constraint that stands for AllowZeroLength = False; its exact text is how the property is
// read back from the table's definition.
std::string NoZeroLengthClause(const std::string& column) {
  return " CONSTRAINT " + BracketName("zt_nozerolength_" + column) + " CHECK (" +
         BracketName(column) + " <> '')";
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
                                   platform::SqlLiteral(t.name_))
                                ->Fields(0)
                                .Value()
                                .ToText();
    auto cols = cn_->Execute("SELECT name, type, \"notnull\" FROM pragma_table_info(" +
                             platform::SqlLiteral(t.name_) + ") ORDER BY cid");
    while (!cols->Eof()) {
      Field f;
      f.table_ = &t;
      f.name_ = cols->Fields(0).Value().ToText();
      const auto m = platform::MapSqliteTypeName(cols->Fields(1).Value().ToText());
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

// The engine rebuilds the table (platform/dialect.h); only the column's own item changes here.
void Database::AlterColumn(TableDef& table, const std::string& column, bool required,
                           bool allow_zero) {
  cn_->Dialect().RebuildTable(*cn_, table.name_, column, [&](std::string item) {
    const std::string zero = NoZeroLengthClause(column);
    if (const auto at = item.find(zero); at != std::string::npos) item.erase(at, zero.size());
    static const std::regex kNotNull(R"(\s+NOT\s+NULL(\s+ON\s+CONFLICT\s+\w+)?)",
                                     std::regex::icase);
    item = std::regex_replace(item, kNotNull, "");
    while (!item.empty() && std::isspace(static_cast<unsigned char>(item.back()))) item.pop_back();
    if (required) item += " NOT NULL";
    if (!allow_zero) item += zero;
    return item;
  });
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
