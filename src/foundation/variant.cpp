#include "zt/variant.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "zt/error.h"

namespace zt {

namespace {

// The run time rounds half to even when it turns a fraction into an integer.
double BankersRound(double d) {
  double r = std::nearbyint(d);  // default rounding mode is to-nearest-even
  return r;
}

std::int64_t DaysFromCivil(int y, unsigned m, unsigned d) {
  y -= m <= 2;
  const int era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return static_cast<std::int64_t>(era) * 146097 + static_cast<std::int64_t>(doe) - 719468;
}

void CivilFromDays(std::int64_t z, int& y, int& m, int& d) {
  z += 719468;
  const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const unsigned doe = static_cast<unsigned>(z - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  d = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
  m = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  y = static_cast<int>(yoe + era * 400 + (m <= 2));
}

// Days between 1970-01-01 and the OLE date epoch 1899-12-30.
constexpr std::int64_t kOleEpochOffset = 25569;

std::string FormatCurrency(Currency c) {
  std::int64_t v = c.scaled;
  bool neg = v < 0;
  std::uint64_t a = neg ? static_cast<std::uint64_t>(-(v + 1)) + 1 : static_cast<std::uint64_t>(v);
  std::string s = std::to_string(a / 10000);
  std::uint64_t frac = a % 10000;
  if (frac != 0) {
    char buf[8];
    std::snprintf(buf, sizeof buf, "%04u", static_cast<unsigned>(frac));
    std::string f(buf);
    while (!f.empty() && f.back() == '0') f.pop_back();
    s += "." + f;
  }
  return neg ? "-" + s : s;
}

std::string FormatDate(Date dt) {
  int y, mo, d, h, mi, s;
  dt.ToParts(y, mo, d, h, mi, s);
  const bool has_date = std::trunc(dt.serial) != 0;
  const bool has_time = (h | mi | s) != 0;
  std::string out;
  char buf[64];
  if (has_date || !has_time) {
    std::snprintf(buf, sizeof buf, "%d/%d/%d", mo, d, y);
    out = buf;
  }
  if (has_time) {
    int h12 = h % 12 == 0 ? 12 : h % 12;
    std::snprintf(buf, sizeof buf, "%d:%02d:%02d %s", h12, mi, s, h < 12 ? "AM" : "PM");
    if (!out.empty()) out += ' ';
    out += buf;
  }
  return out;
}

std::int32_t CheckedInt32(double d) {
  if (std::isnan(d)) rt::Raise(rt::kOverflow);
  double r = BankersRound(d);
  if (r < static_cast<double>(std::numeric_limits<std::int32_t>::min()) ||
      r > static_cast<double>(std::numeric_limits<std::int32_t>::max()))
    rt::Raise(rt::kOverflow);
  return static_cast<std::int32_t>(r);
}

}  // namespace

Currency Currency::FromDouble(double v) {
  double r = BankersRound(v * 10000.0);
  if (!(std::fabs(r) < 9.2e18)) rt::Raise(rt::kOverflow);
  return Currency{static_cast<std::int64_t>(r)};
}

Date Date::FromParts(int year, int month, int day, int hour, int minute, int second) {
  const std::int64_t days =
      DaysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day)) +
      kOleEpochOffset;
  const double frac = (hour * 3600.0 + minute * 60.0 + second) / 86400.0;
  // OLE dates before the epoch keep a positive time fraction after a negative day count.
  return Date{days >= 0 ? static_cast<double>(days) + frac : static_cast<double>(days) - frac};
}

void Date::ToParts(int& year, int& month, int& day, int& hour, int& minute, int& second) const {
  double whole = std::trunc(serial);
  double frac = std::fabs(serial - whole);
  auto secs = static_cast<std::int64_t>(std::llround(frac * 86400.0));
  std::int64_t days = static_cast<std::int64_t>(whole);
  if (secs >= 86400) {
    secs -= 86400;
    days += serial >= 0 ? 1 : -1;
  }
  CivilFromDays(days - kOleEpochOffset, year, month, day);
  hour = static_cast<int>(secs / 3600);
  minute = static_cast<int>(secs / 60 % 60);
  second = static_cast<int>(secs % 60);
}

