// Where the drivers' tests find their engines: servers from the DBTEST_* variables that the
// project's test script exports, the Access sample fetched by fetch_access_sample.sh.
// A missing engine skips its tests, except under ZT_REQUIRE_ENGINES=1 (CI), where it fails them.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

#include "platform/driver.h"
#include "zt/error.h"

namespace zt::testing {

inline bool EnginesRequired() {
  const char* v = std::getenv("ZT_REQUIRE_ENGINES");
  return v && std::string(v) == "1";
}

inline std::string EnvOr(const char* name, const std::string& fallback = {}) {
  const char* v = std::getenv(name);
  return v ? std::string(v) : fallback;
}

// "Provider=...;Data Source=host;Port=...;..." for the server behind DBTEST_<prefix>_*, or
// nullopt when the variables are not set.
inline std::optional<std::string> ServerConnectionString(const std::string& provider,
                                                         const std::string& prefix) {
  const std::string host = EnvOr(("DBTEST_" + prefix + "_HOST").c_str());
  if (host.empty()) return std::nullopt;
  return "Provider=" + provider + ";Data Source=" + host +
         ";Port=" + EnvOr(("DBTEST_" + prefix + "_PORT").c_str()) +
         ";Initial Catalog=" + EnvOr(("DBTEST_" + prefix + "_DB").c_str()) +
         ";User ID=" + EnvOr(("DBTEST_" + prefix + "_USER").c_str()) +
         ";Password=" + EnvOr(("DBTEST_" + prefix + "_PASSWORD").c_str()) + ";";
}

inline std::unique_ptr<platform::ConnectionBackend> OpenBackend(const std::string& text) {
  const platform::ConnectParams p = platform::ParseConnectionString(text);
  const platform::DriverFactory* f = platform::FindDriver(p.driver);
  if (!f) throw std::runtime_error("no driver " + p.driver);
  return (*f)(p);
}

// Runs `sql` (no result expected) and returns the rows it affected.
inline std::int64_t Exec(platform::ConnectionBackend& c, const std::string& sql,
                         const std::vector<Variant>& params = {}) {
  auto st = c.Prepare(sql);
  for (std::size_t i = 0; i < params.size(); ++i) st->Bind(static_cast<int>(i), params[i]);
  st->Execute();
  return st->RowsAffected();
}

// All rows of `sql`.
inline platform::RowSet Rows(platform::ConnectionBackend& c, const std::string& sql) {
  auto st = c.Prepare(sql);
  st->Execute();
  platform::RowSet rs;
  rs.columns = st->Columns();
  while (st->Fetch()) {
    std::vector<Variant> row;
    for (std::size_t i = 0; i < rs.columns.size(); ++i) row.push_back(st->Get(static_cast<int>(i)));
    rs.rows.push_back(std::move(row));
  }
  return rs;
}

// Index of the rowset column `name` (-1 when absent).
inline int ColumnIndex(const platform::RowSet& rs, const std::string& name) {
  for (std::size_t i = 0; i < rs.columns.size(); ++i)
    if (rs.columns[i].name == name) return static_cast<int>(i);
  return -1;
}

}  // namespace zt::testing

// Skips the test when the engine is missing, or fails it under ZT_REQUIRE_ENGINES=1.
#define ZT_NEED_ENGINE(available, what)                                       \
  do {                                                                        \
    if (!(available)) {                                                       \
      if (::zt::testing::EnginesRequired()) FAIL() << what << " is required"; \
      GTEST_SKIP() << what << " is not available";                            \
    }                                                                         \
  } while (0)
