// The C interface over the late-bound dispatch. Nothing thrown inside gets past these
// functions: each one runs its body through Guard, which turns any exception into a status and
// the caller's zt_error.
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "zt/c/ztdbtools.h"
#include "zt/error.h"
#include "zt/server/dispatch.h"
#include "zt/variant.h"
#include "zt/version.h"

using zt::Variant;
using zt::server::ClassInfo;

struct zt_object {
  std::shared_ptr<zt::Object> object;
  std::string class_name;
};

namespace {

char* CopyText(const std::string& text) {
  char* copy = static_cast<char*>(std::malloc(text.size() + 1));
  if (!copy) throw std::bad_alloc();
  std::memcpy(copy, text.data(), text.size() + 1);
  return copy;
}

zt_object* NewHandle(std::shared_ptr<zt::Object> object) {
  auto* handle = new zt_object{object, object ? object->TypeName() : std::string()};
  zt::server::AddLiveObject();
  return handle;
}

void SetError(zt_error* error, std::int32_t number, const std::string& source,
              const std::string& description, const std::string& help_file,
              std::int32_t help_context) {
  if (!error) return;
  zt_error_clear(error);
  error->number = number;
  error->help_context = help_context;
  // Out of memory while reporting leaves the texts NULL rather than throwing past the boundary.
  error->source = static_cast<char*>(std::malloc(source.size() + 1));
  error->description = static_cast<char*>(std::malloc(description.size() + 1));
  error->help_file = static_cast<char*>(std::malloc(help_file.size() + 1));
  if (error->source) std::memcpy(error->source, source.c_str(), source.size() + 1);
  if (error->description)
    std::memcpy(error->description, description.c_str(), description.size() + 1);
  if (error->help_file) std::memcpy(error->help_file, help_file.c_str(), help_file.size() + 1);
}

template <class Body>
zt_status Guard(zt_error* error, Body body) {
  try {
    return body();
  } catch (const zt::ZtError& e) {
    SetError(error, e.Number(), e.Source(), e.Description(), e.HelpFile(), e.HelpContext());
  } catch (const std::bad_alloc&) {
    SetError(error, zt::rt::kOutOfMemory, std::string(zt::kLibrarySource),
             zt::rt::Description(zt::rt::kOutOfMemory), {}, 0);
  } catch (const std::exception& e) {
    SetError(error, zt::rt::kInvalidProcedureCall, std::string(zt::kLibrarySource), e.what(), {},
             0);
  } catch (...) {
    SetError(error, zt::rt::kInvalidProcedureCall, std::string(zt::kLibrarySource),
             zt::rt::Description(zt::rt::kInvalidProcedureCall), {}, 0);
  }
  return ZT_E_FAIL;
}

// Arrays nest at most this deep in an argument (the header says so): deeper, or an array that
// contains itself, would only exhaust the stack.
constexpr int kMaxArrayDepth = 64;

// Whether `v` can be read: every array's items are there for its count, and arrays nest at
// most kMaxArrayDepth deep.
bool Readable(const zt_variant& v, int depth = 0) {
  if (v.type != ZT_VT_ARRAY) return true;
  if (depth >= kMaxArrayDepth || (v.value.array.count && !v.value.array.items)) return false;
  for (size_t i = 0; i < v.value.array.count; ++i)
    if (!Readable(v.value.array.items[i], depth + 1)) return false;
  return true;
}

Variant FromC(const zt_variant& v) {
  switch (v.type) {
    case ZT_VT_EMPTY:
      return {};
    case ZT_VT_NULL:
      return Variant::Null();
    case ZT_VT_LONG:
      return v.value.i32;
    case ZT_VT_DOUBLE:
      return v.value.dbl;
    case ZT_VT_CURRENCY:
      return zt::Currency{v.value.i64};
    case ZT_VT_DATE:
      return zt::Date{v.value.dbl};
    case ZT_VT_STRING:
      return std::string(v.value.str ? v.value.str : "");
    case ZT_VT_DECIMAL: {
      Variant text(std::string(v.value.str ? v.value.str : ""));
      return text.ToDecimal();
    }
    case ZT_VT_OBJECT:
      return v.value.obj ? v.value.obj->object : std::shared_ptr<zt::Object>();
    case ZT_VT_BOOL:
      return v.value.boolean != 0;
    case ZT_VT_LONGLONG:
      return v.value.i64;
    case ZT_VT_ARRAY: {
      zt::VariantArray array;
      array.lower_bound = v.value.array.lower_bound;
      for (size_t i = 0; i < v.value.array.count; ++i)
        array.items.push_back(FromC(v.value.array.items[i]));
      return Variant(std::move(array));
    }
    default:
      zt::rt::Raise(zt::rt::kTypeMismatch);
  }
}

// Fills `out` (Empty on entry) with a copy the caller owns.
void ToC(const Variant& v, zt_variant& out) {
  zt_variant_init(&out);
  switch (v.Type()) {
    case zt::VarType::Empty:
      return;
    case zt::VarType::Null:
      out.type = ZT_VT_NULL;
      return;
    case zt::VarType::Long:
      out.value.i32 = v.ToInt32();
      out.type = ZT_VT_LONG;
      return;
    case zt::VarType::Double:
      out.value.dbl = v.ToDouble();
      out.type = ZT_VT_DOUBLE;
      return;
    case zt::VarType::Currency:
      out.value.i64 = std::llround(v.ToDouble() * 10000.0);
      out.type = ZT_VT_CURRENCY;
      return;
    case zt::VarType::Date:
      out.value.dbl = v.ToDouble();
      out.type = ZT_VT_DATE;
      return;
    case zt::VarType::String:
      out.value.str = CopyText(*v.AsString());
      out.type = ZT_VT_STRING;
      return;
    case zt::VarType::Decimal:
      out.value.str = CopyText(v.ToText());
      out.type = ZT_VT_DECIMAL;
      return;
    case zt::VarType::Object: {
      auto object = v.AsObject();
      out.value.obj = object ? NewHandle(std::move(object)) : nullptr;
      out.type = ZT_VT_OBJECT;
      return;
    }
    case zt::VarType::Boolean:
      out.value.boolean = v.ToBool() ? 1 : 0;
      out.type = ZT_VT_BOOL;
      return;
    case zt::VarType::LongLong:
      out.value.i64 = v.ToInt64();
      out.type = ZT_VT_LONGLONG;
      return;
    case zt::VarType::Array: {
      const zt::VariantArray* array = v.AsArray();
      const size_t count = array->items.size();
      auto* items = static_cast<zt_variant*>(std::calloc(count ? count : 1, sizeof(zt_variant)));
      if (!items) throw std::bad_alloc();
      out.type = ZT_VT_ARRAY;
      out.value.array.items = items;
      out.value.array.lower_bound = array->lower_bound;
      // Counted as filled, so a failure half-way frees exactly what was made.
      for (size_t i = 0; i < count; ++i) {
        try {
          ToC(array->items[i], items[i]);
        } catch (...) {
          zt_variant_clear(&out);
          throw;
        }
        out.value.array.count = i + 1;
      }
      return;
    }
  }
}

void Deliver(const Variant& result, zt_variant* out) {
  if (!out) return;
  zt_variant fresh;
  ToC(result, fresh);
  zt_variant_clear(out);
  *out = fresh;
}

const std::vector<const ClassInfo*>& ClassList() {
  static const std::vector<const ClassInfo*> classes = zt::server::Classes();
  return classes;
}

zt_class_factory* AsFactory(const ClassInfo* info) {
  return reinterpret_cast<zt_class_factory*>(const_cast<ClassInfo*>(info));
}
const ClassInfo* AsClass(zt_class_factory* factory) {
  return reinterpret_cast<const ClassInfo*>(factory);
}

zt_status Call(zt_object* object, const char* name, zt::server::MemberKind kind, zt_variant* args,
               size_t arg_count, zt_variant* result, zt_error* error) {
  return Guard(error, [&]() -> zt_status {
    if (!object || !object->object || !name || (arg_count && !args)) return ZT_E_INVALIDARG;
    for (size_t i = 0; i < arg_count; ++i)
      if (!Readable(args[i])) return ZT_E_INVALIDARG;
    std::vector<Variant> values;
    values.reserve(arg_count);
    for (size_t i = 0; i < arg_count; ++i) values.push_back(FromC(args[i]));
    std::uint32_t by_ref = 0;
    Variant value = zt::server::Dispatch(*object->object, name, kind, values, &by_ref);
    // By-reference arguments come back into the caller's slots.
    for (size_t i = 0; i < arg_count && i < 32; ++i)
      if (by_ref & (1u << i)) Deliver(values[i], &args[i]);
    Deliver(value, result);
    return ZT_OK;
  });
}

}  // namespace

