// Fuzz target for the Python module's conversion of Python values into the library's: the module
// is compiled in and imported into an embedded interpreter, and trees of None, bools, ints of any
// size, floats, texts with lone surrogates, bytes, dates, decimals, dicts, lists and tuples
// (nested past the limit of 64, or containing themselves) are passed to a late-bound call.
// Besides crashes and sanitizer reports it checks what the module promises: a call either
// returns or raises ZtError, ValueError or TypeError, and a list nested past the limit is never
// accepted.
#include <fuzzer/FuzzedDataProvider.h>
#include <pybind11/embed.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

namespace py = pybind11;

// The module's entry point, from its source compiled into this target.
extern "C" PyObject* PyInit_ztdbtools();

namespace {

void Check(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "python_value_fuzz: %s\n", what);
  std::abort();
}

struct Python {
  Python() {
    PyImport_AppendInittab("ztdbtools", &PyInit_ztdbtools);
    interpreter = std::make_unique<py::scoped_interpreter>();
    module = py::module_::import("ztdbtools");
    encoder = module.attr("create")("CZtFieldEncoder");
    datetime = py::module_::import("datetime");
    decimal = py::module_::import("decimal").attr("Decimal");
  }
  std::unique_ptr<py::scoped_interpreter> interpreter;
  py::object module, encoder, datetime, decimal;
};

Python& Py() {
  static Python* python = new Python();  // lives to the end: the interpreter is not torn down
  return *python;
}

// One value from the input; `deep` becomes true when a list or tuple sits 64 or more levels
// below the argument itself.
py::object Make(FuzzedDataProvider& in, int depth, bool& deep) {
  Python& p = Py();
  switch (in.ConsumeIntegralInRange<int>(0, 15)) {
    case 0:
      return py::none();
    case 1:
      return py::bool_(in.ConsumeBool());
    case 2:
      return py::int_(in.ConsumeIntegral<std::int64_t>());
    case 3: {  // beyond 64 bits, either sign
      const std::string digits = std::to_string(in.ConsumeIntegral<std::uint64_t>()) +
                                 std::to_string(in.ConsumeIntegral<std::uint64_t>());
      return py::reinterpret_steal<py::object>(
          PyLong_FromString((in.ConsumeBool() ? "-" + digits : digits).c_str(), nullptr, 10));
    }
    case 4:
      return py::float_(in.ConsumeFloatingPoint<double>());
    case 5: {  // any bytes as text: invalid UTF-8 becomes lone surrogates
      const std::string bytes = in.ConsumeRandomLengthString(32);
      return py::reinterpret_steal<py::object>(PyUnicode_DecodeUTF8(
          bytes.data(), static_cast<Py_ssize_t>(bytes.size()), "surrogateescape"));
    }
    case 6:
      return py::bytes(in.ConsumeRandomLengthString(32));
    case 7: {
      const std::string b = in.ConsumeRandomLengthString(16);
      return py::reinterpret_steal<py::object>(
          PyByteArray_FromStringAndSize(b.data(), static_cast<Py_ssize_t>(b.size())));
    }
    case 8:
      return p.datetime.attr("datetime")(
          in.ConsumeIntegralInRange<int>(1, 9999), in.ConsumeIntegralInRange<int>(1, 12),
          in.ConsumeIntegralInRange<int>(1, 28), in.ConsumeIntegralInRange<int>(0, 23),
          in.ConsumeIntegralInRange<int>(0, 59), in.ConsumeIntegralInRange<int>(0, 59),
          in.ConsumeIntegralInRange<int>(0, 999999));
    case 9:
      return p.datetime.attr("date")(in.ConsumeIntegralInRange<int>(1, 9999),
                                     in.ConsumeIntegralInRange<int>(1, 12),
                                     in.ConsumeIntegralInRange<int>(1, 28));
    case 10: {  // any text the decimal module reads, its specials and exponents included
      try {
        return p.decimal(py::str(in.ConsumeRandomLengthString(24)));
      } catch (const py::error_already_set&) {
        return p.decimal(py::str(in.ConsumeBool() ? "NaN" : "-Infinity"));
      }
    }
    case 11:
    case 12: {
      if (depth >= 64) deep = true;
      py::list items;
      const int count = in.ConsumeIntegralInRange<int>(0, 3);
      for (int i = 0; i < count && depth < 80; ++i) items.append(Make(in, depth + 1, deep));
      if (count && depth >= 80) items.append(py::none());
      return in.ConsumeBool() ? py::object(items) : py::object(py::tuple(items));
    }
    case 13: {  // a chain of single lists past the limit
      py::object inner = py::none();
      const int levels = in.ConsumeIntegralInRange<int>(50, 75);
      for (int i = 0; i < levels; ++i) {
        py::list outer;
        outer.append(inner);
        inner = outer;
      }
      if (depth + levels > 64) deep = true;
      return inner;
    }
    case 14: {
      py::dict d;
      d["k"] = py::int_(1);
      return d;
    }
    default: {  // a list that contains itself
      py::list self;
      self.append(self);
      deep = true;
      return self;
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Python& p = Py();
  FuzzedDataProvider in(data, size);
  bool deep = false;
  py::object value = Make(in, 0, deep);
  try {
    py::object result = p.encoder.attr("Encode")(value, ",");
    Check(!deep, "a list nested past the limit was accepted");
  } catch (py::error_already_set& e) {
    const bool expected = e.matches(p.module.attr("ZtError")) || e.matches(PyExc_ValueError) ||
                          e.matches(PyExc_TypeError);
    if (!expected) std::fprintf(stderr, "python_value_fuzz: %s\n", e.what());
    Check(expected, "an unexpected exception");
  }
  // A value whose members refer to each other stays for the collector otherwise.
  if (deep) PyGC_Collect();
  return 0;
}
