// A property read late-bound (by name, through the member table, in Variants) against the
// direct C++ call, and the same through the C interface, so that the price of calling by name
// is known. Ratio = late-bound time / direct time.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "zt/c/ztdbtools.h"
#include "zt/datastore.h"
#include "zt/server/dispatch.h"

namespace {

void BM_DirectGet(benchmark::State& state) {
  auto ds = std::make_shared<zt::CZtDataStore>();
  ds->Location("HDSRV");
  for (auto _ : state) {
    std::string location = ds->Location();
    benchmark::DoNotOptimize(location);
  }
}
BENCHMARK(BM_DirectGet);

void BM_LateBoundGet(benchmark::State& state) {
  auto ds = zt::server::CreateObject("ZtDBTools404.CZtDataStore");
  zt::server::PutProperty(*ds, "Location", "HDSRV");
  for (auto _ : state) {
    zt::Variant location = zt::server::GetProperty(*ds, "Location");
    benchmark::DoNotOptimize(location);
  }
}
BENCHMARK(BM_LateBoundGet);

void BM_CInterfaceGet(benchmark::State& state) {
  zt_object* ds = nullptr;
  zt_error error{};
  zt_create("CZtDataStore", &ds, &error);
  zt_variant value;
  zt_variant_init(&value);
  zt_variant_set_string(&value, "HDSRV");
  zt_put(ds, "Location", &value, &error);
  zt_variant_clear(&value);
  for (auto _ : state) {
    zt_get(ds, "Location", &value, &error);
    benchmark::DoNotOptimize(value);
    zt_variant_clear(&value);
  }
  zt_release(ds);
}
BENCHMARK(BM_CInterfaceGet);

}  // namespace

BENCHMARK_MAIN();
