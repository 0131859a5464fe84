// The late-bound members of the schema classes (CZtDTMgr, CZtDataType).
#include "server/member_table.h"
#include "zt/datastore.h"
#include "zt/platform.h"
#include "zt/schema/data_type.h"
#include "zt/schema/dt_mgr.h"

namespace zt::server {

// An index as an array: name, kind, clustered, array of its columns.
template <>
struct Conv<IndexNameInfo> {
  static IndexNameInfo From(const Variant& v) {
    const VariantArray* a = v.AsArray();
    if (!a || a->items.size() != 4) rt::Raise(rt::kTypeMismatch);
    return {Conv<std::string>::From(a->items[0]), a->items[1].ToInt32(), a->items[2].ToBool(),
            Conv<std::vector<std::string>>::From(a->items[3])};
  }
  static Variant To(const IndexNameInfo& i) {
    return Variant::Array(
        {i.name, i.kind, i.clustered, Conv<std::vector<std::string>>::To(i.columns)});
  }
};

// A field as an array: name, ADO type, DAO type, size, nullable, ordinal.
template <>
struct Conv<FieldInfo> {
  static FieldInfo From(const Variant&) { rt::Raise(rt::kTypeMismatch); }
  static Variant To(const FieldInfo& f) {
    return Variant::Array({f.name, f.ado_type, f.dao_type, f.size, f.nullable, f.ordinal});
  }
};

}  // namespace zt::server

namespace zt {
namespace {

const server::Registrar<CZtDataType> kDataType("CZtDataType", [](auto& t) {
  using D = CZtDataType;
  t.Method("GetTypeName", &D::GetTypeName, 1)
      .Method("ReduceApplicationType", [](D&, std::int32_t type, std::int32_t size) {
        return D::ReduceApplicationType(type, size);
      });
});

const server::Registrar<CZtDTMgr> kDTMgr("CZtDTMgr", [](auto& t) {
  using M = CZtDTMgr;
  t.Get("DryRun", &M::DryRun)
      .Method("TableExists", &M::TableExists)
      .Method("FieldExists", &M::FieldExists)
      .Method("GetFieldProperty", &M::GetFieldProperty)
      .Method("FieldExistsDAO", &M::FieldExistsDAO)
      .Method("GetPrimaryKeyInfo", &M::GetPrimaryKeyInfo)
      .Method("GetAllFieldsInfo", &M::GetAllFieldsInfo)
      .Method("UpdateFieldValue", &M::UpdateFieldValue)
      // The first argument is a data store or an open connection, as the old callers passed
      // either.
      .Method("CreatePrimaryKey",
              [](M& m, const std::shared_ptr<Object>& target, const std::string& table,
                 const Variant& fields) {
                if (auto ds = std::dynamic_pointer_cast<CZtDataStore>(target))
                  return m.CreatePrimaryKey(*ds, table, fields);
                return m.CreatePrimaryKey(server::Conv<std::shared_ptr<Connection>>::From(target),
                                          table, fields);
              })
      .Method("DeleteTable", &M::DeleteTable)
      .Method("AddFieldToTable", &M::AddFieldToTable)
      .Method("RenameField", &M::RenameField)
      .Method("AlterFieldType", &M::AlterFieldType)
      .Method("GetIndexNames", &M::GetIndexNames)
      .Method("GetTableIndexes", &M::GetTableIndexes)
      .Method("DeleteIndex", &M::DeleteIndex)
      .Method("DeleteField", &M::DeleteField)
      .Method("SetFieldNullability", &M::SetFieldNullability)
      .Method("CreateIndex", &M::CreateIndex)
      .Method("CopyTable", &M::CopyTable)
      .Method("CopyPhysicalDataStore",
              [](M& m, CZtDataStore& source, CZtDataStore& target, CZtDataStore& copied,
                 bool must_exist) {
                return m.CopyPhysicalDataStore(source, target, copied, must_exist);
              })
      .Method("VerifySameFields", &M::VerifySameFields)
      .Method(
          "CopyRecordset",
          [](M& m, const std::shared_ptr<Recordset>& source,
             const std::shared_ptr<Recordset>& target,
             const Variant& filter) { m.CopyRecordset(source, target, filter); },
          1)
      .Method("CopyRecord", &M::CopyRecord)
      .Get("RecordsCopied", &M::RecordsCopied)
      .Get("RecordsFailed", &M::RecordsFailed)
      .Prop("UseLimitedErrorMessages", &M::UseLimitedErrorMessages, &M::UseLimitedErrorMessages)
      .Prop("UserInteraction", &M::UserInteraction, &M::UserInteraction);
});

}  // namespace
}  // namespace zt
