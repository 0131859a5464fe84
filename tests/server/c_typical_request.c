/* The typical request of a host, written in plain C against the C interface: a data store is
 * created and described, a data-view collection loads from it. On an SQLite file always, and on
 * PostgreSQL when the test servers are running (DBTEST_PG_*). */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "zt/c/ztdbtools.h"

static int failures = 0;

#define CHECK(cond)                                                      \
  do {                                                                   \
    if (!(cond)) {                                                       \
      fprintf(stderr, "%s:%d: failed: %s\n", __FILE__, __LINE__, #cond); \
      ++failures;                                                        \
    }                                                                    \
  } while (0)

static int ok(zt_status status, zt_error* error, const char* what) {
  if (status == ZT_OK) return 1;
  fprintf(stderr, "%s: status %d, error %d: %s\n", what, (int)status, (int)error->number,
          error->description ? error->description : "");
  ++failures;
  zt_error_clear(error);
  return 0;
}

static void put_string(zt_object* o, const char* name, const char* text) {
  zt_variant v;
  zt_error e = {0};
  zt_variant_init(&v);
  zt_variant_set_string(&v, text);
  ok(zt_put(o, name, &v, &e), &e, name);
  zt_variant_clear(&v);
}

static void put_long(zt_object* o, const char* name, int32_t value) {
  zt_variant v;
  zt_error e = {0};
  zt_variant_init(&v);
  zt_variant_set_long(&v, value);
  ok(zt_put(o, name, &v, &e), &e, name);
}

static void execute(zt_object* cn, const char* sql) {
  zt_variant args[2];
  zt_error e = {0};
  zt_variant_init(&args[0]);
  zt_variant_init(&args[1]);
  zt_variant_set_string(&args[0], sql);
  ok(zt_invoke(cn, "Execute", args, 2, NULL, &e), &e, sql);
  zt_variant_clear(&args[0]);
  zt_variant_clear(&args[1]);
}

/* Creates tblDataView with two views in the store, loads them through CZtDataViewCol. */
static void typical_request(zt_object* ds, const char* int_type, const char* text_type) {
  zt_error e = {0};
  zt_variant mode, cn, views_count, key, view, name, arg;
  zt_object* views = NULL;
  char sql[512];

  zt_variant_init(&mode);
  zt_variant_init(&cn);
  zt_variant_set_long(&mode, 1);
  if (!ok(zt_invoke(ds, "GetConnection", &mode, 1, &cn, &e), &e, "GetConnection")) return;
  CHECK(cn.type == ZT_VT_OBJECT && cn.value.obj != NULL);
  CHECK(strcmp(zt_object_class(cn.value.obj), "Connection") == 0);
  execute(cn.value.obj, "DROP TABLE IF EXISTS [tblDataView]");
  snprintf(sql, sizeof sql,
           "CREATE TABLE [tblDataView] ([nID] %s NOT NULL PRIMARY KEY, [nDefaultQueryID] %s, "
           "[nDefaultOrder] %s, [tName] %s, [tDescription] %s)",
           int_type, int_type, int_type, text_type, text_type);
  execute(cn.value.obj, sql);
  execute(cn.value.obj, "INSERT INTO [tblDataView] VALUES (1, 0, 2, 'Tickets', 'Every ticket')");
  execute(cn.value.obj,
          "INSERT INTO [tblDataView] VALUES (2, 1, 8, 'Ticket details', 'Open tickets')");

  if (!ok(zt_create("ZtDBTools404.CZtDataViewCol", &views, &e), &e, "create views")) return;
  zt_variant_init(&arg);
  zt_variant_set_object(&arg, ds);
  ok(zt_invoke(views, "Load", &arg, 1, NULL, &e), &e, "Load");
  zt_variant_clear(&arg);

  zt_variant_init(&views_count);
  ok(zt_get(views, "Count", &views_count, &e), &e, "Count");
  CHECK(views_count.type == ZT_VT_LONG && views_count.value.i32 == 2);

  zt_variant_init(&key);
  zt_variant_init(&view);
  zt_variant_init(&name);
  zt_variant_set_long(&key, 2);
  if (ok(zt_invoke(views, "Item", &key, 1, &view, &e), &e, "Item")) {
    CHECK(view.type == ZT_VT_OBJECT);
    ok(zt_get(view.value.obj, "Name", &name, &e), &e, "Name");
    CHECK(name.type == ZT_VT_STRING && strcmp(name.value.str, "Ticket details") == 0);
  }
  zt_variant_clear(&name);
  zt_variant_clear(&view);
  execute(cn.value.obj, "DROP TABLE [tblDataView]");
  zt_variant_clear(&cn);
  zt_release(views);
}

static void sqlite_store(void) {
  zt_error e = {0};
  zt_object* ds = NULL;
  char folder[] = "/tmp/zt_c_requestXXXXXX";
  char path[600];
  if (!mkdtemp(folder)) {
    perror("mkdtemp");
    ++failures;
    return;
  }
  if (!ok(zt_create("ZtDBTools404.CZtDataStore", &ds, &e), &e, "create data store")) return;
  put_long(ds, "GeneralProviderType", 1);
  put_string(ds, "Location", folder);
  put_string(ds, "DataStoreName", "helpdesk.db");
  ok(zt_invoke(ds, "CreatePhysicalDataStore", NULL, 0, NULL, &e), &e, "CreatePhysicalDataStore");
  typical_request(ds, "INTEGER", "TEXT(255)");
  ok(zt_invoke(ds, "DeletePhysicalDataStore", NULL, 0, NULL, &e), &e, "DeletePhysicalDataStore");
  zt_release(ds);
  snprintf(path, sizeof path, "rm -rf '%s'", folder);
  if (system(path) != 0) ++failures;
}

static void postgresql_store(void) {
  const char* host = getenv("DBTEST_PG_HOST");
  const char* port = getenv("DBTEST_PG_PORT");
  const char* db = getenv("DBTEST_PG_DB");
  const char* user = getenv("DBTEST_PG_USER");
  const char* password = getenv("DBTEST_PG_PASSWORD");
  zt_error e = {0};
  zt_object* ds = NULL;
  char location[300];
  if (!host || !port || !db) {
    printf("PostgreSQL not configured (DBTEST_PG_*): skipped\n");
    return;
  }
  snprintf(location, sizeof location, "%s,%s", host, port);
  if (!ok(zt_create("CZtDataStore", &ds, &e), &e, "create data store")) return;
  put_long(ds, "GeneralProviderType", 32);
  put_string(ds, "Location", location);
  put_string(ds, "DataStoreName", db);
  put_string(ds, "UserName", user ? user : "");
  put_string(ds, "Password", password ? password : "");
  typical_request(ds, "INTEGER", "VARCHAR(255)");
  zt_release(ds);
  printf("PostgreSQL: typical request run\n");
}

static void errors_come_back_as_values(void) {
  zt_error e = {0};
  zt_object* ds = NULL;
  zt_variant v;
  zt_class_factory* factory = NULL;
  zt_variant_init(&v);
  CHECK(zt_abi_version() >> 16 == ZT_ABI_VERSION_MAJOR);
  CHECK(DllGetClassObject("ZtDBTools404.CZtNothing", &factory) == ZT_E_NOCLASS);
  CHECK(DllGetClassObject("ZtDBTools404.CZtDataStore", &factory) == ZT_OK);
  CHECK(DllCanUnloadNow() == 0);
  if (zt_factory_create(factory, &ds, &e) != ZT_OK) {
    ++failures;
    return;
  }
  CHECK(DllCanUnloadNow() == 1);
  CHECK(zt_get(ds, "NoSuchThing", &v, &e) == ZT_E_FAIL);
  CHECK(e.number == 438);
  CHECK(e.description &&
        strcmp(e.description, "Object doesn't support this property or method") == 0);
  CHECK(e.source && strcmp(e.source, "ZtDBTools404") == 0);
  zt_error_clear(&e);
  CHECK(zt_invoke(ds, "GetConnection", NULL, 0, &v, &e) == ZT_E_FAIL && e.number == 450);
  zt_error_clear(&e);
  zt_variant_set_string(&v, "not a number");
  CHECK(zt_put(ds, "GeneralProviderType", &v, &e) == ZT_E_FAIL && e.number == 13);
  zt_error_clear(&e);
  zt_variant_clear(&v);
  CHECK(zt_get(NULL, "Location", &v, &e) == ZT_E_INVALIDARG);
  zt_release(ds);
  CHECK(DllCanUnloadNow() == 0);
  CHECK(zt_live_objects() == 0);
}

int main(void) {
  errors_come_back_as_values();
  sqlite_store();
  postgresql_store();
  CHECK(zt_live_objects() == 0);
  if (failures) fprintf(stderr, "%d failure(s)\n", failures);
  return failures ? 1 : 0;
}
