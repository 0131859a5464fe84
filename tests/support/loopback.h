// A socket bound to 127.0.0.1 on a port the kernel picks, for the tests' stand-in servers.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>

namespace zt::testing {

// Returns the socket (SOCK_STREAM or SOCK_DGRAM) and sets `port`; the caller closes it.
inline int BindLoopback(int type, std::uint16_t& port) {
  const int fd = ::socket(AF_INET, type, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a);
  socklen_t len = sizeof a;
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
  port = ntohs(a.sin_port);
  return fd;
}

}  // namespace zt::testing
