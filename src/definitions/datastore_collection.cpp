// CZtDataStoreCollection: the lookup of a data store by its role.
#include "zt/definitions/datastore_collection.h"

#include "definitions/row_values.h"
#include "zt/datastore.h"
#include "zt/platform.h"

namespace zt {

namespace {
constexpr const char* kType = "CZtDataStoreCollection";
}

void CZtDataStoreCollection::Add(std::shared_ptr<CZtDataStore> data_store) {
  if (!data_store) defs::Fail(rt::kInvalidProcedureCall, kType, ".Add, no data store given");
  stores_.push_back(std::move(data_store));
}

std::shared_ptr<CZtDataStore> CZtDataStoreCollection::FindByType(std::int32_t type) const {
  for (const auto& ds : stores_)
    if (ds->DataStoreType() == type) return ds;
  return nullptr;
}

std::shared_ptr<Connection> CZtDataStoreCollection::GetConnection(std::int32_t type) {
  Trap at(kType, "GetConnection");
  return at.Reraising([&] {
    at = 10;
    auto ds = FindByType(type);
    if (!ds)
      defs::Fail(rt::kObjectNotSet, kType,
                 ".GetConnection, no data store of type " + std::to_string(type));
    at = 20;
    return ds->GetConnection(1);
  });
}

}  // namespace zt