const Variant& VariantArray::at(std::int32_t index) const {
  if (!Contains(index)) rt::Raise(rt::kSubscriptOutOfRange);
  return items[static_cast<std::size_t>(index - lower_bound)];
}

Variant& VariantArray::at(std::int32_t index) {
  if (!Contains(index)) rt::Raise(rt::kSubscriptOutOfRange);
  return items[static_cast<std::size_t>(index - lower_bound)];
}

Variant Variant::Array(std::vector<Variant> items, std::int32_t lower_bound) {
  return Variant(VariantArray{lower_bound, std::move(items)});
}

VarType Variant::Type() const {
  static constexpr VarType kTypes[] = {VarType::Empty,    VarType::Null,     VarType::Boolean,
                                       VarType::Long,     VarType::LongLong, VarType::Double,
                                       VarType::Currency, VarType::Date,     VarType::String,
                                       VarType::Object,   VarType::Array,    VarType::Decimal};
  return kTypes[v_.index()];
}

const VariantArray* Variant::AsArray() const {
  if (auto p = std::get_if<ArrayPtr>(&v_)) return p->get();
  return nullptr;
}

VariantArray* Variant::AsMutableArray() {
  auto p = std::get_if<ArrayPtr>(&v_);
  if (!p) return nullptr;
  if (p->use_count() > 1) *p = std::make_shared<VariantArray>(**p);
  return p->get();
}

std::shared_ptr<Object> Variant::AsObject() const {
  if (auto p = std::get_if<std::shared_ptr<Object>>(&v_)) return *p;
  return nullptr;
}

bool Variant::IsNumeric() const {
  switch (Type()) {
    case VarType::Empty:
    case VarType::Boolean:
    case VarType::Long:
    case VarType::LongLong:
    case VarType::Double:
    case VarType::Currency:
    case VarType::Decimal:
      return true;
    case VarType::String:
      return ParseNumber(*AsString()).has_value();
    default:
      return false;
  }
}

std::string Variant::ToText() const {
  switch (Type()) {
    case VarType::Empty:
      return {};
    case VarType::Null:
      rt::Raise(rt::kInvalidUseOfNull);
    case VarType::Boolean:
      return std::get<bool>(v_) ? "True" : "False";
    case VarType::Long:
      return std::to_string(std::get<std::int32_t>(v_));
    case VarType::LongLong:
      return std::to_string(std::get<std::int64_t>(v_));
    case VarType::Double:
      return FormatDouble(std::get<double>(v_));
    case VarType::Currency:
      return FormatCurrency(std::get<Currency>(v_));
    case VarType::Decimal:
      return std::get<Decimal>(v_).ToText();
    case VarType::Date:
      return FormatDate(std::get<Date>(v_));
    case VarType::String:
      return std::get<std::string>(v_);
    default:
      rt::Raise(rt::kTypeMismatch);
  }
}

double Variant::ToDouble() const {
  switch (Type()) {
    case VarType::Empty:
      return 0;
    case VarType::Null:
      rt::Raise(rt::kInvalidUseOfNull);
    case VarType::Boolean:
      return std::get<bool>(v_) ? -1 : 0;
    case VarType::Long:
      return std::get<std::int32_t>(v_);
    case VarType::LongLong:
      return static_cast<double>(std::get<std::int64_t>(v_));
    case VarType::Double:
      return std::get<double>(v_);
    case VarType::Currency:
      return std::get<Currency>(v_).ToDouble();
    case VarType::Decimal:
      return std::get<Decimal>(v_).ToDouble();
    case VarType::Date:
      return std::get<Date>(v_).serial;
    case VarType::String: {
      auto n = ParseNumber(std::get<std::string>(v_));
      if (!n) rt::Raise(rt::kTypeMismatch);
      return *n;
    }
    default:
      rt::Raise(rt::kTypeMismatch);
  }
}

