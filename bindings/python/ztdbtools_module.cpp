// The Python module `ztdbtools`: the library's classes by name, as the old automation hosts used
// them, for Python programs.
//
//   import ztdbtools
//   ds = ztdbtools.create("ZtDBTools404.CZtDataStore")
//   ds.GeneralProviderType = 1
//   result, rows = ds.GetConnection(1).Execute("DELETE FROM [tblTickets]")
//
// Everything here is driven by the member tables of zt::server: an object's attributes are its
// class's members (names ignoring case), a property without arguments reads as a value, every
// other member is callable. There is no list of classes or members in this file, so a member
// added to a table is reachable from Python without a change here.
//
// Values: None is Null (and Empty comes back as None), bool, int (32- or 64-bit), float, str,
// bytes (the library keeps binary values as byte strings; a value that is not valid UTF-8 comes
// back as bytes), datetime.datetime / datetime.date for dates (whole seconds), decimal.Decimal
// for currency and exact decimals, list / tuple for arrays, and the module's objects. A member
// with by-reference parameters returns (result, out1, out2 ...), one value per by-reference
// parameter that was passed or left out at the end of the call.
//
// Errors of the library are raised as ztdbtools.ZtError with number, source, description,
// help_file and help_context (and sql_state, native_error for an engine's errors). A member the
// object does not have (438) is also an AttributeError, so hasattr() and getattr(o, n, d) work.
#include <pybind11/eval.h>
#include <pybind11/pybind11.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "zt/error.h"
#include "zt/server/dispatch.h"
#include "zt/variant.h"

namespace py = pybind11;
namespace server = zt::server;
using zt::Variant;
using zt::VarType;

namespace {

// A Python reference to one of the library's objects. Each counts as one live object while
// Python holds it, as a handle of the C interface does, so that CanUnloadNow says the truth.
class Handle {
 public:
  explicit Handle(std::shared_ptr<zt::Object> object) : object_(std::move(object)) {
    server::AddLiveObject();
  }
  ~Handle() { server::ReleaseLiveObject(); }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  zt::Object& object() const { return *object_; }
  const std::shared_ptr<zt::Object>& shared() const { return object_; }
  const server::ClassInfo* info() const { return server::ClassOf(*object_); }

