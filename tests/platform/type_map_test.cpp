// The shared type table: declared and catalogued names to ADO and DAO codes.
#include "platform/type_map.h"

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace zt::platform