std::int32_t Variant::ToInt32() const {
  if (auto p = std::get_if<std::int32_t>(&v_)) return *p;
  if (auto p = std::get_if<std::int64_t>(&v_)) {
    if (*p < std::numeric_limits<std::int32_t>::min() ||
        *p > std::numeric_limits<std::int32_t>::max())
      rt::Raise(rt::kOverflow);
    return static_cast<std::int32_t>(*p);
  }
  if (auto p = std::get_if<Decimal>(&v_)) {
    const std::int64_t v = p->ToInt64();
    if (v < std::numeric_limits<std::int32_t>::min() ||
        v > std::numeric_limits<std::int32_t>::max())
      rt::Raise(rt::kOverflow);
    return static_cast<std::int32_t>(v);
  }
  return CheckedInt32(ToDouble());
}

std::int64_t Variant::ToInt64() const {
  if (auto p = std::get_if<std::int64_t>(&v_)) return *p;
  if (auto p = std::get_if<std::int32_t>(&v_)) return *p;
  if (auto p = std::get_if<Decimal>(&v_)) return p->ToInt64();
  double r = BankersRound(ToDouble());
  if (!(std::fabs(r) < 9.2e18)) rt::Raise(rt::kOverflow);
  return static_cast<std::int64_t>(r);
}

bool Variant::ToBool() const {
  if (auto p = std::get_if<bool>(&v_)) return *p;
  if (auto s = AsString()) {
    // The run time accepts "True"/"False" in any case as well as numbers.
    std::string t;
    for (char c : *s) t += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    while (!t.empty() && t.back() == ' ') t.pop_back();
    while (!t.empty() && t.front() == ' ') t.erase(t.begin());
    if (t == "true") return true;
    if (t == "false") return false;
  }
  return ToDouble() != 0;
}

std::optional<int> Variant::Compare(const Variant& a, const Variant& b) {
  if (a.IsNull() || b.IsNull()) {
    if (a.IsNull() && b.IsNull()) return 0;
    return std::nullopt;
  }
  auto three_way = [](auto x, auto y) { return x < y ? -1 : (y < x ? 1 : 0); };
  const bool a_text = a.IsString(), b_text = b.IsString();
  if (a_text && b_text) return three_way(*a.AsString(), *b.AsString());
  if (a.IsEmpty() && b_text) return three_way(std::string(), *b.AsString());
  if (b.IsEmpty() && a_text) return three_way(*a.AsString(), std::string());
  if (a.IsArray() || b.IsArray() || a.IsObject() || b.IsObject()) {
    if (a.AsObject() && a.AsObject() == b.AsObject()) return 0;
    rt::Raise(rt::kTypeMismatch);
  }
  // A number against text that is not numeric: the run time compares text with text.
  if (a_text && !a.IsNumeric()) return three_way(*a.AsString(), b.ToText());
  if (b_text && !b.IsNumeric()) return three_way(a.ToText(), *b.AsString());
  // A decimal against another exact number compares digit by digit: two values a double cannot
  // tell apart (12345678901234567.8901 and ...8902) must not read as equal.
  if (a.AsDecimal() || b.AsDecimal()) {
    auto exact = [](const Variant& v) -> std::optional<Decimal> {
      switch (v.Type()) {
        case VarType::Long:
        case VarType::LongLong:
        case VarType::Currency:
        case VarType::Decimal:
          return v.ToDecimal();
        case VarType::String:
          return Decimal::TryParse(*v.AsString());
        default:
          return std::nullopt;
      }
    };
    auto x = exact(a), y = exact(b);
    if (x && y) return Decimal::Compare(*x, *y);
  }
  return three_way(a.ToDouble(), b.ToDouble());
}

Decimal Variant::ToDecimal() const {
  switch (Type()) {
    case VarType::Null:
      rt::Raise(rt::kInvalidUseOfNull);
    case VarType::Decimal:
      return std::get<Decimal>(v_);
    case VarType::Currency:
      return Decimal::FromCurrency(std::get<Currency>(v_));
    case VarType::Long:
    case VarType::LongLong:
    case VarType::Boolean:
    case VarType::Empty:
      return Decimal::FromInt64(ToInt64());
    case VarType::String:
      return Decimal::Parse(*AsString());
    case VarType::Double:
      return Decimal::Parse(FormatDouble(std::get<double>(v_)));
    default:
      rt::Raise(rt::kTypeMismatch);
  }
}

