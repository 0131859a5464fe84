// The string procedures other layers build SQL text, connection strings and URLs with.
#include <gtest/gtest.h>

#include "support/test_env.h"
#include "zt/error.h"
#include "zt/event_logger.h"
#include "zt/text.h"

namespace zt {
namespace {

using testing::RecordingEnv;

TEST(Encoding, BothEncodersEscapeAnsiBytesAndKeepTheirOwnSets) {
  RecordingEnv env;
  EXPECT_EQ(ZtStrMan_UrlEncode("aZ09"), "aZ09");
  EXPECT_EQ(ZtStrMan_UrlEncode("a b-c"), "a%20b%2Dc");
  EXPECT_EQ(ZtStrMan_EncodeURIComponent("a b-c"), "a%20b-c");
  EXPECT_EQ(ZtStrMan_UrlEncode("\t"), "%09");
  EXPECT_EQ(ZtStrMan_EncodeURIComponent("\t"), "%09");
  EXPECT_EQ(ZtStrMan_UrlEncode("\n/"), "%0A%2F");
  EXPECT_EQ(ZtStrMan_UrlEncode("~._"), "%7E%2E%5F");
  EXPECT_EQ(ZtStrMan_EncodeURIComponent("!'()*-._~"), "!'()*-._~");
  EXPECT_EQ(ZtStrMan_EncodeURIComponent("a+b&c"), "a%2Bb%26c");
  // Windows-1252 bytes, never UTF-8: one escape per character.
  EXPECT_EQ(ZtStrMan_UrlEncode("é"), "%E9");
  EXPECT_EQ(ZtStrMan_EncodeURIComponent("€"), "%80");
  // A character the code page cannot hold is escaped as "?".
  EXPECT_EQ(ZtStrMan_UrlEncode("Ω"), "%3F");
  EXPECT_EQ(ZtStrMan_EncodeURIComponent("中x"), "%3Fx");
  // Malformed bytes (here an overlong form of "i") are no character of the code page either.
  EXPECT_EQ(ZtStrMan_UrlEncode("\xc1\xa9"), "%3F");
  EXPECT_EQ(ZtStrMan_EncodeURIComponent("\xff!"), "%3F!");
  EXPECT_EQ(ZtStrMan_UrlEncode(""), "");
  EXPECT_EQ(ZtStrMan_EncodeURIComponent(""), "");
  // Modes other than 1 and 4 leave the text alone.
  EXPECT_EQ(EncodeString("a b", 2), "a b");
  EXPECT_EQ(EncodeString("a b", 3), "a b");
  EXPECT_TRUE(env.Errors().empty());
}

TEST(Encoding, UrlEncodeCharFillsInTheCodeAndLogsAFailure) {
  RecordingEnv env;
  std::int32_t code = -1;
  EXPECT_EQ(URLEncodeChar("é", code), "%E9");
  EXPECT_EQ(code, 0xE9);
  // A known code is used as given, whatever the character.
  code = 65;
  EXPECT_EQ(URLEncodeChar("#", code), "#");
  code = 5;
  EXPECT_EQ(URLEncodeChar("x", code), "%05");
  EXPECT_EQ(URIEscapeChar("~"), "~");
  EXPECT_EQ(URIEscapeChar(" "), "%20");

  // An empty character has no code: the trap logs it once and gives "".
  code = -1;
  EXPECT_EQ(URLEncodeChar("", code), "");
  ASSERT_EQ(env.Errors().size(), 1u);
  EXPECT_EQ(env.Errors()[0].rfind(".URLEncodeChar, @Line#10\t", 0), 0u) << env.Errors()[0];
  EXPECT_FALSE(Err().IsSet());
  EXPECT_EQ(URIEscapeChar(""), "");
  EXPECT_TRUE(env.Logged(".URIEscapeChar, @Line#10"));
}

TEST(PrefixSuffix, StripTrimsAndRemovesOneCopyCaseInsensitively) {
  EXPECT_EQ(ZtStrMan_StripLeading("  xxabc ", "XX"), "abc");
  EXPECT_EQ(ZtStrMan_StripLeading("  abc ", "x"), "abc");
  EXPECT_EQ(ZtStrMan_StripLeading("xxxxabc", "xx"), "xxabc");
  EXPECT_EQ(ZtStrMan_StripLeading("\tabc", "\t"), "abc");  // trimming leaves tabs
  EXPECT_EQ(ZtStrMan_StripLeading("   ", "x"), "");
  EXPECT_EQ(ZtStrMan_StripLeading("ÉTÉ été", "été"), " été");
  EXPECT_EQ(ZtStrMan_StripTrailing(" abc.TXT  ", ".txt"), "abc");
  EXPECT_EQ(ZtStrMan_StripTrailing("abc", "abcd"), "abc");
  EXPECT_EQ(ZtStrMan_StripTrailing("naïveÏ", "ï"), "naïve");

  EXPECT_TRUE(ZtStrMan_StartsWith("Provider=x", "PROVIDER"));
  EXPECT_TRUE(ZtStrMan_StartsWith("", ""));
  EXPECT_FALSE(ZtStrMan_StartsWith("ab", "abc"));
  EXPECT_TRUE(ZtStrMan_EndsWith("Straße", "SSE") == false);  // one character is one character
  EXPECT_TRUE(ZtStrMan_EndsWith("ΑΘΗΝΑ", "ηνα"));
  EXPECT_EQ(ZtStrMan_EnsurePrefix("dir", "\\"), "\\dir");
  EXPECT_EQ(ZtStrMan_EnsurePrefix("\\dir", "\\"), "\\dir");
  EXPECT_EQ(ZtStrMan_EnsureSuffix("C:\\Data", "\\"), "C:\\Data\\");
  EXPECT_EQ(ZtStrMan_EnsureSuffix("file.MDB", ".mdb"), "file.MDB");
}

TEST(SqlText, BracketsAreAddedOnDemandAndRemovedOnALeadingBracketOnly) {
  EXPECT_EQ(ZtStrMan_AddBrackets("Orders"), "[Orders]");
  EXPECT_EQ(ZtStrMan_AddBrackets("[Orders]"), "[Orders]");
  EXPECT_EQ(ZtStrMan_AddBrackets(" Orders] "), "[Orders]");
  EXPECT_EQ(ZtStrMan_AddBrackets(""), "[]");
  EXPECT_EQ(ZtStrMan_RemoveBrackets("[Orders]"), "Orders");
  EXPECT_EQ(ZtStrMan_RemoveBrackets("[Orders"), "Order");
  EXPECT_EQ(ZtStrMan_RemoveBrackets("Orders]"), "Orders]");
  EXPECT_EQ(ZtStrMan_RemoveBrackets("[Zürich]"), "Zürich");
  EXPECT_EQ(ZtStrMan_RemoveBrackets("[]"), "");
  EXPECT_EQ(ZtStrMan_RemoveBrackets(""), "");
  try {
    ZtStrMan_RemoveBrackets("[");
    ADD_FAILURE() << "a lone bracket has no last character to drop";
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Number(), rt::kInvalidProcedureCall);
  }