extern "C" {

uint32_t zt_abi_version(void) {
  return ZT_ABI_VERSION;
}

const char* zt_library_version(void) {
  static const std::string version = zt::LibraryVersion();
  return version.c_str();
}

void zt_error_clear(zt_error* error) {
  if (!error) return;
  std::free(error->source);
  std::free(error->description);
  std::free(error->help_file);
  *error = zt_error{0, nullptr, nullptr, nullptr, 0};
}

void zt_variant_init(zt_variant* v) {
  if (!v) return;
  std::memset(v, 0, sizeof *v);
  v->type = ZT_VT_EMPTY;
}

void zt_variant_clear(zt_variant* v) {
  if (!v) return;
  switch (v->type) {
    case ZT_VT_STRING:
    case ZT_VT_DECIMAL:
      std::free(v->value.str);
      break;
    case ZT_VT_OBJECT:
      zt_release(v->value.obj);
      break;
    case ZT_VT_ARRAY:
      for (size_t i = 0; i < v->value.array.count; ++i) zt_variant_clear(&v->value.array.items[i]);
      std::free(v->value.array.items);
      break;
    default:
      break;
  }
  zt_variant_init(v);
}

void zt_variant_set_long(zt_variant* v, int32_t value) {
  zt_variant_clear(v);
  if (!v) return;
  v->type = ZT_VT_LONG;
  v->value.i32 = value;
}

void zt_variant_set_bool(zt_variant* v, int value) {
  zt_variant_clear(v);
  if (!v) return;
  v->type = ZT_VT_BOOL;
  v->value.boolean = value ? 1 : 0;
}

void zt_variant_set_double(zt_variant* v, double value) {
  zt_variant_clear(v);
  if (!v) return;
  v->type = ZT_VT_DOUBLE;
  v->value.dbl = value;
}

zt_status zt_variant_set_string(zt_variant* v, const char* utf8) {
  if (!v) return ZT_E_INVALIDARG;
  char* copy = static_cast<char*>(std::malloc(utf8 ? std::strlen(utf8) + 1 : 1));
  if (!copy) return ZT_E_FAIL;
  std::strcpy(copy, utf8 ? utf8 : "");
  zt_variant_clear(v);
  v->type = ZT_VT_STRING;
  v->value.str = copy;
  return ZT_OK;
}

zt_status zt_variant_set_object(zt_variant* v, zt_object* object) {
  if (!v) return ZT_E_INVALIDARG;
  return Guard(nullptr, [&]() -> zt_status {
    zt_object* handle = object ? zt_addref(object) : nullptr;
    zt_variant_clear(v);
    v->type = ZT_VT_OBJECT;
    v->value.obj = handle;
    return ZT_OK;
  });
}

zt_status DllGetClassObject(const char* prog_id, zt_class_factory** factory) {
  if (!prog_id || !factory) return ZT_E_INVALIDARG;
  *factory = nullptr;
  const ClassInfo* info = zt::server::FindClass(prog_id);
  if (!info || !info->Creatable()) return ZT_E_NOCLASS;
  *factory = AsFactory(info);
  return ZT_OK;
}

int32_t DllCanUnloadNow(void) {
  return zt::server::CanUnloadNow() ? 0 : 1;
}

zt_status zt_register_server(const char* folder, zt_error* error) {
  return Guard(error, [&] {
    zt::server::RegisterServer(folder ? folder : "");
    return ZT_OK;
  });
}

zt_status zt_unregister_server(const char* folder, zt_error* error) {
  return Guard(error, [&] {
    zt::server::UnregisterServer(folder ? folder : "");
    return ZT_OK;
  });
}

int32_t DllRegisterServer(void) {
  return zt_register_server(nullptr, nullptr);
}
int32_t DllUnregisterServer(void) {
  return zt_unregister_server(nullptr, nullptr);
}

zt_status zt_factory_create(zt_class_factory* factory, zt_object** object, zt_error* error) {
  if (!factory || !object) return ZT_E_INVALIDARG;
  *object = nullptr;
  return Guard(error, [&] {
    *object = NewHandle(AsClass(factory)->Create());
    return ZT_OK;
  });
}

zt_status zt_create(const char* prog_id, zt_object** object, zt_error* error) {
  zt_class_factory* factory = nullptr;
  zt_status status = DllGetClassObject(prog_id, &factory);
  if (status == ZT_E_NOCLASS) {
    if (object) *object = nullptr;
    return Guard(error, []() -> zt_status { zt::rt::Raise(zt::rt::kCannotCreateObject); });
  }
  if (status != ZT_OK) return status;
  return zt_factory_create(factory, object, error);
}

zt_object* zt_addref(zt_object* object) {
  if (!object) return nullptr;
  try {
    return NewHandle(object->object);
  } catch (...) {
    return nullptr;
  }
}

void zt_release(zt_object* object) {
  if (!object) return;
  delete object;
  zt::server::ReleaseLiveObject();
}

const char* zt_object_class(zt_object* object) {
  return object ? object->class_name.c_str() : "";
}

zt_status zt_get(zt_object* object, const char* name, zt_variant* result, zt_error* error) {
  return Call(object, name, zt::server::MemberKind::Get, nullptr, 0, result, error);
}

zt_status zt_put(zt_object* object, const char* name, const zt_variant* value, zt_error* error) {
  if (!value) return ZT_E_INVALIDARG;
  // The value is only read: a copy keeps the caller's variant as it was.
  zt_variant copy = *value;
  return Call(object, name, zt::server::MemberKind::Put, &copy, 1, nullptr, error);
}

zt_status zt_invoke(zt_object* object, const char* name, zt_variant* args, size_t arg_count,
                    zt_variant* result, zt_error* error) {
  return Call(object, name, zt::server::MemberKind::Method, args, arg_count, result, error);
}

size_t zt_class_count(void) {
  return ClassList().size();
}

const char* zt_class_name(size_t class_index) {
  const auto& classes = ClassList();
  return class_index < classes.size() ? classes[class_index]->Name().c_str() : nullptr;
}

size_t zt_member_count(size_t class_index) {
  const auto& classes = ClassList();
  return class_index < classes.size() ? classes[class_index]->Members().size() : 0;
}

zt_status zt_member_info(size_t class_index, size_t member_index, const char** name, int32_t* kind,
                         int32_t* min_args, int32_t* max_args) {
  const auto& classes = ClassList();
  if (class_index >= classes.size() || member_index >= classes[class_index]->Members().size())
    return ZT_E_INVALIDARG;
  const auto& member = classes[class_index]->Members()[member_index];
  if (name) *name = member.name.c_str();
  if (kind) *kind = static_cast<int32_t>(member.kind);
  if (min_args) *min_args = member.min_args;
  if (max_args) *max_args = member.max_args;
  return ZT_OK;
}

int64_t zt_live_objects(void) {
  return zt::server::LiveObjects();
}

}  // extern "C"
