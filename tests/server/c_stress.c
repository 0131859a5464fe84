/* Many objects and many late-bound calls through the C interface: every handle, string and
 * error the library hands out must come back, so that a leak checker finds nothing. */
#include <stdio.h>
#include <string.h>

#include "zt/c/ztdbtools.h"

int main(void) {
  enum { kObjects = 100000, kCalls = 1000000 };
  zt_error e = {0};
  zt_object* ds = NULL;
  zt_object* views = NULL;
  zt_variant value, result;
  long i;
  int failures = 0;
  zt_class_factory* factory = NULL;

  if (DllGetClassObject("ZtDBTools404.CZtSQLStatement", &factory) != ZT_OK) return 1;
  for (i = 0; i < kObjects; ++i) {
    zt_object* o = NULL;
    if (zt_factory_create(factory, &o, &e) != ZT_OK) return 1;
    zt_release(zt_addref(o));
    zt_release(o);
  }
  if (zt_live_objects() != 0) ++failures;

  if (zt_create("CZtDataStore", &ds, &e) != ZT_OK) return 1;
  if (zt_create("CZtDataViewCol", &views, &e) != ZT_OK) return 1;
  zt_variant_init(&value);
  zt_variant_init(&result);
  for (i = 0; i < kCalls; ++i) {
    switch (i % 4) {
      case 0:
        zt_variant_set_string(&value, "HDSRV");
        if (zt_put(ds, "Location", &value, &e) != ZT_OK) ++failures;
        break;
      case 1:
        if (zt_get(ds, "Location", &result, &e) != ZT_OK || result.type != ZT_VT_STRING ||
            strcmp(result.value.str, "HDSRV") != 0)
          ++failures;
        break;
      case 2:
        /* The error path allocates too: it must be freed as well. */
        if (zt_get(ds, "Nothing", &result, &e) != ZT_E_FAIL || e.number != 438) ++failures;
        zt_error_clear(&e);
        break;
      default:
        /* An object result: a new handle each time, released with the variant. */
        if (zt_get(views, "SQLStatement", &result, &e) != ZT_OK || result.type != ZT_VT_OBJECT)
          ++failures;
        break;
    }
    zt_variant_clear(&result);
  }
  zt_variant_clear(&value);
  {
    /* Arrays that cannot be read (one holding itself, a count without items) are refused
     * before the call instead of exhausting the stack or reading through NULL. */
    zt_variant self, hole;
    zt_variant_init(&self);
    self.type = ZT_VT_ARRAY;
    self.value.array.items = &self;
    self.value.array.count = 1;
    if (zt_put(ds, "Location", &self, &e) != ZT_E_INVALIDARG) ++failures;
    zt_variant_init(&hole);
    hole.type = ZT_VT_ARRAY;
    hole.value.array.items = NULL;
    hole.value.array.count = 5;
    if (zt_invoke(ds, "Location", &hole, 1, NULL, &e) != ZT_E_INVALIDARG) ++failures;
  }
  zt_release(ds);
  zt_release(views);
  if (zt_live_objects() != 0 || DllCanUnloadNow() != 0) ++failures;
  if (failures) fprintf(stderr, "%d failure(s)\n", failures);
  return failures ? 1 : 0;
}
