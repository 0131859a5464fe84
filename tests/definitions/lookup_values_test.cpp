// Lookup values: loading a value table on each engine, the statement Load sends, searching, the
// failure texts, and the text form read back.
#include "zt/definitions/lookup_values.h"

#include <gtest/gtest.h>

#include "definitions/definitions_fixture.h"

namespace zt::testing {
namespace {

std::vector<std::string> Names(const CZtLookupValCol& col) {
  std::vector<std::string> out;
  for (const auto& v : col.Items()) out.push_back(v->Name());
  return out;
}

using LookupLoadTest = ValueTableTest;

TEST_P(LookupLoadTest, LoadSkipsNullIdKeepsFirstOfRepeatedIdAndRestrictsToDependentValue) {
  CZtLookupValCol col;
  col.Initialize(store_, table_);
  col.sortBy(LookupSort::kByID);
  col.Load();
  EXPECT_EQ(col.Keys(), (std::vector<std::int32_t>{1, 2, 3, 4}));
  EXPECT_EQ(col.GetNameFromID(2), "High");  // the first row of ID 2
  EXPECT_EQ(col.Item(2)->ChoiceID(), 1);
  EXPECT_EQ(col.Item(2)->DependentFieldID(), 12);
  EXPECT_EQ(col.GetFirstIDFromName("O'Brien"), 3);
  EXPECT_TRUE(env_.Logged("CZtLookupValCol.DoLoadValues, field id is null for field"));

  // Restricted to one dependent value, under a WHERE text of its own.
  CZtLookupValCol dep;
  dep.Initialize(store_, table_, "[nChoiceID] < 4");
  dep.sortBy(LookupSort::kByName);
  EXPECT_EQ(dep.SQLText(12), "SELECT * FROM [" + table_ +
                                 "] WHERE ([nChoiceID] < 4) AND  [nDependentFieldID]=12 ORDER BY "
                                 "[tName]");
  dep.Load(12);
  EXPECT_EQ(Names(dep), (std::vector<std::string>{"High", "Low"}));

  // A text value is quoted, its quote doubled.
  CZtLookupValCol by_code;
  by_code.Initialize(store_, table_);
  by_code.FieldDependentFieldID("tCode");
  EXPECT_EQ(by_code.SQLText("O'B"), "SELECT * FROM [" + table_ + "] WHERE  [tCode]='O''B'");
  by_code.Load("O'B");
  EXPECT_EQ(Names(by_code), std::vector<std::string>{"O'Brien"});
  EXPECT_EQ(by_code.Item(3)->GetFieldValue("tCode").ToText(), "O'B");
  EXPECT_EQ(by_code.Item(3)->DependentFieldID(), 0);
}

TEST_P(LookupLoadTest, SelectedColumnsGoToFieldValuesAndAFailedLoadChangesNothing) {
  CZtLookupValCol col;
  col.Initialize(store_, table_);
  col.SelectClause("[nID], [tName], [tCode]");
  col.sortBy(LookupSort::kByChoiceID);
  col.Load();
  // Without nChoiceID in the select list, ordering by it still works but it is not read.
  ASSERT_EQ(col.Count(), 4);
  EXPECT_EQ(col.Item(3)->GetFieldValue("tCode").ToText(), "O'B");
  EXPECT_EQ(col.Item(3)->ChoiceID(), 0);
  EXPECT_TRUE(col.Item(3)->GetFieldValue("tName").IsEmpty());

  col.Table("zt_no_such_table");
  EXPECT_THROW(col.Load(), ZtError);
  EXPECT_EQ(col.Count(), 4);
}

INSTANTIATE_TEST_SUITE_P(Live, LookupLoadTest, ::testing::ValuesIn(LiveEngines()), EngineName());

TEST(LookupValues, FailureTextsAndUnsupportedMembers) {
  RecordingEnv env;
  CZtLookupValCol col;
  col.Initialize(nullptr, "tblPriority", "nID > 2");
  auto [number, text] = Thrown([&] { col.Load(); });
  EXPECT_EQ(text,
            "CZtLookupValCol.Load, Cannot load values because DataStore has not been initialized, "
            "Table:tblPriority, Where:nID > 2");
  EXPECT_TRUE(env.Logged("CZtLookupValCol.Load, @Line#10"));

  EXPECT_TRUE(col.Add(std::make_shared<CZtLookupValue>(5, "Five")));
  EXPECT_FALSE(col.Add(std::make_shared<CZtLookupValue>(5, "Again")));
  EXPECT_EQ(col.GetNameFromID(5), "Five");
  EXPECT_EQ(Thrown([&] { col.GetNameFromID(6); }).second,
            "CZtLookupValCol.IZtLookupValCol_GetName, Value not found in dictionary; ID: 6; "
            "Table: tblPriority");
  EXPECT_EQ(col.GetFirstIDFromName("none"), 0);
  col.Add(std::make_shared<CZtLookupValue>("X1", "Odd"));
  EXPECT_EQ(Thrown([&] { col.GetFirstIDFromName("Odd"); }).second,
            "CZtLookupValCol.GetFirstIDFromName. This function expects to return a number. "
            "FirstID=X1");
  CZtLookupValue odd("X1", "Odd");
  EXPECT_EQ(Thrown([&] { (void)odd.ID(); }).second,
            "CZtLookupValue.ID. This property is used for numeric IDs.  ID=X1");

  EXPECT_EQ(col.FieldID(), "nID");
  EXPECT_EQ(col.FieldName(), "tName");
  EXPECT_EQ(col.FieldChoiceID(), "nChoiceID");
  EXPECT_EQ(col.FieldDependentFieldID(), "nDependentFieldID");
  EXPECT_EQ(Thrown([&] { col.FieldCaption(); }).second,
            "CZtLookupValCol.IZtLookupValCol_FieldCaption (Get).  Currently not implemented.");
  EXPECT_EQ(Thrown([&] { col.FieldDescription("x"); }).second,
            "CZtLookupValCol.IZtLookupValCol_FieldDescription (Let).  Currently not implemented.");
  EXPECT_EQ(Thrown([&] { odd.Caption("x"); }).second,
            "CZtLookupValue.IZtLookupValue_Caption (Let).  Currently not implemented.");
  EXPECT_EQ(Thrown([&] { odd.Description(); }).second,
            "CZtLookupValue.IZtLookupValue_Description (Get).  Currently not implemented.");
}

TEST(LookupValues, TextFormReadsBackToAnEqualCollection) {
  RecordingEnv env;
  CZtLookupValCol col;
  col.Add(std::make_shared<CZtLookupValue>(7, "High"));
  col.Add(std::make_shared<CZtLookupValue>(2, "Low, but|odd;%"));
  col.Add(std::make_shared<CZtLookupValue>(9, ""));
  col.FieldDelimiter("|");
  col.ChildrenFieldDelimiter(",");
  col.EncodeFields(true);
  const std::string line = col.ToString();
  EXPECT_EQ(line.find("Low, but|odd"), std::string::npos);

  CZtLookupValCol back;
  back.FieldDelimiter("|");
  back.ChildrenFieldDelimiter(",");
  back.EncodeFields(true);
  back.FromString(line);
  EXPECT_EQ(back.Keys(), col.Keys());
  EXPECT_EQ(Names(back), Names(col));
  EXPECT_EQ(back.ToString(), line);

  // Plain text when nothing needs escaping; a line that does not split into ID and name is
  // refused and leaves the collection as it was.
  CZtLookupValCol plain;
  plain.Add(std::make_shared<CZtLookupValue>(1, "Low"));
  plain.Add(std::make_shared<CZtLookupValue>(2, "High"));
  plain.FieldDelimiter("|");
  plain.ChildrenFieldDelimiter(",");
  EXPECT_EQ(plain.ToString(), "1,Low|2,High");
  EXPECT_THROW(plain.FromString("1,Low|2"), ZtError);
  EXPECT_EQ(plain.Count(), 2);
  plain.FromString("");
  EXPECT_EQ(plain.Count(), 0);
}

}  // namespace
}  // namespace zt::testing
