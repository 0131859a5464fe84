// Duplicate and Null record removal on every live engine, checked against the old
// record-by-record walk run over the same data, and on SQL Server through the scripted driver,
// where the exact statement and the deletes of the walk are what is checked.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "recordset/record_mgr_internal.h"
#include "support/engines.h"
#include "support/test_env.h"
#include "zt/platform.h"
#include "zt/platform/scripted_driver.h"
#include "zt/recordset/recordset_utils.h"

namespace fs = std::filesystem;

namespace zt::testing {
namespace {

using Row = std::vector<Variant>;

// Rows as comparable text: "1|a", "Null|a".
std::vector<std::string> Keys(const std::vector<Row>& rows) {
  std::vector<std::string> out;
  for (const Row& r : rows) {
    std::string k;
    for (const Variant& v : r) k += (k.empty() ? "" : "|") + (v.IsNull() ? "Null" : v.ToText());
    out.push_back(k);
  }
  std::sort(out.begin(), out.end());
  return out;
}

class RecordMgrTest : public ::testing::TestWithParam<Engine> {
 protected:
  void SetUp() override {
    const Engine& e = GetParam();
    ZT_NEED_ENGINE(e.Available(), e.name);
    file_ =
        (fs::temp_directory_path() / ("zt_recmgr_" + std::to_string(::getpid()) + ".db")).string();
    fs::remove(file_);
    cn_ = std::make_shared<Connection>();
    cn_->Open(e.ConnectionString(file_));
    table_ = "zt_dup_" + std::to_string(::getpid());
    Drop();
  }
  void TearDown() override {
    if (cn_ && cn_->State() == ado::adStateOpen) {
      Drop();
      cn_->Close();
    }
    if (!file_.empty()) fs::remove(file_);
  }
  void Drop() {
    try {
      cn_->Execute("DROP TABLE [" + table_ + "]");
    } catch (const ZtError&) {
    }
  }
  // (k integer, s text(50)), with an identity key first when `keyed`.
  void Make(const std::vector<Row>& rows, bool keyed) {
    Drop();
    const Engine& e = GetParam();
    cn_->Execute("CREATE TABLE [" + table_ + "] (" +
                 (keyed ? "[id] " + e.t_int + " NOT NULL PRIMARY KEY, " : std::string()) + "[k] " +
                 e.t_int + ", [s] " + e.t_text50 + ")");
    PreparedStatement ins(*cn_, "INSERT INTO [" + table_ + "] (" +
                                    (keyed ? std::string("[id], ") : std::string()) +
                                    "[k], [s]) VALUES (" + (keyed ? "?, " : "") + "?, ?)");
    std::int32_t id = 0;
    for (const Row& r : rows) {
      int p = 0;
      if (keyed) ins.Bind(p++, Variant(++id));
      ins.Bind(p++, r[0]);
      ins.Bind(p, r[1]);
      ins.Execute();
    }
  }
  std::vector<Row> Contents() {
    std::vector<Row> out;
    auto rs = cn_->Execute("SELECT [k], [s] FROM [" + table_ + "]");
    while (!rs->Eof()) {
      out.push_back({rs->Fields(0).Value(), rs->Fields(1).Value()});
      rs->MoveNext();
    }
    return out;
  }
  // What the old walk leaves: its statement's rows in order, each compared with the last kept
  // one (Empty at first), the duplicates taken out of the table's contents.
  std::vector<std::string> WalkOutcome() {
    std::vector<std::string> left = Keys(Contents());
    auto rs = cn_->Execute(recordset::DuplicateWalkStatement(table_, {"k", "s"}));
    Row match(2);
    while (!rs->Eof()) {
      Row r{rs->Fields(0).Value(), rs->Fields(1).Value()};
      bool duplicate = true;
      for (std::size_t i = 0; i < 2; ++i) {
        const auto c = Variant::Compare(r[i], match[i]);
        if (c && *c != 0) duplicate = false;
      }
      if (duplicate)
        left.erase(std::find(left.begin(), left.end(), Keys({r}).front()));
      else
        match = r;
      rs->MoveNext();
    }
    return left;
  }
  std::vector<std::string> Dedupe() {
    CZtRecordMgr mgr;
    EXPECT_TRUE(mgr.RemoveDuplicateRecords(table_, cn_, Variant::Array({"k", "s"})));
    return Keys(Contents());
  }

