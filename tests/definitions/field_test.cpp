// Field definitions: reading rows of tblDtsFields (old and new layouts, Nulls, the user-table
// name), the statements for the choices, the choices themselves on each engine, and the HTML.
#include "zt/definitions/field.h"

#include <gtest/gtest.h>

#include "definitions/definitions_fixture.h"
#include "zt/definitions/datastore_collection.h"
#include "zt/platform/dao.h"

namespace zt::testing {
namespace {

// The columns of tblDtsFields before the optional ones came.
const char* kOldColumns =
    "[nID] LONG, [tAliasSourceTable] TEXT(50), [tBoundControlName] TEXT(50), [fCanQueryBy] BIT, "
    "[fChoiceOrder] BIT, [tDestinationTab] TEXT(50), [nDestinationTabID] LONG, [fEditable] BIT, "
    "[tCaption] TEXT(50), [nDataSize] LONG, [nDataType] LONG, [tFieldValuesTable] TEXT(50), "
    "[nValueTableDSType] LONG, [fKeepHistory] BIT, [tLabelCaption] TEXT(50), [nRelatedField] "
    "LONG, [fRequired] BIT, [fVisible] BIT, [tWhere] MEMO, [tName] TEXT(50), "
    "[nRelationshipType] LONG, [nControlType] LONG, [nContainerType] LONG, [fEnabled] BIT, "
    "[nTableDSType] LONG, [tTableName] TEXT(50)";

class FieldRowTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = std::filesystem::temp_directory_path() / ("zt_field_" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir_);
    path_ = (dir_ / "defs.db").string();
    cn_ = std::make_shared<Connection>();
    cn_->Open("Provider=Microsoft.Jet.OLEDB.4.0;Data Source=" + path_ + ";");
  }
  void TearDown() override {
    cn_->Close();
    std::filesystem::remove_all(dir_);
  }
  std::shared_ptr<Recordset> Open(const std::string& sql) {
    auto rs = std::make_shared<Recordset>();
    rs->Open(sql, cn_);
    return rs;
  }
  RecordingEnv env_;
  std::filesystem::path dir_;
  std::string path_;
  std::shared_ptr<Connection> cn_;
};

TEST_F(FieldRowTest, OldAndNewLayoutsNullsDefaultsAndTheUserTableName) {
  cn_->Execute(std::string("CREATE TABLE [tblOld] (") + kOldColumns + ")");
  cn_->Execute(
      "INSERT INTO [tblOld] VALUES (7, 'Submitter', 'cboPrio', -1, 0, 'General', 2, -1, "
      "'Priority', 4, 103, 'tblPriority', 1, 0, 'Prio', 0, -1, -1, NULL, 'nPriority', -1, 3, 1, "
      "-1, 16, 'TBLUSER_1')");
  cn_->Execute("INSERT INTO [tblOld] (nID) VALUES (8)");  // every other column Null
  cn_->Execute(std::string("CREATE TABLE [tblNew] (") + kOldColumns +
               ", [nDataViewID] LONG, [tValueTableIDFld] TEXT(50), [tValueTableNameFld] "
               "TEXT(50), [tOrigCaption] TEXT(50))");
  cn_->Execute("INSERT INTO [tblNew] SELECT *, 5, '', 'tTitle', 'Old caption' FROM [tblOld]");

  auto rs = Open("SELECT * FROM [tblOld] ORDER BY [nID]");
  CZtField f;
  f.Load(Variant(std::shared_ptr<Object>(rs)));
  EXPECT_EQ(f.FieldID(), 7);
  EXPECT_EQ(f.AliasSourceTable(), "Submitter");
  EXPECT_TRUE(f.CanQueryBy());
  EXPECT_FALSE(f.ChoiceOrder());
  EXPECT_EQ(f.FieldDataType(), 103);
  EXPECT_EQ(f.FieldValueTable(), "tblPriority");
  EXPECT_EQ(f.Where(), "");
  EXPECT_EQ(f.RelationShipType(), -1);
  EXPECT_EQ(f.TableDSType(), 16);
  EXPECT_EQ(f.TableName(), "tblUser");  // the ADO path gives the name the application knows
  EXPECT_EQ(f.ValueTableIDField(), "nID");
  EXPECT_EQ(f.ValueTableNameField(), "tName");
  EXPECT_EQ(f.DataViewID(), 0);

  rs->MoveNext();
  CZtField nulls;
  nulls.FillProperties(*rs);
  FieldDefinition expected;
  expected.field_id = 8;
  EXPECT_EQ(nulls.Definition(), expected);

  // The new layout: an empty ID column name becomes "nID", the others are read.
  auto rs_new = Open("SELECT * FROM [tblNew] ORDER BY [nID]");
  CZtField n;
  n.Load(Variant(std::shared_ptr<Object>(rs_new)));
  EXPECT_EQ(n.DataViewID(), 5);
  EXPECT_EQ(n.ValueTableIDField(), "nID");
  EXPECT_EQ(n.ValueTableNameField(), "tTitle");
  EXPECT_EQ(n.OriginalFieldCaption(), "Old caption");

  // The DAO path keeps the stored name, capitals and all, and needs the optional columns.
  auto db = dao::Database::OpenDatabase(path_);
  auto dao_new = db->OpenRecordset("SELECT * FROM [tblNew] ORDER BY [nID]");
  CZtField d;
  d.FillPropertiesDAO(*dao_new);
  EXPECT_EQ(d.TableName(), "TBLUSER_1");
  EXPECT_EQ(d.ValueTableNameField(), "tTitle");
  auto dao_old = db->OpenRecordset("SELECT * FROM [tblOld] ORDER BY [nID]");
  CZtField d_old;
  EXPECT_THROW(d_old.FillPropertiesDAO(*dao_old), ZtError);
  EXPECT_EQ(d_old.Definition(), FieldDefinition{});  // a failed row leaves the field as it was
  db->Close();

  // A recordset without a mandatory column fails; anything that is no recordset is ignored.
  auto partial = Open("SELECT [nID], [tName] FROM [tblOld]");
  CZtField p;
  EXPECT_THROW(p.FillProperties(*partial), ZtError);
  p.Load(Variant("not a recordset"));
  EXPECT_EQ(p.Definition(), FieldDefinition{});

  CZtField copy;
  copy.Copy(n);
  EXPECT_EQ(copy.Definition(), n.Definition());
}

