// zt::Variant: the value type that crosses every interface of the library.
//
// A Variant holds one of the kinds the old automation run time knew: Empty, Null, Boolean,
// 32-bit integer ("Long"), 64-bit integer, double, currency, exact decimal, date, string, object
// reference or array. Text is UTF-8. Conversions follow the old run time's rules so that texts
// written by the library (log lines, SQL, serialized definitions) stay as they were:
//   - ToText(): True/False, numbers with up to 15 significant digits, dates as M/D/YYYY h:mm:ss AM.
//   - ToInt32(): banker's rounding, error 6 "Overflow" outside the 32-bit range, error 13
//     "Type mismatch" for text that is not a number, error 94 "Invalid use of Null" for Null.
// Conversions that fail throw zt::ZtError (see error.h); nothing else throws.
#pragma once

#include <compare>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

#include "zt/decimal.h"
#include "zt/export.h"

namespace zt {

// The old run time's VarType codes, kept so that callers comparing kinds see the same numbers.
enum class VarType : int {
  Empty = 0,
  Null = 1,
  Long = 3,
  Double = 5,
  Currency = 6,
  Date = 7,
  String = 8,
  Object = 9,
  Boolean = 11,
  Decimal = 14,
  LongLong = 20,
  Array = 8192,
};

// Base of every object a Variant can refer to (recordsets, connections, data stores ...).
class ZT_EXPORT Object {
 public:
  virtual ~Object() = default;
  // The run-time type name ("CZtDataStore", "Recordset"), used in error locations.
  virtual std::string TypeName() const = 0;
};

// Currency: a fixed-point number with four decimals, stored scaled by 10,000.
struct ZT_EXPORT Currency {
  std::int64_t scaled = 0;
  static Currency FromDouble(double v);
  double ToDouble() const { return static_cast<double>(scaled) / 10000.0; }
  friend bool operator==(Currency, Currency) = default;
};

// Date: days since 30 December 1899, the fraction being the time of day (the OLE date).
struct ZT_EXPORT Date {
  double serial = 0;
  static Date FromParts(int year, int month, int day, int hour = 0, int minute = 0, int second = 0);
  // Splits the serial into calendar parts (seconds rounded to the nearest).
  void ToParts(int& year, int& month, int& day, int& hour, int& minute, int& second) const;
  friend bool operator==(Date, Date) = default;
};

class Variant;

// A one-dimensional array with a lower bound (0 unless the caller says otherwise).
struct ZT_EXPORT VariantArray {
  std::int32_t lower_bound = 0;
  std::vector<Variant> items;
  // Defined after Variant: clang instantiates std::vector's constexpr members where they are
  // used, and Variant is still incomplete here.
  std::int32_t UpperBound() const;
  bool Contains(std::int32_t index) const;
  // Element at `index` (bounds-checked; error 9 "Subscript out of range" when outside).
  const Variant& at(std::int32_t index) const;
  Variant& at(std::int32_t index);
};

class ZT_EXPORT Variant {
 public:
  struct NullTag {
    friend bool operator==(NullTag, NullTag) = default;
  };

  Variant() = default;  // Empty
  Variant(bool b) : v_(b) {}
  Variant(std::int32_t i) : v_(i) {}
  Variant(std::int64_t i) : v_(i) {}
  Variant(double d) : v_(d) {}
  Variant(Currency c) : v_(c) {}
  Variant(Decimal d) : v_(d) {}
  Variant(Date d) : v_(d) {}
  Variant(std::string s) : v_(std::move(s)) {}
  Variant(std::string_view s) : v_(std::string(s)) {}
  Variant(const char* s) : v_(std::string(s)) {}
  Variant(std::shared_ptr<Object> o) : v_(std::move(o)) {}
  Variant(VariantArray a) : v_(std::make_shared<VariantArray>(std::move(a))) {}
  // Any other integral type goes to the 32- or 64-bit kind by its width.
  template <class T>
  requires(std::is_integral_v<T> && !std::is_same_v<T, bool> && !std::is_same_v<T, std::int32_t> &&
           !std::is_same_v<T, std::int64_t>) Variant(T i) {
    if constexpr (sizeof(T) <= 4 && std::is_signed_v<T>)
      v_ = static_cast<std::int32_t>(i);
    else
      v_ = static_cast<std::int64_t>(i);
  }

