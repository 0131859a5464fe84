// The late-bound members of the connection and recordset objects that the library's classes
// hand out (GetConnection, OpenXMLToRS ...), so that a host can use what it is given.
#include "server/member_table.h"
#include "zt/platform.h"

namespace zt {
namespace {

const server::Registrar<Connection> kConnection(
    "Connection",
    [](auto& t) {
      using C = Connection;
      t.Method(
           "Open",
           [](C& c, const std::string& cs, const std::string& user, const std::string& password) {
             c.Open(cs, user, password);
           },
           3)
          .Method("Close", &C::Close)
          .Get("State", &C::State)
          // The number of rows the statement touched comes back in the optional second argument.
          .Method(
              "Execute",
              [](C& c, const std::string& sql, std::int64_t& records_affected) {
                return c.Execute(sql, &records_affected);
              },
              1)
          .Method("BeginTrans", &C::BeginTrans)
          .Method("CommitTrans", &C::CommitTrans)
          .Method("RollbackTrans", &C::RollbackTrans)
          .Get("ConnectionString", &C::ConnectionString)
          .Get("Provider", &C::Provider)
          .Get("CommandTimeout", &C::CommandTimeout)
          .PutFn("CommandTimeout", [](C& c, std::int32_t seconds) { c.SetCommandTimeout(seconds); })
          .Method("ColumnType", &C::ColumnType, 1);
    },
    server::Creation::kFromMembersOnly);

const server::Registrar<Recordset> kRecordset(
    "Recordset",
    [](auto& t) {
      using R = Recordset;
      t.Method("Close", &R::Close)
          .Get("State", &R::State)
          .Get("EOF", &R::Eof)
          .Get("BOF", &R::Bof)
          .Get("RecordCount", &R::RecordCount)
          .Method("MoveFirst", &R::MoveFirst)
          .Method("MoveLast", &R::MoveLast)
          .Method("MoveNext", &R::MoveNext)
          .Method("MovePrevious", &R::MovePrevious)
          .Method("Value", &R::Value)
          .Method("HasField", &R::HasField);
    },
    server::Creation::kFromMembersOnly);

}  // namespace
}  // namespace zt