// A macro whose value is the context it is asked for, or a fixed one when given.
class ContextMacro : public Object, public IZtMacro {
 public:
  ContextMacro() = default;
  explicit ContextMacro(Variant fixed) : fixed_(std::move(fixed)), has_fixed_(true) {}
  std::string TypeName() const override { return "ContextMacro"; }
  Variant Value(const Variant& context, const std::shared_ptr<Recordset>&,
                const std::shared_ptr<Object>&) override {
    return has_fixed_ ? fixed_ : context;
  }

 private:
  Variant fixed_;
  bool has_fixed_ = false;
};

TEST(FieldStatements, ChoiceStatementsCharacterForCharacter) {
  RecordingEnv env;
  CZtField f;
  f.FieldValueTable("tblPriority");
  EXPECT_EQ(f.SingleChoiceSQL(), "SELECT * FROM [tblPriority]  ORDER BY [tName]");
  f.ChoiceOrder(true);
  EXPECT_EQ(f.SingleChoiceSQL(), "SELECT * FROM [tblPriority]  ORDER BY [nChoiceID]");

  f.Where("WHERE nView=<<CurrentView>> AND nLevel>1 AND nOwner=<<Owner>>");
  EXPECT_EQ(Thrown([&] { f.SingleChoiceSQL(); }).second,
            "CZtField.GetFormattedWhere - objMacros not set");
  auto macros = std::make_shared<Dictionary>();
  macros->Add("<CurrentView>", Variant(std::shared_ptr<Object>(std::make_shared<ContextMacro>())));
  // An empty value leaves the macro as it was written.
  macros->Add("<Owner>", Variant(std::shared_ptr<Object>(std::make_shared<ContextMacro>(""))));
  f.MacroCollection(macros);
  f.WhereDefinition(7);
  EXPECT_EQ(f.GetFormattedWhere(), "WHERE nView=7 AND nLevel>1 AND nOwner=<<Owner>>");
  EXPECT_EQ(f.SingleChoiceSQL(),
            "SELECT * FROM [tblPriority] WHERE nView=7 AND nLevel>1 AND nOwner=<<Owner>>  ORDER "
            "BY [nChoiceID]");
  f.Where("WHERE nLevel>1");
  EXPECT_EQ(f.GetFormattedWhere(), "WHERE nLevel>1");

  Field_MakeChoiceValuesLoadOndemand(f);
  EXPECT_TRUE(Field_ChoiceValuesLoadOnDemand(f));
  EXPECT_EQ(f.ExtendedProperty(kExtPropChoiceValuesOnDemand).Type(), VarType::Boolean);
  // The mark is an IZtProperty in the field's IZtExtendedProperties collection, keyed "1".
  auto properties = static_cast<IZtExtendedProperties&>(f).ExtendedProperties();
  ASSERT_NE(properties, nullptr);
  EXPECT_EQ(properties->Keys(), std::vector<std::string>{"1"});
  EXPECT_EQ(properties->Item("1")->PropertyType(), 11);
  f.SetExtendedProperty(kExtPropChoiceValuesOnDemand, 11, false, false);  // no overwrite
  EXPECT_TRUE(Field_ChoiceValuesLoadOnDemand(f));
  Field_RemoveChoiceValuesLoadOnDemand(f);
  EXPECT_FALSE(Field_ChoiceValuesLoadOnDemand(f));
  EXPECT_EQ(properties->Count(), 0);
  Field_RemoveChoiceValuesLoadOnDemand(f);  // removing what is not there changes nothing
}

