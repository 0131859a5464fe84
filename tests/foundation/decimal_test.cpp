#include "zt/decimal.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>

#include "zt/error.h"
#include "zt/variant.h"

namespace zt {
namespace {

std::int32_t ErrorOf(const std::function<void()>& f) {
  try {
    f();
  } catch (const ZtError& e) {
    return e.Number();
  }
  return 0;
}

TEST(Decimal, TextRoundTripsWithItsScale) {
  for (const char* text :
       {"-12345.6700", "0", "0.0001", "-0.0001", "12345678901234567.8901",
        "123456789012345678.0123456789", "79228162514264337593543950335",  // 2^96 - 1
        "-7.9228162514264337593543950335", "0.0000000000000000000000000001", "1.10"})
    EXPECT_EQ(Decimal::Parse(text).ToText(), text) << text;
  const Decimal d = Decimal::Parse("-12345.6700");
  EXPECT_TRUE(d.negative);
  EXPECT_EQ(d.scale, 4);
  EXPECT_EQ(d.lo, 123456700u);
  // Blanks, a plus sign, a bare point and exponents are read; zero loses its minus sign.
  EXPECT_EQ(Decimal::Parse(" +1.5 ").ToText(), "1.5");
  EXPECT_EQ(Decimal::Parse(".25").ToText(), "0.25");
  EXPECT_EQ(Decimal::Parse("5.").ToText(), "5");
  EXPECT_EQ(Decimal::Parse("1.5E+3").ToText(), "1500");
  EXPECT_EQ(Decimal::Parse("15e-3").ToText(), "0.015");
  EXPECT_EQ(Decimal::Parse("-0.00").ToText(), "0.00");
  EXPECT_EQ(Decimal::Parse("007").ToText(), "7");
  // Zeros past the 28th decimal carry nothing.
  EXPECT_EQ(Decimal::Parse("1.00000000000000000000000000000000").scale, 28);
}

TEST(Decimal, BadTextIsATypeMismatchAndTooManyDigitsAnOverflow) {
  for (const char* text : {"", " ", "abc", "1.2.3", "--1", "1e", "1e+", "0x10", "1,5", "NaN",
                           "Infinity", "1 2", ".", "-", "&H10"}) {
    EXPECT_EQ(ErrorOf([&] { (void)Decimal::Parse(text); }), rt::kTypeMismatch) << text;
    EXPECT_FALSE(Decimal::TryParse(text)) << text;
  }
  for (const char* text : {"79228162514264337593543950336", "100000000000000000000000000000",
                           "0.00000000000000000000000000001", "1e29", "1e99999"}) {
    EXPECT_EQ(ErrorOf([&] { (void)Decimal::Parse(text); }), rt::kOverflow) << text;
    EXPECT_FALSE(Decimal::TryParse(text)) << text;
  }
}

TEST(Decimal, ConversionsAreExactOrTrap) {
  EXPECT_EQ(Decimal::Parse("2.5").ToInt64(), 2);  // half to even
  EXPECT_EQ(Decimal::Parse("3.5").ToInt64(), 4);
  EXPECT_EQ(Decimal::Parse("-2.5000001").ToInt64(), -3);
  EXPECT_EQ(Decimal::Parse("9007199254740993").ToInt64(), 9007199254740993);  // 2^53 + 1
  EXPECT_EQ(Decimal::Parse("-9223372036854775808").ToInt64(),
            std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(Decimal::Parse("9223372036854775807.4").ToInt64(),
            std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(ErrorOf([] { (void)Decimal::Parse("9223372036854775807.5").ToInt64(); }),
            rt::kOverflow);
  EXPECT_EQ(ErrorOf([] { (void)Decimal::Parse("-9223372036854775809").ToInt64(); }), rt::kOverflow);
  EXPECT_EQ(Decimal::FromInt64(std::numeric_limits<std::int64_t>::min()).ToText(),
            "-9223372036854775808");

  // Currency and Decimal: exact both ways while the value fits four decimals and 64 bits.
  const Currency max{std::numeric_limits<std::int64_t>::max()};
  EXPECT_EQ(Decimal::FromCurrency(max).ToText(), "922337203685477.5807");
  EXPECT_EQ(Decimal::Parse("922337203685477.5807").ToCurrency(), max);
  EXPECT_EQ(Decimal::Parse("-922337203685477.5808").ToCurrency().scaled,
            std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(Decimal::Parse("-0.0001").ToCurrency().scaled, -1);
  EXPECT_EQ(Decimal::Parse("1.00005").ToCurrency().scaled, 10000);  // half to even
  EXPECT_EQ(Decimal::Parse("1.00015").ToCurrency().scaled, 10002);
  EXPECT_EQ(ErrorOf([] { (void)Decimal::Parse("922337203685477.5808").ToCurrency(); }),
            rt::kOverflow);

  EXPECT_EQ(Decimal::Parse("0.1").ToDouble(), 0.1);
  EXPECT_EQ(Decimal::Parse("-12345.67").ToDouble(), -12345.67);
}

TEST(Decimal, ComparesNumericallyWhereADoubleCannot) {
  auto cmp = [](const char* a, const char* b) {
    return Decimal::Compare(Decimal::Parse(a), Decimal::Parse(b));
  };
  EXPECT_EQ(cmp("1.5", "1.50"), 0);
  EXPECT_EQ(cmp("0", "-0.000"), 0);
  EXPECT_EQ(cmp("12345678901234567.8901", "12345678901234567.8902"), -1);
  EXPECT_EQ(cmp("-12345678901234567.8901", "-12345678901234567.8902"), 1);
  EXPECT_EQ(cmp("10", "9.99999"), 1);
  EXPECT_EQ(cmp("-1", "0.5"), -1);
  EXPECT_EQ(cmp("0.3", "0.30000000000000004"), -1);
  EXPECT_TRUE(Decimal::Parse("2.0") == Decimal::Parse("2"));
}

TEST(Decimal, InAVariant) {
  const Variant v(Decimal::Parse("12345678901234567.8901"));
  EXPECT_EQ(v.Type(), VarType::Decimal);
  EXPECT_EQ(static_cast<int>(v.Type()), 14);
  EXPECT_TRUE(v.IsNumeric());
  EXPECT_EQ(v.ToText(), "12345678901234567.8901");
  EXPECT_EQ(ErrorOf([&] { (void)v.ToInt32(); }), rt::kOverflow);
  EXPECT_EQ(Variant(Decimal::Parse("-2.5")).ToInt32(), -2);
  EXPECT_EQ(v.ToInt64(), 12345678901234568);
  ASSERT_NE(v.AsDecimal(), nullptr);
  EXPECT_EQ(Variant(1.5).AsDecimal(), nullptr);

  // Two decimals a double cannot tell apart stay different; equal values of other exact kinds
  // and numeric text compare equal digit by digit.
  const Variant next(Decimal::Parse("12345678901234567.8902"));
  EXPECT_FALSE(Variant::SameValue(v, next));
  EXPECT_EQ(Variant::Compare(v, next), -1);
  EXPECT_TRUE(Variant::SameValue(v, Variant("12345678901234567.8901")));
  EXPECT_FALSE(Variant::SameValue(v, Variant("12345678901234567.8902")));
  EXPECT_TRUE(Variant::SameValue(Variant(Decimal::Parse("9007199254740993")),
                                 Variant(std::int64_t{9007199254740993})));
  EXPECT_FALSE(Variant::SameValue(Variant(Decimal::Parse("9007199254740993")),
                                  Variant(std::int64_t{9007199254740992})));
  EXPECT_TRUE(Variant::SameValue(Variant(Decimal::Parse("1.2500")), Variant(Currency{12500})));
  EXPECT_TRUE(Variant::SameValue(Variant(Decimal::Parse("0.5")), Variant(0.5)));
  EXPECT_FALSE(Variant::SameValue(v, Variant::Null()));
  EXPECT_FALSE(Variant::Compare(v, Variant::Null()).has_value());

  EXPECT_EQ(Variant(Currency{-1}).ToDecimal().ToText(), "-0.0001");
  EXPECT_EQ(Variant(std::int32_t{7}).ToDecimal().ToText(), "7");
  EXPECT_EQ(Variant(0.1).ToDecimal().ToText(), "0.1");
  EXPECT_EQ(Variant(" 1.50 ").ToDecimal().ToText(), "1.50");
  EXPECT_EQ(ErrorOf([] { (void)Variant("x").ToDecimal(); }), rt::kTypeMismatch);
  EXPECT_EQ(ErrorOf([] { (void)Variant::Null().ToDecimal(); }), rt::kInvalidUseOfNull);
}

}  // namespace
}  // namespace zt
