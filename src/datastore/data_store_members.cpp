// The late-bound members of CZtDataStore and CZtProvider.
#include "server/member_table.h"
#include "zt/datastore.h"
#include "zt/platform.h"

namespace zt {
namespace {

using DS = CZtDataStore;

const server::Registrar<DS> kDataStore("CZtDataStore", [](auto& t) {
  t.Prop("Attributes", &DS::Attributes, &DS::Attributes)
      .Prop("Location", &DS::Location, &DS::Location)
      .Prop("DataStoreName", &DS::DataStoreName, &DS::DataStoreName)
      .Prop("DataStoreType", &DS::DataStoreType, &DS::DataStoreType)
      .Prop("GeneralProviderType", &DS::GeneralProviderType, &DS::GeneralProviderType)
      .Prop("Provider", &DS::Provider, &DS::Provider)
      .Prop("SystemDB", &DS::SystemDB, &DS::SystemDB)
      .Prop("ODBCDriver", &DS::ODBCDriver, &DS::ODBCDriver)
      .Prop("UserName", &DS::UserName, &DS::UserName)
      .Prop("Password", &DS::Password, &DS::Password)
      .Prop("AltConnString", &DS::AltConnString, &DS::AltConnString)
      .Prop("AltConnStringOperation", &DS::AltConnStringOperation, &DS::AltConnStringOperation)
      .Get("FullPath", &DS::FullPath)
      .Get("ConnectionString", &DS::ConnectionString)
      .Method("DAOConnectionString", &DS::DAOConnectionString)
      .Method("GetValueFromConnectionString", &DS::GetValueFromConnectionString)
      .Method("SameConnectionString", &DS::SameConnectionString)
      .Prop("DataStoreConnection", &DS::DataStoreConnection, &DS::DataStoreConnection)
      .Method("GetConnection", &DS::GetConnection)
      .Method("OpenDataStore", &DS::OpenDataStore, 2)
      .Method("ValidateDataStore", &DS::ValidateDataStore)
      .Method("CreatePhysicalDataStore", &DS::CreatePhysicalDataStore)
      .Method("DeletePhysicalDataStore", &DS::DeletePhysicalDataStore)
      .Method("IsReplica", &DS::IsReplica)
      .Method("DeleteTableRecords", &DS::DeleteTableRecords, 1)
      .Method("AddFieldToTable", &DS::AddFieldToTable)
      .Method("DeleteFieldFromTable", &DS::DeleteFieldFromTable)
      .Method("DeleteTable", &DS::DeleteTable)
      .Method("MovePhysicalDataStore", &DS::MovePhysicalDataStore)
      .Method("TesselVersion", &DS::TesselVersion, 1)
      .Method("SetTesselVersion", &DS::SetTesselVersion)
      .Method("Size", &DS::Size)
      .Method("Compact", &DS::Compact)
      .Method("CloseConnections", &DS::CloseConnections)
      .Method("GetLinkedTableName", &DS::GetLinkedTableName)
      .Method("Initialize", &DS::Initialize)
      // Each user as a pair (computer name, login name).
      .Method("GetUserRoster",
              [](DS& ds) {
                std::vector<Variant> rows;
                for (const auto& e : ds.GetUserRoster())
                  rows.push_back(Variant::Array({e.computer_name, e.login_name}));
                return Variant::Array(std::move(rows));
              })
      .Method("MaskedConnectionString", &DS::MaskedConnectionString, 1)
      .Prop("Name", &DS::Name, &DS::Name)
      .Prop("Type", &DS::Type, &DS::Type)
      .Prop("ProviderType", &DS::ProviderType, &DS::ProviderType)
      .Prop("Order", &DS::Order, &DS::Order)
      .Prop("SecurityAccess", &DS::SecurityAccess, &DS::SecurityAccess)
      .Prop("SecurityDB", &DS::SecurityDB, &DS::SecurityDB)
      .Prop("AltLocation", &DS::AltLocation, &DS::AltLocation)
      .Method("Copy", &DS::Copy)
      .Prop("MaxRetries", &DS::MaxRetries, &DS::MaxRetries)
      .Prop("RetryInterval", &DS::RetryInterval, &DS::RetryInterval)
      .Prop("AddRandomDelay", &DS::AddRandomDelay, &DS::AddRandomDelay);
});

const server::Registrar<CZtProvider> kProvider("CZtProvider", [](auto& t) {
  using P = CZtProvider;
  t.Method("GetLatestOLEDBProvider", &P::GetLatestOLEDBProvider)
      .Method("GetOLEDBProvider", &P::GetOLEDBProvider, 1)
      .Method("GetOLEDBProviderPrefix", &P::GetOLEDBProviderPrefix)
      .Method("GetCaptionName", &P::GetCaptionName)
      .Method("GetProviderType", &P::GetProviderType)
      // Each installed provider as a pair (name, version).
      .Method("InstalledProviders",
              [](P&) {
                std::vector<Variant> rows;
                for (const auto& p : P::InstalledProviders())
                  rows.push_back(Variant::Array({p.name, p.version}));
                return Variant::Array(std::move(rows));
              })
      .Method("CompareVersions", [](P&, const std::string& a, const std::string& b) {
        return P::CompareVersions(a, b);
      });
});

}  // namespace
}  // namespace zt
