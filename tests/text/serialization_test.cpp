// Definition objects written as delimited text, and the escaping of property-string delimiters.
#include <gtest/gtest.h>

#include <memory>
#include <random>

#include "support/test_env.h"
#include "zt/error.h"
#include "zt/text.h"
#include "zt/text/prop_string.h"

namespace zt {
namespace {

using testing::RecordingEnv;

// A definition object with two fields, written the way lookup values write themselves.
class Choice : public ZtSerializable {
 public:
  Choice(std::int32_t id, std::string name) : id_(id), name_(std::move(name)) {
    FieldDelimiter(";");
  }
  std::string TypeName() const override { return "Choice"; }
  std::string ToString() override { return JoinFields({std::to_string(id_), name_}); }

 private:
  std::int32_t id_;
  std::string name_;
};

class ChoiceList : public ZtSerializable {
 public:
  std::string TypeName() const override { return "ChoiceList"; }
  std::string ToString() override { return JoinItems(items); }
  Dictionary items;
};

class NotSerializable : public Object {
 public:
  std::string TypeName() const override { return "NotSerializable"; }
};

Dictionary TwoChoices(std::shared_ptr<Choice>& low, std::shared_ptr<Choice>& high) {
  low = std::make_shared<Choice>(1, "Low");
  high = std::make_shared<Choice>(2, "High");
  Dictionary d;
  d.Add("b", Variant(std::shared_ptr<Object>(low)));
  d.Add("a", Variant(std::shared_ptr<Object>(high)));
  return d;
}

TEST(Serialization, DictionaryToStringJoinsItemsInInsertionOrder) {
  RecordingEnv env;
  EXPECT_EQ(Dictionary_ToString(Dictionary{}, "|", ",", false, ""), "");

  std::shared_ptr<Choice> low, high;
  Dictionary d = TwoChoices(low, high);
  EXPECT_EQ(Dictionary_ToString(d, "|", ",", false, ""), "1,Low|2,High");
  // The settings stay on the items; an empty children delimiter is not passed on.
  EXPECT_EQ(low->FieldDelimiter(), ",");
  EXPECT_EQ(low->ChildrenFieldDelimiter(), "");
  Dictionary_ToString(d, "|", ",", false, "#");
  EXPECT_EQ(high->ChildrenFieldDelimiter(), "#");

  ChoiceList list;
  list.items = TwoChoices(low, high);
  list.FieldDelimiter("|");
  list.ChildrenFieldDelimiter(",");
  EXPECT_EQ(list.ToString(), "1,Low|2,High");
  EXPECT_TRUE(env.Errors().empty());
}

TEST(Serialization, EncodedFieldsKeepBothDelimitersOutAndComeBack) {
  RecordingEnv env;
  Choice plain(7, "High");
  EXPECT_EQ(plain.ToString(), "7;High");

  // With the delimiter inside a value, a plain line cannot be split back ...
  ChoiceList list;
  list.items.Add("x", Variant(std::shared_ptr<Object>(std::make_shared<Choice>(1, "a,b|c"))));
  list.items.Add("y", Variant(std::shared_ptr<Object>(std::make_shared<Choice>(2, "50%"))));
  list.FieldDelimiter("|");
  list.ChildrenFieldDelimiter(",");
  EXPECT_EQ(list.ToString(), "1,a,b|c|2,50%");
  // ... an encoded one can: no field holds a delimiter, and decoding gives the value back.
  list.EncodeFields(true);
  const std::string line = list.ToString();
  EXPECT_EQ(line, "1,a%2Cb%7Cc|2,50%25");
  std::vector<std::string> items = SplitText(line, "|");
  ASSERT_EQ(items.size(), 2u);
  std::vector<std::string> fields = SplitText(items[0], ",");
  ASSERT_EQ(fields.size(), 2u);
  EXPECT_EQ(CZtFieldEncoder::Decode(fields[1]), "a,b|c");
  EXPECT_EQ(CZtFieldEncoder::Decode(SplitText(items[1], ",")[1]), "50%");
  // The collection's item delimiter is not left on the encoder once the walk is over.
  EXPECT_EQ(FieldEncoder().ItemDelimiter(), "");
}

TEST(Serialization, FieldEncoderIsReversibleForAnyValue) {
  std::mt19937 rng(20261122);
  const std::string alphabet[] = {"a", "Z", "%",  "%2", ";", "=",   "&",    "|", ",",
                                  "é", "Ω", "\r", "\n", " ", "%3B", "\xff", "0", "F"};
  CZtFieldEncoder encoder;
  encoder.ItemDelimiter("|");
  for (int round = 0; round < 500; ++round) {
    std::string value;
    for (int i = static_cast<int>(rng() % 12); i > 0; --i)
      value += alphabet[rng() % std::size(alphabet)];
    const std::string encoded = encoder.Encode(value, ",é");
    EXPECT_EQ(CZtFieldEncoder::Decode(encoded), value);
    for (const char* forbidden : {"|", ",", "é", ";", "=", "&", "\r", "\n"})
      EXPECT_EQ(encoded.find(forbidden), std::string::npos) << value << " -> " << encoded;
  }
}

TEST(Serialization, FailuresAndReservedMembersAreReported) {
  RecordingEnv env;
  Dictionary d;
  d.Add("ok", Variant(std::shared_ptr<Object>(std::make_shared<Choice>(1, "x"))));
  d.Add("bad", Variant(std::shared_ptr<Object>(std::make_shared<NotSerializable>())));
  try {
    Dictionary_ToString(d, "|", ",", false, "");
    ADD_FAILURE() << "an item that cannot write itself must fail the join";
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Number(), rt::kTypeMismatch);
  }
  EXPECT_TRUE(env.Logged(".Dictionary_ToString, @Line#20"));

