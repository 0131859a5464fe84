// The field collection: loading tblDtsFields on every live engine (Nulls, the older layout, a
// repeated ID), finding fields by name, copies, the upgrade of old rows (its statements, what
// it changes, and that a second run changes nothing), and the text form read back.
#include "zt/definitions/field_collection.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include "definitions/definitions_fixture.h"
#include "support/engines.h"

namespace zt::testing {
namespace {

class FieldCollectionTest : public ::testing::TestWithParam<Engine> {
 protected:
  void SetUp() override {
    const Engine& e = GetParam();
    ZT_NEED_ENGINE(e.Available(), e.name);
    Scratch s = OpenScratch(e, "zt_fcol", "defs.db");
    dir_ = s.dir;
    cn_ = s.cn;
    cn_->Execute("DROP TABLE IF EXISTS [tblDtsFields]");
    const std::string i = cn_->ColumnType(4), t = cn_->ColumnType(10, 100), b = cn_->ColumnType(4);
    // The layout before nDataViewID and the value-table column names came; no key, so that an
    // old table's repeated ID can be stored.
    std::string columns;
    for (const char* c : {"nID",
                          "tAliasSourceTable",
                          "tBoundControlName",
                          "fCanQueryBy",
                          "fChoiceOrder",
                          "tDestinationTab",
                          "nDestinationTabID",
                          "fEditable",
                          "tCaption",
                          "nDataSize",
                          "nDataType",
                          "tFieldValuesTable",
                          "nValueTableDSType",
                          "fKeepHistory",
                          "tLabelCaption",
                          "nRelatedField",
                          "fRequired",
                          "fVisible",
                          "tWhere",
                          "tName",
                          "nRelationshipType",
                          "nControlType",
                          "nContainerType",
                          "fEnabled",
                          "nTableDSType",
                          "tTableName"}) {
      const std::string type = c[0] == 't' ? t : c[0] == 'f' ? b : i;
      columns += std::string(columns.empty() ? "" : ", ") + "[" + c + "] " + type;
    }
    cn_->Execute("CREATE TABLE [tblDtsFields] (" + columns + ")");
  }
  void TearDown() override {
    if (cn_ && cn_->State() == ado::adStateOpen) {
      cn_->Execute("DROP TABLE IF EXISTS [tblDtsFields]");
      cn_->Close();
    }
    if (!dir_.empty()) std::filesystem::remove_all(dir_);
  }
  void Insert(const std::string& values) {
    cn_->Execute(
        "INSERT INTO [tblDtsFields] ([nID], [tAliasSourceTable], [tName], [tTableName], "
        "[nRelationshipType], [tWhere], [fRequired]) VALUES (" +
        values + ")");
  }
  std::shared_ptr<Recordset> Open(const std::string& sql) {
    auto rs = std::make_shared<Recordset>();
    rs->Open(sql, cn_);
    return rs;
  }
  // Every row as "id|alias|relationship|where", in nID order (twins in where order).
  std::vector<std::string> Rows() {
    std::vector<std::string> out;
    auto rs = Open(
        "SELECT [nID], [tAliasSourceTable], [nRelationshipType], [tWhere] FROM [tblDtsFields] "
        "ORDER BY [nID], [tWhere]");
    for (; !rs->Eof(); rs->MoveNext()) {
      std::string row;
      for (int c = 0; c < 4; ++c)
        row += (c ? "|" : "") + (rs->Fields(c).Value().IsNull() ? std::string("NULL")
                                                                : rs->Fields(c).Value().ToText());
      out.push_back(row);
    }
    rs->Close();
    return out;
  }

