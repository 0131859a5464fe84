// The library's classes reached by name: the factory, the late-bound calls over the member
// tables, the live-object count and the registration file.
#include "zt/server/dispatch.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "support/engines.h"
#include "support/test_env.h"
#include "zt/error.h"
#include "zt/variant.h"

namespace zt {
namespace {

namespace fs = std::filesystem;
using server::MemberKind;

std::int32_t ErrorNumberOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const ZtError& e) {
    return e.Number();
  }
  return 0;
}

fs::path ScratchFolder(const std::string& name) {
  fs::path dir = fs::temp_directory_path() / ("zt_server_" + name + std::to_string(::getpid()));
  fs::remove_all(dir);
  fs::create_directories(dir);
  return dir;
}

TEST(ClassFactory, EveryPublicClassIsCreatableByProgIdAndBareName) {
  testing::RecordingEnv env;
  // The classes hosts have always created by name.
  const std::set<std::string> expected = {"CZtConfigReader", "CZtSetting",
                                          "CZtSettingMgr",   "CZtPropertyCol",
                                          "CZtPropString",   "CZtDataStore",
                                          "CZtProvider",     "CZtDTMgr",
                                          "CZtDataType",     "CZtTableType",
                                          "CZtTableTypeMgr", "CZtStyle",
                                          "CZtField",        "CZtFieldCollection",
                                          "CZtLookupValue",  "CZtLookupValCol",
                                          "CZtQuery",        "CZtWhereMacroHlpr",
                                          "CZtDataView",     "CZtDataViewCol",
                                          "CZTADOUtilities", "CZtDAOUtilities",
                                          "CZtRSRecUtils",   "CZtRecordMgr",
                                          "CZtXMLManip",     "CZtDataStoreCollection",
                                          "CZtEventLogger",  "CZtGlobalSettings",
                                          "CZtSQLServer"};
  std::set<std::string> found;
  for (const auto* info : server::Classes()) found.insert(info->Name());
  for (const auto& name : expected) {
    SCOPED_TRACE(name);
    ASSERT_TRUE(found.count(name));
    auto by_prog_id = server::CreateObject("ZtDBTools404." + name);
    ASSERT_TRUE(by_prog_id);
    EXPECT_EQ(by_prog_id->TypeName(), name);
    // Hosts spell ProgIDs as they like; the bare class name is accepted too.
    std::string lower = "ztdbtools404." + name;
    for (auto& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    EXPECT_EQ(server::CreateObject(lower)->TypeName(), name);
    EXPECT_EQ(server::CreateObject(name)->TypeName(), name);
    EXPECT_EQ(server::ClassOf(*by_prog_id), server::FindClass(name));
  }
  EXPECT_EQ(ErrorNumberOf([] { server::CreateObject("ZtDBTools404.CZtNoSuchClass"); }), 429);
  EXPECT_EQ(ErrorNumberOf([] { server::CreateObject("Other.CZtDataStore"); }), 429);
}

// A data store on a new SQLite file in `dir`, through the factory.
std::shared_ptr<Object> SqliteStore(const fs::path& dir, bool create) {
  auto ds = server::CreateObject("ZtDBTools404.CZtDataStore");
  server::PutProperty(*ds, "GeneralProviderType", 1);
  server::PutProperty(*ds, "Location", dir.string());
  server::PutProperty(*ds, "DataStoreName", "helpdesk.db");
  if (create) server::Invoke(*ds, "CreatePhysicalDataStore");
  return ds;
}

std::shared_ptr<Object> OpenConnection(const std::shared_ptr<Object>& ds) {
  std::vector<Variant> mode{1};
  return server::Invoke(*ds, "GetConnection", mode).AsObject();
}

// Walks every table: each member of each class is called with as many Empty arguments as it
// takes. Whatever the member then does with them, the dispatcher must have reached it: neither
// 438 nor 450 may come back, and nothing but a ZtError may leave it. Classes that hosts only
// receive from members are made the way hosts get them.
TEST(MemberTables, EveryMemberOfEveryClassIsReachable) {
  testing::RecordingEnv env;
  env.capture_files = true;
  const fs::path scratch = ScratchFolder("walk");
  const auto previous = fs::current_path();
  fs::current_path(scratch);
  SqliteStore(scratch, true);
  auto make = [&](const server::ClassInfo& info) -> std::shared_ptr<Object> {
    if (info.Creatable()) return info.Create();
    auto cn = OpenConnection(SqliteStore(scratch, false));
    if (info.Name() == "Connection") return cn;
    std::vector<Variant> sql{"SELECT 1 AS [a]"};
    if (info.Name() == "Recordset") return server::Invoke(*cn, "Execute", sql).AsObject();
    return nullptr;
  };
  std::size_t reached = 0;
  for (const auto* info : server::Classes()) {
    for (const auto& member : info->Members()) {
      SCOPED_TRACE(info->Name() + "." + member.name);
      auto object = make(*info);
      ASSERT_TRUE(object) << "no way to make one";
      std::vector<Variant> args(static_cast<std::size_t>(member.max_args));
      try {
        server::Dispatch(*object, member.name, member.kind, args);
      } catch (const ZtError& e) {
        EXPECT_NE(e.Number(), rt::kMemberNotSupported) << e.Description();
        EXPECT_NE(e.Number(), rt::kWrongArgumentCount) << e.Description();
      } catch (const std::exception& e) {
        ADD_FAILURE() << "escaped: " << e.what();
      }
      ++reached;
    }
  }
  fs::current_path(previous);
  fs::remove_all(scratch);
  EXPECT_GT(reached, 400u);
}

TEST(LateBound, ErrorsCarryTheNumbersALateBoundCallerExpects) {
  testing::RecordingEnv env;
  auto ds = server::CreateObject("ZtDBTools404.CZtDataStore");

  // Names ignore case, as IDispatch's did.
  server::PutProperty(*ds, "location", "HDSRV");
  EXPECT_EQ(server::GetProperty(*ds, "LOCATION").ToText(), "HDSRV");

  try {
    server::GetProperty(*ds, "NoSuchMember");
    FAIL();
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Number(), 438);
    EXPECT_EQ(e.Description(), "Object doesn't support this property or method");
    EXPECT_EQ(e.Source(), "ZtDBTools404");
  }
  // A read-only property cannot be assigned.
  EXPECT_EQ(ErrorNumberOf([&] { server::PutProperty(*ds, "FullPath", "x"); }), 438);

  std::vector<Variant> too_many{1, 2};
  try {
    server::Invoke(*ds, "GetConnection", too_many);
    FAIL();
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Number(), 450);
    EXPECT_EQ(e.Description(), "Wrong number of arguments or invalid property assignment");
  }
  EXPECT_EQ(ErrorNumberOf([&] { server::Invoke(*ds, "SetTesselVersion"); }), 450);
  // Optional arguments may be left out.
  EXPECT_EQ(ErrorNumberOf([&] { server::Invoke(*ds, "MaskedConnectionString"); }), 0);

  EXPECT_EQ(ErrorNumberOf([&] { server::PutProperty(*ds, "GeneralProviderType", "abc"); }), 13);
  EXPECT_EQ(server::GetProperty(*ds, "GeneralProviderType").ToInt32(), 0) << "changed nothing";
  auto provider = server::CreateObject("CZtProvider");
  std::vector<Variant> not_a_store{Variant(provider)};
  auto views = server::CreateObject("CZtDataViewCol");
  EXPECT_EQ(ErrorNumberOf([&] { server::Invoke(*views, "Load", not_a_store); }), 13);

  // Nothing where a member needs an object is error 91, not a crash inside the member.
  std::vector<Variant> nothing{Variant(), "tblTickets"};
  auto schema = server::CreateObject("CZtDTMgr");
  EXPECT_EQ(ErrorNumberOf([&] { server::Invoke(*schema, "TableExists", nothing); }), 91);
  std::vector<Variant> no_store{Variant()};
  EXPECT_EQ(ErrorNumberOf([&] { server::Invoke(*views, "Load", no_store); }), 91);

  // A member's own failure comes back with its five values.
  std::vector<Variant> bad_type{"ProviderType=3;Location=x"};
  try {
    server::Invoke(*ds, "Initialize", bad_type);
    FAIL();
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Number(), vbObjectError + 9020);
    EXPECT_FALSE(e.Description().empty());
  }
}

