#include "xml/rowset_format.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>

#include "foundation/utf8.h"
#include "zt/platform.h"

namespace zt::xmlfmt {

namespace {

// Every ADO type a recordset of this library can hold. The reverse lookup takes the first row
// whose names match, so the row a file written elsewhere most likely means comes first.
constexpr std::array<TypeInfo, 25> kTypes = {{
    {ado::adInteger, "int", "", false, true, Kind::kInt},
    {ado::adSmallInt, "i2", "", false, true, Kind::kInt},
    {ado::adTinyInt, "i1", "", false, true, Kind::kInt},
    {ado::adUnsignedTinyInt, "ui1", "", false, true, Kind::kInt},
    {ado::adBigInt, "i8", "", false, true, Kind::kBigInt},
    {ado::adCurrency, "i8", "currency", false, true, Kind::kCurrency},
    {ado::adSingle, "r4", "", false, true, Kind::kSingle},
    {ado::adDouble, "float", "", false, true, Kind::kDouble},
    {ado::adNumeric, "number", "numeric", false, true, Kind::kDecimal},
    {14 /* adDecimal */, "number", "decimal", false, true, Kind::kDecimal},
    {ado::adBoolean, "boolean", "", false, true, Kind::kBool},
    {ado::adDate, "dateTime", "variantdate", false, true, Kind::kDateTime},
    {ado::adDBTimeStamp, "dateTime", "timestamp", false, true, Kind::kDateTime},
    {ado::adDBDate, "date", "", false, true, Kind::kDate},
    {ado::adDBTime, "time", "", false, true, Kind::kTime},
    {ado::adGUID, "uuid", "", false, true, Kind::kGuid},
    {ado::adVarBinary, "bin.hex", "", false, false, Kind::kBinary},
    {ado::adBinary, "bin.hex", "", false, true, Kind::kBinary},
    {ado::adLongVarBinary, "bin.hex", "", true, false, Kind::kBinary},
    {ado::adVarWChar, "string", "", false, false, Kind::kText},
    {ado::adWChar, "string", "", false, true, Kind::kText},
    {ado::adLongVarWChar, "string", "", true, false, Kind::kText},
    {ado::adVarChar, "string", "str", false, false, Kind::kText},
    {ado::adChar, "string", "str", false, true, Kind::kText},
    {ado::adLongVarChar, "string", "str", true, false, Kind::kText},
}};

template <class F>
const TypeInfo* FindType(F&& match) {
  for (const auto& t : kTypes)
    if (match(t)) return &t;
  return nullptr;
}

template <class T>
std::optional<T> ParseWhole(std::string_view text) {
  T v{};
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
  if (ec != std::errc{} || end != text.data() + text.size() || text.empty()) return std::nullopt;
  return v;
}

template <class T>
std::string ShortestText(T v) {
  std::array<char, 64> buf{};
  const auto r = std::to_chars(buf.data(), buf.data() + buf.size(), v);
  return std::string(buf.data(), r.ptr);
}

std::string TwoDigits(int v) {
  std::string s = std::to_string(v);
  return s.size() < 2 ? "0" + s : s;
}

std::string DatePart(int y, int m, int d) {
  std::string year = std::to_string(y);
  while (year.size() < 4) year.insert(0, "0");
  return year + "-" + TwoDigits(m) + "-" + TwoDigits(d);
}

std::string TimePart(int h, int mi, int s) {
  return TwoDigits(h) + ":" + TwoDigits(mi) + ":" + TwoDigits(s);
}

// "YYYY-MM-DD", checked for a real calendar day.
bool ParseDate(std::string_view t, int& y, int& m, int& d) {
  if (t.size() != 10 || t[4] != '-' || t[7] != '-') return false;
  auto yy = ParseWhole<int>(t.substr(0, 4)), mm = ParseWhole<int>(t.substr(5, 2)),
       dd = ParseWhole<int>(t.substr(8, 2));
  if (!yy || !mm || !dd || *mm < 1 || *mm > 12 || *dd < 1) return false;
  static constexpr int kDays[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool leap = (*yy % 4 == 0 && *yy % 100 != 0) || *yy % 400 == 0;
  if (*dd > kDays[*mm - 1] || (*mm == 2 && *dd == 29 && !leap)) return false;
  y = *yy, m = *mm, d = *dd;
  return true;
}

// "HH:MM:SS" with an optional fraction of a second.
bool ParseTime(std::string_view t, int& h, int& mi, int& s, double& fraction) {
  fraction = 0;
  if (t.size() < 8 || t[2] != ':' || t[5] != ':') return false;
  auto hh = ParseWhole<int>(t.substr(0, 2)), mm = ParseWhole<int>(t.substr(3, 2)),
       ss = ParseWhole<int>(t.substr(6, 2));
  if (!hh || !mm || !ss || *hh > 23 || *mm > 59 || *ss > 59) return false;
  if (t.size() > 8) {
    if (t[8] != '.' || t.size() == 9) return false;
    for (char c : t.substr(9))
      if (c < '0' || c > '9') return false;
    fraction = std::stod("0" + std::string(t.substr(8)));
  }
  h = *hh, mi = *mm, s = *ss;
  return true;
}

Date WithFraction(Date d, double fraction) {
  if (fraction == 0) return d;
  const double f = fraction / 86400.0;
  return Date{d.serial >= 0 ? d.serial + f : d.serial - f};
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool IsNameStart(char32_t c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' ||
         (c >= 0xC0 && c != 0xD7 && c != 0xF7 && c < 0x2000) || (c >= 0x3001 && c <= 0xD7FF) ||
         (c >= 0xF900 && c <= 0xFDCF);
}

}  // namespace

const TypeInfo* ByAdoType(std::int32_t ado_type) {
  return FindType([&](const TypeInfo& t) { return t.ado_type == ado_type; });
}

const TypeInfo* ByNames(std::string_view dt_type, std::string_view db_type, bool is_long,
                        bool fixed) {
  // A text or binary column is long or fixed as its flags say; other types are what their
  // names say, whatever the flags.
  if (const TypeInfo* exact = FindType([&](const TypeInfo& t) {
        return t.dt_type == dt_type && t.db_type == db_type && t.is_long == is_long &&
               (t.fixed == fixed || (t.kind != Kind::kText && t.kind != Kind::kBinary));
      }))
    return exact;
  // Files written elsewhere name the same type more ways than this table does ("i4", "r8",
  // "dateTime.tz", "numeric", a dbtype of "str" or "wstr" ...).
  static constexpr std::pair<std::string_view, std::string_view> kAliases[] = {
      {"i4", "int"},
      {"r8", "float"},
      {"number", "number"},
      {"numeric", "number"},
      {"dateTime.tz", "dateTime"},
      {"bin.base64", "bin.hex"},
      {"char", "string"}};
  for (const auto& alias : kAliases)
    if (alias.first == dt_type) {
      const std::string_view name = alias.second;
      return FindType([&](const TypeInfo& t) {
        return t.dt_type == name && (t.kind != Kind::kText || t.is_long == is_long);
      });
    }
  if (dt_type == "string")
    return FindType([&](const TypeInfo& t) {
      return t.kind == Kind::kText && t.is_long == is_long && t.fixed == fixed &&
             t.db_type == (db_type == "str" ? "str" : "");
    });
  if (dt_type == "dateTime" || dt_type == "i8" || dt_type == "number")
    return FindType([&](const TypeInfo& t) { return t.dt_type == dt_type; });
  return nullptr;
}

std::optional<std::string> ToText(Kind kind, const Variant& v) {
  try {
    switch (kind) {
      case Kind::kInt:
      case Kind::kBigInt:
        if (v.Type() == VarType::Boolean) return std::string(v.ToBool() ? "-1" : "0");
        return std::to_string(v.ToInt64());
      case Kind::kSingle:
        return ShortestText(static_cast<float>(v.ToDouble()));
      case Kind::kDouble:
        return ShortestText(v.ToDouble());
      case Kind::kCurrency:
        return Decimal::FromCurrency(v.ToDecimal().ToCurrency()).ToText();
      case Kind::kDecimal:
        return v.ToDecimal().ToText();
      case Kind::kBool:
        return std::string(v.ToBool() ? "1" : "0");
      case Kind::kDateTime:
      case Kind::kDate:
      case Kind::kTime: {
        if (v.Type() != VarType::Date) return std::nullopt;
        int y, m, d, h, mi, s;
        Date date{v.ToDouble()};
        date.ToParts(y, m, d, h, mi, s);
        if (kind == Kind::kDate) return DatePart(y, m, d);
        if (kind == Kind::kTime) return TimePart(h, mi, s);
        return DatePart(y, m, d) + "T" + TimePart(h, mi, s);
      }
      case Kind::kGuid:
      case Kind::kText:
        return v.ToText();
      case Kind::kBinary: {
        const std::string* bytes = v.AsString();
        if (!bytes) return std::nullopt;
        static constexpr char kHex[] = "0123456789abcdef";
        std::string out;
        out.reserve(bytes->size() * 2);
        for (unsigned char c : *bytes) {
          out += kHex[c >> 4];
          out += kHex[c & 15];
        }
        return out;
      }
    }
  } catch (const ZtError&) {
  }
  return std::nullopt;
}

std::optional<Variant> FromText(Kind kind, std::string_view t) {
  switch (kind) {
    case Kind::kInt:
      if (auto v = ParseWhole<std::int32_t>(t)) return Variant(*v);
      return std::nullopt;
    case Kind::kBigInt:
      if (auto v = ParseWhole<std::int64_t>(t)) return Variant(*v);
      return std::nullopt;
    case Kind::kSingle:
    case Kind::kDouble: {
      double d = 0;
      std::string_view s = t.size() > 0 && t.front() == '+' ? t.substr(1) : t;
      const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), d);
      if (s.empty() || ec != std::errc{} || end != s.data() + s.size()) return std::nullopt;
      if (kind == Kind::kSingle) d = static_cast<float>(d);
      return Variant(d);
    }
    case Kind::kCurrency:
      if (auto d = Decimal::TryParse(t)) try {
          return Variant(d->ToCurrency());
        } catch (const ZtError&) {
        }
      return std::nullopt;
    case Kind::kDecimal:
      if (auto d = Decimal::TryParse(t)) return Variant(*d);
      return std::nullopt;
    case Kind::kBool:
      if (t == "1" || t == "-1" || t == "true" || t == "True") return Variant(true);
      if (t == "0" || t == "false" || t == "False") return Variant(false);
      return std::nullopt;
    case Kind::kDateTime: {
      if (!t.empty() && t.back() == 'Z') t.remove_suffix(1);
      int y, m, d, h = 0, mi = 0, s = 0;
      double fraction = 0;
      if (t.size() < 10 || !ParseDate(t.substr(0, 10), y, m, d)) return std::nullopt;
      if (t.size() > 10 && (t[10] != 'T' || !ParseTime(t.substr(11), h, mi, s, fraction)))
        return std::nullopt;
      return Variant(WithFraction(Date::FromParts(y, m, d, h, mi, s), fraction));
    }
    case Kind::kDate: {
      int y, m, d;
      if (!ParseDate(t, y, m, d)) return std::nullopt;
      return Variant(Date::FromParts(y, m, d));
    }
    case Kind::kTime: {
      int h, mi, s;
      double fraction;
      if (!ParseTime(t, h, mi, s, fraction)) return std::nullopt;
      return Variant(WithFraction(Date::FromParts(1899, 12, 30, h, mi, s), fraction));
    }
    case Kind::kGuid:
    case Kind::kText:
      return Variant(std::string(t));
    case Kind::kBinary: {
      if (t.size() % 2 != 0) return std::nullopt;
      std::string bytes(t.size() / 2, '\0');
      for (std::size_t i = 0; i < bytes.size(); ++i) {
        const int hi = HexDigit(t[2 * i]), lo = HexDigit(t[2 * i + 1]);
        if (hi < 0 || lo < 0) return std::nullopt;
        bytes[i] = static_cast<char>(hi * 16 + lo);
      }
      return Variant(std::move(bytes));
    }
  }
  return std::nullopt;
}

bool IsXmlName(std::string_view name) {
  if (name.empty()) return false;
  std::size_t pos = 0;
  bool first = true;
  while (pos < name.size()) {
    const char32_t c = utf8::Next(name, pos);
    const bool ok =
        IsNameStart(c) || (!first && ((c >= '0' && c <= '9') || c == '-' || c == '.' || c == 0xB7));
    if (!ok) return false;
    first = false;
  }
  // Names starting with "xml" are reserved.
  return !(name.size() >= 3 && (name[0] | 0x20) == 'x' && (name[1] | 0x20) == 'm' &&
           (name[2] | 0x20) == 'l');
}

bool AppendEscaped(std::string& out, std::string_view text) {
  for (char ch : text) {
    const auto c = static_cast<unsigned char>(ch);
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '\'':
        out += "&apos;";
        break;
      case '"':
        out += "&quot;";
        break;
      // Line ends and tabs in an attribute become blanks when read unless written as
      // references.
      case '\t':
        out += "&#x9;";
        break;
      case '\n':
        out += "&#xA;";
        break;
      case '\r':
        out += "&#xD;";
        break;
      default:
        if (c < 0x20) return false;
        out += ch;
    }
  }
  return true;
}

}  // namespace zt::xmlfmt