  std::string file_, table_;
  std::shared_ptr<Connection> cn_;
};

TEST_P(RecordMgrTest, KeepsOneOfEachGroupDropsAnEmptyFirstGroupAndNeverTouchesNulls) {
  const Variant N = Variant::Null();
  const std::vector<Row> rows = {{0, ""},  {0, ""},  {0, ""},  {1, "a"}, {1, "a"},
                                 {1, "a"}, {2, "b"}, {2, "b"}, {3, "c"}, {N, "a"},
                                 {N, "a"}, {4, N},   {4, N},   {5, "d"}};
  for (bool keyed : {true, false}) {
    SCOPED_TRACE(keyed ? "with a primary key" : "without a key");
    Make(rows, keyed);
    const auto walk = WalkOutcome();
    CZtRecordMgr mgr;
    EXPECT_EQ(mgr.CountDuplicateRecords(table_, cn_, Variant::Array({"k", "s"})), 6);
    EXPECT_EQ(Keys(Contents()).size(), rows.size()) << "counting changed nothing";
    const auto left = Dedupe();
    EXPECT_EQ(left, walk);
    EXPECT_EQ(left, (std::vector<std::string>{"1|a", "2|b", "3|c", "4|Null", "4|Null", "5|d",
                                              "Null|a", "Null|a"}));
  }
}

TEST_P(RecordMgrTest, AnEmptyGroupAfterAnotherGroupKeepsOneAndSinglesStay) {
  const std::vector<Row> rows = {{-1, "x"}, {-1, "x"}, {0, ""}, {0, ""}, {7, "y"}};
  Make(rows, true);
  const auto walk = WalkOutcome();
  EXPECT_EQ(Dedupe(), walk);
  EXPECT_EQ(Keys(Contents()), (std::vector<std::string>{"-1|x", "0|", "7|y"}));
  // A single row that sorts first is no group of the walk: the empty group is still first.
  Make({{-5, "z"}, {0, ""}, {0, ""}, {7, "y"}}, false);
  const auto lone_first = WalkOutcome();
  EXPECT_EQ(Dedupe(), lone_first);
  EXPECT_EQ(Keys(Contents()), (std::vector<std::string>{"-5|z", "7|y"}));
  // A lone empty row is not a duplicate of anything.
  Make({{0, ""}, {7, "y"}, {7, "y"}}, false);
  EXPECT_EQ(Dedupe(), (std::vector<std::string>{"0|", "7|y"}));
}

// Which values are one group is the engine's rule (see recordset_utils.h).
TEST_P(RecordMgrTest, GroupsByTheEnginesComparisonRule) {
  Make({{1, "abc"}, {1, "ABC"}, {1, "abc "}, {2, "x"}, {2, "x"}}, true);
  const auto left = Dedupe();
  if (GetParam().name == "MariaDB") {
    // Case and trailing blanks are ignored; the row stored first stays.
    EXPECT_EQ(left, (std::vector<std::string>{"1|abc", "2|x"}));
  } else {
    EXPECT_EQ(left, (std::vector<std::string>{"1|ABC", "1|abc", "1|abc ", "2|x"}));
  }
}

TEST_P(RecordMgrTest, BadArgumentsChangeNothing) {
  Make({{1, "a"}, {1, "a"}}, false);
  CZtRecordMgr mgr;
  EXPECT_FALSE(mgr.RemoveDuplicateRecords(table_, cn_, Variant("k")));
  EXPECT_FALSE(mgr.RemoveDuplicateRecords(table_, cn_, Variant::Array({"", "k"})));
  EXPECT_FALSE(mgr.RemoveDuplicateRecords(table_, cn_, Variant::Array({})));
  RecordingEnv env;
  try {
    mgr.RemoveDuplicateRecords(table_, cn_, Variant::Array({"k", "no_such_column"}));
    ADD_FAILURE() << "an unknown column must raise";
  } catch (const ZtError&) {
  }
  EXPECT_TRUE(env.Logged("CZtRecordMgr.RemoveDuplicateRecords, @Line#"));
  EXPECT_FALSE(cn_->InTransaction());
  EXPECT_EQ(Keys(Contents()).size(), 2u);
}

TEST_P(RecordMgrTest, RemoveNullRecordsDeletesRowsWithAnyListedNull) {
  const Variant N = Variant::Null();
  Make({{1, "a"}, {N, "b"}, {2, N}, {N, N}, {3, "c"}}, false);
  EXPECT_FALSE(recordset::RemoveNullRecords("", cn_, Variant::Array({"k"})));
  EXPECT_FALSE(recordset::RemoveNullRecords(table_, nullptr, Variant::Array({"k"})));
  EXPECT_FALSE(recordset::RemoveNullRecords(table_, cn_, Variant("k")));
  EXPECT_FALSE(recordset::RemoveNullRecords(table_, cn_, Variant::Array({""})));
  std::int64_t deleted = 0;
  EXPECT_TRUE(recordset::RemoveNullRecords(table_, cn_, Variant::Array({"k", "s"}), &deleted));
  EXPECT_EQ(deleted, 3);
  EXPECT_EQ(Keys(Contents()), (std::vector<std::string>{"1|a", "3|c"}));
}

INSTANTIATE_TEST_SUITE_P(Engines, RecordMgrTest, ::testing::ValuesIn(LiveEngines()), EngineName());

// ---- SQL Server: the old statement and the walk's deletes -----------------------------------

TEST(RecordMgrSqlServer, SendsTheOldStatementAndDeletesThroughTheWalk) {
  using platform::DriverScript;
  using platform::ScriptedAnswer;
  const std::string select =
      "SELECT  [nType], [tName], [tCode] FROM [tblCodes] AS a WHERE ( [nType]  In  (SELECT "
      "[nType] FROM [tblCodes] As tmp  GROUP BY  [nType], [tName], [tCode] HAVING Count(*)>1  "
      "AND [tName]= a.[tName] AND [tCode]= a.[tCode]))  ORDER BY  [nType], [tName], [tCode]";
  EXPECT_EQ(recordset::DuplicateWalkStatement("tblCodes", {"nType", "tName", "tCode"}), select);

  auto script = std::make_shared<DriverScript>();
  ScriptedAnswer rows = ScriptedAnswer::Rows({"nType", "tName", "tCode"}, {{0, "", ""},
                                                                           {0, "", ""},
                                                                           {1, "a", "x"},
                                                                           {1, "a", "x"},
                                                                           {1, "a", "x"},
                                                                           {2, "b", "y"},
                                                                           {2, "b", "y"}});
  rows.base_table = "tblCodes";
  script->On(select, rows, DriverScript::Match::kExact)
      .On("DELETE TOP (1) FROM", ScriptedAnswer::Affected(1));
  platform::ScopedScriptedProvider sql_server("MSOLEDBSQL", script);
  auto cn = std::make_shared<Connection>();
  cn->Open("Provider=MSOLEDBSQL;Data Source=HDSRV;Database=HelpDesk;");
  ASSERT_EQ(cn->Engine(), "SQL Server");

  CZtRecordMgr mgr;
  EXPECT_TRUE(
      mgr.RemoveDuplicateRecords("tblCodes", cn, Variant::Array({"nType", "", "tName", "tCode"})));
  const auto& sent = script->Sent();
  ASSERT_FALSE(sent.empty());
  EXPECT_EQ(sent.front().sql, select);
  std::vector<std::string> deleted;
  for (const auto& s : sent)
    if (s.sql.rfind("DELETE TOP (1) FROM [tblCodes]", 0) == 0)
      deleted.push_back(Keys({s.parameters})[0]);
  // The empty first group goes entirely; the others keep their first record. The cursor has
  // no key, so each delete asks SQL Server for one of the identical rows.
  EXPECT_EQ(deleted, (std::vector<std::string>{"0||", "0||", "1|a|x", "1|a|x", "2|b|y"}));
  EXPECT_EQ(mgr.LastRecordsDeleted(), 5);
  EXPECT_EQ(
      mgr.DuplicateRemovalStatements("tblCodes", cn, Variant::Array({"nType", "tName", "tCode"})),
      std::vector<std::string>{select});
}

TEST(RecordMgrSqlServer, NullRecordsStatementKeepsItsLeadingBlank) {
  EXPECT_EQ(recordset::NullRecordsStatement("tblA", Variant::Array({"a", "", "b"})),
            " DELETE FROM [tblA] WHERE ([a] IS NULL) OR ([b] IS NULL)");
  EXPECT_EQ(recordset::NullRecordsStatement("tblA", Variant::Array({})), "");
}

}  // namespace
}  // namespace zt::testing