TEST(LateBound, ValuesObjectsAndByReferenceArgumentsCrossAsVariants) {
  testing::RecordingEnv env;
  // A class that is not an Object itself is boxed.
  auto encoder = server::CreateObject("CZtPropString");
  std::vector<Variant> text{"a=b;c"};
  EXPECT_EQ(server::Invoke(*encoder, "Encode", text).ToText(), "a%3Db%3Bc");

  // A by-reference argument comes back changed: level 0 is raised to 1.
  auto logger = server::CreateObject("CZtEventLogger");
  std::vector<Variant> event{"hello", 4, 0};
  server::Invoke(*logger, "LogEvent", event);
  EXPECT_EQ(event[2].ToInt32(), 1);

  // Defaults that are not the empty value are applied for left-out arguments.
  auto style = server::CreateObject("CZtDataType");
  std::vector<Variant> reduce{103, 0};
  EXPECT_NO_THROW(server::Invoke(*style, "ReduceApplicationType", reduce));

  // Objects returned by members are dispatchable in turn; objects go back in as arguments.
  auto views = server::CreateObject("CZtDataViewCol");
  Variant statement = server::GetProperty(*views, "SQLStatement");
  ASSERT_TRUE(statement.IsObject());
  server::PutProperty(*statement.AsObject(), "WhereClause", "nID > 1");
  EXPECT_EQ(
      server::GetProperty(*server::GetProperty(*views, "SQLStatement").AsObject(), "WhereClause")
          .ToText(),
      "nID > 1");
  auto view = server::CreateObject("CZtDataView");
  server::PutProperty(*view, "ID", 7);
  std::vector<Variant> add{Variant(view)};
  server::Invoke(*views, "Add", add);
  std::vector<Variant> key{7};
  EXPECT_EQ(server::Invoke(*views, "Item", key).AsObject(), view);
  EXPECT_TRUE(server::Invoke(*views, "Keys").IsArray());
}

