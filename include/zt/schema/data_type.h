// Data types: the one place that knows the column type names of every provider.
//
//   zt::CZtDataType dt;
//   std::int32_t type = 115, kind = 0;                       // an application field type
//   std::string name = dt.GetTypeName(type, 50, 2, kind);    // "NVARCHAR"; type is now 10
//
// The type comes in as a DAO code (type kind 0), an OLE DB code (type kind 1) or one of the
// application's field types 101-120, which are first reduced to a DAO code and written back:
// 101, 109 -> 8 Date; 102 -> the size itself when 1-50, else 4 Long; 103 -> 4; 104, 120 -> 12
// Memo; 115 -> 10 Text.
//
// Without a connection the name comes from the table below; with one, from the data store's
// tblDataTypeConversion (columns tJetDataType, tSQLDataType, tOracleDataType, keyed by
// nDAODataType or nOLEDBDataType). Text takes no length here: the caller appends it.
//
//   DAO code          Jet (1)      SQL Server (2)     PostgreSQL (32)    MariaDB/MySQL (16)
//   1  Boolean        BIT          BIT                BOOLEAN            TINYINT(1)
//   2  Byte           BYTE         SMALLINT           SMALLINT           TINYINT UNSIGNED
//   3  Integer        SHORT        SMALLINT           SMALLINT           SMALLINT
//   4  Long           LONG         INT                INTEGER            INT
//   5  Currency       CURRENCY     MONEY              NUMERIC(19,4)      DECIMAL(19,4)
//   6  Single         SINGLE       REAL               REAL               FLOAT
//   7  Double         DOUBLE       FLOAT              DOUBLE PRECISION   DOUBLE
//   8, 22, 23 Date    DATETIME     DATETIME           TIMESTAMP          DATETIME
//   10 Text           TEXT         NVARCHAR           VARCHAR            VARCHAR
//   11 Long binary    LONGBINARY   IMAGE              BYTEA              LONGBLOB
//   12 Memo           LONGTEXT     NVARCHAR(MAX)      TEXT               LONGTEXT
//   15 GUID           GUID         UNIQUEIDENTIFIER   CHAR(38)           CHAR(38)
//
// OLE DB codes name the same types as their DAO counterparts (2 -> Integer, 3 -> Long,
// 4 -> Single, 5 -> Double, 6 -> Currency, 7/135 -> Date, 11 -> Boolean, 17 -> Byte, 72 -> GUID,
// 200/202 -> Text, 201/203 -> Memo, 204/205 -> Long binary), with one exception kept from the
// old library: OLE DB 128 (binary) is "TIMESTAMP" on SQL Server (LONGBINARY on Jet, the Long
// binary name elsewhere). Byte is SMALLINT on SQL Server on purpose, as it always was.
//
// The PostgreSQL and MariaDB columns are the types the library creates its own tables with (the
// engine dialects), so that a field added later is declared like the fields created with its
// table, and reads back as the DAO code it was added as. Booleans: the application writes -1
// and 0; a PostgreSQL BOOLEAN takes both through the library's Boolean values, and MariaDB's
// TINYINT(1) is signed and holds -1 itself. GUIDs are kept in their braced text form (38
// characters), as the application writes them. Oracle (4) has names only in tblDataTypeConversion:
// without a connection it yields "". The new providers 16 and 32 have no column in that table and
// always answer from the table above.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "zt/export.h"
#include "zt/platform.h"
#include "zt/trap.h"

namespace zt {

// Type kinds of GetTypeName.
inline constexpr std::int32_t kTypeKindDao = 0;
inline constexpr std::int32_t kTypeKindOleDb = 1;

class ZT_EXPORT CZtDataType : public Object {
 public:
  CZtDataType() : trace_("CZtDataType") {}
  std::string TypeName() const override { return "CZtDataType"; }

  // The provider's type name for `data_type` ("" when the type, the kind or the provider is not
  // known). `data_type` comes back reduced to its DAO code; `type_kind` is left as it came.
  // With a connection, the name is read from its tblDataTypeConversion (providers 1, 2, 4); the
  // database's error is raised when that query fails.
  std::string GetTypeName(std::int32_t& data_type, std::int32_t size, std::int32_t provider,
                          std::int32_t& type_kind,
                          const std::shared_ptr<Connection>& connection = nullptr);

  // Application field type (101-120) to DAO code; any other code unchanged.
  static std::int32_t ReduceApplicationType(std::int32_t data_type, std::int32_t size);

 private:
  std::string GetTypeNameFromTable(std::int32_t data_type, std::int32_t provider,
                                   std::int32_t type_kind, const std::shared_ptr<Connection>& cn,
                                   std::shared_ptr<Recordset>& rs);
  InstanceTrace trace_;
};

}  // namespace zt