  EXPECT_EQ(ZtStrMan_EscapeQuotes(Variant("O'Brien's")), "O''Brien''s");
  EXPECT_EQ(ZtStrMan_EscapeQuotes(Variant(std::int32_t{42})), "42");
  EXPECT_EQ(ZtStrMan_EscapeQuotes(Variant()), "");
  EXPECT_THROW(ZtStrMan_EscapeQuotes(Variant::Null()), ZtError);
}

TEST(Tokens, GetTokenWalksUncPathsAndGivesNothingOutOfRange) {
  const std::string unc = "\\\\srv\\share\\dir";
  EXPECT_EQ(ZtStrMan_GetToken(unc, 1, "\\"), "");
  EXPECT_EQ(ZtStrMan_GetToken(unc, 3, "\\"), "srv");
  EXPECT_EQ(ZtStrMan_GetToken(unc, 4, "\\"), "share");
  EXPECT_EQ(ZtStrMan_GetToken(unc, 5, "\\"), "dir");
  EXPECT_EQ(ZtStrMan_GetToken(unc, 6, "\\"), "");
  EXPECT_EQ(ZtStrMan_GetToken(unc, 0, "\\"), "");
  EXPECT_EQ(ZtStrMan_GetToken(unc, -3, "\\"), "");
  EXPECT_EQ(ZtStrMan_GetToken("aXbxc", 3, "x"), "c");  // the delimiter is found in any case
  EXPECT_EQ(ZtStrMan_GetToken("é|ü|ß", 2, "|"), "ü");
  // Later pieces of a longer delimiter start one character after its first character.
  EXPECT_EQ(ZtStrMan_GetToken("a::b::c", 2, "::"), ":b");
  EXPECT_EQ(ZtStrMan_GetToken("", 1, ";"), "");
  EXPECT_EQ(ZtStrMan_GetToken("a;b", 2147483647, ";"), "");  // answers at once
  EXPECT_EQ(ZtStrMan_GetToken("a;b", 2, ""), "");

  EXPECT_EQ(ZtStrMan_GetNullTerminatedString(std::string("abc\0def", 7)), "abc");
  EXPECT_EQ(ZtStrMan_GetNullTerminatedString("abc"), "abc");
  EXPECT_EQ(ZtStrMan_VariantToString(Variant::Null()), "");
  EXPECT_EQ(ZtStrMan_VariantToString(Variant(true)), "True");
  EXPECT_THROW(ZtStrMan_VariantToString(Variant::Array({Variant(1)})), ZtError);
}

TEST(Replacement, ReplaceStringVarWorksPairByPairAndRejectsAShortList) {
  RecordingEnv env;
  Variant finds = Variant::Array({Variant("A"), Variant("bb"), Variant("")});
  Variant repls = Variant::Array({Variant("b"), Variant("c"), Variant("zzz")});
  // "a" -> "b" first, so the second pair sees the result of the first.
  EXPECT_EQ(ZtStrMan_ReplaceStringVar("  aAb  ", finds, repls), "cb");
  EXPECT_EQ(ZtStrMan_ReplaceStringVar(" x ", Variant("not a list"), repls), "x");
  EXPECT_EQ(ZtStrMan_ReplaceStringVar("   ", finds, Variant()), "");
  EXPECT_TRUE(env.Errors().empty());

  Variant short_list = Variant::Array({Variant("b")});
  try {
    ZtStrMan_ReplaceStringVar("abc", finds, short_list);
    ADD_FAILURE() << "a replacement list shorter than the find list must fail";
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Number(), rt::kSubscriptOutOfRange);
  }
  ASSERT_EQ(env.Errors().size(), 1u);
  EXPECT_TRUE(env.Logged(".ZtStrMan_ReplaceStringVar, @Line#30"));
}