  ChoiceList list;
  list.items.Add("n", Variant("not an object"));
  EXPECT_EQ(list.ToString(), "");
  EXPECT_TRUE(env.Logged("ChoiceList.IZtSerializable_ToString, @Line#10"));
  EXPECT_EQ(env.Errors().size(), 3u);  // each tail logs once

  Choice c(1, "x");
  c.SerialPersistentFields("ID,Name");
  c.FormatMask("##");
  c.Replace("a");
  EXPECT_EQ(c.FormatMask(), "");
  EXPECT_EQ(c.Replace(), "");
  EXPECT_EQ(c.SerialPersistentFields(), "ID,Name");
  EXPECT_EQ(c.ToString(), "1;x");
  EXPECT_TRUE(env.Logged("Choice.IZtSerializable_FormatMask (Let).  Currently not implemented."));
  EXPECT_TRUE(env.Logged("Choice.IZtSerializable_FormatMask (Get).  Currently not implemented."));
  EXPECT_TRUE(env.Logged("Choice.IZtSerializable_Replace (Let).  Currently not implemented."));
  EXPECT_TRUE(env.Logged("Choice.IZtSerializable_Replace (Get).  Currently not implemented."));
}

TEST(PropString, EncodeDecodeRoundTripWithExtraCharacters) {
  RecordingEnv env;
  CZtPropString ps;
  EXPECT_EQ(ps.Encode("a=b;c&d"), "a%3Db%3Bc%26d");
  EXPECT_EQ(ps.Decode("a%3Db%3Bc%26d"), "a=b;c&d");
  Variant extra = Variant::Array({Variant(","), Variant("|")});
  EXPECT_EQ(ps.Encode("x,y|z=1", extra), "x%2Cy%7Cz%3D1");
  EXPECT_EQ(ps.Decode("x%2Cy%7Cz%3D1", extra), "x,y|z=1");
  EXPECT_EQ(ps.Decode("x%2Cy", Variant()), "x%2Cy");  // extras are only decoded when listed
  // "%" is never escaped, so text that looks like an escape is decoded; lower case is not.
  EXPECT_EQ(ps.Decode("100%3B"), "100;");
  EXPECT_EQ(ps.Decode("100%3b"), "100%3b");
  EXPECT_EQ(ps.Encode("50%"), "50%");
  EXPECT_TRUE(env.Errors().empty());

  Variant bad = Variant::Array({Variant::Array({})});
  EXPECT_THROW(ps.Encode("a", bad), ZtError);
  EXPECT_THROW(ps.Decode("a", bad), ZtError);
  EXPECT_TRUE(env.Logged("CZtPropString.Encode, @Line#10"));
  EXPECT_TRUE(env.Logged("CZtPropString.Decode, @Line#10"));
  EXPECT_TRUE(env.Logged("'CZtPropString' instance "));
}

}  // namespace
}  // namespace zt
