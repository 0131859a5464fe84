// The late-bound members of CZtSQLServer, with its two interfaces.
#include "server/member_table.h"
#include "zt/datastore.h"
#include "zt/platform.h"
#include "zt/sqlserver/sql_server.h"

namespace zt {
namespace {

using S = CZtSQLServer;

const server::Registrar<S> kSQLServer("CZtSQLServer", [](auto& t) {
  t.Prop("LoginTimeout", &S::LoginTimeout, &S::LoginTimeout)
      .Prop("UserInteraction", &S::UserInteraction, &S::UserInteraction)
      .Get("DataStore", &S::DataStore)
      .Get("ServerConnection", &S::ServerConnection)
      .Method("Default_Database_File_Extension",
              [](S&) { return S::Default_Database_File_Extension(); })
      .Method("LogIn", &S::LogIn)
      .Method("LogInSA", &S::LogInSA)
      .Method("RunStoredProcedureNoResults", &S::RunStoredProcedureNoResults)
      .Method("RunStoredProcedureOneResult", &S::RunStoredProcedureOneResult)
      .Method("GetVersion", &S::GetVersion)
      .Method("AddLogin", &S::AddLogin)
      .Method("DropLogin", &S::DropLogin)
      .Method("CreateSimpleDatabase", &S::CreateSimpleDatabase)
      .Method("DropDatabase", &S::DropDatabase)
      .Method("AddUserToSysAdmins", &S::AddUserToSysAdmins)
      .Method("MapShareNameToResource", &S::MapShareNameToResource)
      .Method("DetachDatabase", &S::DetachDatabase)
      .Method("AttachDatabase", &S::AttachDatabase)
      .Method("GetOSFiles", &S::GetOSFiles)
      .Method("SendMessage", &S::SendMessage)
      .Method("GetSecurityMode", &S::GetSecurityMode)
      .Method("GetDBSize", &S::GetDBSize)
      .Method("ValidLocalPath", [](S&, const std::string& path) { return S::ValidLocalPath(path); })
      .Method("CreateTimestampField", &S::CreateTimestampField)
      // Each user as a pair (computer name, login name), as CZtDataStore gives them.
      .Method(
          "GetUserRoster",
          [](S& s, const std::string& database, const std::string& filter) {
            std::vector<Variant> rows;
            for (const auto& e : s.GetUserRoster(database, filter))
              rows.push_back(Variant::Array({e.computer_name, e.login_name}));
            return Variant::Array(std::move(rows));
          },
          1)
      .Method("InitializeForTessel", &S::InitializeForTessel)
      .Method("GetSQLServersList", &S::GetSQLServersList)
      .Method("InitializeForOrvane", &S::InitializeForOrvane)
      .Method("GetComputerNameFromInstance",
              [](S&, const std::string& server) { return GetComputerNameFromInstance(server); });
});

}  // namespace
}  // namespace zt
