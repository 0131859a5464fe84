// Text serialization of definition objects: IZtSerializable, the helper base class that
// implementing classes derive from, basSerialization.Dictionary_ToString and the per-thread
// field encoder.
//
// An object writes itself as one line: its field values in the class's fixed order, joined with
// its FieldDelimiter, with no names, quotes, or leading/trailing delimiter. A collection writes
// its items (in key insertion order) joined with its own FieldDelimiter, each item using the
// collection's ChildrenFieldDelimiter between its fields:
//   two lookup values (1, "Low") and (2, "High"), FieldDelimiter "|", ChildrenFieldDelimiter ","
//   -> "1,Low|2,High".
// Nothing escapes a delimiter that occurs inside a value unless EncodeFields is set; choosing
// delimiters that the data does not contain is the caller's duty.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "zt/export.h"
#include "zt/variant.h"

namespace zt {

// The serialization settings and the line of one object (or of a collection).
class ZT_EXPORT IZtSerializable {
 public:
  virtual ~IZtSerializable() = default;

  // When true, each field value goes through the thread's field encoder before it is joined.
  virtual bool EncodeFields() const = 0;
  virtual void EncodeFields(bool value) = 0;
  // Text between the object's fields (for a collection: between its items).
  virtual std::string FieldDelimiter() const = 0;
  virtual void FieldDelimiter(const std::string& value) = 0;
  // Reserved and not implemented: reading or writing only reports "Currently not implemented."
  // through the error handler; reading gives "" and writing changes nothing.
  virtual std::string FormatMask() const = 0;
  virtual void FormatMask(const std::string& value) = 0;
  virtual std::string Replace() const = 0;
  virtual void Replace(const std::string& value) = 0;
  // Kept and returned as set.
  virtual std::string SerialPersistentFields() const = 0;
  virtual void SerialPersistentFields(const std::string& value) = 0;
  // The object as one line of text.
  virtual std::string ToString() = 0;
  // For a collection: the field delimiter its items use. Ignored by single objects.
  virtual std::string ChildrenFieldDelimiter() const = 0;
  virtual void ChildrenFieldDelimiter(const std::string& value) = 0;
};

// The plain members of IZtSerializable, for classes to derive from: they add their TypeName()
// and ToString(). EncodeFields starts false, the delimiters empty.
class ZT_EXPORT ZtSerializable : public Object, public IZtSerializable {
 public:
  bool EncodeFields() const override { return encode_fields_; }
  void EncodeFields(bool value) override { encode_fields_ = value; }
  std::string FieldDelimiter() const override { return field_delimiter_; }
  void FieldDelimiter(const std::string& value) override { field_delimiter_ = value; }
  // These four log TypeName() + ".IZtSerializable_FormatMask (Get).  Currently not
  // implemented." (and likewise for (Let) and for Replace) as a warning, and change nothing.
  std::string FormatMask() const override;
  void FormatMask(const std::string& value) override;
  std::string Replace() const override;
  void Replace(const std::string& value) override;
  std::string SerialPersistentFields() const override { return serial_persistent_fields_; }
  void SerialPersistentFields(const std::string& value) override {
    serial_persistent_fields_ = value;
  }
  std::string ChildrenFieldDelimiter() const override { return children_field_delimiter_; }
  void ChildrenFieldDelimiter(const std::string& value) override {
    children_field_delimiter_ = value;
  }

 protected:
  // A single object's line: `fields` (already converted to text, in the class's order) joined
  // with FieldDelimiter(), each passed through the thread's field encoder first when
  // EncodeFields() is set.
  std::string JoinFields(const std::vector<std::string>& fields) const;
  // A collection's line: Dictionary_ToString(items, FieldDelimiter(), ChildrenFieldDelimiter(),
  // EncodeFields(), ""). A failure (an item that is not serializable) is logged as TypeName() +
  // ".IZtSerializable_ToString, @Line#" + step and gives "".
  std::string JoinItems(const Dictionary& items) const;

 private:
  bool encode_fields_ = false;
  std::string field_delimiter_;
  std::string children_field_delimiter_;
  std::string serial_persistent_fields_;
};

// basSerialization.Dictionary_ToString. Every value of `items` must be an object implementing
// IZtSerializable. On each item (in key insertion order) it sets EncodeFields to
// `encode_fields`, FieldDelimiter to `field_delimiter` and, when `children_field_delimiter` is
// not empty, ChildrenFieldDelimiter to it; these settings stay on the items. Returns the items'
// ToString() joined with `item_delimiter`; "" for an empty dictionary.
// A value that is not a serializable object: logged as ".Dictionary_ToString, @Line#" + step,
// then zt::ZtError 13 (type mismatch) is thrown on to the caller.
ZT_EXPORT std::string Dictionary_ToString(const Dictionary& items,
                                          const std::string& item_delimiter,
                                          const std::string& field_delimiter, bool encode_fields,
                                          const std::string& children_field_delimiter);

// The field encoder: makes a value safe to join with delimiters, reversibly.
//
// Encode replaces "%", "&", ";", "=", CR, LF, every character of the field delimiter and every
// character of the current ItemDelimiter() by "%" and the upper-case hex of each of its UTF-8
// bytes ("a;b" -> "a%3Bb", "%" -> "%25"). Decode turns every "%XX" back into its byte, so
// Decode(Encode(v, d)) == v for every value and delimiter. A delimiter made only of "%" or hex
// digits (0-9, A-F) cannot be kept out of the escapes themselves; do not use one.
class ZT_EXPORT CZtFieldEncoder {
 public:
  std::string Encode(std::string_view value, std::string_view field_delimiter) const;
  static std::string Decode(std::string_view text);
  // The item delimiter of the collection being written: Dictionary_ToString sets it for the
  // length of its walk (and puts the previous one back), so items' fields keep it out too.
  const std::string& ItemDelimiter() const { return item_delimiter_; }
  void ItemDelimiter(std::string value) { item_delimiter_ = std::move(value); }

 private:
  std::string item_delimiter_;
};

// The calling thread's field encoder, created on first use and kept for the thread's life.
ZT_EXPORT CZtFieldEncoder& FieldEncoder();

}  // namespace zt
