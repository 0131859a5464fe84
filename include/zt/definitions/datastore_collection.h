// CZtDataStoreCollection: the data stores of one installation of the application, found by the
// role they play (DataStoreType). Fields use it to reach the data store that holds a value
// table. Only the lookup is here; the collection's persistence and relocation are not.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zt/export.h"
#include "zt/trap.h"
#include "zt/variant.h"

namespace zt {

class CZtDataStore;
class Connection;

class ZT_EXPORT CZtDataStoreCollection : public Object {
 public:
  std::string TypeName() const override { return "CZtDataStoreCollection"; }

  // Adds a data store; a null pointer raises (invalid procedure call) and adds nothing.
  void Add(std::shared_ptr<CZtDataStore> data_store);
  std::int32_t Count() const { return static_cast<std::int32_t>(stores_.size()); }
  // The first data store whose DataStoreType is `type`, nullptr when none.
  std::shared_ptr<CZtDataStore> FindByType(std::int32_t type) const;
  // The open connection of the data store of `type` (opened on first need, GetConnection(1)).
  // Raises when there is no such data store or it cannot be opened.
  std::shared_ptr<Connection> GetConnection(std::int32_t type);

 private:
  std::vector<std::shared_ptr<CZtDataStore>> stores_;
  InstanceTrace trace_{"CZtDataStoreCollection"};
};

}  // namespace zt
