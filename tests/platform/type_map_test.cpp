// The shared type table: declared and catalogued names to ADO and DAO codes.
#include "platform/type_map.h"

#include <gtest/gtest.h>

#include "platform/dialect.h"

namespace zt::platform {
namespace {

TEST(TypeMapTest, NamesMapToTheCodesTheOldProvidersReported) {
  struct Case {
    const char* name;
    bool jet;
    std::int32_t ado;
    std::int64_t size;
    std::int32_t dao;
  };
  const Case cases[] = {
      {"TEXT(50)", true, 202, 50, 10},
      {"TEXT (50)", true, 202, 50, 10},
      {"LONGTEXT", true, 203, 536870910, 12},
      {"SHORT", true, 2, 2, 3},
      {"BYTE", true, 17, 1, 2},
      {"LONGBINARY", true, 205, 2147483647, 11},
      {"GUID", true, 72, 16, 15},
      {"TEXT", true, 202, 255, 10},
      {"text", false, 203, 536870910, 12},
      {"VARCHAR(80)", false, 202, 80, 10},
      {"character varying", false, 203, 536870910, 12},
      {"nvarchar(10)", false, 202, 10, 10},
      {"CHAR(3)", true, 130, 3, 10},
      {"MEMO", true, 203, 536870910, 12},
      {"LONG", true, 3, 4, 4},
      {"int4", false, 3, 4, 4},
      {"INTEGER", true, 3, 4, 4},
      {"SHORT", true, 2, 2, 3},
      {"BYTE", true, 17, 1, 2},
      {"BIT", true, 11, 2, 1},
      {"boolean", false, 11, 2, 1},
      {"BIGINT", false, 20, 8, 16},
      {"SINGLE", true, 4, 4, 6},
      {"DOUBLE", true, 5, 8, 7},
      {"double precision", false, 5, 8, 7},
      {"CURRENCY", true, 6, 8, 5},
      {"money", false, 6, 8, 5},
      {"DATETIME", true, 7, 8, 8},
      {"DATETIME", false, 135, 16, 8},
      {"timestamp without time zone", false, 135, 16, 8},
      {"date", false, 133, 6, 8},
      {"DECIMAL(12,2)", true, 131, 19, 20},
      {"GUID", true, 72, 16, 15},
      {"uuid", false, 72, 16, 15},
      {"LONGBINARY", true, 205, 2147483647, 11},
      {"bytea", false, 205, 2147483647, 11},
      {"VARBINARY(16)", false, 204, 16, 9},
      {"int unsigned", false, 3, 4, 4},
      {"geometry", false, 200, 255, 10},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.name) + (c.jet ? " (Jet)" : ""));
    const TypeMapping m = MapTypeName(c.name, 0, 0, 0, c.jet);
    EXPECT_EQ(m.ado_type, c.ado);
    EXPECT_EQ(m.defined_size, c.size);
    EXPECT_EQ(m.dao_type, c.dao);
  }
  const TypeMapping dec = MapTypeName("numeric", 0, 10, 3);
  EXPECT_EQ(dec.precision, 10);
  EXPECT_EQ(dec.scale, 3);
  EXPECT_TRUE(MapTypeName("COUNTER", 0, 0, 0, true).auto_increment);
  EXPECT_EQ(MapTypeName("MEMO", 0, 0, 0, true).attributes & attr::kLong, attr::kLong);
  EXPECT_EQ(MapTypeName("rowversion").attributes & attr::kRowVersion, attr::kRowVersion);
  EXPECT_EQ(MapTypeName("varchar", 40).defined_size, 40);  // the catalogue's length
}