  static Variant Null() {
    Variant v;
    v.v_ = NullTag{};
    return v;
  }
  // An array of the given values with lower bound 0 (the run time's Array() function).
  static Variant Array(std::vector<Variant> items, std::int32_t lower_bound = 0);

  VarType Type() const;
  bool IsEmpty() const { return v_.index() == 0; }
  bool IsNull() const { return std::holds_alternative<NullTag>(v_); }
  bool IsArray() const { return std::holds_alternative<ArrayPtr>(v_); }
  bool IsObject() const { return std::holds_alternative<std::shared_ptr<Object>>(v_); }
  bool IsString() const { return std::holds_alternative<std::string>(v_); }
  // True for numbers, Booleans, Empty, and text that parses as a number (the run time's
  // IsNumeric). Dates and Null are not numeric.
  bool IsNumeric() const;

  // Conversions (see the header comment for their failures).
  std::string ToText() const;
  std::int32_t ToInt32() const;
  std::int64_t ToInt64() const;
  double ToDouble() const;
  bool ToBool() const;
  // The text of a string Variant without conversion, or nullptr for other kinds.
  const std::string* AsString() const { return std::get_if<std::string>(&v_); }
  // The decimal of a Decimal Variant without conversion, or nullptr for other kinds.
  const Decimal* AsDecimal() const { return std::get_if<Decimal>(&v_); }
  // The value as an exact decimal: integers, currency and decimals exactly, numeric text by its
  // digits, a double by its 15-digit text. Error 13 for other kinds, 94 for Null.
  Decimal ToDecimal() const;
  // The array, or nullptr when this is not an array.
  const VariantArray* AsArray() const;
  VariantArray* AsMutableArray();  // copies a shared array first, so values never alias
  std::shared_ptr<Object> AsObject() const;

  // Comparison as the run time's "=" and "<" with text compared exactly (binary):
  // numbers against numbers numerically, text against text by code units, a number against
  // numeric text numerically. Null compares equal only to Null (`Compare` returns nullopt when
  // exactly one side is Null, as the run time's comparison yields Null).
  static std::optional<int> Compare(const Variant& a, const Variant& b);
  // Equality where Null equals Null and Empty equals Empty: the test used to decide whether a
  // stored value changed.
  static bool SameValue(const Variant& a, const Variant& b);

 private:
  using ArrayPtr = std::shared_ptr<VariantArray>;
  std::variant<std::monostate, NullTag, bool, std::int32_t, std::int64_t, double, Currency, Date,
               std::string, std::shared_ptr<Object>, ArrayPtr, Decimal>
      v_;
};

inline std::int32_t VariantArray::UpperBound() const {
  return lower_bound + static_cast<std::int32_t>(items.size()) - 1;
}
inline bool VariantArray::Contains(std::int32_t index) const {
  return index >= lower_bound && index <= UpperBound();
}

// Formats a double as the run time's CStr does (15 significant digits, "1E-05", "1E+15").
ZT_EXPORT std::string FormatDouble(double d);
// Parses text as the run time's numeric conversion does (blanks around, sign, decimals,
// exponent, "&H" hex). Returns nullopt when the text is not a number.
ZT_EXPORT std::optional<double> ParseNumber(std::string_view text);

// An insertion-ordered dictionary with exact (binary) key comparison, the replacement of the
// scripting run time's Dictionary. Keys are text.
class ZT_EXPORT Dictionary : public Object {
 public:
  std::string TypeName() const override { return "Dictionary"; }
  std::size_t Count() const { return items_.size(); }
  bool Exists(std::string_view key) const;
  // Adds a new key; error 457 when the key is already present.
  void Add(std::string key, Variant value);
  // The value for `key`, or Empty when missing (reading never adds the key).
  Variant Item(std::string_view key) const;
  // Sets the value, adding the key at the end when it is missing.
  void Set(std::string key, Variant value);
  // Removes a key; error 32811 "Element not found" when missing.
  void Remove(std::string_view key);
  void RemoveAll();
  std::vector<std::string> Keys() const;
  // (key, value) pairs in insertion order.
  const std::vector<std::pair<std::string, Variant>>& Items() const { return items_; }

 private:
  std::vector<std::pair<std::string, Variant>> items_;
  std::unordered_map<std::string, std::size_t> index_;
};

}  // namespace zt