// The host's typical request on every live engine, all of it through the factory: a data store
// described property by property, a data-view collection loaded from it.
class TypicalRequest : public ::testing::TestWithParam<testing::Engine> {};

TEST_P(TypicalRequest, LoadsTheDataViewsOfAStoreDescribedLateBound) {
  const testing::Engine& engine = GetParam();
  ZT_NEED_ENGINE(engine.Available(), engine.name);
  testing::RecordingEnv env;
  const fs::path dir = ScratchFolder("typical");
  auto wanted = engine.MakeStore(dir.string());
  auto ds = server::CreateObject("ZtDBTools404.CZtDataStore");
  server::PutProperty(*ds, "GeneralProviderType", wanted->GeneralProviderType());
  for (const char* name : {"Location", "DataStoreName", "UserName", "Password", "ODBCDriver"})
    server::PutProperty(*ds, name, server::GetProperty(*wanted, name));
  if (engine.is_file) server::Invoke(*ds, "CreatePhysicalDataStore");
  auto cn = OpenConnection(ds);
  ASSERT_TRUE(cn);
  EXPECT_EQ(cn->TypeName(), "Connection");
  auto execute = [&](const std::string& sql) {
    std::vector<Variant> args{sql, Variant()};
    server::Invoke(*cn, "Execute", args);
    return args[1].ToInt32();  // the by-reference count of rows
  };
  try {
    execute("DROP TABLE [tblDataView]");
  } catch (const ZtError&) {
  }
  execute("CREATE TABLE [tblDataView] ([nID] " + engine.t_int + " NOT NULL PRIMARY KEY, " +
          "[nDefaultQueryID] " + engine.t_int + ", [nDefaultOrder] " + engine.t_int + ", [tName] " +
          engine.t_text50 + ", [tDescription] " + engine.t_text50 + ")");
  EXPECT_EQ(execute("INSERT INTO [tblDataView] VALUES (1, 0, 2, 'Tickets', 'Every ticket')"), 1);
  EXPECT_EQ(execute("INSERT INTO [tblDataView] VALUES (2, 1, 8, 'Ticket details', 'Open')"), 1);

  auto views = server::CreateObject("ZtDBTools404.CZtDataViewCol");
  std::vector<Variant> from{Variant(ds)};
  server::Invoke(*views, "Load", from);
  EXPECT_EQ(server::GetProperty(*views, "Count").ToInt32(), 2);
  std::vector<Variant> key{2};
  auto second = server::Invoke(*views, "Item", key).AsObject();
  ASSERT_TRUE(second);
  EXPECT_EQ(server::GetProperty(*second, "Name").ToText(), "Ticket details");
  EXPECT_EQ(server::GetProperty(*second, "Order").ToInt32(), 8);
  execute("DROP TABLE [tblDataView]");
  server::Invoke(*ds, "CloseConnections");
  fs::remove_all(dir);
}

