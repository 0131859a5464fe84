// CZtDataType: type codes to provider type names.
#include "zt/schema/data_type.h"

#include <array>

#include "zt/datastore.h"

namespace zt {

namespace {

constexpr std::string_view kTypeName = "CZtDataType";

// One row per DAO code: Jet, SQL Server, PostgreSQL, MariaDB/MySQL.
struct Names {
  std::int32_t dao;
  const char* jet;
  const char* sql_server;
  const char* postgres;
  const char* mariadb;
};

constexpr std::array<Names, 14> kDaoNames = {{
    {1, "BIT", "BIT", "BOOLEAN", "TINYINT(1)"},
    {2, "BYTE", "SMALLINT", "SMALLINT", "TINYINT UNSIGNED"},
    {3, "SHORT", "SMALLINT", "SMALLINT", "SMALLINT"},
    {4, "LONG", "INT", "INTEGER", "INT"},
    {5, "CURRENCY", "MONEY", "NUMERIC(19,4)", "DECIMAL(19,4)"},
    {6, "SINGLE", "REAL", "REAL", "FLOAT"},
    {7, "DOUBLE", "FLOAT", "DOUBLE PRECISION", "DOUBLE"},
    {8, "DATETIME", "DATETIME", "TIMESTAMP", "DATETIME"},
    {10, "TEXT", "NVARCHAR", "VARCHAR", "VARCHAR"},
    {11, "LONGBINARY", "IMAGE", "BYTEA", "LONGBLOB"},
    {12, "LONGTEXT", "NVARCHAR(MAX)", "TEXT", "LONGTEXT"},
    {15, "GUID", "UNIQUEIDENTIFIER", "CHAR(38)", "CHAR(38)"},
    {22, "DATETIME", "DATETIME", "TIMESTAMP", "DATETIME"},
    {23, "DATETIME", "DATETIME", "TIMESTAMP", "DATETIME"},
}};

// The DAO code whose names an OLE DB code takes (0: none).
std::int32_t DaoOfOleDb(std::int32_t code) {
  switch (code) {
    case 2:
      return 3;
    case 3:
      return 4;
    case 4:
      return 6;
    case 5:
      return 7;
    case 6:
      return 5;
    case 7:
    case 135:
      return 8;
    case 11:
      return 1;
    case 17:
      return 2;
    case 72:
      return 15;
    case 128:
    case 204:
    case 205:
      return 11;
    case 200:
    case 202:
      return 10;
    case 201:
    case 203:
      return 12;
    default:
      return 0;
  }
}

std::string FromDaoTable(std::int32_t dao, std::int32_t provider) {
  for (const Names& n : kDaoNames) {
    if (n.dao != dao) continue;
    switch (provider) {
      case kProviderJet:
        return n.jet;
      case kProviderSqlServer:
        return n.sql_server;
      case kProviderPostgreSql:
        return n.postgres;
      case kProviderMySql:
        return n.mariadb;
      default:
        return {};
    }
  }
  return {};
}

std::string FromOleDbTable(std::int32_t code, std::int32_t provider) {
  if (code < 2 || code > 205) return {};
  // Binary is the server's row-version type on SQL Server, as the old library always named it.
  if (code == 128 && provider == kProviderSqlServer) return "TIMESTAMP";
  const std::int32_t dao = DaoOfOleDb(code);
  return dao ? FromDaoTable(dao, provider) : std::string();
}

}  // namespace

std::int32_t CZtDataType::ReduceApplicationType(std::int32_t data_type, std::int32_t size) {
  switch (data_type) {
    case 101:
    case 109:
      return 8;
    case 102:
      return size >= 1 && size <= 50 ? size : 4;
    case 103:
      return 4;
    case 104:
    case 120:
      return 12;
    case 115:
      return 10;
    default:
      return data_type;
  }
}

std::string CZtDataType::GetTypeName(std::int32_t& data_type, std::int32_t size,
                                     std::int32_t provider, std::int32_t& type_kind,
                                     const std::shared_ptr<Connection>& connection) {
  Trap at(kTypeName, "GetTypeName", "");
  at.NoStep();
  std::shared_ptr<Recordset> rs;
  // The recordset is closed however the lookup ends.
  struct Closer {
    std::shared_ptr<Recordset>& rs;
    ~Closer() {
      if (rs) rs->Close();
      rs.reset();
    }
  } closer{rs};
  return at.Reraising([&] {
    data_type = ReduceApplicationType(data_type, size);
    const bool new_provider = provider == kProviderPostgreSql || provider == kProviderMySql;
    if (!connection || new_provider) {
      if (type_kind == kTypeKindDao) return FromDaoTable(data_type, provider);
      if (type_kind == kTypeKindOleDb) return FromOleDbTable(data_type, provider);
      return std::string();
    }
    return GetTypeNameFromTable(data_type, provider, type_kind, connection, rs);
  });
}

std::string CZtDataType::GetTypeNameFromTable(std::int32_t data_type, std::int32_t provider,
                                              std::int32_t type_kind,
                                              const std::shared_ptr<Connection>& cn,
                                              std::shared_ptr<Recordset>& rs) {
  Trap at(kTypeName, "GetTypeNameFromTable", "");
  at.NoStep();
  return at.Reraising([&] {
    std::string column;
    if (provider == kProviderJet) column = "tJetDataType";
    if (provider == kProviderSqlServer) column = "tSQLDataType";
    if (provider == kProviderOracle) column = "tOracleDataType";
    // A provider without a column leaves the name out; the database rejects that text and its
    // error reaches the caller.
    const std::string sql =
        "SELECT " + column +
        (type_kind == kTypeKindDao ? " FROM tblDataTypeConversion WHERE nDAODataType="
                                   : " FROM tblDataTypeConversion WHERE nOLEDBDataType=") +
        std::to_string(data_type);
    rs = std::make_shared<Recordset>();
    rs->Open(sql, cn);
    if (rs->Eof()) return std::string();
    const Variant v = rs->Fields(0).Value();
    return v.IsNull() ? std::string() : v.ToText();
  });
}

}  // namespace zt
