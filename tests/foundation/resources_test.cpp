#include "zt/resources.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "support/test_env.h"
#include "zt/error.h"
#include "zt/error_handling.h"

namespace zt {
namespace {

using testing::RecordingEnv;

TEST(Resources, MacroExpansionRules) {
  RecordingEnv env;
  ThreadHostInfo().product_short_name = "Tessel";
  // 10020 is "This data provider is not yet supported: %1".
  EXPECT_EQ(GetTextFromResource("10020;<ProductShortName>"),
            "This data provider is not yet supported: Tessel");
  EXPECT_EQ(GetTextFromResource("10020;Tessel"), "This data provider is not yet supported: ");
  EXPECT_EQ(GetTextFromResource("10020;<productshortname>"),
            "This data provider is not yet supported: ");
  EXPECT_EQ(GetTextFromResource("PROVIDER_SQL"), "Microsoft SQL Server");
  EXPECT_EQ(GetTextFromResource("   "), "");
  // Only spaces count as blank: a tab is looked up as an (unknown) identifier and gives "".
  EXPECT_EQ(GetTextFromResource("\t;<ProductShortName>"), "");
  try {
    GetTextFromResource(";<ProductShortName>");
    FAIL();
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Number(), vbObjectError + 600);
  }
  EXPECT_EQ(FormatMessage("%1 and %2, %3", {"a", "b"}), "a and b, %3");
}

TEST(Resources, CultureDefaultAndOverrideFile) {
  {
    RecordingEnv env;
    EXPECT_EQ(GetCulture(), "en-US");
  }
  auto dir = std::filesystem::temp_directory_path() / "zt-res-test";
  std::filesystem::create_directories(dir);
  std::ofstream(dir / "de-DE.txt") << "# German texts\nPROVIDER_SQL=Microsoft SQL-Server\n"
                                   << "101=Ein unbekannter Fehler.\\nZweite Zeile\n";
  setenv("ZT_RESOURCE_DIR", dir.c_str(), 1);
  {
    RecordingEnv env;
    env.registry.WriteValue("HKEY_LOCAL_MACHINE\\SOFTWARE\\Quillmark\\Localization", "Culture",
                            "de-DE");
    EXPECT_EQ(GetCulture(), "de-DE");
    EXPECT_EQ(LoadCommonResString("PROVIDER_SQL"), "Microsoft SQL-Server");
    EXPECT_EQ(LoadResString(101), "Ein unbekannter Fehler.\nZweite Zeile");
    EXPECT_EQ(LoadCommonResString("PROVIDER_JET"), "Microsoft Access (Jet)");  // not overridden
    EXPECT_EQ(LoadResString(503), "-2147467259;-2147217900;-2147217815;-2147217911;-2147217887");
    EXPECT_FALSE(LoadResString(99999).has_value());
    EXPECT_EQ(LoadCommonResString("NO_SUCH_MESSAGE"), "");
  }
  unsetenv("ZT_RESOURCE_DIR");
  std::filesystem::remove_all(dir);
}

// A form made of plain property bags.
template <class Base>
struct Bag : Base {
  std::map<std::string, std::string> props;
  std::optional<std::string> Get(const std::string& p) const override {
    auto it = props.find(p);
    return it == props.end() ? std::nullopt : std::optional(it->second);
  }
  bool Set(const std::string& p, const std::string& v) override {
    props[p] = v;
    return true;
  }
};
using Item = Bag<IZtFormItem>;
struct Control : Bag<IZtControl> {
  Control(std::string t, std::map<std::string, std::string> p, std::vector<Item> s = {})
      : type(std::move(t)), subs(std::move(s)) {
    props = std::move(p);
  }
  std::string type;
  std::vector<Item> subs;
  std::string TypeName() const override { return type; }
  std::vector<IZtFormItem*> SubItems() override {
    std::vector<IZtFormItem*> out;
    for (auto& s : subs) out.push_back(&s);
    return out;
  }
};
struct Form : Bag<IZtForm> {
  std::vector<Control> controls;
  std::vector<IZtControl*> Controls() override {
    std::vector<IZtControl*> out;
    for (auto& c : controls) out.push_back(&c);
    return out;
  }
};

TEST(Resources, FormLocalisationRewritesCaptionsAndTips) {
  RecordingEnv env;
  Form form;
  form.props["Tag"] = "INIT_SQL_MSG_TITLE";
  Control label("Label", {{"Tag", "PROVIDER_JET"}});
  Control tabs("TabStrip", {}, {Item{}});
  tabs.subs[0].props = {{"Tag", "BLN_YES"}, {"ToolTipText", "BLN_NO"}};
  Control list("ListView", {}, {Item{}});
  list.subs[0].props = {{"Tag", "LOGIN_NAME"}};
  Control broken("Label", {{"Tag", ";x"}});
  form.controls = {label, tabs, list, broken};
  LocalizeForm(form);
  EXPECT_EQ(form.props["Caption"], "Prepare SQL Server");
  EXPECT_EQ(form.controls[0].props["Caption"], "Microsoft Access (Jet)");
  EXPECT_EQ(form.controls[0].props.count("ToolTipText"), 0u);  // had none: skipped
  EXPECT_EQ(form.controls[1].subs[0].props["Caption"], "Yes");
  EXPECT_EQ(form.controls[1].subs[0].props["ToolTipText"], "No");
  EXPECT_EQ(form.controls[2].subs[0].props["Text"], "Login name");
  EXPECT_EQ(form.controls[3].props.count("Caption"),
            0u);  // a bad resource specification changes nothing
}

}  // namespace
}  // namespace zt
