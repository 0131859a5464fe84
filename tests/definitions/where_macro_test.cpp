// WHERE macro expansion, the select-list merge and the statement builder: pure text, no engine.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "support/test_env.h"
#include "zt/datastore.h"
#include "zt/definitions/query.h"
#include "zt/definitions/sql_statement.h"
#include "zt/error.h"
#include "zt/platform.h"

namespace zt::testing {
namespace {

// A macro with a fixed value that records the context it was asked with.
class FixedMacro : public Object, public IZtMacro {
 public:
  explicit FixedMacro(Variant value) : value_(std::move(value)) {}
  std::string TypeName() const override { return "FixedMacro"; }
  Variant Value(const Variant& context, const std::shared_ptr<Recordset>& rs,
                const std::shared_ptr<Object>& obj) override {
    ++calls;
    last_context = context;
    extras_were_empty = !rs && !obj;
    return value_;
  }
  int calls = 0;
  Variant last_context;
  bool extras_were_empty = false;

 private:
  Variant value_;
};

TEST(WhereMacroTest, ExpandsMacrosAndKeepsComparisonOperators) {
  RecordingEnv env;
  CZtWhereMacroHlpr h;
  auto view = std::make_shared<FixedMacro>(Variant(std::int32_t{7}));
  Dictionary macros;
  macros.Add("<CurrentView>", std::shared_ptr<Object>(view));

  EXPECT_EQ(h.ExpandMacros("nView=<<CurrentView>>", macros, Variant("ctx")), "nView=7");
  EXPECT_EQ(view->calls, 1);
  EXPECT_EQ(view->last_context.ToText(), "ctx");
  EXPECT_TRUE(view->extras_were_empty);

  // Without both double brackets the text is not touched, operators and all; the macro is not
  // even asked.
  EXPECT_EQ(h.ExpandMacros("nAge > 3 AND nAge<>5", macros, {}), "nAge > 3 AND nAge<>5");
  EXPECT_EQ(h.ExpandMacros("nView=<<CurrentView", macros, {}), "nView=<<CurrentView");
  EXPECT_EQ(view->calls, 1);

  // Single brackets are comparisons and survive the expansion; so do <> and <=.
  EXPECT_EQ(h.ExpandMacros("nAge > 3 AND nView=<<CurrentView>> AND nA<>nB AND nC<=2", macros, {}),
            "nAge > 3 AND nView=7 AND nA<>nB AND nC<=2");
  // A macro found twice is replaced everywhere.
  EXPECT_EQ(h.ExpandMacros("(<<CurrentView>>,<<CurrentView>>)", macros, {}), "(7,7)");
}

TEST(WhereMacroTest, UnexpandedMacrosReturnToTheirStoredForm) {
  RecordingEnv env;
  CZtWhereMacroHlpr h;
  Dictionary macros;
  macros.Add("<Empty>", std::shared_ptr<Object>(std::make_shared<FixedMacro>(Variant(""))));
  macros.Add("<NullOne>", std::shared_ptr<Object>(std::make_shared<FixedMacro>(Variant::Null())));
  auto mixed = std::make_shared<FixedMacro>(Variant("9"));
  macros.Add("<CurrentView>", std::shared_ptr<Object>(mixed));

  EXPECT_EQ(h.ExpandMacros("a=<<Empty>> AND b>1", macros, {}), "a=<<Empty>> AND b>1");
  EXPECT_EQ(h.ExpandMacros("a=<<NullOne>>", macros, {}), "a=<<NullOne>>");
  // Found under another case (the test ignores case), so the macro is asked, but the
  // replacement compares exactly and leaves it as written.
  EXPECT_EQ(h.ExpandMacros("v=<<currentview>> AND x<2", macros, {}), "v=<<currentview>> AND x<2");
  EXPECT_EQ(mixed->calls, 1);
  // An unknown macro stays too.
  EXPECT_EQ(h.ExpandMacros("v=<<Other>>", macros, {}), "v=<<Other>>");
}

TEST(WhereMacroTest, ReplacePairAndBadMacroObjects) {
  RecordingEnv env;
  // The second pair works on the result of the first, case-sensitively, over the whole text.
  EXPECT_EQ(CZtWhereMacroHlpr::ReplacePair("aXbxa", "a", "b", "b", "c"), "cXcxc");
  EXPECT_EQ(CZtWhereMacroHlpr::ReplacePair("Aa", "a", "A", "1", "2"), "21");

  Dictionary macros;
  macros.Add("<Bad>", Variant("not an object"));
  try {
    CZtWhereMacroHlpr().ExpandMacros("x=<<Bad>>", macros, {});
    FAIL() << "a value that is no macro object must be refused";
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Number(), rt::kTypeMismatch);
  }
  EXPECT_TRUE(env.Logged("CZtWhereMacroHlpr.ExpandMacros, @Line#60"));
}

TEST(SqlStatementTest, RendersAndMergesSelectLists) {
  RecordingEnv env;
  auto st = std::make_shared<CZtSQLStatement>();
  EXPECT_THROW(st->SQLText(), ZtError);  // no table, no statement
  st->Table("tblQueryRows");
  EXPECT_EQ(st->SQLText(), "SELECT * FROM [tblQueryRows]");
  st->WhereClause("[nID]=7");
  st->OrderByClause("[nRow]");
  EXPECT_EQ(st->SQLText(), "SELECT * FROM [tblQueryRows] WHERE [nID]=7 ORDER BY [nRow]");
  st->Table("[tblAlready]");
  EXPECT_EQ(st->SQLText(), "SELECT * FROM [tblAlready] WHERE [nID]=7 ORDER BY [nRow]");

  // "*" reads every column already and stays.
  EXPECT_TRUE(SQL_AddFieldsToSelectClause({"tName"}, st));
  EXPECT_EQ(st->SelectClause(), "*");
  // Names already listed (brackets, blanks and case aside) are not added twice.
  st->SelectClause("[nID], tName");
  EXPECT_TRUE(SQL_AddFieldsToSelectClause({"TNAME", "nChoiceID", "[nID]", " "}, st));
  EXPECT_EQ(st->SelectClause(), "[nID], tName,nChoiceID");
  EXPECT_EQ(st->SQLText(),
            "SELECT [nID], tName,nChoiceID FROM [tblAlready] WHERE [nID]=7 ORDER BY [nRow]");
  EXPECT_FALSE(SQL_AddFieldsToSelectClause({"x"}, nullptr));
}

TEST(QueryTest, DataStoreChecksAndUnsupportedArguments) {
  RecordingEnv env;
  CZtQuery q;
  q.Initialize(3, 5);
  auto not_a_store = std::make_shared<Recordset>();
  auto message = [&](auto&& call) {
    try {
      call();
    } catch (const ZtError& e) {
      EXPECT_EQ(e.Number(), rt::kTypeMismatch);
      return e.Description();
    }
    return std::string("no error");
  };
  EXPECT_EQ(message([&] { q.SQLStatement(not_a_store); }),
            "Recordset.IZtQuery_SQLStatement - objDataStore must be a CZtDataStore object");
  EXPECT_EQ(message([&] { q.Delete(not_a_store); }),
            "Recordset.IZtQuery_Delete - objDataStore must be a CZtDataStore object");
  EXPECT_EQ(message([&] { q.Load(std::shared_ptr<Object>()); }),
            "Nothing.IZtQuery_Load - objDataStore must be a CZtDataStore object");
  // A statement set by the caller is handed back as it is, without asking any table type.
  auto own = std::make_shared<CZtSQLStatement>();
  q.SQLStatement(own);
  EXPECT_EQ(q.SQLStatement(std::make_shared<CZtDataStore>()), own);
}

}  // namespace
}  // namespace zt::testing
