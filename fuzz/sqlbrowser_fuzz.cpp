// Fuzz target for what a SQL Server on the network sends back: the browser's answer datagram
// (any host on the segment can send one) and the "SELECT @@version" text. Besides crashes and
// sanitizer reports it checks what discovery relies on: every instance it lets through names a
// server and an instance and carries the peer it came from.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "zt/error.h"
#include "zt/sqlserver/discovery.h"
#include "zt/sqlserver/sql_server.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::vector<std::string> problems;
  const auto found = zt::ParseSqlBrowserAnswer(text, "127.0.0.1", problems);
  for (const auto& i : found)
    if (i.server_name.empty() || i.instance_name.empty() || i.peer != "127.0.0.1") std::abort();
  try {
    (void)zt::ParseSqlServerMajorVersion(text);
  } catch (const zt::ZtError&) {
    // a banner without a version is refused, which is what it must be
  }
  return 0;
}
