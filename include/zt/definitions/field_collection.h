// CZtFieldCollection: the field definitions of the application (CZtField), loaded from the
// definitions table tblDtsFields and keyed by field ID in the order they were added; and the
// upgrade of tblDtsFields rows written by older versions of the application.
//
//   auto rs = std::make_shared<zt::Recordset>();
//   rs->Open("SELECT * FROM [tblDtsFields] ORDER BY [nID]", cn);
//   zt::CZtFieldCollection fields;
//   fields.Load(rs);                                  // a repeated nID keeps its first row
//   fields.FindNextFieldIDByName("tTitle");           // the first field named so, any case
//
// The collection writes itself as one line of text (IZtSerializable): its fields joined with
// its FieldDelimiter, each field's values with ChildrenFieldDelimiter; FromString reads such a
// line back.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zt/definitions/field.h"
#include "zt/export.h"
#include "zt/text/serialization.h"
#include "zt/trap.h"
#include "zt/variant.h"

namespace zt {

class Connection;
class Recordset;

class ZT_EXPORT CZtFieldCollection : public ZtSerializable {
 public:
  std::string TypeName() const override { return "CZtFieldCollection"; }

  // ---- Dictionary access by field ID ----
  // The field under `id`, nullptr when none.
  std::shared_ptr<CZtField> Item(std::int32_t id) const;
  std::int32_t Count() const { return static_cast<std::int32_t>(items_.Count()); }
  bool Exists(std::int32_t id) const { return items_.Exists(std::to_string(id)); }
  // Raises (element not found) when `id` is not present.
  void Remove(std::int32_t id);
  void RemoveAll() { items_.RemoveAll(); }
  std::vector<std::shared_ptr<CZtField>> Items() const;
  std::vector<std::int32_t> Keys() const;

  // Adds `field` under its FieldID; AddField under `id`. A null field raises (invalid
  // procedure call); an ID already present keeps its field and gives false.
  bool Add(std::shared_ptr<CZtField> field);
  bool AddField(std::int32_t id, std::shared_ptr<CZtField> field);

  // Adds a field for every row of `recordset` (over tblDtsFields), in order; a row whose nID is
  // already present is passed over. Nothing happens without a recordset or when it is not
  // open. A row that cannot be read raises, and the collection keeps what it held before.
  void Load(const std::shared_ptr<Recordset>& recordset);

  // The ID of the next field, in the collection's order, whose FieldName equals `name` without
  // regard to case. The search starts after the field `after_id`, or at the first field when
  // `after_id` is 0 or not in the collection; 0 when no field further on matches. Calling it
  // again with the ID found walks every field of that name (a name can repeat across tables).
  std::int32_t FindNextFieldIDByName(const std::string& name, std::int32_t after_id = 0) const;

  // The statements of Upgrade in the order they run: three UPDATEs, then the SELECT whose rows
  // have "false" and "true" in tWhere replaced by 0 and -1.
  static const std::array<std::string, 4>& UpgradeStatements();
  // Brings rows of tblDtsFields written by older versions up to date (see UpgradeStatements).
  // Safe to run again: a second run finds nothing left to change. Returns the number of tWhere
  // texts it changed.
  std::int32_t Upgrade(const std::shared_ptr<Connection>& connection);

  // A new collection holding a copy of every field (definition values), same order and keys.
  std::shared_ptr<CZtFieldCollection> Copy() const;

  // ---- IZtSerializable ----
  std::string ToString() override;
  // Replaces the fields by those of a line written by ToString with the same delimiters and
  // EncodeFields setting. Raises (nothing changed) for an empty delimiter or an item that is
  // not a field's line; "" gives an empty collection.
  void FromString(const std::string& text);

 private:
  Dictionary items_;  // decimal field ID -> CZtField
  InstanceTrace trace_{"CZtFieldCollection"};
};

}  // namespace zt