// ---- Choices on each engine ----

using FieldChoicesTest = ValueTableTest;

TEST_P(FieldChoicesTest, ChoicesNamesNumbersAndTheWalk) {
  CZtField f;
  f.FieldValueTable(table_);
  EXPECT_EQ(f.GetLookupValueName(1), "");  // no data store yet
  f.DefinitionsDataStore(store_);
  f.MacroCollection(std::make_shared<Dictionary>());
  f.Where("WHERE [nID] IS NOT NULL");
  EXPECT_EQ(f.GetLookupValueName(2), "High");  // the first row of a repeated ID
  EXPECT_EQ(f.GetLookupValueName(99), "");
  EXPECT_EQ(f.GetLookupValueName(Variant::Null()), "");
  // Ordered by name.
  EXPECT_EQ(f.ChoiceTableValues()->Keys(), (std::vector<std::int32_t>{2, 1, 3, 4}));

  f.FieldValuesEnumReset();
  std::int32_t id = 0;
  std::string name;
  std::vector<std::string> walked;
  while (f.FieldValuesEnumNext(id, name)) walked.push_back(std::to_string(id) + name);
  EXPECT_EQ(walked, (std::vector<std::string>{"2High", "1Low", "3O'Brien", "4Urgent"}));
  f.FieldValuesEnumReset();
  ASSERT_TRUE(f.FieldValuesEnumNext(id, name));
  EXPECT_EQ(id, 2);

  // Choice numbers only when the field orders by them; the first row of an ID wins.
  EXPECT_EQ(f.GetChoiceID(3), 0);
  CZtField ordered;
  ordered.FieldValueTable(table_);
  ordered.ChoiceOrder(true);
  EXPECT_EQ(ordered.GetChoiceID(3, cn_), 5);
  EXPECT_EQ(ordered.GetChoiceID(2), 1);
  EXPECT_EQ(ordered.GetChoiceID(42), 0);
  EXPECT_TRUE(env_.Logged("CZtField.GetChoiceID Loading Data") == false);
  ordered.FillSingleChoiceTable(cn_);
  EXPECT_EQ(ordered.ChoiceValues()->Keys(), (std::vector<std::int32_t>{2, 1, 4, 3}));

  CZtField broken;
  broken.FieldValueTable("zt_no_such_values");
  broken.ChoiceOrder(true);
  EXPECT_THROW(broken.GetChoiceID(1, cn_), ZtError);
  EXPECT_TRUE(env_.Logged("CZtField.GetChoiceID Loading Data, @Line#20"));
}

TEST_P(FieldChoicesTest, HtmlOfAChoiceListFromTheDataStoreOfItsType) {
  CZtField f;
  f.FieldValueTable(table_);
  f.FieldDataType(104);
  f.ValueTableDSType(3);
  CZtDataStoreCollection stores;
  store_->DataStoreType(3);
  stores.Add(store_);
  EXPECT_EQ(f.GenerateHtmlCode(nullptr, nullptr, 4, true, false, &stores, false),
            "<select name=\"fieldvalue\" id=\"fieldvalue\" onchange=submitinfo()>\r\n"
            "<option value= 2>High\r\n<option value= 1>Low\r\n<option value= 3>O&#39;Brien\r\n"
            "<option value= 4 selected>Urgent\r\n</select>\r\n");
  CZtDataStoreCollection none;
  EXPECT_THROW(none.GetConnection(3), ZtError);
}

INSTANTIATE_TEST_SUITE_P(Live, FieldChoicesTest, ::testing::ValuesIn(LiveEngines()), EngineName());

