// The library's classes by name, for hosts that do not compile against its headers.
//
// Every public class has one member table, declared next to the class, that names its
// properties and methods and converts their arguments and results to and from Variant. Hosts
// create objects by ProgID ("ZtDBTools404.CZtDataStore", or the bare class name) and then get,
// put and invoke members by name, as the old automation callers did. The C interface
// (<zt/c/ztdbtools.h>) and the scripting module are built on this and nothing else.
//
// Names of classes and members are compared ignoring case. Failures are ZtErrors with the
// numbers a late-bound caller expects: 438 for a member the object does not have, 450 for a
// wrong number of arguments, 13 for an argument that cannot be converted, 429 for a ProgID
// that names no creatable class; a member's own failure comes back with its own five values.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <typeindex>
#include <unordered_map>
#include <vector>

#include "zt/export.h"
#include "zt/variant.h"

namespace zt::server {

// The ProgID prefix of every class of the library.
inline constexpr std::string_view kProgIdPrefix = "ZtDBTools404.";

// How a member is reached: read a property, write a property, or call a method.
enum class MemberKind : std::int32_t { Get = 1, Put = 2, Method = 3 };

// The arguments of a call, in order. A by-reference parameter's new value is written back into
// its slot when the call returns. For a Put the value to assign is the last argument.
using Args = std::span<Variant>;
using MemberCall = std::function<Variant(Object& self, Args args)>;

struct ZT_EXPORT MemberInfo {
  std::string name;
  MemberKind kind = MemberKind::Method;
  // Trailing parameters beyond min_args may be left out; they take their empty value.
  std::int32_t min_args = 0;
  std::int32_t max_args = 0;
  // Which arguments are by reference (bit i for argument i).
  std::uint32_t out_mask = 0;
  MemberCall call;
};

class ZT_EXPORT ClassInfo {
 public:
  using Factory = std::function<std::shared_ptr<Object>()>;

  ClassInfo(std::string name, std::type_index type, Factory factory);

  const std::string& Name() const { return name_; }
  std::string ProgId() const { return std::string(kProgIdPrefix) + name_; }
  std::type_index Type() const { return type_; }
  bool Creatable() const { return static_cast<bool>(factory_); }
  // A new object of the class, counted as live until its last reference goes.
  std::shared_ptr<Object> Create() const;

  const std::vector<MemberInfo>& Members() const { return members_; }
  // The member of that name and kind, or nullptr.
  const MemberInfo* Find(std::string_view name, MemberKind kind) const;
  void Add(MemberInfo member);

 private:
  std::string name_;
  std::type_index type_;
  Factory factory_;
  std::vector<MemberInfo> members_;
  std::unordered_map<std::string, std::size_t> index_;  // upper-cased name + kind -> member
};

// Every class with a member table, in the order of their names.
ZT_EXPORT std::vector<const ClassInfo*> Classes();
// The class named by a ProgID or a bare class name, or nullptr.
ZT_EXPORT const ClassInfo* FindClass(std::string_view prog_id);
// The class of an object (by its dynamic type, else by its TypeName), or nullptr.
ZT_EXPORT const ClassInfo* ClassOf(const Object& object);
// Adds a class; a table file does this once, at load time, through its registrar.
ZT_EXPORT ClassInfo& RegisterClass(std::string name, std::type_index type,
                                   ClassInfo::Factory factory);

// A new object by ProgID; error 429 when no creatable class has that name.
ZT_EXPORT std::shared_ptr<Object> CreateObject(std::string_view prog_id);

// Late-bound access. A Get falls back to a method of the same name and a method call to a
// property get, as IDispatch callers rely on.
ZT_EXPORT Variant GetProperty(Object& object, std::string_view name, Args args = {});
ZT_EXPORT void PutProperty(Object& object, std::string_view name, const Variant& value);
ZT_EXPORT Variant Invoke(Object& object, std::string_view name, Args args = {});
// The one entry point the above go through; `args` of a Put end with the value. `by_ref`, when
// given, receives the member's mask of by-reference arguments (whose slots were rewritten).
ZT_EXPORT Variant Dispatch(Object& object, std::string_view name, MemberKind kind, Args args,
                           std::uint32_t* by_ref = nullptr);

// Objects handed out to hosts and not yet released: created by ProgID, or held by a handle
// of the C interface.
ZT_EXPORT std::int64_t LiveObjects();
ZT_EXPORT void AddLiveObject();
ZT_EXPORT void ReleaseLiveObject();
// True when no object is live, so the library may be unloaded.
ZT_EXPORT bool CanUnloadNow();

// Registration: the library's ProgIDs with the library's path, in the file
// <folder>/ztdbtools.progids (INI form, one section per ProgID with Class= and Library=).
// Entries of other libraries in the file are kept. An empty `folder` means $ZT_REGISTRATION_DIR,
// else /etc/ztdbtools. The file goes through Env::Current(). Errors: 75 when the file cannot be
// written.
ZT_EXPORT std::string RegistrationFile(const std::string& folder = {});
ZT_EXPORT void RegisterServer(const std::string& folder = {});
ZT_EXPORT void UnregisterServer(const std::string& folder = {});
// The library path registered for a ProgID in the file, or "" when it is not registered.
ZT_EXPORT std::string RegisteredLibrary(std::string_view prog_id, const std::string& folder = {});

}  // namespace zt::server