TEST(PropertyStrings, SetPropertyValueTouchesTheFirstKeyOnly) {
  EXPECT_EQ(ZtStrMan_SetPropertyValue("a=1;b=2", "c=", "3", ";", true), "a=1;b=2;c=3");
  EXPECT_EQ(ZtStrMan_SetPropertyValue("a=1;b=2", "c=", "3", ";", false), "a=1;b=2");
  EXPECT_EQ(ZtStrMan_SetPropertyValue("a=1;b=2", "b=", "9", ";", false), "a=1;b=9");
  EXPECT_EQ(ZtStrMan_SetPropertyValue("a=1;b=2", "a=", "9", ";", false), "a=9;b=2");
  EXPECT_EQ(ZtStrMan_SetPropertyValue("a=1;b=2;c=3", "B=", "", ";", false), "a=1;b=;c=3");
  EXPECT_EQ(ZtStrMan_SetPropertyValue("x=1;x=2", "x=", "*", ";", false), "x=*;x=2");
  EXPECT_EQ(ZtStrMan_SetPropertyValue("Données=ä;b=2", "données=", "ö", ";", false),
            "Données=ö;b=2");
}

TEST(PropertyStrings, PasswordMaskingMissesTheStartAndKeepsTheCallersError) {
  RecordingEnv env;
  EXPECT_EQ(ZtStrMan_RemovePasswordFromConnectionString(
                "Provider=SQLOLEDB;User ID=sa;Password=abc;Initial Catalog=db"),
            "Provider=SQLOLEDB;User ID=sa;Password=*;Initial Catalog=db");
  EXPECT_EQ(ZtStrMan_RemovePasswordFromConnectionString("U=u;PWD=x"), "U=u;PWD=*");
  EXPECT_EQ(ZtStrMan_RemovePasswordFromConnectionString("U=u;pwd=x;Password=y"),
            "U=u;pwd=*;Password=*");
  // No ";" before the first item: it is left as it is.
  EXPECT_EQ(ZtStrMan_RemovePasswordFromConnectionString("Password=x;User ID=u"),
            "Password=x;User ID=u");
  EXPECT_EQ(ZtStrMan_RemovePasswordFromConnectionString("a=1;Pwd=x;b=2;Pwd=y"),
            "a=1;Pwd=*;b=2;Pwd=y");

  Err() = ErrorInfo{vbObjectError + 9020, "CZtDataStore", "not supported", "help.chm", 7};
  const ErrorInfo pending = Err();
  EXPECT_EQ(ZtStrMan_RemovePasswordFromConnectionString("a;Pwd=q"), "a;Pwd=*");
  EXPECT_EQ(Err(), pending);
  Err().Clear();
}

