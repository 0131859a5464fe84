// The helpers a class's member table is written with. A table lives next to its class
// (src/<layer>/<class>_members.cpp) and names each member once:
//
//   const server::Registrar<CZtDataStore> kTable("CZtDataStore", [](auto& t) {
//     t.Prop("Location", &CZtDataStore::Location, &CZtDataStore::Location);
//     t.Method("GetConnection", &CZtDataStore::GetConnection);
//   });
//
// The argument and result conversions are derived from the member's C++ signature: text,
// numbers, Booleans, dates, Variants, objects (shared_ptr or reference to any polymorphic class)
// and vectors of these. A non-const reference to a value is a by-reference argument: its new
// value goes back into the caller's argument slot. A member whose signature has no natural
// Variant form is written as a lambda taking the object first. Classes that are not themselves
// zt::Object are boxed, so that a Variant can hold them.
#pragma once

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <type_traits>
#include <typeindex>
#include <utility>
#include <vector>

#include "zt/error.h"
#include "zt/server/dispatch.h"
#include "zt/variant.h"

namespace zt::server {

// A class that is not an Object, held in one so that a Variant can refer to it.
template <class T>
class Boxed final : public Object {
 public:
  std::string TypeName() const override { return Name(); }
  T value;
  // A function's static, so that the registrar's assignment cannot run before it is built.
  static std::string& Name() {
    static std::string name;
    return name;
  }
};

template <class T>
using Stored = std::conditional_t<std::is_base_of_v<Object, T>, T, Boxed<T>>;

// The C++ object behind a dispatched Object. The dispatcher found the class by the object's
// type, so the cast only fails for an object that merely shares a class name; that is treated
// as a member the object does not have.
template <class T>
T& SelfOf(Object& object) {
  auto* stored = dynamic_cast<Stored<T>*>(&object);
  if (!stored) rt::Raise(rt::kMemberNotSupported);
  if constexpr (std::is_base_of_v<Object, T>)
    return *stored;
  else
    return stored->value;
}

// ---- Value conversions --------------------------------------------------------------------

template <class T>
struct Conv;

template <class T>
concept Convertible = requires(const Variant& v, const T& t) {
  { Conv<T>::From(v) } -> std::convertible_to<T>;
  { Conv<T>::To(t) } -> std::convertible_to<Variant>;
};

template <>
struct Conv<Variant> {
  static Variant From(const Variant& v) { return v; }
  static Variant To(const Variant& v) { return v; }
};
template <>
struct Conv<bool> {
  static bool From(const Variant& v) { return v.ToBool(); }
  static Variant To(bool b) { return b; }
};
template <>
struct Conv<std::string> {
  static std::string From(const Variant& v) {
    if (v.IsObject() || v.IsArray()) rt::Raise(rt::kTypeMismatch);
    return v.ToText();
  }
  static Variant To(const std::string& s) { return s; }
};
template <>
struct Conv<double> {
  static double From(const Variant& v) { return v.ToDouble(); }
  static Variant To(double d) { return d; }
};
template <std::integral T>
requires(!std::same_as<T, bool>) struct Conv<T> {
  static T From(const Variant& v) {
    if constexpr (sizeof(T) <= 4)
      return static_cast<T>(v.ToInt32());
    else
      return static_cast<T>(v.ToInt64());
  }
  static Variant To(T i) {
    if constexpr (sizeof(T) < 4 || (sizeof(T) == 4 && std::is_signed_v<T>))
      return static_cast<std::int32_t>(i);
    else
      return static_cast<std::int64_t>(i);
  }
};
template <class E>
requires std::is_enum_v<E>
struct Conv<E> {
  static E From(const Variant& v) { return static_cast<E>(v.ToInt32()); }
  static Variant To(E e) { return static_cast<std::int32_t>(e); }
};
template <>
struct Conv<Date> {
  static Date From(const Variant& v) {
    if (v.Type() == VarType::Date) return Date{v.ToDouble()};
    if (!v.IsNumeric()) rt::Raise(rt::kTypeMismatch);
    return Date{v.ToDouble()};
  }
  static Variant To(Date d) { return d; }
};

// Objects: Empty, Null and Nothing are a null pointer; anything that is not an object of the
// wanted class is a type mismatch.
template <class X>
requires std::is_polymorphic_v<X>
struct Conv<std::shared_ptr<X>> {
  static std::shared_ptr<X> From(const Variant& v) {
    if (v.IsEmpty() || v.IsNull()) return nullptr;
    if (!v.IsObject()) rt::Raise(rt::kTypeMismatch);
    auto object = v.AsObject();
    if (!object) return nullptr;
    if constexpr (std::is_same_v<X, Object>) {
      return object;
    } else {
      auto p = std::dynamic_pointer_cast<X>(object);
      if (!p) rt::Raise(rt::kTypeMismatch);
      return p;
    }
  }
  static Variant To(const std::shared_ptr<X>& p) {
    if constexpr (std::is_base_of_v<Object, X>)
      return std::shared_ptr<Object>(p);
    else
      return std::dynamic_pointer_cast<Object>(p);
  }
};

template <Convertible X>
struct Conv<std::vector<X>> {
  static std::vector<X> From(const Variant& v) {
    const VariantArray* array = v.AsArray();
    if (!array) {
      if (v.IsEmpty()) return {};
      rt::Raise(rt::kTypeMismatch);
    }
    std::vector<X> out;
    out.reserve(array->items.size());
    for (const auto& item : array->items) out.push_back(Conv<X>::From(item));
    return out;
  }
  static Variant To(const std::vector<X>& items) {
    std::vector<Variant> out;
    out.reserve(items.size());
    for (const auto& item : items) out.push_back(Conv<X>::To(item));
    return Variant::Array(std::move(out));
  }
};

// ---- Parameters -----------------------------------------------------------------------------

inline const Variant& ArgAt(Args args, std::size_t i) {
  static const Variant kMissing;
  return i < args.size() ? args[i] : kMissing;
}

template <class T>
struct IsObjectPointer : std::false_type {};
template <class X>
struct IsObjectPointer<std::shared_ptr<X>> : std::true_type {};

template <class P>
struct Param {
  using U = std::remove_cvref_t<P>;
  // A non-const reference to a value is by reference; to an object, it is the object itself.
  static constexpr bool kByRef = std::is_lvalue_reference_v<P> &&
                                 !std::is_const_v<std::remove_reference_t<P>> && Convertible<U>;
  static constexpr bool kObjectRef = !Convertible<U> && std::is_polymorphic_v<U>;
  using Hold = std::conditional_t<kObjectRef, std::shared_ptr<U>, U>;

