// A program that uses ZtDBTools as any other program would: it includes only <zt/ztdbtools.h>
// and links only the library. It is compiled in the build tree (a class missing from the public
// headers stops the build) and, by install_test.sh, against an installed tree through
// find_package and through pkg-config.
#include <zt/ztdbtools.h>

#include <cstdio>
#include <memory>
#include <string>

namespace {

// sizeof needs the whole class: a class that is only declared, or not declared at all in a
// header that <zt/ztdbtools.h> reaches, fails here.
template <class... T>
constexpr bool kDeclared = ((sizeof(T) > 0) && ...);

// The classes and interfaces a host program works with, by layer.
static_assert(kDeclared<zt::CZtConfigReader, zt::CZtSetting, zt::CZtSettingMgr, zt::CZtPropertyCol,
                        zt::CZtGlobalSettings, zt::CZtEventLogger>);
static_assert(kDeclared<zt::CZtPropString, zt::CZtFieldEncoder, zt::IZtSerializable>);
static_assert(kDeclared<zt::CZtDataStore, zt::CZtProvider, zt::CZtDataStoreCollection,
                        zt::IZtDSDefinition, zt::IZtRetry>);
static_assert(kDeclared<zt::CZtDTMgr, zt::CZtDataType, zt::CZtTableType, zt::CZtTableTypeMgr,
                        zt::CZtStyle, zt::IZtUserInteraction>);
static_assert(kDeclared<zt::CZtField, zt::CZtFieldCollection, zt::CZtLookupValue,
                        zt::CZtLookupValCol, zt::CZtQuery, zt::CZtWhereMacroHlpr, zt::CZtDataView,
                        zt::CZtDataViewCol, zt::CZtSQLStatement>);
static_assert(
    kDeclared<zt::IZtField, zt::IZtLookupValue, zt::IZtLookupValCol, zt::IZtQuery, zt::IZtDataView,
              zt::IZtDataViewCol, zt::IZtProperty, zt::IZtPropertyCol, zt::IZtExtendedProperties>);
static_assert(kDeclared<zt::CZTADOUtilities, zt::CZtDAOUtilities, zt::CZtRSRecUtils,
                        zt::CZtRecordMgr, zt::CZtXMLManip>);
static_assert(kDeclared<zt::CZtSQLServer, zt::IZtSQLSvrAdminHelper, zt::CZtDialog>);

}  // namespace

// argv[1]: a folder for an SQLite data store. Prints "42 caught" when the data store, its
// connection and the library's errors all work from outside the library.
int main(int argc, char** argv) {
  if (argc < 2) {
    std::fputs("usage: use FOLDER\n", stderr);
    return 2;
  }
  auto ds = std::make_shared<zt::CZtDataStore>();
  ds->GeneralProviderType(zt::ProviderTypeFromName("sqlite"));
  ds->Location(argv[1]);
  ds->DataStoreName("use.db");
  ds->CreatePhysicalDataStore();
  auto cn = ds->GetConnection(1);
  cn->Execute("CREATE TABLE [t] ([n] INTEGER)");
  cn->Execute("INSERT INTO [t] ([n]) VALUES (42)");
  auto rs = cn->Execute("SELECT [n] FROM [t]");
  const std::string n = rs->Value("n").ToText();
  try {
    cn->Execute("SELECT * FROM [no_such_table]");
    return 1;
  } catch (const zt::ZtError& e) {
    std::printf("%s %s\n", n.c_str(), e.Number() != 0 ? "caught" : "zero");
  }
  return 0;
}