bool Variant::SameValue(const Variant& a, const Variant& b) {
  if (a.IsNull() || b.IsNull()) return a.IsNull() && b.IsNull();
  if (a.IsEmpty() || b.IsEmpty()) return a.IsEmpty() && b.IsEmpty();
  try {
    auto c = Compare(a, b);
    return c && *c == 0;
  } catch (const ZtError&) {  // objects and arrays of different identity are simply unequal
    return false;
  }
}

std::string FormatDouble(double d) {
  if (d == 0) return "0";
  if (std::isnan(d)) return "NaN";
  if (std::isinf(d)) return d > 0 ? "Infinity" : "-Infinity";
  char buf[40];
  std::snprintf(buf, sizeof buf, "%.15G", d);
  std::string s(buf);
  // %G writes "1E-05"; the run time writes the same form, with at least two exponent digits.
  auto e = s.find('E');
  std::string mant = e == std::string::npos ? s : s.substr(0, e);
  std::string exp = e == std::string::npos ? "" : s.substr(e);
  if (mant.find('.') != std::string::npos) {
    while (mant.back() == '0') mant.pop_back();
    if (mant.back() == '.') mant.pop_back();
  }
  return mant + exp;
}

std::optional<double> ParseNumber(std::string_view text) {
  std::size_t b = 0, e = text.size();
  while (b < e && (text[b] == ' ' || text[b] == '\t')) ++b;
  while (e > b && (text[e - 1] == ' ' || text[e - 1] == '\t')) --e;
  if (b == e) return std::nullopt;
  std::string t(text.substr(b, e - b));
  if (t.size() > 2 && t[0] == '&' && (t[1] == 'H' || t[1] == 'h')) {
    char* end = nullptr;
    unsigned long long v = std::strtoull(t.c_str() + 2, &end, 16);
    if (*end != '\0') return std::nullopt;
    return static_cast<double>(v);
  }
  // Only plain decimal notation: strtod would also take "inf", "nan" and hex floats.
  for (char c : t) {
    if (!(std::isdigit(static_cast<unsigned char>(c)) || c == '.' || c == '-' || c == '+' ||
          c == 'e' || c == 'E'))
      return std::nullopt;
  }
  char* end = nullptr;
  double v = std::strtod(t.c_str(), &end);
  if (end == t.c_str() || *end != '\0') return std::nullopt;
  return v;
}

bool Dictionary::Exists(std::string_view key) const {
  return index_.find(std::string(key)) != index_.end();
}

void Dictionary::Add(std::string key, Variant value) {
  if (Exists(key)) rt::Raise(rt::kKeyAlreadyExists);
  index_.emplace(key, items_.size());
  items_.emplace_back(std::move(key), std::move(value));
}

Variant Dictionary::Item(std::string_view key) const {
  auto it = index_.find(std::string(key));
  return it == index_.end() ? Variant() : items_[it->second].second;
}

void Dictionary::Set(std::string key, Variant value) {
  auto it = index_.find(key);
  if (it != index_.end()) {
    items_[it->second].second = std::move(value);
    return;
  }
  Add(std::move(key), std::move(value));
}

void Dictionary::Remove(std::string_view key) {
  auto it = index_.find(std::string(key));
  if (it == index_.end()) rt::Raise(rt::kElementNotFound);
  std::size_t pos = it->second;
  index_.erase(it);
  items_.erase(items_.begin() + static_cast<std::ptrdiff_t>(pos));
  for (auto& [k, i] : index_)
    if (i > pos) --i;
}

void Dictionary::RemoveAll() {
  items_.clear();
  index_.clear();
}

std::vector<std::string> Dictionary::Keys() const {
  std::vector<std::string> keys;
  keys.reserve(items_.size());
  for (const auto& kv : items_) keys.push_back(kv.first);
  return keys;
}

}  // namespace zt