 private:
  std::shared_ptr<zt::Object> object_;
};

// A member read from an object that must be called: a method, or a property with arguments.
// It holds the Python object rather than the C++ one, so that the live count stays exact.
struct BoundMember {
  py::object self;
  std::string name;
  server::MemberKind kind;
};

// The Python types the conversions need, looked up once.
struct PyTypes {
  py::object datetime, date, decimal;
};
PyTypes& Types() {
  static PyTypes* types = [] {
    auto* t = new PyTypes;  // lives as long as the interpreter; never destroyed after it
    py::module_ dt = py::module_::import("datetime");
    t->datetime = dt.attr("datetime");
    t->date = dt.attr("date");
    t->decimal = py::module_::import("decimal").attr("Decimal");
    return t;
  }();
  return *types;
}

py::object Wrap(std::shared_ptr<zt::Object> object) {
  if (!object) return py::none();
  return py::cast(std::make_unique<Handle>(std::move(object)));
}

constexpr double kSecond = 1.0 / 86400.0;

// Lists and tuples nest at most this deep in an argument: a deeper one, or one that contains
// itself, is a ValueError instead of a stack overflow.
constexpr int kMaxArrayDepth = 64;

Variant ToVariant(py::handle o, int depth = 0) {
  if (o.is_none()) return Variant::Null();
  if (py::isinstance<py::bool_>(o)) return o.cast<bool>();
  if (py::isinstance<py::int_>(o)) {
    int overflow = 0;
    const long long value = PyLong_AsLongLongAndOverflow(o.ptr(), &overflow);
    if (overflow != 0) zt::rt::Raise(zt::rt::kOverflow);
    if (value >= std::numeric_limits<std::int32_t>::min() &&
        value <= std::numeric_limits<std::int32_t>::max())
      return static_cast<std::int32_t>(value);
    return static_cast<std::int64_t>(value);
  }
  if (py::isinstance<py::float_>(o)) return o.cast<double>();
  if (py::isinstance<py::str>(o)) {
    Py_ssize_t size = 0;
    const char* text = PyUnicode_AsUTF8AndSize(o.ptr(), &size);
    if (!text) {  // lone surrogates have no UTF-8 form
      PyErr_Clear();
      zt::rt::Raise(zt::rt::kTypeMismatch);
    }
    return std::string(text, static_cast<std::size_t>(size));
  }
  if (py::isinstance<py::bytes>(o) || py::isinstance<py::bytearray>(o)) {
    py::buffer_info buffer = py::reinterpret_borrow<py::buffer>(o).request();
    return std::string(static_cast<const char*>(buffer.ptr), static_cast<std::size_t>(buffer.size));
  }
  const PyTypes& types = Types();
  // datetime is a date too, so it is asked first.
  const bool is_datetime = py::isinstance(o, types.datetime);
  if (is_datetime || py::isinstance(o, types.date)) {
    auto part = [&](const char* name) { return o.attr(name).cast<int>(); };
    if (!is_datetime) return zt::Date::FromParts(part("year"), part("month"), part("day"));
    zt::Date d = zt::Date::FromParts(part("year"), part("month"), part("day"), part("hour"),
                                     part("minute"), part("second"));
    // Before 30 December 1899 the time of day counts away from zero.
    if (part("microsecond") >= 500000) d.serial += d.serial < 0 ? -kSecond : kSecond;
    return d;
  }
  if (py::isinstance(o, types.decimal)) {
    // Fixed-point text, never the exponent form ("1E+3") that the library's parser refuses.
    return zt::Decimal::Parse(py::str("{:f}").attr("format")(o).cast<std::string>());
  }
  if (py::isinstance<py::list>(o) || py::isinstance<py::tuple>(o)) {
    if (depth >= kMaxArrayDepth)
      throw py::value_error("lists and tuples may nest at most " + std::to_string(kMaxArrayDepth) +
                            " deep in an argument (or one contains itself)");
    std::vector<Variant> items;
    for (py::handle item : o) items.push_back(ToVariant(item, depth + 1));
    return Variant::Array(std::move(items));
  }
  if (py::isinstance<Handle>(o)) return o.cast<Handle&>().shared();
  zt::rt::Raise(zt::rt::kTypeMismatch);
}

py::object ToPython(const Variant& v) {
  switch (v.Type()) {
    case VarType::Empty:
    case VarType::Null:
      return py::none();
    case VarType::Boolean:
      return py::bool_(v.ToBool());
    case VarType::Long:
      return py::int_(v.ToInt32());
    case VarType::LongLong:
      return py::int_(v.ToInt64());
    case VarType::Double:
      return py::float_(v.ToDouble());
    case VarType::Currency:
    case VarType::Decimal:
      return Types().decimal(v.ToDecimal().ToText());
    case VarType::Date: {
      int year, month, day, hour, minute, second;
      zt::Date{v.ToDouble()}.ToParts(year, month, day, hour, minute, second);
      return Types().datetime(year, month, day, hour, minute, second);
    }
    case VarType::String: {
      const std::string& text = *v.AsString();
      PyObject* s =
          PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "strict");
      if (s) return py::reinterpret_steal<py::object>(s);
      PyErr_Clear();  // not text: a binary value
      return py::bytes(text);
    }
    case VarType::Object:
      return Wrap(v.AsObject());
    case VarType::Array: {
      py::list out;
      for (const Variant& item : v.AsArray()->items) out.append(ToPython(item));
      return out;
    }
  }
  return py::none();
}

