// The keyed-collection members of CZtPropertyCol and the copies of properties: what a caller
// relies on when it keeps and hands on a collection.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/test_env.h"
#include "zt/config/settings.h"
#include "zt/error.h"
#include "zt/platform.h"

namespace zt::testing {
namespace {

std::shared_ptr<CZtSetting> Setting(std::int32_t id, const std::string& value) {
  auto s = std::make_shared<CZtSetting>();
  s->ID(id);
  s->Value(value);
  return s;
}

TEST(PropertyColTest, KeyedMembersKeepOrderRefuseRepeatsAndCopyDeeply) {
  RecordingEnv env;
  CZtPropertyCol col;
  col.Add("b", Setting(2, "two"));
  col.Add("a", Setting(1, "one"));
  EXPECT_EQ(col.Keys(), (std::vector<std::string>{"b", "a"}));
  EXPECT_EQ(col.Count(), 2);
  EXPECT_TRUE(col.Exists("a"));
  EXPECT_FALSE(col.Exists("A"));  // keys compare exactly
  EXPECT_EQ(col.Item("zz"), nullptr);
  EXPECT_EQ(col.Items()[1]->Value().ToText(), "one");
  EXPECT_EQ(col.GetDictionary().Count(), 2u);

  try {
    col.Add("a", Setting(3, "three"));
    ADD_FAILURE() << "a repeated key was added";
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Number(), rt::kKeyAlreadyExists);
  }
  EXPECT_TRUE(env.Logged("CZtPropertyCol.IZtPropertyCol_Add"));
  EXPECT_EQ(col.Item("a")->Value().ToText(), "one");
  EXPECT_THROW(col.Add("c", nullptr), ZtError);
  EXPECT_EQ(col.Count(), 2);

  // A copy owns copies: changing it leaves the original alone.
  auto copy = col.Copy();
  copy->Item("a")->Value(Variant("changed"));
  copy->Remove("b");
  EXPECT_EQ(col.Item("a")->Value().ToText(), "one");
  EXPECT_EQ(col.Count(), 2);
  EXPECT_EQ(copy->Keys(), (std::vector<std::string>{"a"}));

  try {
    col.Remove("nope");
    ADD_FAILURE() << "removing a missing key passed";
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Number(), rt::kElementNotFound);
  }
}

TEST(PropertyColTest, PropertyLoadOnlyReportsAndAnEmptyRecordsetAddsNothing) {
  RecordingEnv env;
  CZtSetting s;
  s.ID(4);
  Recordset rs;
  rs.OpenDisconnected({{.name = "nID", .type = ado::adInteger}});
  s.Load(rs);
  EXPECT_EQ(s.ID(), 4);
  ASSERT_EQ(env.Errors().size(), 1u);
  EXPECT_NE(
      env.Errors()[0].find("CZtSetting.IZtProperty_Load - This function is not yet implemented!"),
      std::string::npos);

  CZtPropertyCol col;
  col.Load(rs);
  EXPECT_EQ(col.Count(), 0);
}

}  // namespace
}  // namespace zt::testing