TEST(PropertyStrings, GetPropertyLastKeyWinsAndMissingValuesAreEmpty) {
  RecordingEnv env;
  EXPECT_EQ(ZtStrMan_GetProperty_FromString("A=1;a=2", "A", ";", "="), "2");
  EXPECT_EQ(ZtStrMan_GetProperty_FromString("A=1;B=2", "C", ";", "="), "");
  EXPECT_EQ(ZtStrMan_GetProperty_FromString("A;B=2", "A", ";", "="), "");
  EXPECT_EQ(ZtStrMan_GetProperty_FromString("A=b=c", "a", ";", "="), "b");
  EXPECT_EQ(ZtStrMan_GetProperty_FromString(" Password=x", "Password", ";", "="), "");
  EXPECT_EQ(ZtStrMan_GetProperty_FromString("   ", "A", ";", "="), "");
  EXPECT_EQ(
      ZtStrMan_GetProperty_FromString("OLE DB Services=-2;;  ;X=1", "ole db services", ";", "="),
      "-2");

  Variant items = Variant::Array({Variant("A=b=c"), Variant::Null(), Variant("B=1")}, 1);
  std::int32_t limit = 3;
  EXPECT_EQ(ZtStrMan_GetProperty(items, "a", "=", limit), "b");
  limit = 1;  // one piece: the key is the whole item
  EXPECT_EQ(ZtStrMan_GetProperty(Variant::Array({Variant("A=b")}), "A=b", "=", limit), "");
  EXPECT_EQ(ZtStrMan_GetProperty(Variant::Array({}), "A", "=", limit), "");
  EXPECT_EQ(ZtStrMan_GetProperty(Variant("A=1"), "A", "=", limit), "");
  EXPECT_TRUE(env.Errors().empty());

  // An element without text fails inside the trap: logged with the property name, "" back.
  limit = -1;
  EXPECT_EQ(
      ZtStrMan_GetProperty(Variant::Array({Variant("A=1"), Variant::Array({})}), "A", "=", limit),
      "");
  ASSERT_EQ(env.Errors().size(), 1u);
  EXPECT_TRUE(env.Logged(".ZtStrMan_GetProperty, Property:A, @Line#20"));
}

TEST(PropertyStrings, GetPropertyDiagnosticNeverCarriesAPassword) {
  RecordingEnv env;
  const std::string cs = "Password=s3cret;Data Source=srv;User ID=sa;Pwd=0ther;Extended=x";
  EXPECT_EQ(ZtStrMan_GetProperty_FromString(cs, "password", ";", "="), "s3cret");
  EXPECT_EQ(ZtStrMan_GetProperty_FromString(cs, "PWD", ";", "="), "0ther");
  EXPECT_EQ(ZtStrMan_GetProperty_FromString(cs, "Data Source", ";", "="), "srv");
  EXPECT_TRUE(env.Logged(".ZtStrMan_GetProperty, Property:password=*"));
  EXPECT_TRUE(env.Logged(".ZtStrMan_GetProperty, Property:PWD=*"));
  EXPECT_TRUE(env.Logged(".ZtStrMan_GetProperty, Property:Data Source=srv"));

  // A value that is itself a property string: every password item in it is masked, the one at
  // its start and a braced one included.
  const std::string inner = "PWD=lead;a=1;Password={x;y};pwd=again;b=2";
  EXPECT_EQ(ZtStrMan_GetProperty_FromString("Outer:" + inner + "&B:1", "Outer", "&", ":"), inner);
  EXPECT_TRUE(env.Logged("Property:Outer=PWD=*;a=1;Password=*;pwd=*;b=2"));

  for (const auto& entry : env.log.entries) {
    for (const char* secret : {"s3cret", "0ther", "lead", "again", "x;", "y}"})
      EXPECT_EQ(entry.text.find(secret), std::string::npos) << entry.text;
  }
  for (const auto& entry : env.log.entries) EXPECT_EQ(entry.event_type, kEventInformation);
}

