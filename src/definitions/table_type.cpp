// CZtTableType, CZtTableTypeMgr and CZtStyle.
#include "zt/definitions/table_type.h"

#include "definitions/row_values.h"
#include "zt/datastore.h"
#include "zt/platform.h"
#include "zt/text/compare.h"

namespace zt {

namespace {

constexpr const char* kTableTypesTable = "tblTableTypes";
constexpr std::string_view kTableType = "CZtTableType";
constexpr std::string_view kTableTypeMgr = "CZtTableTypeMgr";
constexpr std::string_view kStyle = "CZtStyle";

// Rows of the layout editor sit in the same families as the forms of table types 13 and 14;
// those two types must never pick them up.
bool IsPassedOver(std::int32_t id, const std::string& data_table) {
  return (id == 13 || id == 14) && InStr(1, data_table, "Layout", CompareMode::Text) > 0;
}

std::shared_ptr<CZtDataStore> RequireStore(const std::shared_ptr<CZtDataStore>& ds,
                                           const std::string& type_name) {
  if (!ds)
    throw ZtError(rt::kObjectNotSet, type_name,
                  type_name + " has no data store: call Initialize first");
  return ds;
}

}  // namespace

// ---- CZtTableType ---------------------------------------------------------------------------

std::string CZtTableType::LoadStatement(std::int32_t id, std::int32_t style_type,
                                        std::int32_t local_flag) {
  if (id != 0) return "SELECT * FROM tblTableTypes WHERE nID= " + std::to_string(id);
  return "SELECT * FROM tblTableTypes WHERE nType = " + std::to_string(style_type) +
         " AND nLocal =  " + std::to_string(local_flag);
}

void CZtTableType::Load(const std::shared_ptr<Connection>& connection, std::int32_t id,
                        std::int32_t style_type, std::int32_t local_flag) {
  Trap at(kTableType, "Load");
  at.Reraising([&] {
    at = 10;
    defs::WithRows(connection, LoadStatement(id, style_type, local_flag), [&](Recordset& rs) {
      at = 20;
      for (; !rs.Eof(); rs.MoveNext()) {
        const std::int32_t row_id = defs::NzInt32(rs.Value("nID"));
        const std::string data_table = defs::ColumnText(rs, "tDataTable");
        if (IsPassedOver(row_id, data_table)) continue;
        at = 30;
        id_ = row_id;
        style_type_ = defs::ColumnInt32(rs, "nType");
        is_local_ = defs::ColumnInt32(rs, "nLocal");
        structure_table_ = data_table;
        definition_table_ = defs::ColumnText(rs, "tCustomTable");
        temporary_table_ = defs::ColumnText(rs, "tTempTable");
        prefix_ = defs::ColumnText(rs, "tPrefix");
        security_table_ = defs::ColumnText(rs, "tSecurityTable");
      }
    });
  });
}

bool CZtTableType::GetLocalTables(const std::shared_ptr<Connection>& connection,
                                  std::string& definition_table, std::string& structure_table) {
  Trap at(kTableType, "GetLocalTables");
  return at.Reraising([&] {
    at = 10;
    bool found = false;
    defs::WithRows(connection,
                   "SELECT tCustomTable, tDataTable FROM tblTableTypes WHERE nType = " +
                       std::to_string(style_type_) + " AND nLocal = " + "1",
                   [&](Recordset& rs) {
                     if (rs.Eof()) return;
                     definition_table = defs::NzText(rs.Value("tCustomTable"));
                     structure_table = defs::NzText(rs.Value("tDataTable"));
                     found = true;
                   });
    return found;
  });
}

// ---- CZtTableTypeMgr ------------------------------------------------------------------------

void CZtTableTypeMgr::Initialize(std::shared_ptr<CZtDataStore> data_store) {
  data_store_ = std::move(data_store);
}

std::shared_ptr<CZtTableType> CZtTableTypeMgr::Item(std::int32_t key) {
  Trap at(kTableTypeMgr, "Item");
  return at.Reraising([&] {
    at = 10;
    if (!items_.contains(key)) LoadTType(key);
    at = 20;
    return items_.at(key);
  });
}

void CZtTableTypeMgr::LoadTType(std::int32_t key) {
  Trap at(kTableTypeMgr, "LoadTType");
  at.Reraising([&] {
    at = 10;
    auto type = std::make_shared<CZtTableType>();
    at = 20;
    type->Load(RequireStore(data_store_, TypeName())->GetConnection(1), key);
    at = 30;
    items_.emplace(key, std::move(type));
  });
}

void CZtTableTypeMgr::Remove(std::int32_t key) {
  if (items_.erase(key) == 0) rt::Raise(rt::kElementNotFound);
}

std::vector<std::shared_ptr<CZtTableType>> CZtTableTypeMgr::ItemsArray() const {
  std::vector<std::shared_ptr<CZtTableType>> out;
  for (const auto& [key, type] : items_) out.push_back(type);
  return out;
}

std::vector<std::int32_t> CZtTableTypeMgr::Keys() const {
  std::vector<std::int32_t> out;
  for (const auto& entry : items_) out.push_back(entry.first);
  return out;
}

// ---- CZtStyle -------------------------------------------------------------------------------

void CZtStyle::InitializeStyle(std::shared_ptr<CZtDataStore> data_store, std::int32_t id,
                               std::int32_t structure_table_id, std::int32_t style_type) {
  Trap at(kStyle, "InitializeStyle");
  at.Reraising([&] {
    at = 10;
    // A style moved to another data store or table type must read its tables again.
    if (data_store != data_store_ || structure_table_id != structure_table_id_) {
      structure_table_.clear();
      definition_table_.clear();
    }
    data_store_ = std::move(data_store);
    id_ = id;
    structure_table_id_ = structure_table_id;
    style_type_ = style_type;
    name_.clear();
    caption_.clear();
    at = 20;
    const std::string table = GetDefinitionTableName();
    if (table.empty()) return;
    at = 30;
    defs::WithRows(RequireStore(data_store_, TypeName())->GetConnection(1),
                   "SELECT * FROM [" + table + "] WHERE nID = " + std::to_string(id_),
                   [&](Recordset& rs) {
                     if (rs.Eof()) return;
                     name_ = defs::ColumnText(rs, "tName");
                     caption_ = defs::ColumnText(rs, "tCaption");
                   });
  });
}

std::string CZtStyle::GetStructureTableName() {
  Trap at(kStyle, "GetStructureTableName");
  return at.Reraising([&] {
    at = 10;
    if (structure_table_.empty()) LoadTableNames();
    return structure_table_;
  });
}

std::string CZtStyle::GetDefinitionTableName() {
  Trap at(kStyle, "GetDefinitionTableName");
  return at.Reraising([&] {
    at = 10;
    if (definition_table_.empty()) LoadTableNames();
    return definition_table_;
  });
}

void CZtStyle::LoadTableNames() {
  defs::WithRows(RequireStore(data_store_, TypeName())->GetConnection(1),
                 "SELECT * FROM [" + std::string(kTableTypesTable) +
                     "] WHERE nID = " + std::to_string(structure_table_id_),
                 [&](Recordset& rs) {
                   if (rs.Eof()) return;
                   structure_table_ = defs::ColumnText(rs, "tDataTable");
                   definition_table_ = defs::ColumnText(rs, "tCustomTable");
                   is_local_ = defs::ColumnInt32(rs, "nLocal");
                   style_type_ = defs::ColumnInt32(rs, "nType");
                 });
}

}  // namespace zt
