// Password masking: what counts as a password item, and that masked texts never carry one.
#include "text/password_mask.h"

#include <gtest/gtest.h>

#include <cctype>
#include <random>
#include <string>
#include <vector>

#include "support/test_env.h"
#include "zt/datastore.h"
#include "zt/text.h"

namespace zt {
namespace {

using testing::RecordingEnv;
using text_detail::IsPasswordKey;
using text_detail::MaskPasswordItems;

TEST(PasswordItems, EverySpellingIsAPasswordAndOnlyThose) {
  for (const char* key :
       {"Password", "PWD", "pwd", "  pWd  ", "\tPassword ", "Jet OLEDB:Database Password",
        "jet oledb:database password", "Jet  OLEDB : Database Password"})
    EXPECT_TRUE(IsPasswordKey(key)) << key;
  for (const char* key : {"", "User ID", "Passwords", "Pw", "pwdx", "Jet OLEDB:System Database",
                          "Old Password", "Database Password"})
    EXPECT_FALSE(IsPasswordKey(key)) << key;
}

TEST(PasswordItems, MaskingIsByItemNeverByText) {
  // The password's text elsewhere stays: a password "127" must not garble the address.
  EXPECT_EQ(MaskPasswordItems("Data Source=127.0.0.1;Pwd=127;Database=x127", {"127"}),
            "Data Source=127.0.0.1;Pwd=*;Database=x127");
  // At the start, repeated, any case and spacing, the Jet key; everything else byte for byte.
  EXPECT_EQ(MaskPasswordItems("Password=x;User ID=u"), "Password=*;User ID=u");
  EXPECT_EQ(MaskPasswordItems("a=1;  pWd  = x ;b=2;PASSWORD=y;Pwd=z"),
            "a=1;  pWd  =*;b=2;PASSWORD=*;Pwd=*");
  EXPECT_EQ(MaskPasswordItems("Provider=Microsoft.ACE.OLEDB.12.0;Jet OLEDB:Database Password=s;"),
            "Provider=Microsoft.ACE.OLEDB.12.0;Jet OLEDB:Database Password=*;");
  // Quoted values: the whole value, ";" and doubled closers included, is one item.
  EXPECT_EQ(MaskPasswordItems("Pwd={a;b}}c}}d};Uid=u"), "Pwd=*;Uid=u");
  EXPECT_EQ(MaskPasswordItems("Pwd= \"a;\"\"b\" ;Uid=u"), "Pwd=*;Uid=u");
  EXPECT_EQ(MaskPasswordItems("Pwd='a;b';Uid=u"), "Pwd=*;Uid=u");
  // A connection string nested in a value keeps its own items, password masked, quoting kept.
  EXPECT_EQ(MaskPasswordItems("Extended Properties={Pwd=1;x=2};Pwd=3"),
            "Extended Properties={Pwd=*;x=2};Pwd=*");
  EXPECT_EQ(MaskPasswordItems("Extended Properties=\"DSN=x;PWD=\"\"q;r\"\"\" ;a=b"),
            "Extended Properties=\"DSN=x;PWD=*\" ;a=b");
  EXPECT_EQ(MaskPasswordItems("E={a={Pwd=1}}};F= Pwd=2"), "E={a={Pwd=*}}};F= Pwd=*");
  EXPECT_EQ(MaskPasswordItems("E={a=1;b={c}}}"), "E={a=1;b={c}}}");
  // An unclosed quote hides everything after it; empty values and stray parts pass.
  EXPECT_EQ(MaskPasswordItems("u=1;Pwd={a;b;c=d"), "u=1;Pwd=*");
  EXPECT_EQ(MaskPasswordItems("Pwd=;stray;;=v;"), "Pwd=*;stray;;=v;");
  EXPECT_EQ(MaskPasswordItems(""), "");
  // A known password pasted in raw, ";" and all, is masked through to its end.
  EXPECT_EQ(MaskPasswordItems("Uid=u;Pwd=s3cr;et;x=1", {"s3cr;et"}), "Uid=u;Pwd=*;x=1");
  EXPECT_EQ(MaskPasswordItems("Pwd= a;b ;x=1", {" a;b "}), "Pwd=*;x=1");
}

TEST(PasswordItems, EveryDiagnosticAndDisplayMasksByItem) {
  RecordingEnv env;
  // GetProperty's diagnostic: a password at the start and a braced one are masked too, and the
  // read of a password property shows only "*".
  ZtStrMan_GetProperty_FromString("AltConnString=Pwd={a;b};Location=x", "AltConnString", "|", "=");
  ZtStrMan_GetProperty_FromString("Jet OLEDB:Database Password=q", "Jet OLEDB:Database Password",
                                  ";", "=");
  for (const auto& entry : env.log.entries) {
    EXPECT_EQ(entry.text.find("a;b"), std::string::npos) << entry.text;
    EXPECT_EQ(entry.text.find("=q"), std::string::npos) << entry.text;
  }

  // The data store's display of its connection string: a password "127" keeps the address, a
  // replacing alternative string with its password at the start is masked.
  CZtDataStore sql;
  sql.GeneralProviderType(kProviderSqlServer);
  sql.Location("127.0.0.1");
  sql.DataStoreName("db127");
  sql.UserName("u");
  sql.Password("127");
  EXPECT_EQ(sql.MaskedConnectionString(),
            "Provider=" + sql.Provider() + ";Data Source=127.0.0.1;Database=db127;Uid=u;Pwd=*;");
  sql.AltConnString("Password=x;Server=s");
  sql.AltConnStringOperation(kAltConnReplace);
  EXPECT_EQ(sql.MaskedConnectionString(), "Password=*;Server=s");

  // Initialize's diagnostic line.
  env.log.entries.clear();
  CZtDataStore ds;
  ds.Initialize("ProviderType=2;Password=pw127;Location=127.0.0.1;AltConnString={Pwd=zz}");
  bool seen = false;
  for (const auto& entry : env.log.entries) {
    EXPECT_EQ(entry.text.find("pw127"), std::string::npos) << entry.text;
    if (entry.text.find(".Initialize, Param:") != std::string::npos) {
      seen = true;
      EXPECT_NE(entry.text.find("Location=127.0.0.1"), std::string::npos) << entry.text;
    }
  }
  EXPECT_TRUE(seen);
}

// --- Random passwords in random connection strings -------------------------------------------

class Generator {
 public:
  explicit Generator(unsigned seed) : rng_(seed) {}

