// The class registry, the factory and the late-bound dispatch over the member tables.
#include "zt/server/dispatch.h"

#include <algorithm>
#include <atomic>
#include <map>

#include "zt/error.h"

namespace zt::server {

namespace {

char Upper(char c) {
  return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
}

std::string UpperKey(std::string_view name, MemberKind kind) {
  std::string key;
  key.reserve(name.size() + 1);
  for (char c : name) key += Upper(c);
  key += static_cast<char>('0' + static_cast<int>(kind));
  return key;
}

// The registry is filled while the library loads (static registrars) and only read after that,
// so it needs no lock even though objects live on many threads.
struct Registry {
  std::map<std::string, ClassInfo> by_name;  // upper-cased class name
  std::unordered_map<std::type_index, ClassInfo*> by_type;
};

Registry& TheRegistry() {
  static Registry registry;
  return registry;
}

std::atomic<std::int64_t> g_live{0};

std::string_view BareName(std::string_view prog_id) {
  if (prog_id.size() > kProgIdPrefix.size()) {
    bool prefixed = true;
    for (std::size_t i = 0; i < kProgIdPrefix.size(); ++i)
      if (Upper(prog_id[i]) != Upper(kProgIdPrefix[i])) prefixed = false;
    if (prefixed) return prog_id.substr(kProgIdPrefix.size());
  }
  return prog_id;
}

}  // namespace

ClassInfo::ClassInfo(std::string name, std::type_index type, Factory factory)
    : name_(std::move(name)), type_(type), factory_(std::move(factory)) {}

std::shared_ptr<Object> ClassInfo::Create() const {
  if (!factory_) rt::Raise(rt::kCannotCreateObject);
  std::shared_ptr<Object> object = factory_();
  AddLiveObject();
  // The host's reference carries the count: the object itself is shared with it unchanged.
  Object* raw = object.get();
  return std::shared_ptr<Object>(raw, [held = std::move(object)](Object*) mutable {
    held.reset();
    ReleaseLiveObject();
  });
}

const MemberInfo* ClassInfo::Find(std::string_view name, MemberKind kind) const {
  auto it = index_.find(UpperKey(name, kind));
  return it == index_.end() ? nullptr : &members_[it->second];
}

void ClassInfo::Add(MemberInfo member) {
  index_[UpperKey(member.name, member.kind)] = members_.size();
  members_.push_back(std::move(member));
}

std::vector<const ClassInfo*> Classes() {
  std::vector<const ClassInfo*> out;
  for (const auto& [key, info] : TheRegistry().by_name) out.push_back(&info);
  return out;
}

const ClassInfo* FindClass(std::string_view prog_id) {
  std::string key;
  for (char c : BareName(prog_id)) key += Upper(c);
  auto& registry = TheRegistry();
  auto it = registry.by_name.find(key);
  return it == registry.by_name.end() ? nullptr : &it->second;
}

const ClassInfo* ClassOf(const Object& object) {
  auto& registry = TheRegistry();
  auto it = registry.by_type.find(std::type_index(typeid(object)));
  if (it != registry.by_type.end()) return it->second;
  return FindClass(object.TypeName());
}

ClassInfo& RegisterClass(std::string name, std::type_index type, ClassInfo::Factory factory) {
  auto& registry = TheRegistry();
  std::string key;
  for (char c : name) key += Upper(c);
  auto [it, added] =
      registry.by_name.try_emplace(std::move(key), std::move(name), type, std::move(factory));
  registry.by_type[type] = &it->second;
  return it->second;
}

std::shared_ptr<Object> CreateObject(std::string_view prog_id) {
  const ClassInfo* info = FindClass(prog_id);
  if (!info || !info->Creatable()) rt::Raise(rt::kCannotCreateObject);
  return info->Create();
}

Variant Dispatch(Object& object, std::string_view name, MemberKind kind, Args args,
                 std::uint32_t* by_ref) {
  const ClassInfo* info = ClassOf(object);
  if (!info) rt::Raise(rt::kMemberNotSupported);
  const MemberInfo* member = info->Find(name, kind);
  // IDispatch callers do not always say which of the two they mean.
  if (!member && kind == MemberKind::Get) member = info->Find(name, MemberKind::Method);
  if (!member && kind == MemberKind::Method) member = info->Find(name, MemberKind::Get);
  if (!member) rt::Raise(rt::kMemberNotSupported);
  const auto count = static_cast<std::int32_t>(args.size());
  if (count < member->min_args || count > member->max_args) rt::Raise(rt::kWrongArgumentCount);
  if (by_ref) *by_ref = member->out_mask;
  return member->call(object, args);
}

Variant GetProperty(Object& object, std::string_view name, Args args) {
  return Dispatch(object, name, MemberKind::Get, args);
}

void PutProperty(Object& object, std::string_view name, const Variant& value) {
  Variant arg = value;
  Dispatch(object, name, MemberKind::Put, Args(&arg, 1));
}

Variant Invoke(Object& object, std::string_view name, Args args) {
  return Dispatch(object, name, MemberKind::Method, args);
}

std::int64_t LiveObjects() {
  return g_live.load();
}
void AddLiveObject() {
  g_live.fetch_add(1);
}
void ReleaseLiveObject() {
  g_live.fetch_sub(1);
}
bool CanUnloadNow() {
  return g_live.load() == 0;
}

}  // namespace zt::server