TEST(Utf8, WideningGivesOneCharacterPerUtf8Byte) {
  EXPECT_EQ(ZtStrMan_UTF16_To_UTF8("abc"), "abc");
  EXPECT_EQ(ZtStrMan_UTF16_To_UTF8("é"), "Ã©");
  EXPECT_EQ(ZtStrMan_UTF16_To_UTF8(""), "");
  // € is E2 82 AC: 0x82 widens to U+201A and 0xAC to U+00AC.
  EXPECT_EQ(ZtStrMan_UTF16_To_UTF8("€"), "â‚¬");
  // An unassigned byte (0x81 in "Á" = C3 81) comes back as the C1 control of its number.
  EXPECT_EQ(ZtStrMan_UTF16_To_UTF8("Á"), "Ã\u0081");
  // A malformed input byte is converted as U+FFFD (EF BF BD).
  EXPECT_EQ(ZtStrMan_UTF16_To_UTF8(std::string("\xff")), "ï¿½");
  EXPECT_EQ(ZtStrMan_UTF16_To_UTF8("\xc1\xa9\xed\xa0\x80"), "ï¿½ï¿½");
}

TEST(Compare, TextCompareFoldsCommonScripts) {
  EXPECT_TRUE(TextEquals("ÉCOLE", "école"));
  EXPECT_TRUE(TextEquals("ŁÓDŹ", "łódź"));
  EXPECT_TRUE(TextEquals("ΣΟΦΟΣ", "σοφος"));
  EXPECT_TRUE(TextEquals("ΣΟΦΟΣ", "σοφoς") == false);  // Latin o is not omicron
  EXPECT_TRUE(TextEquals("МОСКВА Ёж", "москва ёж"));
  EXPECT_TRUE(TextEquals("ＡＢＣ", "ａｂｃ"));
  EXPECT_TRUE(TextEquals("ÿ", "Ÿ"));
  EXPECT_FALSE(TextEquals("a", "á"));
  EXPECT_FALSE(TextEquals("Ab", "ab", CompareMode::Binary));
  // Distinct malformed bytes stay distinct.
  EXPECT_FALSE(TextEquals(std::string("\xfe"), std::string("\xff")));
  // A lone malformed byte matches only itself, not an overlong pair that starts with it.
  EXPECT_EQ(ReplaceAll(std::string("\xc1\xa9|\xc1"), std::string("\xc1"), "#", CompareMode::Binary),
            std::string("#\xa9|#"));

  EXPECT_EQ(InStr(1, "aBcAbC", "abc", CompareMode::Text), 1);
  EXPECT_EQ(InStr(2, "aBcAbC", "abc", CompareMode::Text), 4);
  EXPECT_EQ(InStr(2, "aBcAbC", "abc", CompareMode::Binary), 0);
  EXPECT_EQ(InStr(1, "ééX", "x", CompareMode::Text), 3);  // characters, not bytes
  EXPECT_EQ(InStr(9, "abc", "a", CompareMode::Text), 0);
  EXPECT_EQ(InStr(1, "", "", CompareMode::Text), 0);
  EXPECT_EQ(ReplaceAll("aaa", "AA", "b", CompareMode::Text), "ba");
  EXPECT_EQ(SplitText("a;b;c", ";", 2), (std::vector<std::string>{"a", "b;c"}));
  EXPECT_TRUE(SplitText("", ";").empty());
  EXPECT_THROW(SplitText("a", ";", -2), ZtError);
  EXPECT_EQ(AnsiCode(U'Ÿ'), 0x9F);
  EXPECT_EQ(AnsiToUnicode(0x80), U'€');
}

}  // namespace
}  // namespace zt
