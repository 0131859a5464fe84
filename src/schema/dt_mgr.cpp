// CZtDTMgr: schema operations. SQL Server (and Oracle, where it can) receives the statements the
// library has always sent; SQLite, PostgreSQL and MariaDB/MySQL receive their engine's own DDL,
// composed by the engine dialect as schema plans. Every statement that changes something goes
// through Impl::Apply, which is also where a dry run diverts it.
#include "zt/schema/dt_mgr.h"

#include <algorithm>
#include <map>

#include "datastore/provider_types.h"
#include "platform/dialect.h"
#include "platform/errors.h"
#include "platform/sql_text.h"
#include "schema/dt_copy_state.h"
#include "zt/datastore.h"
#include "zt/event_logger.h"
#include "zt/schema/data_type.h"
#include "zt/text/compare.h"
#include "zt/text/strings.h"
#include "zt/trap.h"

namespace zt {

namespace {

constexpr std::string_view kTypeName = "CZtDTMgr";
constexpr const char* kTempField = "AlterTempField";
// Long-running DDL (a column added to a large table, a table copied) gets ten minutes.
constexpr std::int32_t kDdlTimeout = 600;

void Log(const std::string& text) {
  ZtLog_LogEvent(text, nullptr, kEventInformation, kLevelDiagnostic);
}

// The class's own log texts start with "." and carry the class name in front, as its location
// texts do.
void LogOp(const std::string& text) {
  Log(std::string(kTypeName) + text);
}

std::string Br(const std::string& name) {
  return "[" + name + "]";
}

std::string Upper(std::string s) {
  for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return s;
}

bool SameName(const std::string& a, const std::string& b) {
  return Upper(a) == Upper(b);
}

// The provider type of a connection, from its engine: members that take a connection have no
// data store to ask.
std::int32_t ProviderOf(const Connection& cn) {
  const std::string e = Upper(cn.Engine());
  if (e == "SQL SERVER") return kProviderSqlServer;
  if (e == "ORACLE") return kProviderOracle;
  if (e == "SQLITE" || e == "ACCESS") return kProviderJet;  // both are Jet data stores here
  if (e == "POSTGRESQL") return kProviderPostgreSql;
  if (e == "MARIADB" || e == "MYSQL") return kProviderMySql;
  return 0;
}

// SQL Server and Oracle take the library's SQL texts; the other engines the dialect's plans.
bool TakesSqlTexts(std::int32_t provider) {
  return provider == kProviderSqlServer || provider == kProviderOracle;
}

bool TakesPlans(std::int32_t provider) {
  return provider == kProviderJet || provider == kProviderPostgreSql || provider == kProviderMySql;
}

[[noreturn]] void NotSupported(std::int32_t provider) {
  ds::RaiseProviderNotSupported(provider, kTypeName);
}

void RequireName(const std::string& name, const char* what) {
  if (name.empty())
    platform::RaiseAdo(AdoError::kInvalidArgument, std::string(kTypeName),
                       std::string("(") + what + " name is empty)");
}

// " [a] , [b] " : each name as " [" + name + "] ," with the last comma cut, the form every
// column list of the schema operations has.
std::string ColumnList(const std::vector<std::string>& fields) {
  std::string out;
  for (const auto& f : fields) out += " " + Br(f) + " ,";
  if (!out.empty()) out.pop_back();
  return out;
}

std::vector<std::string> NamesOf(const Variant& fields) {
  std::vector<std::string> out;
  const VariantArray* a = fields.AsArray();
  if (!a) return out;
  for (std::int32_t i = a->lower_bound; i <= a->UpperBound(); ++i) out.push_back(a->at(i).ToText());
  return out;
}

bool StartsWith(const std::string& s, const std::string& prefix) {
  return s.rfind(prefix, 0) == 0;
}

std::string IndexName(const std::string& table, const std::string& name, std::int32_t kind) {
  if (kind == kIndexKindPrimaryKey) return "PK_" + table;
  const std::string prefix = kind == kIndexKindUnique ? "UN_" : "IN_";
  return StartsWith(name, prefix) ? name : prefix + table + "_" + name;
}

std::string Joined(const std::vector<std::string>& parts, const std::string& sep) {
  std::string out;
  for (const auto& p : parts) out += (out.empty() ? "" : sep) + p;
  return out;
}

// The default that fills the existing rows of a new NOT NULL column: '' for text and memo
// (also the application's memo types), 0 for the application's number types; none otherwise.
// The reduced DAO code is asked as well, so that an application text type (115) gets '' too.
std::string DefaultValueFor(std::int32_t field_type, std::int32_t dao_type) {
  if (field_type == 10 || field_type == 12 || field_type == 104 || field_type == 120 ||
      dao_type == 10 || dao_type == 12)
    return "''";
  if (field_type == 102 || field_type == 103) return "0";
  return {};
}

std::int32_t AdoOfDao(std::int32_t dao) {
  switch (dao) {
    case 1:
      return ado::adBoolean;
    case 12:
      return ado::adLongVarWChar;
    case 11:
      return ado::adLongVarBinary;
    default:
      return 0;
  }
}

std::int32_t DaoOfAdo(std::int32_t a) {
  switch (a) {
    case ado::adBoolean:
      return 1;
    case ado::adUnsignedTinyInt:
    case ado::adTinyInt:
      return 2;
    case ado::adSmallInt:
      return 3;
    case ado::adInteger:
      return 4;
    case ado::adCurrency:
      return 5;
    case ado::adSingle:
      return 6;
    case ado::adDouble:
      return 7;
    case ado::adDate:
    case ado::adDBDate:
    case ado::adDBTime:
    case ado::adDBTimeStamp:
      return 8;
    case ado::adChar:
    case ado::adWChar:
    case ado::adVarChar:
    case ado::adVarWChar:
      return 10;
    case ado::adLongVarBinary:
      return 11;
    case ado::adLongVarChar:
    case ado::adLongVarWChar:
      return 12;
    case ado::adGUID:
      return 15;
    case ado::adBigInt:
      return 16;
    case ado::adNumeric:
      return 20;
    case ado::adBinary:
    case ado::adVarBinary:
      return 9;
    default:
      return 0;
  }
}

Variant Restrict(const std::string& table, const std::string& extra = {}) {
  // Built in place after one reservation: GCC 12 at -O3 takes a growing copy of an initialiser
  // list for an overflow and, with warnings as errors, refuses the Release build.
  std::vector<Variant> r;
  r.reserve(4);
  r.emplace_back();
  r.emplace_back();
  r.emplace_back(table);
  if (!extra.empty()) r.emplace_back(extra);
  return Variant::Array(std::move(r));
}

// The field's name as the table spells it. A statement that restates a column (MariaDB's
// MODIFY) gives it the spelling it is written in, so a caller's "tNAME" would rename "tName".
std::string OwnSpelling(Connection& cn, const std::string& table, const std::string& field) {
  auto rs = cn.OpenSchema(ado::adSchemaColumns, Restrict(table, field));
  return rs->Eof() ? field : rs->Value("COLUMN_NAME").ToText();
}

}  // namespace

struct CZtDTMgr::Impl {
  InstanceTrace trace{kTypeName};
  StatementSink sink;