  int Pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng_); }

  std::string Text(const std::string& alphabet, int min_len, int max_len) {
    std::string s;
    const int len = min_len + Pick(max_len - min_len + 1);
    for (int i = 0; i < len; ++i)
      s += alphabet[static_cast<std::size_t>(Pick(int(alphabet.size())))];
    return s;
  }

  // A value as a connection string carries it: bare when it can be, otherwise braced or
  // double-quoted with the closer doubled.
  std::string Quoted(const std::string& v) {
    const bool needs = v.find_first_of(";{}\"'") != std::string::npos ||
                       (!v.empty() && (v.front() == ' ' || v.back() == ' '));
    if (!needs && Pick(4) != 0) return v;
    const char open = Pick(2) ? '{' : '"';
    const char close = open == '{' ? '}' : '"';
    std::string out(1, open);
    for (char c : v) {
      out += c;
      if (c == close) out += close;
    }
    return out + close;
  }

  std::string PasswordKey() {
    static const char* keys[] = {"Password", "Pwd", "Jet OLEDB:Database Password"};
    std::string k = keys[Pick(3)];
    for (char& c : k)
      c = static_cast<char>(Pick(2) ? std::toupper(static_cast<unsigned char>(c))
                                    : std::tolower(static_cast<unsigned char>(c)));
    return std::string(static_cast<std::size_t>(Pick(3)), ' ') + k +
           std::string(static_cast<std::size_t>(Pick(3)), ' ');
  }

 private:
  std::mt19937 rng_;
};

const std::string kPasswordAlphabet = "ab12789;{}\"'= ";
const std::string kOtherAlphabet = "abcXYZ0127.:\\/ -_";

TEST(PasswordItems, RandomPasswordsNeverSurviveAndOtherItemsStay) {
  static const char* other_keys[] = {"Provider", "Data Source", "User ID",
                                     "Database", "Port",        "Extended Properties"};
  for (unsigned seed = 1; seed <= 3000; ++seed) {
    Generator g(seed);
    std::vector<std::string> passwords;
    std::string text, expected;
    const int items = 2 + g.Pick(6);
    for (int i = 0; i < items; ++i) {
      if (i > 0) {
        text += ';';
        expected += ';';
      }
      if (g.Pick(3) == 0) {
        const std::string key = g.PasswordKey();
        std::string password = g.Text(kPasswordAlphabet, 1, 12);
        if (g.Pick(4) == 0) password = "127";
        passwords.push_back(password);
        text += key + "=" + g.Quoted(password);
        expected += key + "=*";
      } else {
        const std::string item =
            std::string(other_keys[g.Pick(6)]) + "=" + g.Quoted(g.Text(kOtherAlphabet, 0, 10));
        text += item;
        expected += item;
      }
    }
    if (g.Pick(2)) {
      text += ';';
      expected += ';';
    }
    const std::string masked = MaskPasswordItems(text);
    ASSERT_EQ(masked, expected) << "seed " << seed << ": " << text;
    for (const std::string& p : passwords) {
      if (expected.find(p) == std::string::npos) {
        ASSERT_EQ(masked.find(p), std::string::npos) << "seed " << seed << ": " << text;
      }
    }
  }
}

TEST(PasswordItems, RandomPasswordsPastedRawByTheDataStoreNeverSurvive) {
  RecordingEnv env;
  CZtDataStore sql;
  sql.GeneralProviderType(kProviderSqlServer);
  sql.Location("127.0.0.1,1433");
  sql.DataStoreName("HelpDesk");
  sql.UserName("sa");
  const std::string kept =
      "Provider=" + sql.Provider() + ";Data Source=127.0.0.1,1433;Database=HelpDesk;Uid=sa;Pwd=*";
  for (unsigned seed = 1; seed <= 2000; ++seed) {
    Generator g(seed);
    const std::string password = g.Text(kPasswordAlphabet, 1, 14);
    sql.Password(password);
    const std::string masked = sql.MaskedConnectionString();
    // The item ends at the ";" after the password; a raw password opening a quote that it
    // never closes takes the rest of the text with it.
    ASSERT_TRUE(masked == kept + ";" || masked == kept) << "seed " << seed << ": " << masked;
    if ((kept + ";").find(password) == std::string::npos) {
      ASSERT_EQ(masked.find(password), std::string::npos) << "seed " << seed << ": " << masked;
    }
  }
}

}  // namespace
}  // namespace zt
