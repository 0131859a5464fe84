// Fuzz target for the C interface's argument and result conversion: trees of zt_variant of any
// type (unknown type codes too), strings and decimal texts of any bytes, arrays nested deeper
// than the documented limit of 64 and arrays whose items pointer is missing, passed to late-bound
// calls. Besides crashes and sanitizer reports it checks the promises of the header: an argument
// that cannot be read (items missing for a count, nesting over 64) is ZT_E_INVALIDARG before
// anything runs, any other call gives ZT_OK or ZT_E_FAIL with a description, and every result
// can be cleared.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "zt/c/ztdbtools.h"

namespace {

void Check(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "c_variant_fuzz: %s\n", what);
  std::abort();
}

// Storage that outlives one call: the texts and item arrays the variants point into.
struct Arena {
  std::deque<std::string> texts;
  std::deque<std::vector<zt_variant>> arrays;
};

// One variant from the input; false in `readable` when it breaks the header's rules.
zt_variant Make(FuzzedDataProvider& in, Arena& arena, zt_object* object, int depth,
                bool& readable) {
  zt_variant v;
  zt_variant_init(&v);
  static constexpr int kTypes[] = {ZT_VT_EMPTY,    ZT_VT_NULL,    ZT_VT_LONG,     ZT_VT_DOUBLE,
                                   ZT_VT_CURRENCY, ZT_VT_DATE,    ZT_VT_STRING,   ZT_VT_OBJECT,
                                   ZT_VT_BOOL,     ZT_VT_DECIMAL, ZT_VT_LONGLONG, ZT_VT_ARRAY};
  const int pick = in.ConsumeIntegralInRange<int>(0, 12);
  v.type = pick == 12 ? in.ConsumeIntegral<std::int32_t>() : kTypes[pick];
  switch (v.type) {
    case ZT_VT_LONG:
      v.value.i32 = in.ConsumeIntegral<std::int32_t>();
      break;
    case ZT_VT_DOUBLE:
    case ZT_VT_DATE:
      v.value.dbl = in.ConsumeFloatingPoint<double>();
      break;
    case ZT_VT_CURRENCY:
    case ZT_VT_LONGLONG:
      v.value.i64 = in.ConsumeIntegral<std::int64_t>();
      break;
    case ZT_VT_BOOL:
      v.value.boolean = in.ConsumeIntegral<int>();
      break;
    case ZT_VT_STRING:
    case ZT_VT_DECIMAL:
      if (in.ConsumeBool()) {
        arena.texts.push_back(in.ConsumeRandomLengthString(64));
        v.value.str = const_cast<char*>(arena.texts.back().c_str());
      }  // else NULL, which reads as ""
      break;
    case ZT_VT_OBJECT:
      v.value.obj = in.ConsumeBool() ? object : nullptr;
      break;
    case ZT_VT_ARRAY: {
      // Mostly shallow and small; now and then a chain past the limit or a missing items array.
      const bool chain = in.ConsumeIntegralInRange<int>(0, 15) == 0;
      const std::size_t count = chain ? 1 : in.ConsumeIntegralInRange<std::size_t>(0, 4);
      v.value.array.lower_bound = in.ConsumeIntegralInRange<std::int32_t>(-2, 2);
      v.value.array.count = count;
      if (depth >= 64) readable = false;
      if (count && in.ConsumeIntegralInRange<int>(0, 31) == 0) {
        readable = false;  // items NULL for a count
        break;
      }
      arena.arrays.emplace_back();
      auto& items = arena.arrays.back();
      for (std::size_t i = 0; i < count && depth < 80; ++i) {
        if (chain) {
          zt_variant inner;
          zt_variant_init(&inner);
          inner.type = ZT_VT_ARRAY;
          items.push_back(inner);
          // Filled below as a chain of single-item arrays as deep as the input asks.
          const int extra = in.ConsumeIntegralInRange<int>(55, 75);
          zt_variant* at = &items.back();
          int d = depth + 1;
          for (int k = 0; k < extra; ++k, ++d) {
            if (d >= 64) readable = false;
            arena.arrays.emplace_back(1);
            zt_variant_init(&arena.arrays.back()[0]);
            at->value.array.count = 1;
            at->value.array.items = arena.arrays.back().data();
            at = &arena.arrays.back()[0];
            at->type = k + 1 < extra ? ZT_VT_ARRAY : ZT_VT_NULL;
          }
        } else {
          items.push_back(Make(in, arena, object, depth + 1, readable));
        }
      }
      v.value.array.count = items.size();
      v.value.array.items = items.empty() ? nullptr : items.data();
      if (items.empty() && count) readable = false;
      break;
    }
    default:
      break;
  }
  return v;
}

zt_object* Encoder() {
  static zt_object* object = [] {
    zt_object* o = nullptr;
    Check(zt_create("CZtFieldEncoder", &o, nullptr) == ZT_OK && o, "no CZtFieldEncoder");
    return o;
  }();
  return object;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider in(data, size);
  zt_object* object = Encoder();
  Arena arena;
  bool readable = true;
  std::vector<zt_variant> args;
  const int count = in.ConsumeIntegralInRange<int>(0, 3);
  for (int i = 0; i < count; ++i) args.push_back(Make(in, arena, object, 0, readable));
  static const char* const kMembers[] = {"Encode", "Decode", "ItemDelimiter", "NoSuchMember"};
  const char* member = kMembers[in.ConsumeIntegralInRange<int>(0, 3)];

  zt_variant result;
  zt_variant_init(&result);
  zt_error error{};
  // The arguments may come back by reference: the call works on a copy of the slots, so that
  // the arena's own pointers are never handed to zt_variant_clear.
  std::vector<zt_variant> slots = args;
  const zt_status status = zt_invoke(object, member, slots.empty() ? nullptr : slots.data(),
                                     slots.size(), &result, &error);
  // A slot the call wrote back (a by-reference argument) holds the library's copy now.
  for (std::size_t i = 0; i < slots.size(); ++i)
    if (std::memcmp(&slots[i], &args[i], sizeof(zt_variant)) != 0) zt_variant_clear(&slots[i]);
  if (!readable) Check(status == ZT_E_INVALIDARG, "an unreadable argument was not refused");
  Check(status == ZT_OK || status == ZT_E_FAIL || status == ZT_E_INVALIDARG, "unknown status");
  if (status == ZT_E_FAIL)
    Check(error.number != 0 && error.description != nullptr, "a failure without its error");
  zt_variant_clear(&result);
  zt_error_clear(&error);
  return 0;
}