  // `required`: an object parameter that the caller must not leave Nothing (error 91), as
  // members dereference what they are given; optional ones and assigned values may be Nothing.
  static Hold From(Args args, std::size_t i, bool required) {
    if constexpr (kObjectRef) {
      auto p = Conv<std::shared_ptr<U>>::From(ArgAt(args, i));
      if (!p) rt::Raise(rt::kObjectNotSet);
      return p;
    } else {
      static_assert(Convertible<U>, "a member table parameter has no Variant form: use a lambda");
      U value = Conv<U>::From(ArgAt(args, i));
      if constexpr (IsObjectPointer<U>::value) {
        if (required && !value) rt::Raise(rt::kObjectNotSet);
      }
      return value;
    }
  }
  static decltype(auto) Pass(Hold& held) {
    if constexpr (kObjectRef)
      return static_cast<U&>(*held);
    else
      return static_cast<U&>(held);
  }
  static void WriteBack(Hold& held, Args args, std::size_t i) {
    if constexpr (kByRef)
      if (i < args.size()) args[i] = Conv<U>::To(held);
  }
};

// ---- Signatures -----------------------------------------------------------------------------

template <class F>
struct Signature;
template <class R, class B, class... A>
struct Signature<R (B::*)(A...)> {
  using Result = R;
  using Params = std::tuple<A...>;
};
template <class R, class B, class... A>
struct Signature<R (B::*)(A...) const> : Signature<R (B::*)(A...)> {};
template <class R, class B, class... A>
struct Signature<R (B::*)(A...) noexcept> : Signature<R (B::*)(A...)> {};
template <class R, class B, class... A>
struct Signature<R (B::*)(A...) const noexcept> : Signature<R (B::*)(A...)> {};

// A lambda's parameters after the object it is called on.
template <class L>
struct LambdaSignature;
template <class R, class L, class Self, class... A>
struct LambdaSignature<R (L::*)(Self, A...) const> {
  using Result = R;
  using Params = std::tuple<A...>;
};

template <class F>
struct CallableSignature : LambdaSignature<decltype(&F::operator())> {};
template <class F>
requires std::is_member_function_pointer_v<F>
struct CallableSignature<F> : Signature<F> {
};

template <class T, class F, class R, class... A, std::size_t... I>
Variant CallWith(const F& f, Object& object, [[maybe_unused]] Args args,
                 [[maybe_unused]] std::size_t required, std::index_sequence<I...>) {
  T& self = SelfOf<T>(object);
  std::tuple<typename Param<A>::Hold...> held{Param<A>::From(args, I, I < required)...};
  Variant result;
  if constexpr (std::is_void_v<R>) {
    std::invoke(f, self, Param<A>::Pass(std::get<I>(held))...);
  } else {
    result = Conv<std::remove_cvref_t<R>>::To(
        std::invoke(f, self, Param<A>::Pass(std::get<I>(held))...));
  }
  (Param<A>::WriteBack(std::get<I>(held), args, I), ...);
  return result;
}

// The values of trailing parameters a caller may leave out, for the members whose C++
// defaults are not the empty value of their type.
struct Defaults {
  std::vector<Variant> values;
};

template <class T, class F>
MemberInfo MakeMember(std::string name, MemberKind kind, F f, Defaults defaults) {
  using Sig = CallableSignature<F>;
  return [&]<class... A>(std::tuple<A...>*) {
    MemberInfo m;
    m.name = std::move(name);
    m.kind = kind;
    m.max_args = static_cast<std::int32_t>(sizeof...(A));
    m.min_args = m.max_args - static_cast<std::int32_t>(defaults.values.size());
    std::uint32_t bit = 1;
    ((m.out_mask |= Param<A>::kByRef ? bit : 0, bit <<= 1), ...);
    const auto max = static_cast<std::size_t>(m.max_args);
    const auto required = kind == MemberKind::Put ? 0 : static_cast<std::size_t>(m.min_args);
    m.call = [f, max, required, tail = std::move(defaults.values)](Object& object, Args args) {
      auto call = [&](Args full) {
        return CallWith<T, F, typename Sig::Result, A...>(f, object, full, required,
                                                          std::index_sequence_for<A...>{});
      };
      if (args.size() >= max || tail.empty()) return call(args);
      // Left-out arguments take their defaults; by-reference ones among the given go back.
      std::vector<Variant> full(args.begin(), args.end());
      for (std::size_t i = args.size(); i < max; ++i) full.push_back(tail[i - (max - tail.size())]);
      Variant result = call(full);
      std::copy_n(full.begin(), args.size(), args.begin());
      return result;
    };
    return m;
  }(static_cast<typename Sig::Params*>(nullptr));
}

// ---- The table ------------------------------------------------------------------------------

template <class T>
class Table {
 public:
  explicit Table(ClassInfo& info) : info_(info) {}

