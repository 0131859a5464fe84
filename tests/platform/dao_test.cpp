// The DAO view: type codes read back, and field changes that rebuild a filled table.
#include "zt/platform/dao.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "engines.h"

namespace zt::testing {
namespace {

class DaoTest : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = (std::filesystem::temp_directory_path() /
             ("zt_dao \"q;\" " + std::to_string(::getpid()) + "_" +
              ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".db"))
                .string();
    std::filesystem::remove(path_);
    db = dao::Database::OpenDatabase(path_);
    db->Execute(
        "CREATE TABLE [tblCalls] ([nId] LONG NOT NULL PRIMARY KEY, [tCode] TEXT(30), "
        "[mNotes] MEMO, [fOpen] BIT, [nUser] LONG REFERENCES [tblUsers] ([nId]), "
        "[cCost] CURRENCY, [dWhen] DATETIME, [bBlob] LONGBINARY, [nSmall] SHORT)");
    db->Execute("CREATE TABLE [tblUsers] ([nId] LONG PRIMARY KEY, [tName] TEXT(50))");
    db->Execute("CREATE UNIQUE INDEX [UN_tblCalls_tCode] ON [tblCalls] ([tCode])");
    db->Execute("CREATE INDEX [IN_tblCalls_fOpen] ON [tblCalls] ([fOpen], [nSmall])");
    db->Execute(
        "CREATE VIEW [vwOpenCalls] AS SELECT [nId], [tCode] FROM [tblCalls] WHERE "
        "[fOpen] = -1");
    db->Execute(
        "CREATE TRIGGER [trCalls] AFTER DELETE ON [tblCalls] BEGIN DELETE FROM "
        "[tblUsers] WHERE [nId] = -1; END");
    db->Execute("INSERT INTO tblUsers VALUES (1, 'ann')");
    for (int i = 1; i <= 50; ++i)
      db->Execute("INSERT INTO tblCalls VALUES (" + std::to_string(i) + ", 'C" + std::to_string(i) +
                  "', " + (i % 5 ? "'n'" : "NULL") + ", " + (i % 2 ? "-1" : "0") +
                  ", 1, 1.5, '2024-01-02 03:04:05', NULL, 7)");
  }
  void TearDown() override {
    db.reset();
    std::filesystem::remove(path_);
  }
  std::vector<std::string> SchemaObjects() {
    std::vector<std::string> out;
    auto rs = db->Connection()->Execute(
        "SELECT type || ':' || name FROM sqlite_master WHERE name NOT LIKE 'sqlite%' ORDER BY 1");
    for (; !rs->Eof(); rs->MoveNext()) out.push_back(rs->Fields(0).Value().ToText());
    return out;
  }
  std::string path_;
  std::shared_ptr<dao::Database> db;
};

TEST_F(DaoTest, TypesAndSizesRoundTrip) {
  ASSERT_EQ(db->TableDefCount(), 2);
  dao::TableDef& t = db->TableDefs("TBLCALLS");
  const std::tuple<const char*, std::int32_t, std::int32_t, bool> expected[] = {
      {"nId", dao::dbLong, 4, true},       {"tCode", dao::dbText, 30, false},
      {"mNotes", dao::dbMemo, 0, false},   {"fOpen", dao::dbBoolean, 1, false},
      {"nUser", dao::dbLong, 4, false},    {"cCost", dao::dbCurrency, 8, false},
      {"dWhen", dao::dbDate, 8, false},    {"bBlob", dao::dbLongBinary, 0, false},
      {"nSmall", dao::dbInteger, 2, false}};
  ASSERT_EQ(t.FieldCount(), 9);
  for (const auto& [name, type, size, required] : expected) {
    SCOPED_TRACE(name);
    EXPECT_EQ(t.Fields(name).Type(), type);
    EXPECT_EQ(t.Fields(name).Size(), size);
    EXPECT_EQ(t.Fields(name).Required(), required);
  }
  EXPECT_TRUE(t.Fields("tCode").AllowZeroLength());
  EXPECT_FALSE(t.Fields("nSmall").AllowZeroLength());
  EXPECT_EQ(ZT_ERROR_NUMBER(t.Fields("nSmall").SetAllowZeroLength(false)), Hr(0x800A0BB9));
  EXPECT_EQ(ZT_ERROR_NUMBER(db->TableDefs("nope")), Hr(0x800A0CC1));
}

