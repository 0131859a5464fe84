// The late-bound members of the text classes (CZtPropString, CZtFieldEncoder).
#include "server/member_table.h"
#include "zt/text/prop_string.h"
#include "zt/text/serialization.h"

namespace zt {
namespace {

const server::Registrar<CZtPropString> kPropString("CZtPropString", [](auto& t) {
  t.Method("Encode", &CZtPropString::Encode, 1).Method("Decode", &CZtPropString::Decode, 1);
});

const server::Registrar<CZtFieldEncoder> kFieldEncoder("CZtFieldEncoder", [](auto& t) {
  using E = CZtFieldEncoder;
  t.Method("Encode", [](E& e, const std::string& value,
                        const std::string& delimiter) { return e.Encode(value, delimiter); })
      .Method("Decode", [](E&, const std::string& text) { return E::Decode(text); })
      .Get("ItemDelimiter", &E::ItemDelimiter)
      .PutFn("ItemDelimiter", [](E& e, const std::string& value) { e.ItemDelimiter(value); });
});

}  // namespace
}  // namespace zt
