// The value a copy writes once the rules let it through: the same for the record-by-record copy
// and the streaming one, since both ask CopyValueFor.
#include "schema/copy_rules.h"

#include <gtest/gtest.h>

#include "zt/platform.h"

namespace zt::schema {
namespace {

TEST(CopyValueForTest, BooleansAndNumbersMeetAsTheOldFilesKeptThem) {
  CopyTarget tinyint{"fDone", ado::adUnsignedTinyInt, 0, 0};
  CopyTarget boolean{"fDone", ado::adBoolean, 0, 0};
  CopyTarget text{"tNote", ado::adVarWChar, 10, 0};
  // MariaDB keeps a Boolean as TINYINT(1): True goes in as -1, the old files' True.
  EXPECT_EQ(CopyValueFor(tinyint, Variant(true)).ToInt32(), -1);
  EXPECT_EQ(CopyValueFor(tinyint, Variant(false)).ToInt32(), 0);
  // A PostgreSQL BOOLEAN takes no -1: any number but 0 is True.
  EXPECT_EQ(CopyValueFor(boolean, Variant(std::int32_t{-1})).Type(), VarType::Boolean);
  EXPECT_TRUE(CopyValueFor(boolean, Variant(std::int32_t{-1})).ToBool());
  EXPECT_FALSE(CopyValueFor(boolean, Variant(0.0)).ToBool());
  EXPECT_TRUE(CopyValueFor(boolean, Variant(true)).ToBool());
  EXPECT_EQ(CopyValueFor(text, Variant("abc")).ToText(), "abc");
  // A number into a date field is the day number (what PostgreSQL and MariaDB would refuse as
  // text); a date stays as it is.
  CopyTarget when{"dWhen", ado::adDBTimeStamp, 0, 0};
  const Variant day = CopyValueFor(when, Variant(45000.5));
  EXPECT_EQ(day.Type(), VarType::Date);
  EXPECT_DOUBLE_EQ(day.ToDouble(), 45000.5);
  EXPECT_EQ(CopyValueFor(when, Variant(std::int32_t{45000})).Type(), VarType::Date);
  EXPECT_EQ(CopyValueFor(when, Variant("2023-03-15")).Type(), VarType::String);
}

// Defaults as the sources write them, in the form every target reads alike, or left out with a
// reason; nothing of a text is lost on the way (quotes inside, non-ASCII).
TEST(TranslateDefaultTest, EachSourceSpellingHasOneTargetFormOrAReason) {
  struct Case {
    const char* text;
    bool jet;
    const char* want;
    bool reason;
  };
  const Case cases[] = {
      {"0", true, "0", false},
      {"=No", true, "0", false},  // Access Yes/No
      {"Yes", true, "-1", false},
      {"((-1.5))", false, "-1.5", false},  // SQL Server's parentheses
      {"'open'::character varying", false, "'open'", false},
      {R"("it's ""Ärger""")", true, R"('it''s "Ärger"')", false},  // Access text
      {"=Now()", true, "CURRENT_TIMESTAMP", false},
      {"current_timestamp()", false, "CURRENT_TIMESTAMP", false},  // MariaDB
      {"Date()", true, "CURRENT_DATE", false},
      {"NULL", false, "", false},                           // MariaDB's "no default"
      {"nextval('t_id_seq'::regclass)", false, "", false},  // the identity carries it
      {R"("a" & "b")", true, "", true},                     // an expression of Access
      {"abs(-1)", false, "", true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    std::string reason;
    EXPECT_EQ(TranslateDefault(c.text, c.jet, &reason), c.want);
    EXPECT_EQ(!reason.empty(), c.reason) << reason;
  }
}

}  // namespace
}  // namespace zt::schema
