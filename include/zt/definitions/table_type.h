// Table types and styles: the families of the application's own tables.
//
// A table type is a row of tblTableTypes (nID, nType, nLocal, tDataTable, tCustomTable,
// tTempTable, tPrefix, tSecurityTable); a style is a row (nID, tName, tCaption) of a table
// type's definition table. CZtTableType loads one table type, CZtTableTypeMgr keeps the table
// types asked for (keyed by their nID, each read from the database once), and CZtStyle loads
// one style and finds its two tables through its table type, reading them once.
//
// Table types 13 and 14 never take a row whose data table has "Layout" in its name (any case):
// those rows belong to the layout editor's own tables and are passed over on purpose.
//
// Null columns read as 0 or "". A table type or style without a row keeps empty properties.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "zt/export.h"
#include "zt/trap.h"
#include "zt/variant.h"

namespace zt {

class Connection;
class CZtDataStore;

class ZT_EXPORT CZtTableType : public Object {
 public:
  std::string TypeName() const override { return "CZtTableType"; }

  std::int32_t ID() const { return id_; }
  void ID(std::int32_t value) { id_ = value; }
  std::int32_t StyleType() const { return style_type_; }
  void StyleType(std::int32_t value) { style_type_ = value; }
  std::int32_t IsLocal() const { return is_local_; }
  void IsLocal(std::int32_t value) { is_local_ = value; }
  const std::string& StructureTable() const { return structure_table_; }
  void StructureTable(const std::string& value) { structure_table_ = value; }
  const std::string& DefinitionTable() const { return definition_table_; }
  void DefinitionTable(const std::string& value) { definition_table_ = value; }
  const std::string& TemporaryTable() const { return temporary_table_; }
  void TemporaryTable(const std::string& value) { temporary_table_ = value; }
  const std::string& Prefix() const { return prefix_; }
  void Prefix(const std::string& value) { prefix_ = value; }
  const std::string& SecurityTable() const { return security_table_; }
  void SecurityTable(const std::string& value) { security_table_ = value; }

  // Reads the table type `id` or, when `id` is 0, the one of `style_type` with `local_flag`
  // (nLocal). Of several rows the last one not passed over wins. Raises the database's error.
  void Load(const std::shared_ptr<Connection>& connection, std::int32_t id,
            std::int32_t style_type = 0, std::int32_t local_flag = 0);
  // The definition and structure tables of the local family of this StyleType (nLocal = 1);
  // false, with both left as they were, when there is none. Raises the database's error.
  bool GetLocalTables(const std::shared_ptr<Connection>& connection, std::string& definition_table,
                      std::string& structure_table);

  // The statements Load sends, for tools and tests.
  static std::string LoadStatement(std::int32_t id, std::int32_t style_type,
                                   std::int32_t local_flag);

 private:
  std::int32_t id_ = 0;
  std::int32_t style_type_ = 0;
  std::int32_t is_local_ = 0;
  std::string structure_table_;
  std::string definition_table_;
  std::string temporary_table_;
  std::string prefix_;
  std::string security_table_;
  InstanceTrace trace_{"CZtTableType"};
};

class ZT_EXPORT CZtTableTypeMgr : public Object {
 public:
  std::string TypeName() const override { return "CZtTableTypeMgr"; }

  // The data store whose tblTableTypes the manager reads.
  void Initialize(std::shared_ptr<CZtDataStore> data_store);
  // The table type with nID `key`, read on first use and kept until Remove or RemoveAll.
  // Raises when the manager has no data store or the database fails.
  std::shared_ptr<CZtTableType> Item(std::int32_t key);
  std::int32_t Count() const { return static_cast<std::int32_t>(items_.size()); }
  bool Exists(std::int32_t key) const { return items_.contains(key); }
  // Raises 32811 (element not found) for a key that is not held.
  void Remove(std::int32_t key);
  void RemoveAll() { items_.clear(); }
  // The held table types and their keys, in key order.
  std::vector<std::shared_ptr<CZtTableType>> ItemsArray() const;
  std::vector<std::int32_t> Keys() const;

 private:
  void LoadTType(std::int32_t key);

  std::shared_ptr<CZtDataStore> data_store_;
  std::map<std::int32_t, std::shared_ptr<CZtTableType>> items_;
  InstanceTrace trace_{"CZtTableTypeMgr"};
};

class ZT_EXPORT CZtStyle : public Object {
 public:
  std::string TypeName() const override { return "CZtStyle"; }

  // Sets the style's identifiers and reads its name and caption from its definition table
  // (found through tblTableTypes row `structure_table_id`). Raises the database's error.
  void InitializeStyle(std::shared_ptr<CZtDataStore> data_store, std::int32_t id,
                       std::int32_t structure_table_id, std::int32_t style_type);

  const std::string& Name() const { return name_; }
  void Name(const std::string& value) { name_ = value; }
  const std::string& Caption() const { return caption_; }
  void Caption(const std::string& value) { caption_ = value; }
  std::int32_t ID() const { return id_; }
  void ID(std::int32_t value) { id_ = value; }
  std::int32_t StructureTableID() const { return structure_table_id_; }
  void StructureTableID(std::int32_t value) { structure_table_id_ = value; }
  std::int32_t StyleType() const { return style_type_; }
  void StyleType(std::int32_t value) { style_type_ = value; }
  std::int32_t IsLocal() const { return is_local_; }

  // The table names, read from tblTableTypes while the kept name is empty.
  std::string GetStructureTableName();
  std::string GetDefinitionTableName();

 private:
  void LoadTableNames();

  std::shared_ptr<CZtDataStore> data_store_;
  std::int32_t id_ = 0;
  std::int32_t structure_table_id_ = 0;
  std::int32_t style_type_ = 0;
  std::int32_t is_local_ = 0;
  std::string name_;
  std::string caption_;
  std::string structure_table_;
  std::string definition_table_;
  InstanceTrace trace_{"CZtStyle"};
};

}  // namespace zt
