// zt::Decimal: the exact decimal number of the old automation run time (VT_DECIMAL): a sign, a
// 96-bit unsigned magnitude and a scale of 0 to 28 decimals. Database DECIMAL/NUMERIC values
// travel as Decimal so that no digit is lost on the way through a double.
//
// The scale is part of the value's text: "-12345.6700" parses to magnitude 123456700, scale 4,
// and prints back as "-12345.6700". Comparison is numeric (1.5 equals 1.50).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "zt/export.h"

namespace zt {

struct Currency;

struct ZT_EXPORT Decimal {
  static constexpr int kMaxScale = 28;

  bool negative = false;
  std::uint8_t scale = 0;
  std::uint32_t hi = 0;  // bits 64..95 of the magnitude
  std::uint64_t lo = 0;  // bits 0..63 of the magnitude

  // Plain decimal text: blanks around, an optional sign, digits with an optional point and an
  // optional exponent ("1.5E+3"). Error 13 "Type mismatch" for anything else, error 6
  // "Overflow" when the magnitude needs more than 96 bits or the scale more than 28 decimals.
  static Decimal Parse(std::string_view text);
  // As Parse, but nullopt instead of either error.
  static std::optional<Decimal> TryParse(std::string_view text);
  static Decimal FromInt64(std::int64_t v);
  static Decimal FromCurrency(Currency c);  // always exact, scale 4

  bool IsZero() const { return hi == 0 && lo == 0; }
  // The exact text, keeping the scale's trailing zeros; zero never carries a minus sign.
  std::string ToText() const;
  // The nearest double (correctly rounded from the text).
  double ToDouble() const;
  // Rounded half to even to an integer; error 6 "Overflow" outside the 64-bit range.
  std::int64_t ToInt64() const;
  // Rounded half to even to four decimals; error 6 "Overflow" outside the currency range.
  Currency ToCurrency() const;

  // Numeric three-way comparison: -1, 0 or 1.
  static int Compare(const Decimal& a, const Decimal& b);
  friend bool operator==(const Decimal& a, const Decimal& b) { return Compare(a, b) == 0; }
};

}  // namespace zt
