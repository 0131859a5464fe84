#include "zt/decimal.h"

#include <cstdlib>
#include <limits>

#include "zt/error.h"
#include "zt/variant.h"

namespace zt {

namespace {

__extension__ typedef unsigned __int128 U128;

constexpr U128 kMaxMagnitude = (static_cast<U128>(1) << 96) - 1;

U128 Magnitude(const Decimal& d) {
  return (static_cast<U128>(d.hi) << 64) | d.lo;
}

void SetMagnitude(Decimal& d, U128 m) {
  d.hi = static_cast<std::uint32_t>(m >> 64);
  d.lo = static_cast<std::uint64_t>(m);
}

std::string Digits(U128 m) {
  if (m == 0) return "0";
  std::string s;
  while (m != 0) {
    s.insert(s.begin(), static_cast<char>('0' + static_cast<int>(m % 10)));
    m /= 10;
  }
  return s;
}

U128 Pow10(int n) {
  U128 p = 1;
  for (int i = 0; i < n; ++i) p *= 10;
  return p;
}

// m / 10^shift, the remainder rounded half to even.
U128 DivideRounded(U128 m, int shift) {
  const U128 p = Pow10(shift);
  U128 q = m / p;
  const U128 r = m % p;
  if (r * 2 > p || (r * 2 == p && (q & 1) != 0)) ++q;
  return q;
}

// The digits before and after the point of |d|, the integer part without leading zeros.
void Split(const Decimal& d, std::string& whole, std::string& frac) {
  std::string s = Digits(Magnitude(d));
  if (s.size() <= d.scale) s.insert(0, d.scale + 1 - s.size(), '0');
  whole = s.substr(0, s.size() - d.scale);
  frac = s.substr(s.size() - d.scale);
}

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

}  // namespace

namespace {

enum class ParseResult { kOk, kNotNumber, kOverflow };

ParseResult ParseInto(std::string_view text, Decimal& d) {
  std::size_t b = 0, e = text.size();
  while (b < e && (text[b] == ' ' || text[b] == '\t')) ++b;
  while (e > b && (text[e - 1] == ' ' || text[e - 1] == '\t')) --e;
  std::string_view t = text.substr(b, e - b);
  std::size_t i = 0;
  d = Decimal{};
  if (i < t.size() && (t[i] == '-' || t[i] == '+')) d.negative = t[i++] == '-';
  std::string digits;
  int frac = 0;
  bool point = false, any = false;
  for (; i < t.size(); ++i) {
    if (IsDigit(t[i])) {
      any = true;
      if (!(digits.empty() && t[i] == '0')) digits += t[i];
      if (point) ++frac;
    } else if (t[i] == '.' && !point) {
      point = true;
    } else {
      break;
    }
  }
  if (!any) return ParseResult::kNotNumber;
  long exponent = 0;
  if (i < t.size() && (t[i] == 'e' || t[i] == 'E')) {
    ++i;
    bool exp_negative = false;
    if (i < t.size() && (t[i] == '-' || t[i] == '+')) exp_negative = t[i++] == '-';
    if (i == t.size()) return ParseResult::kNotNumber;
    for (; i < t.size() && IsDigit(t[i]); ++i) {
      exponent = exponent * 10 + (t[i] - '0');
      if (exponent > 1000) return ParseResult::kOverflow;
    }
    if (exp_negative) exponent = -exponent;
  }
  if (i != t.size()) return ParseResult::kNotNumber;
  long scale = frac - exponent;
  if (scale < 0) {
    if (!digits.empty()) digits.append(static_cast<std::size_t>(-scale), '0');
    scale = 0;
  }
  // Zeros past the 28th decimal carry no value; anything else there does not fit.
  while (scale > Decimal::kMaxScale && !digits.empty() && digits.back() == '0') {
    digits.pop_back();
    --scale;
  }
  if (digits.empty()) scale = std::min<long>(scale, Decimal::kMaxScale);
  if (scale > Decimal::kMaxScale || digits.size() > 29) return ParseResult::kOverflow;
  U128 m = 0;
  for (char c : digits) m = m * 10 + static_cast<unsigned>(c - '0');
  if (m > kMaxMagnitude) return ParseResult::kOverflow;
  SetMagnitude(d, m);
  d.scale = static_cast<std::uint8_t>(scale);
  if (m == 0) d.negative = false;
  return ParseResult::kOk;
}

}  // namespace

std::optional<Decimal> Decimal::TryParse(std::string_view text) {
  Decimal d;
  if (ParseInto(text, d) != ParseResult::kOk) return std::nullopt;
  return d;
}

Decimal Decimal::Parse(std::string_view text) {
  Decimal d;
  switch (ParseInto(text, d)) {
    case ParseResult::kOk:
      return d;
    case ParseResult::kOverflow:
      rt::Raise(rt::kOverflow);
    case ParseResult::kNotNumber:
      break;
  }
  rt::Raise(rt::kTypeMismatch);
}

Decimal Decimal::FromInt64(std::int64_t v) {
  Decimal d;
  d.negative = v < 0;
  d.lo = d.negative ? static_cast<std::uint64_t>(-(v + 1)) + 1 : static_cast<std::uint64_t>(v);
  return d;
}

Decimal Decimal::FromCurrency(Currency c) {
  Decimal d = FromInt64(c.scaled);
  d.scale = 4;
  return d;
}

std::string Decimal::ToText() const {
  std::string whole, frac;
  Split(*this, whole, frac);
  std::string s = negative && !IsZero() ? "-" + whole : whole;
  if (!frac.empty()) s += "." + frac;
  return s;
}

double Decimal::ToDouble() const {
  return std::strtod(ToText().c_str(), nullptr);
}

std::int64_t Decimal::ToInt64() const {
  const U128 q = DivideRounded(Magnitude(*this), scale);
  const U128 limit =
      static_cast<U128>(std::numeric_limits<std::int64_t>::max()) + (negative ? 1 : 0);
  if (q > limit) rt::Raise(rt::kOverflow);
  if (negative) return q == 0 ? 0 : -static_cast<std::int64_t>(q - 1) - 1;
  return static_cast<std::int64_t>(q);
}

Currency Decimal::ToCurrency() const {
  const U128 m = Magnitude(*this);
  const U128 q = scale <= 4 ? m * Pow10(4 - scale) : DivideRounded(m, scale - 4);
  const U128 limit =
      static_cast<U128>(std::numeric_limits<std::int64_t>::max()) + (negative ? 1 : 0);
  if (q > limit) rt::Raise(rt::kOverflow);
  if (!negative) return Currency{static_cast<std::int64_t>(q)};
  return Currency{q == 0 ? 0 : -static_cast<std::int64_t>(q - 1) - 1};
}

int Decimal::Compare(const Decimal& a, const Decimal& b) {
  const bool a_neg = a.negative && !a.IsZero(), b_neg = b.negative && !b.IsZero();
  if (a_neg != b_neg) return a_neg ? -1 : 1;
  std::string aw, af, bw, bf;
  Split(a, aw, af);
  Split(b, bw, bf);
  int c = 0;
  if (aw.size() != bw.size()) {
    c = aw.size() < bw.size() ? -1 : 1;
  } else if (aw != bw) {
    c = aw < bw ? -1 : 1;
  } else {
    const std::size_t n = std::max(af.size(), bf.size());
    af.resize(n, '0');
    bf.resize(n, '0');
    c = af == bf ? 0 : (af < bf ? -1 : 1);
  }
  return a_neg ? -c : c;
}

}  // namespace zt