// ---- HTML ----

// A choice field whose choices are already loaded, so that no connection is needed.
CZtField ChoiceField(std::int32_t type, std::vector<std::pair<std::int32_t, std::string>> values) {
  CZtField f;
  f.FieldDataType(type);
  f.FieldValueTable("tblValues");
  auto cn = std::make_shared<Connection>();
  cn->Open("Provider=Microsoft.Jet.OLEDB.4.0;Data Source=:memory:;");
  cn->Execute("CREATE TABLE [tblValues] ([nID] LONG, [tName] TEXT(80))");
  for (const auto& [id, name] : values)
    cn->Execute("INSERT INTO [tblValues] VALUES (" + std::to_string(id) + ", '" + name + "')");
  f.FillSingleChoiceTable(cn);
  return f;
}

TEST(FieldHtml, EachDataTypeTheSelectedOptionAndEscapedMarkup) {
  RecordingEnv env;
  const std::string open =
      "<select name=\"fieldvalue\" id=\"fieldvalue\" onchange=submitinfo()>\r\n";
  const std::string close = "</select>\r\n";
  CZtField list = ChoiceField(103, {{1, "Low"}, {2, "A & <b>B</b>"}});
  EXPECT_EQ(list.GenerateHtmlCode(nullptr, nullptr, 2, true, false, nullptr, false),
            open + "<option value= 2 selected>A &amp; &lt;b&gt;B&lt;/b&gt;\r\n" +
                "<option value= 1>Low\r\n" + close);
  EXPECT_EQ(list.GenerateHtmlCode(nullptr, nullptr, "1", false, false, nullptr, false),
            "<option value= 2>A &amp; &lt;b&gt;B&lt;/b&gt;\r\n<option value= 1 selected>Low\r\n");
  // A value matching no choice, and no value, select nothing.
  for (const Variant& v : {Variant(9), Variant::Null()})
    EXPECT_EQ(
        list.GenerateHtmlCode(nullptr, nullptr, v, false, false, nullptr, false).find("selected"),
        std::string::npos);
  // Forced to text: a plain input holding the value.
  EXPECT_EQ(list.GenerateHtmlCode(nullptr, nullptr, 2, true, true, nullptr, false),
            "<input size=30  name=\"fieldvalue\" id=\"fieldvalue\" maxlength='255' value='2'>");
  // Names converted to UTF-8 bytes before they are escaped.
  CZtField accents = ChoiceField(104, {{1, "Caf\xC3\xA9"}});
  EXPECT_EQ(accents.GenerateHtmlCode(nullptr, nullptr, 0, false, false, nullptr, true),
            "<option value= 1>Caf\xC3\x83\xC2\xA9\r\n");

  CZtField yes_no;
  yes_no.FieldDataType(1);
  const std::string yes_selected = "<option value=-1 selected>Yes\r\n<option value=0>No\r\n";
  const std::string no_selected = "<option value=-1>Yes\r\n<option value=0 selected>No\r\n";
  EXPECT_EQ(yes_no.GenerateHtmlCode(nullptr, nullptr, -1, true, false, nullptr, false),
            open + yes_selected + close);
  EXPECT_EQ(yes_no.GenerateHtmlCode(nullptr, nullptr, 1, false, false, nullptr, false),
            yes_selected);
  EXPECT_EQ(yes_no.GenerateHtmlCode(nullptr, nullptr, 0, false, false, nullptr, false),
            no_selected);
  EXPECT_EQ(
      yes_no.GenerateHtmlCode(nullptr, nullptr, Variant::Null(), false, false, nullptr, false),
      no_selected);

  CZtField memo;
  memo.FieldDataType(12);
  EXPECT_EQ(memo.GenerateHtmlCode(nullptr, nullptr, "it's \"x\" <i>", true, false, nullptr, false),
            "<input size=30  name=\"fieldvalue\" id=\"fieldvalue\"  value='it&#39;s &quot;x&quot; "
            "&lt;i&gt;'>");
  CZtField text;
  text.FieldDataType(10);
  EXPECT_EQ(text.GenerateHtmlCode(nullptr, nullptr, Variant::Null(), true, false, nullptr, false),
            "<input size=30  name=\"fieldvalue\" id=\"fieldvalue\" maxlength='255' value=''>");
  // A choice value that is no number is refused.
  EXPECT_THROW(list.GenerateHtmlCode(nullptr, nullptr, "abc", true, false, nullptr, false),
               ZtError);
}

}  // namespace
}  // namespace zt::testing
