// basSerialization and the helper base of IZtSerializable.
#include "zt/text/serialization.h"

#include <memory>
#include <optional>

#include "foundation/utf8.h"
#include "zt/env.h"
#include "zt/error.h"
#include "zt/event_logger.h"
#include "zt/trap.h"

namespace zt {

namespace {

// --- The field encoder ----------------------------------------------------------------------

thread_local std::optional<CZtFieldEncoder> t_field_encoder;

void ResetFieldEncoder() {
  t_field_encoder.reset();
}

[[maybe_unused]] const bool kFieldEncoderHookAdded = [] {
  AddThreadStateResetHook(&ResetFieldEncoder);
  return true;
}();

bool Contains(std::string_view set, std::string_view ch) {
  return !ch.empty() && set.find(ch) != std::string_view::npos;
}

void AppendEscaped(std::string& out, std::string_view ch) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  for (unsigned char b : ch) {
    out += '%';
    out += kHex[b >> 4];
    out += kHex[b & 0x0F];
  }
}

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

// --- Not implemented members ----------------------------------------------------------------

void ReportNotImplemented(const Object& self, std::string_view member, Accessor accessor) {
  ErrorHandler().LogError(NotImplementedText(self.TypeName(), member, accessor), nullptr,
                          kEventWarning, kLevelError);
}

// Puts the encoder's item delimiter back when a collection's walk ends, also by an error, so
// that a nested collection does not leave its delimiter to its parent's later items.
class ItemDelimiterScope {
 public:
  explicit ItemDelimiterScope(const std::string& delimiter)
      : previous_(FieldEncoder().ItemDelimiter()) {
    FieldEncoder().ItemDelimiter(delimiter);
  }
  ~ItemDelimiterScope() { FieldEncoder().ItemDelimiter(std::move(previous_)); }
  ItemDelimiterScope(const ItemDelimiterScope&) = delete;
  ItemDelimiterScope& operator=(const ItemDelimiterScope&) = delete;

 private:
  std::string previous_;
};

}  // namespace

std::string CZtFieldEncoder::Encode(std::string_view value,
                                    std::string_view field_delimiter) const {
  std::string out;
  out.reserve(value.size());
  for (std::size_t pos = 0; pos < value.size();) {
    std::size_t begin = pos;
    utf8::Next(value, pos);
    std::string_view ch = value.substr(begin, pos - begin);
    if (Contains("%&;=\r\n", ch) || Contains(field_delimiter, ch) || Contains(item_delimiter_, ch))
      AppendEscaped(out, ch);
    else
      out += ch;
  }
  return out;
}

std::string CZtFieldEncoder::Decode(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && HexValue(text[i + 1]) >= 0 &&
        HexValue(text[i + 2]) >= 0) {
      out += static_cast<char>(HexValue(text[i + 1]) * 16 + HexValue(text[i + 2]));
      i += 2;
    } else {
      out += text[i];
    }
  }
  return out;
}

CZtFieldEncoder& FieldEncoder() {
  if (!t_field_encoder) t_field_encoder.emplace();
  return *t_field_encoder;
}

// --- ZtSerializable -------------------------------------------------------------------------

std::string ZtSerializable::FormatMask() const {
  ReportNotImplemented(*this, "IZtSerializable_FormatMask", Accessor::Get);
  return {};
}

void ZtSerializable::FormatMask(const std::string&) {
  ReportNotImplemented(*this, "IZtSerializable_FormatMask", Accessor::Let);
}

std::string ZtSerializable::Replace() const {
  ReportNotImplemented(*this, "IZtSerializable_Replace", Accessor::Get);
  return {};
}

void ZtSerializable::Replace(const std::string&) {
  ReportNotImplemented(*this, "IZtSerializable_Replace", Accessor::Let);
}

std::string ZtSerializable::JoinFields(const std::vector<std::string>& fields) const {
  std::string out;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (i > 0) out += field_delimiter_;
    out += encode_fields_ ? FieldEncoder().Encode(fields[i], field_delimiter_) : fields[i];
  }
  return out;
}

std::string ZtSerializable::JoinItems(const Dictionary& items) const {
  const std::string type_name = TypeName();
  Trap at(type_name, "IZtSerializable_ToString");
  return at.Returning(
      [&] {
        at = 10;
        return Dictionary_ToString(items, field_delimiter_, children_field_delimiter_,
                                   encode_fields_, "");
      },
      std::string{});
}

// --- basSerialization -----------------------------------------------------------------------

std::string Dictionary_ToString(const Dictionary& items, const std::string& item_delimiter,
                                const std::string& field_delimiter, bool encode_fields,
                                const std::string& children_field_delimiter) {
  Trap at("", ".Dictionary_ToString");
  return at.Reraising([&] {
    at = 10;
    std::string out;
    if (items.Count() == 0) return out;
    ItemDelimiterScope scope(item_delimiter);
    bool first = true;
    for (const auto& [key, value] : items.Items()) {
      at = 20;
      std::shared_ptr<Object> object = value.IsObject() ? value.AsObject() : nullptr;
      auto* item = dynamic_cast<IZtSerializable*>(object.get());
      if (item == nullptr) rt::Raise(rt::kTypeMismatch);
      at = 30;
      item->EncodeFields(encode_fields);
      item->FieldDelimiter(field_delimiter);
      if (!children_field_delimiter.empty()) item->ChildrenFieldDelimiter(children_field_delimiter);
      at = 40;
      if (!first) out += item_delimiter;
      first = false;
      out += item->ToString();
    }
    return out;
  });
}

}  // namespace zt