// The member a call of that kind reaches, with the dispatcher's fallback between a property
// get and a method.
const server::MemberInfo* MemberFor(const Handle& h, const std::string& name,
                                    server::MemberKind kind) {
  const server::ClassInfo* info = h.info();
  if (!info) return nullptr;
  const server::MemberInfo* m = info->Find(name, kind);
  if (!m && kind == server::MemberKind::Get) m = info->Find(name, server::MemberKind::Method);
  if (!m && kind == server::MemberKind::Method) m = info->Find(name, server::MemberKind::Get);
  return m;
}

py::object Call(const Handle& h, const std::string& name, server::MemberKind kind,
                const py::args& py_args) {
  std::vector<Variant> args;
  args.reserve(py_args.size());
  for (py::handle a : py_args) args.push_back(ToVariant(a));
  const server::MemberInfo* member = MemberFor(h, name, kind);
  const std::uint32_t by_ref = member ? member->out_mask : 0;
  // Optional by-reference parameters left out at the end are passed Empty, so that their
  // values come back; an optional by-value parameter in between keeps its default, and stops
  // this. Required ones stay required (450), as for every other caller.
  if (member)
    while (args.size() >= static_cast<std::size_t>(member->min_args) &&
           args.size() < static_cast<std::size_t>(member->max_args) && args.size() < 32 &&
           ((by_ref >> args.size()) & 1u) != 0)
      args.emplace_back();
  py::object result = ToPython(server::Dispatch(h.object(), name, kind, args));
  if (by_ref == 0) return result;
  py::list out;
  out.append(result);
  for (std::size_t i = 0; i < args.size() && i < 32; ++i)
    if (((by_ref >> i) & 1u) != 0) out.append(ToPython(args[i]));
  return py::tuple(out);
}

// The members' names in table order, each once (a property's get and put share one).
py::list MemberNames(const server::ClassInfo* info) {
  py::list names;
  if (!info) return names;
  py::set seen;
  for (const server::MemberInfo& m : info->Members()) {
    py::str name(m.name);
    if (seen.contains(name)) continue;
    seen.add(name);
    names.append(name);
  }
  return names;
}

const char* KindName(server::MemberKind kind) {
  switch (kind) {
    case server::MemberKind::Get:
      return "get";
    case server::MemberKind::Put:
      return "put";
    case server::MemberKind::Method:
      return "method";
  }
  return "method";
}

// The exception classes, written in Python so that they behave as Python programs expect
// (pickling, str(), keyword construction).
constexpr const char* kErrorClasses = R"py(
class ZtError(Exception):
    """An error of the library, with the five values of the old run time's Err object."""

    def __init__(self, number=0, source="", description="", help_file="", help_context=0,
                 sql_state="", native_error=0):
        super().__init__(number, source, description, help_file, help_context)
        self.number = number
        self.source = source
        self.description = description
        self.help_file = help_file
        self.help_context = help_context
        self.sql_state = sql_state
        self.native_error = native_error

    def __str__(self):
        return f"{self.description} (error {self.number}, {self.source})"


class ZtMemberError(ZtError, AttributeError):
    """The object has no member of that name (error 438)."""
)py";

// The module, for the exception translator (which cannot capture). Not owning: the module
// stays in sys.modules until the interpreter ends.
py::handle g_module;

void RaiseInPython(const zt::ZtError& e) {
  const char* cls = e.Number() == zt::rt::kMemberNotSupported ? "ZtMemberError" : "ZtError";
  py::object error = g_module.attr(cls)(e.Number(), e.Source(), e.Description(), e.HelpFile(),
                                        e.HelpContext(), e.SqlState(), e.NativeError());
  PyErr_SetObject(error.get_type().ptr(), error.ptr());
}

}  // namespace