INSTANTIATE_TEST_SUITE_P(Engines, TypicalRequest, ::testing::ValuesIn(testing::LiveEngines()),
                         [](const auto& info) { return info.param.name; });

TEST(ClassFactory, LibraryCanUnloadOnlyWhenNoObjectLives) {
  testing::RecordingEnv env;
  ASSERT_TRUE(server::CanUnloadNow());
  auto ds = server::CreateObject("CZtDataStore");
  auto copy = ds;  // a second reference is still one object
  EXPECT_EQ(server::LiveObjects(), 1);
  EXPECT_FALSE(server::CanUnloadNow());
  ds.reset();
  EXPECT_FALSE(server::CanUnloadNow());
  copy.reset();
  EXPECT_TRUE(server::CanUnloadNow());
}

TEST(Registration, RegisterAndUnregisterRoundTripTheFileAndKeepOtherLibraries) {
  testing::RecordingEnv env;
  env.app_path = "/opt/zt/lib";
  const fs::path dir = ScratchFolder("reg");
  const std::string file = server::RegistrationFile(dir.string());
  EXPECT_EQ(file, (dir / "ztdbtools.progids").string());

  // Alone in the file: registered, then the file is gone again.
  server::RegisterServer(dir.string());
  EXPECT_EQ(server::RegisteredLibrary("ZtDBTools404.CZtDataStore", dir.string()),
            "/opt/zt/lib/libztdbtools.so.7");
  EXPECT_EQ(server::RegisteredLibrary("ztdbtools404.cztfield", dir.string()),
            "/opt/zt/lib/libztdbtools.so.7");
  server::RegisterServer(dir.string());  // again: still one entry per ProgID
  std::ifstream in(file);
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_EQ(text.find("[ZtDBTools404.CZtDataStore]"), text.rfind("[ZtDBTools404.CZtDataStore]"));
  server::UnregisterServer(dir.string());
  EXPECT_FALSE(fs::exists(file));
  EXPECT_EQ(server::RegisteredLibrary("ZtDBTools404.CZtDataStore", dir.string()), "");

  // Beside another library's ProgIDs, which stay.
  std::ofstream(file) << "[Other.Thing]\nLibrary=/usr/lib/libother.so\n";
  server::RegisterServer(dir.string());
  EXPECT_EQ(server::RegisteredLibrary("Other.Thing", dir.string()), "/usr/lib/libother.so");
  server::UnregisterServer(dir.string());
  EXPECT_EQ(server::RegisteredLibrary("Other.Thing", dir.string()), "/usr/lib/libother.so");
  EXPECT_EQ(server::RegisteredLibrary("ZtDBTools404.CZtDataStore", dir.string()), "");

  // A folder that is not there: error 75, nothing written.
  EXPECT_EQ(ErrorNumberOf([&] { server::RegisterServer((dir / "missing").string()); }), 75);
  EXPECT_FALSE(fs::exists(dir / "missing"));
  fs::remove_all(dir);
}

}  // namespace
}  // namespace zt