TEST_F(DaoTest, RequiredAndAllowZeroLengthRebuildKeepingRowsIndexesAndViews) {
  const auto before = SchemaObjects();
  dao::Field& code = db->TableDefs("tblCalls").Fields("tCode");
  code.SetRequired(true);
  code.SetAllowZeroLength(false);
  EXPECT_TRUE(code.Required());  // the same Field object sees the change
  EXPECT_FALSE(code.AllowZeroLength());
  EXPECT_EQ(SchemaObjects(), before);
  EXPECT_EQ(db->TableDefs("tblCalls").RecordCount(), 50);
  EXPECT_EQ(
      db->Connection()->Execute("SELECT COUNT(*) FROM vwOpenCalls")->Fields(0).Value().ToInt32(),
      25);

  // A fresh read of the definition agrees, and the engine enforces both.
  db->Refresh();
  EXPECT_TRUE(db->TableDefs("tblCalls").Fields("tCode").Required());
  EXPECT_FALSE(db->TableDefs("tblCalls").Fields("tCode").AllowZeroLength());
  EXPECT_EQ(ZT_ERROR_NUMBER(db->Execute("INSERT INTO tblCalls (nId, tCode) VALUES (99, '')")),
            Hr(0x80040E2F));
  EXPECT_EQ(ZT_ERROR_NUMBER(db->Execute("INSERT INTO tblCalls (nId, tCode) VALUES (99, NULL)")),
            Hr(0x80040E2F));
  EXPECT_EQ(ZT_ERROR_NUMBER(db->Execute("INSERT INTO tblCalls (nId, tCode) VALUES (2, 'x')")),
            Hr(0x80040E2F));  // the unique index came back

  // Back again.
  db->TableDefs("tblCalls").Fields("tCode").SetAllowZeroLength(true);
  db->TableDefs("tblCalls").Fields("tCode").SetRequired(false);
  db->Execute("INSERT INTO tblCalls (nId, tCode) VALUES (99, '')");

  // Required on a field holding Nulls fails and leaves the table as it was.
  dao::Field& notes = db->TableDefs("tblCalls").Fields("mNotes");
  EXPECT_EQ(ZT_ERROR_NUMBER(notes.SetRequired(true)), Hr(0x80040E2F));
  EXPECT_FALSE(notes.Required());
  EXPECT_EQ(SchemaObjects(), before);
  EXPECT_EQ(db->TableDefs("tblCalls").RecordCount(), 51);
  EXPECT_EQ(db->Connection()->Execute("PRAGMA foreign_keys")->Fields(0).Value().ToInt32(), 1);

  // A rebuild that would break a relationship is refused.
  db->Execute("PRAGMA foreign_keys = OFF");
  db->Execute("INSERT INTO tblCalls (nId, tCode, nUser) VALUES (200, 'orphan', 42)");
  db->Execute("PRAGMA foreign_keys = ON");
  EXPECT_EQ(ZT_ERROR_NUMBER(db->TableDefs("tblCalls").Fields("nSmall").SetRequired(false)), 0);
  EXPECT_EQ(ZT_ERROR_NUMBER(db->TableDefs("tblCalls").Fields("nSmall").SetRequired(true)),
            Hr(0x80040E2F));
}

TEST_F(DaoTest, RecordsetEditsAndFinds) {
  auto rs = db->OpenRecordset("tblUsers", dao::dbOpenTable);
  EXPECT_EQ(ZT_ERROR_NUMBER(rs->SetValue("tName", "x")), 3020);
  rs->AddNew();
  rs->SetValue("nId", 2);
  rs->SetValue("tName", "bob");
  rs->Update();
  rs->FindFirst("tName = 'ann'");
  EXPECT_FALSE(rs->NoMatch());
  rs->Edit();
  rs->SetValue("tName", "anne");
  rs->Update();
  rs->FindFirst("tName = 'zed'");
  EXPECT_TRUE(rs->NoMatch());
  EXPECT_EQ(rs->Value("tName").ToText(), "anne");  // position kept
  auto snap = db->OpenRecordset("SELECT * FROM tblUsers ORDER BY nId", dao::dbOpenSnapshot);
  EXPECT_EQ(snap->RecordCount(), 2);
  EXPECT_EQ(snap->Value("tName").ToText(), "anne");
  EXPECT_EQ(ZT_ERROR_NUMBER(snap->Edit()), Hr(0x800A0CB3));
}

}  // namespace
}  // namespace zt::testing