PYBIND11_MODULE(ztdbtools, m) {
  m.doc() = "The classes of ZtDBTools by name, late-bound through their member tables.";
  py::exec(kErrorClasses, m.attr("__dict__"));
  m.attr("ZtError").attr("__module__") = "ztdbtools";
  m.attr("ZtMemberError").attr("__module__") = "ztdbtools";

  g_module = m;
  // Local: other pybind11 modules in the same interpreter keep their own translations.
  py::register_local_exception_translator([](std::exception_ptr p) {
    try {
      if (p) std::rethrow_exception(p);
    } catch (const zt::ZtError& e) {
      RaiseInPython(e);
    }
  });

  py::class_<BoundMember>(m, "Member", "A method or a property with arguments, ready to call.")
      .def("__call__",
           [](const BoundMember& b, const py::args& args) {
             return Call(b.self.cast<const Handle&>(), b.name, b.kind, args);
           })
      .def("__repr__", [](const BoundMember& b) {
        return "<ztdbtools member " + b.name + " of " +
               b.self.cast<const Handle&>().object().TypeName() + ">";
      });

  py::class_<Handle, std::unique_ptr<Handle>>(m, "Object",
                                              "An object of the library; its attributes are "
                                              "the members of its class.")
      .def("__getattr__",
           [](py::object self, const std::string& name) -> py::object {
             const Handle& h = self.cast<const Handle&>();
             const server::ClassInfo* info = h.info();
             const server::MemberInfo* get =
                 info ? info->Find(name, server::MemberKind::Get) : nullptr;
             if (get && get->min_args == 0) return Call(h, name, server::MemberKind::Get, {});
             const server::MemberInfo* method =
                 info ? info->Find(name, server::MemberKind::Method) : nullptr;
             if (!get && !method) zt::rt::Raise(zt::rt::kMemberNotSupported);
             return py::cast(
                 BoundMember{std::move(self), method ? method->name : get->name,
                             method ? server::MemberKind::Method : server::MemberKind::Get});
           })
      .def("__setattr__",
           [](const Handle& h, const std::string& name, py::handle value) {
             server::PutProperty(h.object(), name, ToVariant(value));
           })
      .def("__dir__", [](const Handle& h) { return MemberNames(h.info()); })
      .def("__eq__",
           [](const Handle& h, py::handle other) {
             return py::isinstance<Handle>(other) &&
                    other.cast<const Handle&>().shared() == h.shared();
           })
      .def("__hash__", [](const Handle& h) { return std::hash<const void*>{}(h.shared().get()); })
      .def("__repr__",
           [](const Handle& h) { return "<ztdbtools." + h.object().TypeName() + " object>"; });

  m.def(
      "create", [](const std::string& prog_id) { return Wrap(server::CreateObject(prog_id)); },
      py::arg("prog_id"),
      "A new object of the class named by its ProgID (\"ZtDBTools404.CZtDataStore\") or bare "
      "class name; error 429 when no class can be created by that name.");
  m.def(
      "classes",
      [] {
        py::list out;
        for (const server::ClassInfo* info : server::Classes()) out.append(info->ProgId());
        return out;
      },
      "The ProgIDs of every class with a member table, in the order of their names.");
  m.def(
      "class_info",
      [](const std::string& name) {
        const server::ClassInfo* info = server::FindClass(name);
        if (!info) zt::rt::Raise(zt::rt::kCannotCreateObject);
        py::list members;
        for (const server::MemberInfo& mi : info->Members()) {
          py::list by_ref;
          for (std::int32_t i = 0; i < mi.max_args && i < 32; ++i)
            by_ref.append(py::bool_(((mi.out_mask >> i) & 1u) != 0));
          members.append(py::make_tuple(mi.name, KindName(mi.kind), mi.min_args, mi.max_args,
                                        py::tuple(by_ref)));
        }
        py::dict out;
        out["name"] = info->Name();
        out["prog_id"] = info->ProgId();
        out["creatable"] = info->Creatable();
        out["members"] = members;
        return out;
      },
      py::arg("name"),
      "A class's table: name, prog_id, creatable and members as (name, kind, min_args, "
      "max_args, by_ref flags per parameter).");
  m.def(
      "type_name", [](const Handle& h) { return h.object().TypeName(); },
      "The class name of an object of the library.");
  m.def("live_objects", &server::LiveObjects, "Objects handed out to hosts and not yet released.");
  m.def("can_unload_now", &server::CanUnloadNow, "True when no object of the library is live.");
}