  // The one way a change reaches a database. SQL texts run one by one through a command with the
  // DDL time-out; an engine plan runs through RunSchemaPlan (one transaction where the engine has
  // transactional DDL). In a dry run the statements go to the sink instead.
  void Apply(Connection& cn, const std::vector<std::string>& sql) const {
    if (sink) {
      for (const auto& s : sql) sink(s);
      return;
    }
    for (const auto& s : sql) {
      Command cmd;
      cmd.SetActiveConnection(cn.shared_from_this());
      cmd.SetCommandTimeout(kDdlTimeout);
      cmd.SetCommandText(s);
      cmd.Execute(nullptr, ado::adExecuteNoRecords);
    }
  }
  void Apply(Connection& cn, const std::string& sql) const { Apply(cn, std::vector{sql}); }
  void Apply(Connection& cn, const platform::SchemaPlan& plan) const {
    if (sink) {
      for (const auto& s : plan.statements) sink(s);
      return;
    }
    platform::RunSchemaPlan(cn, plan);
  }

  // Runs `body`, a change of several SQL Server statements, in one transaction: all of them or
  // none. Inside a transaction already open (a change made of others) it simply runs.
  template <class F>
  void Atomically(Connection& cn, F&& body) const {
    if (sink || cn.InTransaction()) {
      body();
      return;
    }
    cn.BeginTrans();
    try {
      body();
      cn.CommitTrans();
    } catch (...) {
      try {
        cn.RollbackTrans();
      } catch (const ZtError&) {
        // The change's own error is the one to report.
      }
      throw;
    }
  }
};

CZtDTMgr::CZtDTMgr() : impl_(std::make_unique<Impl>()), copy_(std::make_unique<CopyState>()) {}
CZtDTMgr::~CZtDTMgr() = default;

std::int32_t CZtDTMgr::ProviderOfConnection(const Connection& cn) {
  return ProviderOf(cn);
}

std::string CZtDTMgr::GeneratedIndexName(const std::string& table, const std::string& name,
                                         std::int32_t kind) {
  return IndexName(table, name, kind);
}

void CZtDTMgr::RunStatement(Connection& cn, const std::string& sql) {
  impl_->Apply(cn, sql);
}

void CZtDTMgr::SetDryRun(StatementSink sink) {
  impl_->sink = std::move(sink);
}

bool CZtDTMgr::DryRun() const {
  return static_cast<bool>(impl_->sink);
}

// ---- Existence and schema queries -------------------------------------------------------------

bool CZtDTMgr::TableExists(const std::shared_ptr<Connection>& cn, const std::string& table) {
  Trap at(kTypeName, "TableExists");
  return at.Reraising([&] {
    at = 10;
    return !cn->OpenSchema(ado::adSchemaTables, Restrict(table))->Eof();
  });
}

bool CZtDTMgr::FieldExists(const std::shared_ptr<Connection>& cn, const std::string& table,
                           const std::string& field) {
  Trap at(kTypeName, "FieldExists");
  return at.Reraising([&] {
    at = 10;
    return !cn->OpenSchema(ado::adSchemaColumns, Restrict(table, field))->Eof();
  });
}

Variant CZtDTMgr::GetFieldProperty(const std::shared_ptr<Connection>& cn, const std::string& table,
                                   const std::string& field, const std::string& property) {
  Trap at(kTypeName, "GetFieldProperty");
  return at.Reraising([&] {
    at = 10;
    auto rs = cn->OpenSchema(ado::adSchemaColumns, Restrict(table, field));
    if (rs->Eof()) return Variant();
    at = 20;
    return rs->Fields(property).Value();
  });
}

bool CZtDTMgr::FieldExistsDAO(dao::Database& db, const std::string& table,
                              const std::string& field) {
  Trap at(kTypeName, "FieldExistsDAO");
  return at.Reraising([&] {
    at = 10;
    auto rs = db.OpenRecordset("SELECT * FROM " + Br(table), dao::dbOpenSnapshot);
    at = 20;
    auto& fields = rs->Rows().GetFields();
    bool found = false;
    for (std::int32_t i = 0; i < fields.Count(); ++i)
      if (fields.Item(i).Name() == field) found = true;
    rs->Close();
    return found;
  });
}

bool CZtDTMgr::GetPrimaryKeyInfo(const std::shared_ptr<Connection>& cn, const std::string& table,
                                 std::string& key_name, std::vector<std::string>& columns) {
  Trap at(kTypeName, "GetPrimaryKeyInfo");
  return at.Reraising([&] {
    at = 10;
    auto rs = cn->OpenSchema(ado::adSchemaPrimaryKeys, Restrict(table));
    std::vector<std::pair<std::int32_t, std::string>> ordered;
    std::string name;
    for (; !rs->Eof(); rs->MoveNext()) {
      name = rs->Value("PK_NAME").ToText();
      const Variant ord = rs->Value("ORDINAL");
      ordered.emplace_back(ord.IsNull() ? static_cast<std::int32_t>(ordered.size()) : ord.ToInt32(),
                           rs->Value("COLUMN_NAME").ToText());
    }
    std::stable_sort(ordered.begin(), ordered.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    key_name = name;
    columns.clear();
    for (auto& c : ordered) columns.push_back(std::move(c.second));
    return !columns.empty();
  });
}

// Decision: one FieldInfo per column, in table order, with the DAO code it reads back as, so
// that a caller can hand type and size straight to AddFieldToTable or AlterFieldType.
std::vector<FieldInfo> CZtDTMgr::GetAllFieldsInfo(const std::shared_ptr<Connection>& cn,
                                                  const std::string& table) {
  Trap at(kTypeName, "GetAllFieldsInfo");
  return at.Reraising([&] {
    at = 10;
    if (!TableExists(cn, table))
      platform::RaiseAdo(AdoError::kItemNotFound, std::string(kTypeName), "(" + table + ")");
    at = 20;
    auto rs = cn->OpenSchema(ado::adSchemaColumns, Restrict(table));
    std::vector<FieldInfo> out;
    for (; !rs->Eof(); rs->MoveNext()) {
      FieldInfo f;
      f.name = rs->Value("COLUMN_NAME").ToText();
      f.ado_type = rs->Value("DATA_TYPE").ToInt32();
      f.dao_type = DaoOfAdo(f.ado_type);
      const Variant len = rs->Value("CHARACTER_MAXIMUM_LENGTH");
      f.size = f.dao_type == 10 && !len.IsNull() ? len.ToInt64() : 0;
      const Variant nullable = rs->Value("IS_NULLABLE");
      f.nullable = nullable.IsNull() || nullable.ToBool();
      const Variant ord = rs->Value("ORDINAL_POSITION");
      f.ordinal = ord.IsNull() ? static_cast<std::int32_t>(out.size()) + 1 : ord.ToInt32();
      out.push_back(std::move(f));
    }
    std::stable_sort(out.begin(), out.end(),
                     [](const FieldInfo& a, const FieldInfo& b) { return a.ordinal < b.ordinal; });
    return out;
  });
}

void CZtDTMgr::UpdateFieldValue(const std::shared_ptr<Connection>& cn, const std::string& table,
                                const std::string& field, const std::string& value,
                                const std::vector<std::string>& key_fields,
                                const std::vector<std::string>& key_values) {
  Trap at(kTypeName, "UpdateFieldValue");
  at.Reraising([&] {
    at = 10;
    // Without a key the statement would change every row.
    if (key_fields.empty() || key_fields.size() != key_values.size())
      platform::RaiseAdo(AdoError::kInvalidArgument, std::string(kTypeName),
                         "(one key value for each key field)");
    std::string sql = "UPDATE " + table + " SET " + field + " = " + value + " WHERE ";
    for (std::size_t i = 0; i < key_fields.size(); ++i)
      sql += (i ? " AND " : "") + key_fields[i] + " = " + key_values[i];
    at = 20;
    impl_->Apply(*cn, sql);
  });
}

// ---- Indexes and keys ------------------------------------------------------------------------

std::vector<IndexNameInfo> CZtDTMgr::GetTableIndexes(const std::shared_ptr<Connection>& cn,
                                                     const std::string& table) {
  Trap at(kTypeName, "GetTableIndexes");
  return at.Reraising([&] {
    at = 10;
    auto rs = cn->OpenSchema(ado::adSchemaIndexes, Restrict(table));
    std::vector<IndexNameInfo> out;
    std::map<std::string, std::vector<std::pair<std::int32_t, std::string>>> columns;
    for (; !rs->Eof(); rs->MoveNext()) {
      const std::string name = rs->Value("INDEX_NAME").ToText();
      auto it = std::find_if(out.begin(), out.end(),
                             [&](const IndexNameInfo& i) { return i.name == name; });
      if (it == out.end()) {
        IndexNameInfo info;
        info.name = name;
        info.kind = rs->Value("PRIMARY_KEY").ToBool() ? kIndexKindPrimaryKey
                    : rs->Value("UNIQUE").ToBool()    ? kIndexKindUnique
                                                      : kIndexKindPlain;
        const Variant clustered = rs->Value("CLUSTERED");
        info.clustered = !clustered.IsNull() && clustered.ToBool();
        out.push_back(std::move(info));
      }
      const Variant ord = rs->Value("ORDINAL_POSITION");
      columns[name].emplace_back(ord.IsNull() ? 0 : ord.ToInt32(),
                                 rs->Value("COLUMN_NAME").ToText());
    }
    for (auto& info : out) {
      auto& cols = columns[info.name];
      std::stable_sort(cols.begin(), cols.end(),
                       [](const auto& a, const auto& b) { return a.first < b.first; });
      for (auto& c : cols) info.columns.push_back(std::move(c.second));
    }
    return out;
  });
}

bool CZtDTMgr::GetIndexNames(const std::shared_ptr<Connection>& cn, const std::string& table,
                             const std::string& field, std::vector<IndexNameInfo>& indexes) {
  Trap at(kTypeName, "GetIndexNames");
  return at.Reraising([&] {
    at = 10;
    indexes.clear();
    for (auto& info : GetTableIndexes(cn, table))
      if (std::any_of(info.columns.begin(), info.columns.end(),
                      [&](const std::string& c) { return SameName(c, field); }))
        indexes.push_back(std::move(info));
    return !indexes.empty();
  });
}

bool CZtDTMgr::DeleteIndex(const std::shared_ptr<Connection>& cn, const std::string& table,
                           const std::string& index, std::int32_t kind) {
  Trap at(kTypeName, "DeleteIndex", "");
  at.NoStep();
  return at.Reraising([&] {
    RequireName(table, "table");
    RequireName(index, "index");
    const bool constraint = kind == kIndexKindPrimaryKey || kind == kIndexKindUnique;
    const std::int32_t provider = ProviderOf(*cn);
    if (TakesSqlTexts(provider)) {
      impl_->Apply(*cn, constraint
                            ? "ALTER TABLE " + Br(table) + " DROP CONSTRAINT " + Br(index) + " "
                            : "DROP INDEX " + Br(table) + "." + Br(index) + " ");
    } else if (TakesPlans(provider)) {
      impl_->Apply(*cn, cn->Dialect().PlanDropIndex(*cn, table, index, constraint));
    } else {
      NotSupported(provider);
    }
    if (!DryRun()) Log("Index: " + Br(index) + " deleted= True");
    return true;
  });
}

bool CZtDTMgr::CreateIndex(const std::shared_ptr<Connection>& cn, const std::string& table,
                           const Variant& fields, const std::string& index_name,
                           std::int32_t kind) {
  Trap at(kTypeName, "CreateIndex");
  return at.Reraising([&] {
    at = 10;
    if (!fields.IsArray()) return false;
    RequireName(table, "table");
    if (kind != kIndexKindPrimaryKey && kind != kIndexKindUnique && kind != kIndexKindPlain)
      platform::RaiseAdo(AdoError::kInvalidArgument, std::string(kTypeName),
                         "(index kind " + std::to_string(kind) + ")");
    const std::vector<std::string> names = NamesOf(fields);
    if (names.empty())
      platform::RaiseAdo(AdoError::kInvalidArgument, std::string(kTypeName), "(no fields)");
    const std::string name = IndexName(table, index_name, kind);
    at = 20;
    const std::int32_t provider = ProviderOf(*cn);
    std::string ddl;
    if (TakesSqlTexts(provider)) {
      const std::string columns = ColumnList(names);
      if (kind == kIndexKindPlain) {
        // The table name goes in unbracketed here, as the library has always sent it.
        ddl = "CREATE INDEX " + Br(name) + " ON " + table + " ( " + columns + " )";
      } else {
        const std::string keyword = kind == kIndexKindPrimaryKey ? " PRIMARY KEY" : " UNIQUE ";
        ddl = "ALTER TABLE " + Br(table) + " ADD CONSTRAINT " + Br(name) + " " + keyword + " ( " +
              columns + " )";
      }
      impl_->Apply(*cn, ddl);
    } else if (TakesPlans(provider)) {
      const auto plan = cn->Dialect().PlanCreateIndex(*cn, table, names, name, kind);
      ddl = Joined(plan.statements, "; ");
      impl_->Apply(*cn, plan);
    } else {
      NotSupported(provider);
    }
    at = 30;
    if (!DryRun()) LogOp(".CreateIndex, Index created with DDL:" + ddl);
    return true;
  });
}

bool CZtDTMgr::CreatePrimaryKey(CZtDataStore& ds, const std::string& table, const Variant& fields) {
  return CreatePrimaryKey(ds.GetConnection(1), table, fields);
}

bool CZtDTMgr::CreatePrimaryKey(const std::shared_ptr<Connection>& cn, const std::string& table,
                                const Variant& fields) {
  Trap at(kTypeName, "CreatePrimaryKey");
  return at.Reraising([&] {
    at = 10;
    if (!fields.IsArray()) return false;
    const std::int32_t provider = ProviderOf(*cn);
    if (!TakesSqlTexts(provider)) return CreateIndex(cn, table, fields, {}, kIndexKindPrimaryKey);
    at = 20;
    CreateSimplePrimaryKey(*cn, table, NamesOf(fields));
    return true;
  });
}

void CZtDTMgr::CreateSimplePrimaryKey(Connection& cn, const std::string& table,
                                      const std::vector<std::string>& fields) {
  if (fields.empty())
    platform::RaiseAdo(AdoError::kInvalidArgument, std::string(kTypeName), "(no fields)");
  impl_->Apply(cn, "ALTER TABLE " + Br(table) + " ADD CONSTRAINT [PK_" + table +
                       "] PRIMARY KEY ( " + ColumnList(fields) + " )");
}

// The statements that give a table its indexes back after they were dropped for a change:
// the constraint clauses (primary key, unique) and the plain CREATE INDEX statements. A column
// that cannot be indexed (Boolean, long text) is left out with a log line. `new_types` gives
// the ADO type a column will have once the change is made.
CZtDTMgr::IndexStatements CZtDTMgr::CreateTableIndexesSQLStatements(
    const std::shared_ptr<Connection>& cn, const std::string& table,
    const std::vector<IndexNameInfo>& indexes, const std::map<std::string, std::int32_t>& new_types,
    bool clustering) {
  std::map<std::string, std::int32_t> types;
  {
    auto rs = cn->OpenSchema(ado::adSchemaColumns, Restrict(table));
    for (; !rs->Eof(); rs->MoveNext())
      types[Upper(rs->Value("COLUMN_NAME").ToText())] = rs->Value("DATA_TYPE").ToInt32();
  }
  for (const auto& [name, type] : new_types) types[Upper(name)] = type;
  IndexStatements out;
  for (const auto& index : indexes) CreateIndexSQLStatement(table, index, types, clustering, out);
  return out;
}

void CZtDTMgr::CreateIndexSQLStatement(const std::string& table, const IndexNameInfo& index,
                                       const std::map<std::string, std::int32_t>& types,
                                       bool clustering, IndexStatements& out) {
  std::vector<std::string> columns;
  for (const auto& c : index.columns) {
    const auto it = types.find(Upper(c));
    const std::int32_t t = it == types.end() ? 0 : it->second;
    if (t == ado::adBoolean || t == ado::adLongVarChar || t == ado::adLongVarWChar) {
      LogOp(".CreateIndexSQLStatement - Index not being set for field " + c + " in " + table);
      continue;
    }
    columns.push_back(c);
  }
  if (columns.empty()) return;
  const std::string list = ColumnList(columns);
  if (index.kind == kIndexKindPlain) {
    out.plain.push_back("CREATE INDEX " + Br(IndexName(table, index.name, kIndexKindPlain)) +
                        " ON " + Br(table) + " ( " + list + " )");
    return;
  }
  std::string kind = index.kind == kIndexKindPrimaryKey ? " PRIMARY KEY" : " UNIQUE ";
  if (clustering) kind += index.clustered ? " CLUSTERED " : " NONCLUSTERED ";
  out.constraints.push_back("CONSTRAINT " + Br(IndexName(table, index.name, index.kind)) + " " +
                            kind + " ( " + list + " )");
}

// ---- Field definitions -----------------------------------------------------------------------

std::int32_t CZtDTMgr::ProviderOfStore(CZtDataStore& ds) {
  return ds.GeneralProviderType();
}

// The engine's type text for a field: the name from the data types table with the length of a
// Text field. Oracle's names live only in the data store's tblDataTypeConversion, so Oracle
// asks it; every other provider answers from the fixed table. An unknown type is refused before
// anything is sent.
std::string CZtDTMgr::TypeText(const std::shared_ptr<Connection>& cn, std::int32_t provider,
                               std::int32_t& dao_type, std::int32_t size, bool blank_before_size) {
  CZtDataType types;
  std::int32_t kind = kTypeKindDao;
  std::string name =
      types.GetTypeName(dao_type, size, provider, kind, provider == kProviderOracle ? cn : nullptr);
  if (name.empty())
    platform::RaiseAdo(AdoError::kInvalidArgument, std::string(kTypeName),
                       "(no column type for field type " + std::to_string(dao_type) +
                           " on provider " + std::to_string(provider) + ")");
  if (dao_type == 10 && size < 1)
    platform::RaiseAdo(
        AdoError::kInvalidArgument, std::string(kTypeName),
        "(a Text field needs a size of at least 1 character, not " + std::to_string(size) + ")");
  if (dao_type == 10) name += (blank_before_size ? " (" : "(") + std::to_string(size) + ")";
  return name;
}

std::string CZtDTMgr::GetFieldDefinitionSQL(const std::shared_ptr<Connection>& cn,
                                            std::int32_t provider, const std::string& field,
                                            std::int32_t& dao_type, std::int32_t size,
                                            bool nullable) {
  std::string text = CZtDTMgr::TypeText(cn, provider, dao_type, size, true);
  if (provider == kProviderSqlServer && dao_type == 1) {
    // SQL Server refuses Null in a bit the application reads as False: the column always gets
    // its default and NOT NULL, whatever was asked.
    text += " DEFAULT '0' ";
    nullable = false;
  }
  if (!nullable) text += " NOT NULL";
  return " " + Br(field) + " " + text;
}

void CZtDTMgr::GetConstraint(std::int32_t provider, const std::string& table,
                             const std::string& field, std::int32_t field_type,
                             std::int32_t dao_type, bool nullable, std::string& name,
                             std::string& value) {
  name.clear();
  value.clear();
  if (provider != kProviderSqlServer || nullable) return;
  name = "DF_" + table + "_" + field;
  value = DefaultValueFor(field_type, dao_type);
}

// ---- Field changes ---------------------------------------------------------------------------

bool CZtDTMgr::AddFieldToTable(CZtDataStore& ds, const std::string& table, const std::string& field,
                               std::int32_t field_type, std::int32_t size, bool nullable,
                               bool allow_zero_length) {
  Trap at(kTypeName, "AddFieldToTable", ", Line# ");
  return at.Reraising([&] {
    at = 10;
    RequireName(table, "table");
    RequireName(field, "field");
    const std::int32_t provider = ProviderOfStore(ds);
    if (!TakesSqlTexts(provider) && !TakesPlans(provider)) NotSupported(provider);
    auto cn = ds.GetConnection(1);
    at = 20;
    if (FieldExists(cn, table, field)) {
      LogOp(".AddFieldToTable, Field: " + Br(field) + " already exists in " + table);
      return false;
    }
    at = 30;
    std::int32_t dao_type = field_type;
    std::string sql;
    if (TakesSqlTexts(provider)) {
      sql = "ALTER TABLE " + Br(table) + " " + " ADD " +
            GetFieldDefinitionSQL(cn, provider, field, dao_type, size, nullable);
      std::string constraint, value;
      GetConstraint(provider, table, field, field_type, dao_type, nullable, constraint, value);
      const bool with_default = !constraint.empty() && !value.empty();
      if (with_default) sql += " CONSTRAINT " + constraint + " DEFAULT " + value;
      at = 40;
      impl_->Atomically(*cn, [&] {
        impl_->Apply(*cn, sql);
        if (!DryRun()) LogOp(".AddFieldToTable, Field: " + Br(field) + " added with: " + sql);
        // The default only fills the rows already there; the column keeps none.
        if (with_default)
          impl_->Apply(*cn, "ALTER TABLE " + Br(table) + " DROP CONSTRAINT " + constraint);
      });
      return true;
    }
    // The engine's own DDL. A NOT NULL column is filled as SQL Server's default would fill it;
    // a Boolean with 0, as SQL Server's bit default does.
    const std::string type = TypeText(cn, provider, dao_type, size, false);
    std::string fill;
    if (!nullable) fill = dao_type == 1 ? "0" : DefaultValueFor(field_type, dao_type);
    const auto plan = cn->Dialect().PlanAddColumn(*cn, table, field, type, nullable, fill);
    at = 40;
    impl_->Apply(*cn, plan);
    if (DryRun()) return true;
    LogOp(".AddFieldToTable, Field: " + Br(field) +
          " added with: " + Joined(plan.statements, "; "));
    // A Jet text or memo field takes its zero-length flag as well (a dry run has no field to
    // read it from).
    at = 50;
    if (provider == kProviderJet && (dao_type == 10 || dao_type == 12)) {
      try {
        SetFieldNullability(nullable, ds, table, field, dao_type, allow_zero_length);
      } catch (const ZtError&) {
        // The flags are a second change of the file (a NOT NULL field filled with '' that may
        // not hold empty texts, say): when they fail, the field goes again, so that the table
        // is as the caller had it.
        impl_->Apply(*cn, cn->Dialect().PlanDropColumn(*cn, table, field));
        throw;
      }
    }
    return true;
  });
}

bool CZtDTMgr::RenameField(CZtDataStore& ds, const std::string& table, const std::string& old_name,
                           const std::string& new_name) {
  Trap at(kTypeName, "RenameField");
  return at.Reraising([&] {
    at = 10;
    RequireName(table, "table");
    RequireName(old_name, "field");
    RequireName(new_name, "field");
    const std::int32_t provider = ProviderOfStore(ds);
    // Oracle has no sp_rename, and the library never renamed its columns there.
    if (provider != kProviderSqlServer && !TakesPlans(provider)) NotSupported(provider);
    auto cn = ds.GetConnection(1);
    at = 20;
    if (provider == kProviderSqlServer)
      impl_->Apply(*cn,
                   "sp_rename '" + table + "." + Br(old_name) + "', '" + new_name + "', 'COLUMN' ");
    else
      impl_->Apply(*cn, cn->Dialect().PlanRenameColumn(*cn, table, old_name, new_name));
    at = 30;
    if (!DryRun())
      Log("Field: " + Br(old_name) + " renamed to " + Br(new_name) + " in table: " + table);
    return true;
  });
}

bool CZtDTMgr::AlterFieldType(CZtDataStore& ds, const std::string& table, const std::string& field,
                              std::int32_t new_type, std::int32_t new_size, bool nullable) {
  Trap at(kTypeName, "AlterFieldType", ", Line# ");
  at.Key(", TableName: " + table + ", NewFieldType: " + std::to_string(new_type) +
         ", NewFieldSize: " + std::to_string(new_size));
  return at.Reraising([&] {
    at = 10;
    RequireName(table, "table");
    RequireName(field, "field");
    const std::int32_t provider = ProviderOfStore(ds);
    // The change ends in a rename, which Oracle does not have: refused before anything changes.
    if (provider != kProviderSqlServer && !TakesPlans(provider)) NotSupported(provider);
    auto cn = ds.GetConnection(1);
    if (!FieldExists(cn, table, field))
      platform::RaiseAdo(AdoError::kItemNotFound, std::string(kTypeName),
                         "(" + table + "." + field + ")");
    if (TakesPlans(provider)) {
      // The engine changes the column in place (or rebuilds the table), keeping its indexes.
      at = 20;
      std::int32_t dao_type = new_type;
      const std::string type = TypeText(cn, provider, dao_type, new_size, false);
      const auto plan =
          cn->Dialect().PlanAlterColumn(*cn, table, OwnSpelling(*cn, table, field), type, nullable);
      impl_->Apply(*cn, plan);
      if (!DryRun())
        LogOp(".AlterFieldType, Field: " + Br(field) +
              " changed with: " + Joined(plan.statements, "; "));
      return true;
    }
    at = 30;
    std::vector<IndexNameInfo> indexes;
    GetIndexNames(cn, table, field, indexes);
    const std::int32_t dao_new = CZtDataType::ReduceApplicationType(new_type, new_size);
    std::map<std::string, std::int32_t> new_types;
    if (AdoOfDao(dao_new)) new_types[field] = AdoOfDao(dao_new);
    const IndexStatements restore =
        CreateTableIndexesSQLStatements(cn, table, indexes, new_types, true);
    const std::string constraints = Joined(restore.constraints, ", ");
    const std::string plain = Joined(restore.plain, "; ");
    Log("Constraints SQL: " + constraints);
    Log("Non Constraints SQL: " + plain);
    impl_->Atomically(*cn, [&] {
      at = 40;
      for (const auto& index : indexes) DeleteIndex(cn, table, index.name, index.kind);
      at = 50;
      AddFieldToTable(ds, table, kTempField, new_type, new_size, nullable, true);
      at = 60;
      Log("Updating table: " + table);
      impl_->Apply(*cn,
                   "UPDATE " + Br(table) + " SET [" + std::string(kTempField) + "] = " + Br(field));
      at = 70;
      // The indexes on the field are gone already (above).
      DropField(*cn, provider, table, field, false);
      RenameField(ds, table, kTempField, field);
      at = 80;
      if (!constraints.empty()) {
        Log("Executing: " + constraints);
        // The old text "ALTER TABLE [t] (" + clauses + " )" is no valid T-SQL, so the
        // constraints never came back; ADD with the same clauses restores them.
        impl_->Apply(*cn, "ALTER TABLE " + Br(table) + " ADD " + constraints);
      }
      if (!plain.empty()) {
        Log("Executing: " + plain);
        impl_->Apply(*cn, restore.plain);
      }
    });
    return true;
  });
}

std::string CZtDTMgr::GetDefaultConstraintSQLServer(Connection& cn, const std::string& table,
                                                    const std::string& field) {
  Trap at(kTypeName, "GetDefaultConstraintSQLServer", ", Field:");
  at.NoStep();
  at.Key(field);
  return at.Reraising([&] {
    auto rs = cn.Execute(
        "SELECT o.name FROM sysobjects AS o  INNER JOIN syscolumns AS c ON o.id=c.cdefault  "
        "WHERE c.name='" +
        ZtStrMan_EscapeQuotes(field) +
        "' AND c.id=(SELECT a.id FROM sysobjects AS a WHERE a.name = '" +
        ZtStrMan_EscapeQuotes(table) + "') ");
    if (rs->State() != ado::adStateOpen || rs->Eof()) return std::string();
    const Variant v = rs->Fields(0).Value();
    return v.IsNull() ? std::string() : v.ToText();
  });
}

void CZtDTMgr::DeleteDefaultConstraintSQLServer(Connection& cn, const std::string& table,
                                                const std::string& field) {
  Trap at(kTypeName, "DeleteDefaultConstraintSQLServer", ", Field:");
  at.NoStep();
  at.Key(field);
  at.Reraising([&] {
    const std::string name = GetDefaultConstraintSQLServer(cn, table, field);
    if (!name.empty())
      impl_->Apply(cn, "ALTER TABLE " + Br(table) + " DROP CONSTRAINT " + Br(name) + " ");
  });
}

void CZtDTMgr::DropField(Connection& cn, std::int32_t provider, const std::string& table,
                         const std::string& field, bool with_indexes) {
  auto shared = cn.shared_from_this();
  std::vector<IndexNameInfo> indexes;
  if (with_indexes) GetIndexNames(shared, table, field, indexes);
  if (TakesPlans(provider) && cn.Dialect().DropColumnTakesItsIndexes()) {
    impl_->Apply(cn, cn.Dialect().PlanDropColumn(cn, table, field));
    if (!DryRun())
      for (const auto& index : indexes) Log("Index: " + Br(index.name) + " deleted= True");
    return;
  }
  if (TakesPlans(provider) && cn.Dialect().TransactionalDdl()) {
    // The indexes and the column in one transaction, so that a column a view, a trigger or a
    // CHECK still needs keeps its indexes when the engine refuses to drop it. A step that
    // rebuilds the table (SQLite) cannot join others: then each goes on its own, below.
    platform::SchemaPlan all;
    auto join = [&](const platform::SchemaPlan& step) {
      all.statements.insert(all.statements.end(), step.statements.begin(), step.statements.end());
      return !step.rebuild;
    };
    bool joined = true;
    for (const auto& index : indexes)
      joined = joined && join(cn.Dialect().PlanDropIndex(
                             cn, table, index.name,
                             index.kind == kIndexKindPrimaryKey || index.kind == kIndexKindUnique));
    if (joined) {
      const platform::SchemaPlan column = cn.Dialect().PlanDropColumn(cn, table, field);
      if (indexes.empty() || join(column)) {
        impl_->Apply(cn, indexes.empty() ? column : all);
        if (!DryRun())
          for (const auto& index : indexes) Log("Index: " + Br(index.name) + " deleted= True");
        return;
      }
    }
  }
  if (TakesPlans(provider) && cn.Dialect().CombinesAlterClauses() && !indexes.empty()) {
    // MariaDB: one ALTER TABLE that drops the indexes and the column is all or nothing, where
    // separate statements would leave the indexes dropped when the column cannot go (a CHECK
    // of two columns, a relationship).
    std::vector<platform::SchemaPlan> steps;
    for (const auto& index : indexes)
      steps.push_back(cn.Dialect().PlanDropIndex(
          cn, table, index.name,
          index.kind == kIndexKindPrimaryKey || index.kind == kIndexKindUnique));
    steps.push_back(cn.Dialect().PlanDropColumn(cn, table, field));
    const platform::SchemaPlan one = platform::CombineAlters(table, steps);
    if (!one.statements.empty()) {
      impl_->Apply(cn, one);
      if (!DryRun())
        for (const auto& index : indexes) Log("Index: " + Br(index.name) + " deleted= True");
      return;
    }
  }
  for (const auto& index : indexes) DeleteIndex(shared, table, index.name, index.kind);
  if (TakesPlans(provider)) {
    impl_->Apply(cn, cn.Dialect().PlanDropColumn(cn, table, field));
    return;
  }
  if (provider == kProviderSqlServer) DeleteDefaultConstraintSQLServer(cn, table, field);
  impl_->Apply(cn, "ALTER TABLE " + Br(table) + " " + " DROP COLUMN " + Br(field) + " ");
}

bool CZtDTMgr::DeleteField(CZtDataStore& ds, const std::string& table, const std::string& field) {
  Trap at(kTypeName, "DeleteField", ", Field:");
  at.NoStep();
  at.Key(field);
  return at.Reraising([&] {
    RequireName(table, "table");
    RequireName(field, "field");
    const std::int32_t provider = ProviderOfStore(ds);
    if (!TakesSqlTexts(provider) && !TakesPlans(provider)) NotSupported(provider);
    auto cn = ds.GetConnection(1);
    if (!FieldExists(cn, table, field)) return false;
    // The indexes, the default and the column go together on SQL Server, and on the engines
    // with transactional DDL unless a step rebuilds the table, and in one ALTER TABLE on
    // MariaDB.
    if (TakesSqlTexts(provider))
      impl_->Atomically(*cn, [&] { DropField(*cn, provider, table, field, true); });
    else
      DropField(*cn, provider, table, field, true);
    if (!DryRun()) Log("Field: " + Br(field) + " deleted from " + table);
    return true;
  });
}

// ---- Nullability -----------------------------------------------------------------------------

std::string CZtDTMgr::GetFieldDataTypeNameSQLServer(Connection& cn, const std::string& table,
                                                    const std::string& field) {
  auto rs =
      cn.Execute("sp_columns @table_name =" + Br(table) + " , @column_name=" + Br(field) + " ");
  if (rs->State() != ado::adStateOpen || rs->Eof())
    platform::RaiseAdo(AdoError::kItemNotFound, std::string(kTypeName),
                       "(" + table + "." + field + ")");
  std::string type = rs->Value("TYPE_NAME").ToText();
  const Variant length = rs->Value("LENGTH");
  const std::int64_t len = length.IsNull() || length.IsEmpty() ? 0 : length.ToInt64();
  if (type == "varchar") type += "(" + std::to_string(len) + ")";
  // LENGTH counts bytes: two for each character of an nvarchar.
  if (type == "nvarchar") type += "(" + std::to_string(len > 0 ? len / 2 : 255) + ")";
  return type;
}

bool CZtDTMgr::NullabilityNeedsResetting(Connection& cn, const std::string& table,
                                         const std::string& field, bool nullable) {
  Trap at(kTypeName, "NullabilityNeedsResetting");
  return at.Reraising([&] {
    at = 10;
    return FieldAllowsNulls(cn, table, field) != nullable;
  });
}

bool CZtDTMgr::FieldAllowsNulls(Connection& cn, const std::string& table,
                                const std::string& field) {
  Trap at(kTypeName, "FieldAllowsNulls");
  return at.Reraising([&] {
    at = 10;
    Recordset rs;
    rs.Open("SELECT " + field + " FROM " + table + " WHERE -1=0", cn.shared_from_this());
    const bool allows = (rs.Fields(0).Attributes() & ado::adFldIsNullable) != 0;
    rs.Close();
    return allows;
  });
}

bool CZtDTMgr::SetFieldNullability(bool nullable, CZtDataStore& ds, const std::string& table,
                                   const std::string& field, std::int32_t field_type,
                                   bool allow_zero_length) {
  Trap at(kTypeName, "SetFieldNullability", "");
  at.NoStep();
  at.Key("; Table: " + table + "; Field: " + field);
  return at.Reraising([&] {
    RequireName(table, "table");
    RequireName(field, "field");
    const std::int32_t provider = ProviderOfStore(ds);
    if (provider == kProviderJet)
      return SetNullabilityJet(nullable, ds, table, field, field_type, allow_zero_length);
    if (provider != kProviderSqlServer && !TakesPlans(provider)) NotSupported(provider);
    auto cn = ds.GetConnection(1);
    if (!NullabilityNeedsResetting(*cn, table, field, nullable)) return true;
    if (TakesPlans(provider)) {
      std::int32_t dao_type = 0;
      std::int32_t size = 0;
      for (const auto& f : GetAllFieldsInfo(cn, table))
        if (SameName(f.name, field))
          dao_type = f.dao_type, size = static_cast<std::int32_t>(f.size);
      const std::string type = TypeText(cn, provider, dao_type, size, false);
      impl_->Apply(*cn, cn->Dialect().PlanSetNullable(*cn, table, OwnSpelling(*cn, table, field),
                                                      type, nullable));
      return true;
    }
    const std::string type = GetFieldDataTypeNameSQLServer(*cn, table, field);
    if (type == "text" || type == "ntext") {
      // A long text cannot be altered in place: the column is built again.
      AlterSQLMemoFieldNullability(ds, table, field, nullable);
      return true;
    }
    impl_->Atomically(*cn, [&] {
      if (type == "bit" && !nullable)
        impl_->Apply(*cn,
                     "UPDATE " + table + " SET " + field + "=0" + " WHERE " + field + " IS NULL");
      impl_->Apply(*cn, "ALTER TABLE " + Br(table) + " ALTER COLUMN " + Br(field) + " " + type +
                            (nullable ? " NULL" : " NOT NULL"));
    });
    return true;
  });
}

void CZtDTMgr::AlterSQLMemoFieldNullability(CZtDataStore& ds, const std::string& table,
                                            const std::string& field, bool nullable) {
  Trap at(kTypeName, "AlterSQLMemoFieldNullability");
  at.Reraising([&] {
    at = 10;
    AlterFieldType(ds, table, field, dao::dbMemo, 0, nullable);
  });
}

bool CZtDTMgr::NullabilityNeedsResetting_Jet(dao::Field& f, std::int32_t field_type, bool nullable,
                                             bool allow_zero_length) {
  if (f.Required() != !nullable) return true;
  return (field_type == 10 || field_type == 12) && f.AllowZeroLength() != allow_zero_length;
}

// Jet files change a field's Required and AllowZeroLength through the DAO view, which rebuilds
// the table with its rows, indexes, triggers and views. A dry run names the DAO changes, since
// there is no statement to show.
bool CZtDTMgr::SetNullabilityJet(bool nullable, CZtDataStore& ds, const std::string& table,
                                 const std::string& field, std::int32_t field_type,
                                 bool allow_zero_length) {
  auto db = ds.OpenDAODataStore();
  db->Refresh();
  dao::Field& f = db->TableDefs(table).Fields(field);
  const std::int32_t type = field_type ? field_type : f.Type();
  if (!NullabilityNeedsResetting_Jet(f, type, nullable, allow_zero_length)) return true;
  const bool text = type == 10 || type == 12;
  const std::string target = "TableDefs(\"" + table + "\").Fields(\"" + field + "\")";
  if (DryRun()) {
    if (f.Required() != !nullable)
      impl_->sink(target + ".Required = " + (nullable ? "False" : "True"));
    if (text && f.AllowZeroLength() != allow_zero_length)
      impl_->sink(target + ".AllowZeroLength = " + (allow_zero_length ? "True" : "False"));
    return true;
  }
  f.SetRequired(!nullable);
  if (text) {
    // Setting Required re-reads the table's fields.
    db->Refresh();
    db->TableDefs(table).Fields(field).SetAllowZeroLength(allow_zero_length);
  }
  return true;
}

bool CZtDTMgr::DeleteTable(const std::shared_ptr<Connection>& cn, const std::string& table) {
  Trap at(kTypeName, "DeleteTable");
  return at.Reraising([&] {
    at = 10;
    RequireName(table, "table");
    impl_->Apply(*cn, "DROP TABLE " + Br(table));
    at = 20;
    if (!DryRun()) Log("Table " + Br(table) + " deleted.");
    return true;
  });
}

}  // namespace zt