  // A read-write property whose getter and setter share one name (overloads resolve here).
  template <class B1, class R, class B2, class A>
  Table& Prop(std::string name, R (B1::*get)() const, void (B2::*set)(A)) {
    return Get(name, get).Put(std::move(name), set);
  }
  template <class B1, class R, class B2, class A>
  Table& Prop(std::string name, R (B1::*get)(), void (B2::*set)(A)) {
    return Get(name, get).Put(std::move(name), set);
  }
  template <class B, class R>
  Table& Get(std::string name, R (B::*get)() const) {
    return Add(std::move(name), MemberKind::Get, get, {});
  }
  template <class B, class R>
  Table& Get(std::string name, R (B::*get)()) {
    return Add(std::move(name), MemberKind::Get, get, {});
  }
  template <class B, class A>
  Table& Put(std::string name, void (B::*set)(A)) {
    return Add(std::move(name), MemberKind::Put, set, {});
  }
  // A getter or setter written as a lambda (object first).
  template <class F>
  Table& GetFn(std::string name, F f) {
    return Add(std::move(name), MemberKind::Get, f, {});
  }
  template <class F>
  Table& PutFn(std::string name, F f) {
    return Add(std::move(name), MemberKind::Put, f, {});
  }
  // A method; its last `optional` parameters may be left out and are then Empty.
  template <class F>
  Table& Method(std::string name, F f, std::int32_t optional = 0) {
    return Add(std::move(name), MemberKind::Method, f,
               Defaults{std::vector<Variant>(static_cast<std::size_t>(optional))});
  }
  // A method whose last parameters may be left out and then take the given values.
  template <class F>
  Table& Method(std::string name, F f, Defaults defaults) {
    return Add(std::move(name), MemberKind::Method, f, std::move(defaults));
  }

 private:
  template <class F>
  Table& Add(std::string name, MemberKind kind, F f, Defaults defaults) {
    info_.Add(MakeMember<T>(std::move(name), kind, f, std::move(defaults)));
    return *this;
  }
  ClassInfo& info_;
};

// Whether hosts may create the class by ProgID, or only receive its objects from members.
enum class Creation { kByProgId, kFromMembersOnly };

// Declares a class and its table at load time.
template <class T>
struct Registrar {
  template <class Fill>
  Registrar(std::string name, Fill fill, Creation creation = Creation::kByProgId) {
    ClassInfo::Factory factory;
    if constexpr (std::is_default_constructible_v<T>) {
      if (creation == Creation::kByProgId)
        factory = [] { return std::shared_ptr<Object>(std::make_shared<Stored<T>>()); };
    }
    if constexpr (!std::is_base_of_v<Object, T>) Boxed<T>::Name() = name;
    Table<T> table(RegisterClass(std::move(name), typeid(Stored<T>), std::move(factory)));
    fill(table);
  }
};

}  // namespace zt::server
