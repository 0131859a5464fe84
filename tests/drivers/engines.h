// Helpers of the drivers' tests, which talk to the driver backends directly. The servers come
// from the test engine registry (support/engines.h); the Access sample is fetched by
// fetch_access_sample.sh. A missing engine skips its tests, except under ZT_REQUIRE_ENGINES=1
// (CI), where it fails them.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

#include "platform/driver.h"
#include "support/engines.h"
#include "zt/error.h"

namespace zt::testing {

// The connection string naming `provider` for the server behind DBTEST_<prefix>_* ("PG",
// "MY"), or nullopt when that server is not configured.
inline std::optional<std::string> ServerConnectionString(const std::string& provider,
                                                         const std::string& prefix) {
  for (Engine e : TestEngines()) {
    if (e.env_prefix != "DBTEST_" + prefix) continue;
    if (!e.Available()) return std::nullopt;
    e.provider = provider;
    return e.ConnectionString("");
  }
  return std::nullopt;
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
