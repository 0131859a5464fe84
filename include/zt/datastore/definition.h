// What the data-store collection and the connection opening see of a data store: its
// definition (IZtDSDefinition) and its retry parameters (IZtRetry). CZtDataStore implements both.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "zt/export.h"

namespace zt {

// The definition of a data store as the data-store collection keeps it. Name, Location, Type,
// ProviderType, AltConnString and AltConnStringOperation are the data store's DataStoreName,
// Location, DataStoreType, GeneralProviderType, AltConnString and AltConnStringOperation;
// Order, SecurityAccess, SecurityDB and AltLocation are kept only for the collection.
class ZT_EXPORT IZtDSDefinition {
 public:
  virtual ~IZtDSDefinition() = default;
  virtual std::string Name() const = 0;
  virtual void Name(const std::string& value) = 0;
  virtual std::string Location() const = 0;
  virtual void Location(const std::string& value) = 0;
  virtual std::int32_t Type() const = 0;
  virtual void Type(std::int32_t value) = 0;
  virtual std::int32_t ProviderType() const = 0;
  virtual void ProviderType(std::int32_t value) = 0;
  virtual std::string AltConnString() const = 0;
  virtual void AltConnString(const std::string& value) = 0;
  virtual std::int32_t AltConnStringOperation() const = 0;
  virtual void AltConnStringOperation(std::int32_t value) = 0;
  virtual std::int32_t Order() const = 0;
  virtual void Order(std::int32_t value) = 0;
  virtual std::int32_t SecurityAccess() const = 0;
  virtual void SecurityAccess(std::int32_t value) = 0;
  virtual std::string SecurityDB() const = 0;
  virtual void SecurityDB(const std::string& value) = 0;
  virtual std::string AltLocation() const = 0;
  virtual void AltLocation(const std::string& value) = 0;
  // A new, unconnected data store with the same definition (credentials included). The
  // caller owns it.
  virtual std::shared_ptr<IZtDSDefinition> Copy() const = 0;
};

// Retry parameters of the connection opening.
class ZT_EXPORT IZtRetry {
 public:
  virtual ~IZtRetry() = default;
  // Attempts after the first failed one (configuration value 501, default 5).
  virtual std::int32_t MaxRetries() const = 0;
  virtual void MaxRetries(std::int32_t value) = 0;
  // Milliseconds between attempts (configuration value 502, default 100).
  virtual std::int32_t RetryInterval() const = 0;
  virtual void RetryInterval(std::int32_t value) = 0;
  // Kept for callers; the connection opening does not consult it.
  virtual bool AddRandomDelay() const = 0;
  virtual void AddRandomDelay(bool value) = 0;
};

}  // namespace zt
