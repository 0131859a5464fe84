// Datagrams to and from the network: a question sent to several hosts at once and every answer
// that arrives within a time-out. Server discovery asks this way; it goes through the thread's
// Env (Env::Datagrams) so that tests can put a responder of their own behind it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "zt/export.h"

namespace zt {

struct ZT_EXPORT DatagramTarget {
  std::string host;  // a name, an IPv4 address or a broadcast address
  std::uint16_t port = 0;
};

struct ZT_EXPORT Datagram {
  std::string peer;  // the sender's address, "a.b.c.d"
  std::string data;
};

class ZT_EXPORT IZtDatagramTransport {
 public:
  virtual ~IZtDatagramTransport() = default;
  // Sends `payload` to every target and collects the answers that arrive until `timeout_ms`
  // have passed. A target that cannot be resolved or reached is skipped and described in
  // `problems`; nothing throws.
  virtual std::vector<Datagram> Exchange(const std::vector<DatagramTarget>& targets,
                                         const std::string& payload, std::int64_t timeout_ms,
                                         std::vector<std::string>& problems) = 0;
};

}  // namespace zt
