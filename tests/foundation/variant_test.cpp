#include "zt/variant.h"

#include <gtest/gtest.h>

#include "zt/error.h"

namespace zt {
namespace {

std::int32_t ErrorNumberOf(const std::function<void()>& f) {
  try {
    f();
  } catch (const ZtError& e) {
    return e.Number();
  }
  return 0;
}

TEST(Variant, TextAsTheRunTimeWroteIt) {
  EXPECT_EQ(Variant(true).ToText(), "True");
  EXPECT_EQ(Variant(false).ToText(), "False");
  EXPECT_EQ(Variant(std::int32_t{-42}).ToText(), "-42");
  EXPECT_EQ(Variant(0.5).ToText(), "0.5");
  EXPECT_EQ(Variant(1.0 / 3).ToText(), "0.333333333333333");
  EXPECT_EQ(Variant(0.00001).ToText(), "1E-05");
  EXPECT_EQ(Variant(1e15).ToText(), "1E+15");
  EXPECT_EQ(Variant(123456789012345.0).ToText(), "123456789012345");
  EXPECT_EQ(Variant(Currency::FromDouble(10.25)).ToText(), "10.25");
  EXPECT_EQ(Variant(Date::FromParts(2026, 11, 15, 5, 38, 0)).ToText(), "11/15/2026 5:38:00 AM");
  EXPECT_EQ(Variant(Date::FromParts(2026, 1, 2)).ToText(), "1/2/2026");
  EXPECT_EQ(Variant(Date::FromParts(1899, 12, 30, 13, 5, 9)).ToText(), "1:05:09 PM");
  EXPECT_EQ(Variant().ToText(), "");
  EXPECT_EQ(ErrorNumberOf([] { (void)Variant::Null().ToText(); }), rt::kInvalidUseOfNull);
}

TEST(Variant, ToInt32RoundsToEvenAndTrapsOverflow) {
  EXPECT_EQ(Variant(2.5).ToInt32(), 2);
  EXPECT_EQ(Variant(3.5).ToInt32(), 4);
  EXPECT_EQ(Variant(" 12 ").ToInt32(), 12);
  EXPECT_EQ(Variant("&HFF").ToInt32(), 255);
  EXPECT_EQ(Variant(true).ToInt32(), -1);
  EXPECT_EQ(Variant(std::int64_t{2147483647}).ToInt32(), 2147483647);
  EXPECT_EQ(ErrorNumberOf([] { (void)Variant(std::int64_t{2147483648}).ToInt32(); }),
            rt::kOverflow);
  EXPECT_EQ(ErrorNumberOf([] { (void)Variant(2147483647.5).ToInt32(); }), rt::kOverflow);
  EXPECT_EQ(ErrorNumberOf([] { (void)Variant("12abc").ToInt32(); }), rt::kTypeMismatch);
  EXPECT_EQ(ErrorNumberOf([] { (void)Variant("nan").ToInt32(); }), rt::kTypeMismatch);
}

TEST(Variant, NumericTestAndComparison) {
  EXPECT_TRUE(Variant("1.5e3").IsNumeric());
  EXPECT_TRUE(Variant().IsNumeric());
  EXPECT_FALSE(Variant("abc").IsNumeric());
  EXPECT_FALSE(Variant("").IsNumeric());
  EXPECT_FALSE(Variant::Null().IsNumeric());
  EXPECT_EQ(Variant::Compare(Variant("10"), Variant(std::int32_t{9})), 1);  // numeric text
  EXPECT_EQ(Variant::Compare(Variant("a"), Variant("B")), 1);               // binary text
  EXPECT_EQ(Variant::Compare(Variant::Null(), Variant(1)), std::nullopt);
  EXPECT_TRUE(Variant::SameValue(Variant::Null(), Variant::Null()));
  EXPECT_FALSE(Variant::SameValue(Variant::Null(), Variant("")));
  EXPECT_FALSE(Variant::SameValue(Variant(), Variant("")));
  EXPECT_TRUE(Variant::SameValue(Variant(std::int32_t{3}), Variant(3.0)));
}

TEST(Variant, ArraysCopyByValue) {
  Variant a = Variant::Array({Variant(1), Variant("x")}, 1);
  Variant b = a;
  b.AsMutableArray()->at(1) = Variant("changed");
  EXPECT_EQ(a.AsArray()->at(1).ToText(), "1");
  EXPECT_EQ(a.AsArray()->UpperBound(), 2);
  EXPECT_EQ(ErrorNumberOf([&] { (void)a.AsArray()->at(0); }), rt::kSubscriptOutOfRange);
}

TEST(Dictionary, InsertionOrderAndExactKeys) {
  Dictionary d;
  d.Add("b", Variant(1));
  d.Add("a", Variant(2));
  d.Add("B", Variant(3));
  EXPECT_EQ(d.Keys(), (std::vector<std::string>{"b", "a", "B"}));
  EXPECT_EQ(ErrorNumberOf([&] { d.Add("a", Variant(9)); }), rt::kKeyAlreadyExists);
  d.Remove("b");
  d.Set("c", Variant(4));
  d.Set("a", Variant(5));
  EXPECT_EQ(d.Keys(), (std::vector<std::string>{"a", "B", "c"}));
  EXPECT_EQ(d.Item("a").ToInt32(), 5);
  EXPECT_TRUE(d.Item("A").IsEmpty());
  EXPECT_FALSE(d.Exists("A"));
  EXPECT_EQ(ErrorNumberOf([&] { d.Remove("zz"); }), rt::kElementNotFound);
}

}  // namespace
}  // namespace zt
