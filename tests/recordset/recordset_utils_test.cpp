// The recordset helpers on an SQLite file: maxima, first matches, closing, and the value writes
// that leave unchanged values (and case-only text changes) alone.
#include "zt/recordset/recordset_utils.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>

#include "support/test_env.h"
#include "zt/platform.h"

namespace fs = std::filesystem;

namespace zt::testing {
namespace {

class RecordsetUtilsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    file_ =
        (fs::temp_directory_path() / ("zt_rsutils_" + std::to_string(::getpid()) + ".db")).string();
    fs::remove(file_);
    cn_ = std::make_shared<Connection>();
    cn_->Open("Provider=Microsoft.Jet.OLEDB.4.0;Data Source=" + file_ + ";");
    cn_->Execute("CREATE TABLE tblT (nId LONG NOT NULL PRIMARY KEY, tName TEXT(5), nQty LONG)");
  }
  void TearDown() override {
    cn_->Close();
    fs::remove(file_);
  }
  std::shared_ptr<Recordset> Open(const std::string& sql) {
    auto rs = std::make_shared<Recordset>();
    rs->Open(sql, cn_, ado::adOpenKeyset, ado::adLockOptimistic);
    return rs;
  }
  Variant Stored(const std::string& column) {
    auto rs = cn_->Execute("SELECT " + column + " FROM tblT WHERE nId = 1");
    return rs->Fields(0).Value();
  }

  std::string file_;
  std::shared_ptr<Connection> cn_;
};

TEST_F(RecordsetUtilsTest, GetMaxIdFindFirstAndClose) {
  CZTADOUtilities ado;
  EXPECT_EQ(ado.GetMaxID(cn_, "tblT", "nId"), 0);  // an empty table's maximum is Null
  cn_->Execute("INSERT INTO tblT VALUES (4, 'd', 1)");
  cn_->Execute("INSERT INTO tblT VALUES (9, 'i', 2)");
  EXPECT_EQ(ado.GetMaxID(cn_, "tblT", "nId"), 9);
  EXPECT_EQ(ado.GetMaxID(cn_, "tblT", "nId", "nQty = 1"), 4);
  {
    RecordingEnv env;
    EXPECT_THROW(ado.GetMaxID(cn_, "tblMissing", "nId"), ZtError);
    EXPECT_TRUE(env.Logged("CZTADOUtilities.GetMaxID, @Line#20"));
  }

  auto rs = Open("SELECT * FROM tblT ORDER BY nId");
  rs->MoveLast();
  EXPECT_TRUE(ado.FindFirst(*rs, "nQty = 2"));
  EXPECT_EQ(rs->Value("nId").ToInt32(), 9);
  EXPECT_FALSE(ado.FindFirst(*rs, "nQty = 3"));
  EXPECT_TRUE(ado.MoveFirst(*rs));
  EXPECT_EQ(rs->Value("nId").ToInt32(), 4);
  auto empty = Open("SELECT * FROM tblT WHERE nId < 0");
  EXPECT_FALSE(ado.FindFirst(*empty, "nQty = 2"));

  ado.CloseRecordsetADO(rs);
  EXPECT_EQ(rs, nullptr);
  ado.CloseRecordsetADO(rs);  // not set: nothing to do
  auto other = std::make_shared<Connection>();
  ado.CloseConnection(other);  // set but never opened
  EXPECT_EQ(other, nullptr);

  CZtDAOUtilities dao_utils;
  std::shared_ptr<dao::Database> db = dao::Database::OpenDatabase(file_);
  std::unique_ptr<dao::Recordset> drs = db->OpenRecordset("tblT");
  dao_utils.CloseRecordsetDAO(drs);
  dao_utils.CloseDataBase(db);
  EXPECT_EQ(drs, nullptr);
  EXPECT_EQ(db, nullptr);
  dao_utils.CloseDataBase(db);
}

TEST_F(RecordsetUtilsTest, SetFieldValueWritesOnlyRealChanges) {
  cn_->Execute("INSERT INTO tblT VALUES (1, 'Abc', 5)");
  CZtRSRecUtils utils;
  RecordingEnv env;
  auto rs = Open("SELECT * FROM tblT WHERE nId = 1");

  // Equal values leave the record untouched; a missing column is skipped.
  EXPECT_TRUE(utils.SetFieldValue(*rs, "nQty", Variant(5)));
  EXPECT_TRUE(utils.SetFieldValue(*rs, "tName", Variant("ABC")));  // case only
  EXPECT_FALSE(utils.SetFieldValue(*rs, "tMissing", Variant("x")));
  EXPECT_EQ(rs->EditMode(), ado::adEditNone);

  // Too long for TEXT(5): the old value stays, reported, not raised.
  EXPECT_TRUE(utils.SetFieldValue(*rs, "tName", Variant("abcdef")));
  EXPECT_EQ(rs->EditMode(), ado::adEditNone);
  EXPECT_TRUE(env.Logged(
      "CZtRSRecUtils.SetFieldValue_String - unable to store 'abcdef' in field tName since it "
      "only allows up to 5 characters, so it will keep the original value 'Abc'"));
  EXPECT_TRUE(env.Errors().size() + env.Warnings().size() > 0);

  EXPECT_TRUE(utils.SetFieldValue(*rs, "nQty", Variant(6)));
  EXPECT_TRUE(utils.SetFieldValue2(rs->Fields("tName"), Variant("Abcde")));  // exactly 5
  rs->Update();
  EXPECT_EQ(Stored("nQty").ToInt32(), 6);
  EXPECT_EQ(Stored("tName").ToText(), "Abcde");

  // Blanks store an empty text, not Null; Null in a number column is a change.
  EXPECT_TRUE(utils.SetFieldValue(*rs, "tName", Variant("   ")));
  EXPECT_TRUE(utils.SetFieldValue(*rs, "nQty", Variant::Null()));
  rs->Update();
  EXPECT_FALSE(Stored("tName").IsNull());
  EXPECT_EQ(Stored("tName").ToText(), "");
  EXPECT_TRUE(Stored("nQty").IsNull());
  // A Null text takes the new value even when it reads as the same text.
  cn_->Execute("UPDATE tblT SET tName = NULL WHERE nId = 1");
  auto again = Open("SELECT * FROM tblT WHERE nId = 1");
  EXPECT_TRUE(utils.SetFieldValue(*again, "tName", Variant("")));
  again->Update();
  EXPECT_FALSE(Stored("tName").IsNull());
}

}  // namespace
}  // namespace zt::testing