// An SQLite file holds two vocabularies: the Jet names this library writes, and SQLite's own,
// which other programs write and which must keep SQLite's meaning (a TEXT read as 255
// characters, a REAL as single precision or an INTEGER as 32 bits lost values in copies).
TEST(TypeMapTest, SqliteNamesKeepTheirMeaningBesideTheJetOnes) {
  struct Case {
    const char* name;
    std::int32_t ado;
    std::int64_t size;
    std::int32_t precision = 255, scale = 255;
  };
  const Case cases[] = {
      {"INTEGER", 20, 8, 19},  // 64-bit
      {"INT", 20, 8, 19},
      {"UNSIGNED BIG INT", 20, 8, 19},
      {"REAL", 5, 8, 15},  // a double
      {"FLOAT", 5, 8, 15},
      {"TEXT", 203, 536870910},  // unbounded
      {"NVARCHAR", 203, 536870910},
      {"CLOB", 203, 536870910},
      {"", 203, 536870910},  // no type: any value
      {"NVARCHAR(70)", 202, 70},
      {"VARYING CHARACTER(30)", 202, 30},
      {"NUMERIC(10,2)", 131, 19, 10, 2},
      {"DECIMAL TEXT(38,10)", 131, 19, 38, 10},
      {"NUMERIC", 131, 19, 0, 0},  // any exact number
      {"BLOB", 205, 2147483647},
      {"DATETIME", 7, 8},
      // The Jet names keep the Jet meaning, so DAO codes round-trip.
      {"TEXT(50)", 202, 50},
      {"LONG", 3, 4, 10},
      {"SHORT", 2, 2, 5},
      {"SINGLE", 4, 4, 7},
      {"MEMO", 203, 536870910},
      {"CURRENCY", 6, 8, 19},
      {"YESNO", 11, 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const TypeMapping m = MapSqliteTypeName(c.name);
    EXPECT_EQ(m.ado_type, c.ado);
    EXPECT_EQ(m.defined_size, c.size);
    EXPECT_EQ(m.precision, c.precision);
    if (c.ado == 131) {
      EXPECT_EQ(m.scale, c.scale);
    }
  }
}

// Each engine's narrowest type that holds every value of a column exactly; past an engine's
// limit the wider form, never a narrower one.
TEST(TypeMapTest, EachEngineGivesTheNarrowestExactType) {
  const auto col = [](std::int32_t type, std::int64_t size = 0, std::int32_t p = 255,
                      std::int32_t s = 255) {
    ColumnInfo c;
    c.type = type, c.defined_size = size, c.precision = p, c.scale = s;
    return c;
  };
  struct Case {
    ColumnInfo column;
    const char *sqlite, *postgres, *mariadb, *sqlserver;
  };
  const Case cases[] = {
      {col(20), "BIGINT", "BIGINT", "BIGINT", "BIGINT"},
      {col(5), "DOUBLE", "DOUBLE PRECISION", "DOUBLE", "FLOAT"},
      {col(4), "SINGLE", "REAL", "FLOAT", "REAL"},
      {col(131, 19, 10, 2), "DECIMAL(10,2)", "NUMERIC(10,2)", "DECIMAL(10,2)", "DECIMAL(10,2)"},
      {col(131, 19, 38, 10), "DECIMAL TEXT(38,10)", "NUMERIC(38,10)", "DECIMAL(38,10)",
       "DECIMAL(38,10)"},
      {col(131, 19, 0, 0), "DECIMAL TEXT", "NUMERIC", "DECIMAL(65,30)", "DECIMAL(38,10)"},
      {col(203, 536870910), "TEXT", "TEXT", "LONGTEXT", "NVARCHAR(MAX)"},
      {col(202, 70), "TEXT(70)", "VARCHAR(70)", "VARCHAR(70)", "NVARCHAR(70)"},
      {col(202, 5000), "TEXT(5000)", "VARCHAR(5000)", "LONGTEXT", "NVARCHAR(MAX)"},
      {col(202, 0), "TEXT", "TEXT", "LONGTEXT", "NVARCHAR(MAX)"},
      {col(205, 2147483647), "LONGBINARY", "BYTEA", "LONGBLOB", "VARBINARY(MAX)"},
      {col(135), "DATETIME", "TIMESTAMP(6)", "DATETIME(6)", "DATETIME2"},
      {col(17), "BYTE", "SMALLINT", "TINYINT UNSIGNED", "TINYINT"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.column.type) + "/" + std::to_string(c.column.defined_size));
    EXPECT_EQ(DialectFor("SQLite").ColumnTypeOf(c.column), c.sqlite);
    EXPECT_EQ(DialectFor("PostgreSQL").ColumnTypeOf(c.column), c.postgres);
    EXPECT_EQ(DialectFor("MariaDB").ColumnTypeOf(c.column), c.mariadb);
    EXPECT_EQ(DialectFor("SQL Server").ColumnTypeOf(c.column), c.sqlserver);
    // What the SQLite file reads back is the same logical type.
    const TypeMapping back = MapSqliteTypeName(DialectFor("SQLite").ColumnTypeOf(c.column));
    EXPECT_EQ(back.ado_type, c.column.type == 202 && c.column.defined_size == 0 ? 203
                             : c.column.type == 135                             ? 7
                                                                                : c.column.type);
  }
}

}  // namespace
}  // namespace zt::platform
