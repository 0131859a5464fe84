// CZtDataType: the fixed tables, the application types and the data store's conversion table.
#include "zt/schema/data_type.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "platform/dialect.h"
#include "platform/type_map.h"
#include "support/test_env.h"
#include "zt/datastore.h"
#include "zt/platform.h"

namespace fs = std::filesystem;

namespace {

std::string Name(std::int32_t type, std::int32_t size, std::int32_t provider,
                 std::int32_t kind = zt::kTypeKindDao, std::int32_t* reduced = nullptr) {
  zt::CZtDataType dt;
  std::int32_t k = kind;
  const std::string name = dt.GetTypeName(type, size, provider, k);
  if (reduced) *reduced = type;
  EXPECT_EQ(k, kind);
  return name;
}

constexpr std::int32_t kDaoCodes[] = {1, 2, 3, 4, 5, 6, 7, 8, 10, 11, 12, 15};

TEST(DataType, ApplicationTypesReduceAndWriteBack) {
  zt::testing::RecordingEnv env;
  std::int32_t reduced = 0;
  // 102 takes its size as the DAO type when 1 to 50.
  EXPECT_EQ(Name(102, 6, 1, 0, &reduced), "SINGLE");
  EXPECT_EQ(reduced, 6);
  EXPECT_EQ(Name(102, 0, 1, 0, &reduced), "LONG");
  EXPECT_EQ(reduced, 4);
  EXPECT_EQ(Name(102, 80, 2), "INT");
  EXPECT_EQ(Name(102, 51, 1), "LONG");
  EXPECT_EQ(Name(102, 50, 1), "");  // DAO 50 is no type: asked as given, not found
  EXPECT_EQ(Name(115, 50, 2, 0, &reduced), "NVARCHAR");
  EXPECT_EQ(reduced, 10);
  EXPECT_EQ(Name(101, 0, 2, 0, &reduced), "DATETIME");
  EXPECT_EQ(reduced, 8);
  EXPECT_EQ(Name(109, 0, 1), "DATETIME");
  EXPECT_EQ(Name(103, 0, 2), "INT");
  EXPECT_EQ(Name(104, 0, 2, 0, &reduced), "NVARCHAR(MAX)");
  EXPECT_EQ(reduced, 12);
  EXPECT_EQ(Name(120, 0, 1), "LONGTEXT");
  // Other application codes stay as they are, and name nothing.
  EXPECT_EQ(Name(110, 0, 2, 0, &reduced), "");
  EXPECT_EQ(reduced, 110);
  // The reduction happens before the type kind is looked at (OLE DB 4 is Single).
  EXPECT_EQ(Name(102, 4, 2, zt::kTypeKindOleDb), "REAL");
}

TEST(DataType, FixedTablesWithTheDeliberateEntries) {
  zt::testing::RecordingEnv env;
  // The entries kept as the old library had them.
  EXPECT_EQ(Name(2, 0, 2), "SMALLINT");
  EXPECT_EQ(Name(17, 0, 2, 1), "SMALLINT");
  EXPECT_EQ(Name(128, 0, 2, 1), "TIMESTAMP");
  EXPECT_EQ(Name(128, 0, 1, 1), "LONGBINARY");
  EXPECT_EQ(Name(204, 0, 2, 1), "IMAGE");
  EXPECT_EQ(Name(205, 0, 2, 1), "IMAGE");
  EXPECT_EQ(Name(10, 50, 2), "NVARCHAR");  // the length is the caller's to add
  EXPECT_EQ(Name(12, 0, 2), "NVARCHAR(MAX)");
  EXPECT_EQ(Name(22, 0, 1), "DATETIME");
  EXPECT_EQ(Name(23, 0, 2), "DATETIME");
  EXPECT_EQ(Name(3, 0, 1), "SHORT");
  EXPECT_EQ(Name(15, 0, 2), "UNIQUEIDENTIFIER");
  // OLE DB codes, both providers.
  const std::pair<std::int32_t, std::pair<const char*, const char*>> ole[] = {
      {2, {"SHORT", "SMALLINT"}},
      {3, {"LONG", "INT"}},
      {4, {"SINGLE", "REAL"}},
      {5, {"DOUBLE", "FLOAT"}},
      {6, {"CURRENCY", "MONEY"}},
      {7, {"DATETIME", "DATETIME"}},
      {135, {"DATETIME", "DATETIME"}},
      {11, {"BIT", "BIT"}},
      {17, {"BYTE", "SMALLINT"}},
      {72, {"GUID", "UNIQUEIDENTIFIER"}},
      {200, {"TEXT", "NVARCHAR"}},
      {202, {"TEXT", "NVARCHAR"}},
      {201, {"LONGTEXT", "NVARCHAR(MAX)"}},
      {203, {"LONGTEXT", "NVARCHAR(MAX)"}}};
  for (const auto& [code, names] : ole) {
    EXPECT_EQ(Name(code, 0, 1, 1), names.first) << code;
    EXPECT_EQ(Name(code, 0, 2, 1), names.second) << code;
  }
  // Unknown codes, kinds and providers name nothing; Oracle has no fixed names.
  EXPECT_EQ(Name(9, 0, 2), "");
  EXPECT_EQ(Name(1, 0, 2, 1), "");  // OLE DB codes below 2 are not looked at
  EXPECT_EQ(Name(206, 0, 2, 1), "");
  EXPECT_EQ(Name(4, 0, 2, 2), "");
  EXPECT_EQ(Name(4, 0, 3), "");
  for (std::int32_t code : kDaoCodes) EXPECT_EQ(Name(code, 0, 4), "") << code;
}

// The PostgreSQL and MariaDB names are the ones the engine dialects create tables with, and
// every name reads back (through the layer's type reader) as the DAO code it was asked for.
TEST(DataType, NewProvidersAgreeWithTheDialectsAndJetNamesReadBack) {
  zt::testing::RecordingEnv env;
  const std::pair<std::int32_t, const char*> engines[] = {{zt::kProviderPostgreSql, "PostgreSQL"},
                                                          {zt::kProviderMySql, "MariaDB"},
                                                          {zt::kProviderMySql, "MySQL"}};
  for (const auto& [provider, engine] : engines) {
    const auto& dialect = zt::platform::DialectFor(engine);
    for (std::int32_t code : kDaoCodes) {
      std::string name = Name(code, 0, provider);
      if (code == 10) name += "(40)";
      EXPECT_EQ(name, dialect.ColumnType(code, 40)) << engine << " " << code;
    }
  }
  // Jet names as an SQLite file declares them, with and without the length's blank.
  for (std::int32_t code : kDaoCodes) {
    const std::string name = Name(code, 0, zt::kProviderJet);
    EXPECT_EQ(zt::platform::MapTypeName(name, 0, 0, 0, true).dao_type, code) << name;
  }
  const auto text50 = zt::platform::MapTypeName("TEXT (50)", 0, 0, 0, true);
  EXPECT_EQ(text50.dao_type, 10);
  EXPECT_EQ(text50.defined_size, 50);
  EXPECT_EQ(zt::platform::MapTypeName("LONGTEXT", 0, 0, 0, true).dao_type, 12);
  // PostgreSQL's names read back as asked, except the GUID, kept as text.
  for (std::int32_t code : {1, 3, 4, 6, 7, 8, 11, 12}) {
    EXPECT_EQ(zt::platform::MapTypeName(Name(code, 0, zt::kProviderPostgreSql)).dao_type, code)
        << code;
  }
}

TEST(DataType, ConversionTableOfTheDataStore) {
  zt::testing::RecordingEnv env;
  const fs::path file =
      fs::temp_directory_path() / ("zt-datatype-conversion-" + std::to_string(::getpid()) + ".db");
  fs::remove(file);
  auto cn = std::make_shared<zt::Connection>();
  cn->Open("Provider=Microsoft.Jet.OLEDB.4.0;Data Source=" + file.string() + ";");
  cn->Execute(
      "CREATE TABLE tblDataTypeConversion (nDAODataType LONG, nOLEDBDataType LONG, "
      "tJetDataType TEXT(50), tSQLDataType TEXT(50), tOracleDataType TEXT(50))");
  cn->Execute("INSERT INTO tblDataTypeConversion VALUES (10, 202, 'TEXT', 'NVARCHAR', 'VARCHAR2')");
  cn->Execute("INSERT INTO tblDataTypeConversion VALUES (4, 3, 'LONG', 'INT', 'NUMBER(10)')");

  zt::CZtDataType dt;
  std::int32_t type = 115, kind = zt::kTypeKindDao;
  EXPECT_EQ(dt.GetTypeName(type, 50, zt::kProviderOracle, kind, cn), "VARCHAR2");
  EXPECT_EQ(type, 10);
  type = 3, kind = zt::kTypeKindOleDb;
  EXPECT_EQ(dt.GetTypeName(type, 0, zt::kProviderSqlServer, kind, cn), "INT");
  type = 4, kind = zt::kTypeKindDao;
  EXPECT_EQ(dt.GetTypeName(type, 0, zt::kProviderJet, kind, cn), "LONG");
  type = 7;  // no row
  EXPECT_EQ(dt.GetTypeName(type, 0, zt::kProviderJet, kind, cn), "");
  // The new providers have no column there and answer from the fixed table.
  type = 10;
  EXPECT_EQ(dt.GetTypeName(type, 0, zt::kProviderPostgreSql, kind, cn), "VARCHAR");
  // A provider without a column: the database refuses the text, and the error is raised with
  // the location logged.
  type = 4;
  EXPECT_THROW(dt.GetTypeName(type, 0, 3, kind, cn), zt::ZtError);
  EXPECT_TRUE(env.Logged("CZtDataType.GetTypeNameFromTable"));
  cn->Close();
  fs::remove(file);
}

}  // namespace