  RecordingEnv env_;
  std::filesystem::path dir_;
  std::shared_ptr<Connection> cn_;
};

TEST_P(FieldCollectionTest, LoadKeepsTheFirstRowOfAnIdFindsByNameAndCopies) {
  Insert("3, 'Submitter', 'tTitle', 'tblTickets', -1, NULL, -1");
  Insert("1, NULL, 'nPriority', 'tblTickets', -1, 'fActive=True', 0");
  Insert("3, 'Other', 'tRepeated', 'tblOther', 0, NULL, 0");  // the same ID again
  Insert("2, NULL, 'TTITLE', 'tblUser_1', 2, NULL, NULL");
  cn_->Execute("INSERT INTO [tblDtsFields] ([nID]) VALUES (4)");  // all else Null

  CZtFieldCollection fields;
  fields.Load(nullptr);  // nothing to read: nothing happens
  auto closed = std::make_shared<Recordset>();
  fields.Load(closed);
  EXPECT_EQ(fields.Count(), 0);

  // The insertion order is the rows' order, whatever the IDs.
  fields.Load(Open("SELECT * FROM [tblDtsFields] ORDER BY [tName] DESC"));
  ASSERT_EQ(fields.Count(), 4);
  const auto first3 = fields.Item(3);
  ASSERT_NE(first3, nullptr);
  EXPECT_EQ(first3->FieldName(), "tTitle");
  EXPECT_EQ(first3->AliasSourceTable(), "Submitter");
  EXPECT_TRUE(first3->Required());
  const auto blank = fields.Item(4);
  EXPECT_EQ(blank->FieldName(), "");
  EXPECT_EQ(blank->ValueTableIDField(), "nID");
  EXPECT_EQ(blank->ValueTableNameField(), "tName");
  EXPECT_FALSE(blank->Required());
  EXPECT_EQ(fields.Item(99), nullptr);

  // By name without regard to case, walking on from the field found; 0 past the last.
  const auto keys = fields.Keys();
  const std::int32_t a = fields.FindNextFieldIDByName("ttitle");
  const std::int32_t b = fields.FindNextFieldIDByName("ttitle", a);
  EXPECT_NE(a, 0);
  EXPECT_NE(b, 0);
  EXPECT_NE(a, b);
  EXPECT_EQ(std::set<std::int32_t>({a, b}), std::set<std::int32_t>({2, 3}));
  EXPECT_EQ(fields.FindNextFieldIDByName("ttitle", b), 0);
  EXPECT_EQ(fields.FindNextFieldIDByName("tTitle", 12345), a);  // unknown start: from the top
  EXPECT_EQ(fields.FindNextFieldIDByName("nowhere"), 0);

  // A copy holds fields of its own.
  const auto copy = fields.Copy();
  EXPECT_EQ(copy->Keys(), keys);
  EXPECT_NE(copy->Item(3), first3);
  EXPECT_EQ(copy->Item(3)->Definition(), first3->Definition());
  copy->Item(3)->FieldName("changed");
  copy->Remove(1);
  EXPECT_EQ(first3->FieldName(), "tTitle");
  EXPECT_TRUE(fields.Exists(1));

  // Adding under an ID that is present keeps the field there.
  auto other = std::make_shared<CZtField>();
  other->FieldID(3);
  EXPECT_FALSE(fields.Add(other));
  EXPECT_EQ(fields.Item(3), first3);
  EXPECT_THROW(fields.Add(nullptr), ZtError);
  EXPECT_THROW(fields.Remove(99), ZtError);
}

TEST_P(FieldCollectionTest, UpgradeChangesOldRowsOnceAndASecondRunChangesNothing) {
  Insert("1, 'Submitter', 'nSubmitter', 'tblTickets', -1, 'fActive=True', 0");
  Insert("2, 'Originator', 'nOriginator', 'tblTickets', -1, 'fA=FALSE and fB=true', 0");
  Insert("3, 'Submitters', 'tLogin', 'tblUser_1', -1, NULL, 0");  // not exactly 'Submitter'
  Insert("4, NULL, 'tMail', 'TBLUSERS', 0, 'tName=''Untrue''', 0");
  Insert("5, NULL, 'tOther', 'tblTickets', 1, 'nLevel>2', 0");
  // Twins: the same ID and condition twice, as an old table without a key can hold.
  Insert("6, NULL, 'fOpen', 'tblTickets', 0, 'fOpen=True', 0");
  Insert("6, NULL, 'fOpen', 'tblTickets', 0, 'fOpen=True', 0");

  CZtFieldCollection fields;
  EXPECT_EQ(fields.Upgrade(cn_), 5);  // each twin is a row of its own
  const std::vector<std::string> upgraded = {
      "1|nSubmitterID|-1|fActive=-1",
      "2|nOriginatorID|-1|fA=0 and fB=-1",
      "3|Submitters|3|NULL",
      "4|NULL|3|tName='Un-1'",  // a plain text replacement, inside a word too
      "5|NULL|1|nLevel>2",
      "6|NULL|0|fOpen=-1",
      "6|NULL|0|fOpen=-1",
  };
  // "like 'tblUser%'" follows the engine's own case rule for the TBLUSERS row.
  std::vector<std::string> rows = Rows();
  ASSERT_EQ(rows.size(), upgraded.size());
  if (rows[3] == "4|NULL|0|tName='Un-1'") rows[3] = upgraded[3];
  EXPECT_EQ(rows, upgraded);

  const std::vector<std::string> before_second = Rows();
  EXPECT_EQ(fields.Upgrade(cn_), 0);
  EXPECT_EQ(Rows(), before_second);

  EXPECT_EQ(Thrown([&] { fields.Upgrade(nullptr); }).first, rt::kObjectNotSet);
}

INSTANTIATE_TEST_SUITE_P(Engines, FieldCollectionTest, ::testing::ValuesIn(LiveEngines()),
                         EngineName());

TEST(FieldCollection, UpgradeStatementsCharacterForCharacter) {
  const auto& s = CZtFieldCollection::UpgradeStatements();
  EXPECT_EQ(s[0],
            "UPDATE tblDtsFields SET tAliasSourceTable ='nSubmitterID' WHERE "
            "tAliasSourceTable='Submitter' ");
  EXPECT_EQ(s[1],
            "UPDATE tblDtsFields SET tAliasSourceTable ='nOriginatorID' WHERE "
            "tAliasSourceTable='Originator' ");
  EXPECT_EQ(s[2], "UPDATE tblDtsFields SET nRelationshipType=3 WHERE tTableName like 'tblUser%'");
  EXPECT_EQ(s[3], "SELECT [tWhere] FROM tblDtsFields WHERE [tWhere] IS NOT NULL");
}

std::shared_ptr<CZtField> SampleField(std::int32_t id, const std::string& name) {
  auto f = std::make_shared<CZtField>();
  FieldDefinition d;
  d.field_id = id;
  d.field_name = name;
  d.field_caption = "Caption; with | delimiters, = & % signs";
  d.where = "nView=<<CurrentView>> AND fActive=-1";
  d.required = true;
  d.relationship_type = -1;
  d.field_data_type = 103;
  d.value_table_id_field = "nCode";
  d.original_field_caption = "";
  f->Definition(d);
  return f;
}

TEST(FieldCollection, TextFormReadsBackToEqualFields) {
  RecordingEnv env;
  CZtFieldCollection fields;
  fields.Add(SampleField(9, "tTitle"));
  fields.Add(SampleField(-2, "nPriority"));
  auto plain = std::make_shared<CZtField>();
  plain->FieldID(4);
  fields.Add(plain);
  fields.FieldDelimiter("|");
  fields.ChildrenFieldDelimiter(";");
  fields.EncodeFields(true);
  const std::string line = fields.ToString();
  EXPECT_EQ(line.find("Caption; with"), std::string::npos);  // the delimiters are encoded

  CZtFieldCollection back;
  back.FieldDelimiter("|");
  back.ChildrenFieldDelimiter(";");
  back.EncodeFields(true);
  back.FromString(line);
  ASSERT_EQ(back.Keys(), fields.Keys());
  for (std::int32_t id : fields.Keys())
    EXPECT_EQ(back.Item(id)->Definition(), fields.Item(id)->Definition()) << id;
  EXPECT_EQ(back.ToString(), line);

  // One field, plain: its values in column order, Booleans as -1 and 0.
  CZtField f;
  f.FieldID(5);
  f.FieldName("tName");
  f.Visible(true);
  const std::string one = f.ToString();
  EXPECT_EQ(one.substr(0, 13), "5;;;0;0;;0;0;");
  CZtField g;
  g.FromString(one);
  EXPECT_EQ(g.Definition(), f.Definition());

  // A line that is not a field's, or a number column that is not a number, changes nothing.
  EXPECT_EQ(Thrown([&] { g.FromString("5;tName"); }).first, rt::kTypeMismatch);
  std::string bad = one;
  bad.replace(0, 1, "x");
  EXPECT_EQ(Thrown([&] { g.FromString(bad); }).first, rt::kTypeMismatch);
  EXPECT_EQ(g.Definition(), f.Definition());
  EXPECT_THROW(back.FromString("1;2"), ZtError);
  EXPECT_EQ(back.Count(), 3);
  back.FromString("");
  EXPECT_EQ(back.Count(), 0);
}

}  // namespace
}  // namespace zt::testing
