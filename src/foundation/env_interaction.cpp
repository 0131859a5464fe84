// The default person at the keyboard (the controlling terminal) and the default datagram
// transport (UDP sockets), with CZtDialog on top of the thread's prompt.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "zt/datagram.h"
#include "zt/env.h"
#include "zt/user_interaction.h"

namespace zt {

namespace {

// Closes a descriptor when it goes out of scope.
class Fd {
 public:
  explicit Fd(int fd) : fd_(fd) {}
  ~Fd() {
    if (fd_ >= 0) ::close(fd_);
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

void WriteAll(int fd, const std::string& text) {
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    done += static_cast<std::size_t>(n);
  }
}

// Reads one line; nullopt at the end of input before a line ended (Ctrl-D: cancelled).
std::optional<std::string> ReadLine(int fd) {
  std::string line;
  for (;;) {
    char c = 0;
    const ssize_t n = ::read(fd, &c, 1);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return std::nullopt;
    if (c == '\n') return line;
    if (c != '\r') line += c;
  }
}

class TerminalPrompt : public IZtPrompt {
 public:
  std::optional<std::string> InputBox(const std::string& prompt, const std::string& title,
                                      const std::string& default_value, bool secret) override {
    // Only the controlling terminal is asked: standard input may be a pipe of data, and a
    // password must never be read from one by surprise.
    Fd tty(::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (tty.get() < 0) return std::nullopt;
    std::string text = title.empty() ? "" : title + "\n";
    text += prompt;
    if (!default_value.empty() && !secret) text += " [" + default_value + "]";
    WriteAll(tty.get(), text + " ");
    termios old{};
    const bool quiet = secret && ::tcgetattr(tty.get(), &old) == 0;
    if (quiet) {
      termios silent = old;
      silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
      ::tcsetattr(tty.get(), TCSAFLUSH, &silent);
    }
    std::optional<std::string> answer = ReadLine(tty.get());
    if (quiet) {
      ::tcsetattr(tty.get(), TCSAFLUSH, &old);
      WriteAll(tty.get(), "\n");
    }
    if (answer && answer->empty() && !secret) answer = default_value;
    return answer;
  }

  bool AskYesNo(const std::string& question, const std::string& title) override {
    const auto answer = InputBox(question + " [y/N]", title, {}, false);
    return answer && (*answer == "y" || *answer == "Y" || *answer == "yes" || *answer == "Yes");
  }
};

class UdpTransport : public IZtDatagramTransport {
 public:
  std::vector<Datagram> Exchange(const std::vector<DatagramTarget>& targets,
                                 const std::string& payload, std::int64_t timeout_ms,
                                 std::vector<std::string>& problems) override {
    std::vector<Datagram> answers;
    Fd sock(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (sock.get() < 0) {
      problems.push_back(std::string("no UDP socket: ") + std::strerror(errno));
      return answers;
    }
    const int on = 1;
    ::setsockopt(sock.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    std::size_t sent = 0;
    for (const auto& t : targets) {
      addrinfo hints{};
      hints.ai_family = AF_INET;
      hints.ai_socktype = SOCK_DGRAM;
      addrinfo* found = nullptr;
      const std::string port = std::to_string(t.port);
      if (const int rc = ::getaddrinfo(t.host.c_str(), port.c_str(), &hints, &found); rc != 0) {
        problems.push_back(t.host + ": " + ::gai_strerror(rc));
        continue;
      }
      if (::sendto(sock.get(), payload.data(), payload.size(), 0, found->ai_addr,
                   found->ai_addrlen) < 0)
        problems.push_back(t.host + ":" + port + ": " + std::strerror(errno));
      else
        ++sent;
      ::freeaddrinfo(found);
    }
    if (sent == 0) return answers;
    const auto deadline = std::chrono::steady_clock::now() +
                          std::chrono::milliseconds(timeout_ms < 0 ? 0 : timeout_ms);
    std::string buffer(65536 + 16, '\0');
    for (;;) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                            deadline - std::chrono::steady_clock::now())
                            .count();
      if (left <= 0) break;
      pollfd p{sock.get(), POLLIN, 0};
      const int ready = ::poll(&p, 1, static_cast<int>(left));
      if (ready < 0 && errno == EINTR) continue;
      if (ready <= 0) break;
      sockaddr_in from{};
      socklen_t from_len = sizeof from;
      const ssize_t n = ::recvfrom(sock.get(), buffer.data(), buffer.size(), 0,
                                   reinterpret_cast<sockaddr*>(&from), &from_len);
      if (n < 0) continue;  // an ICMP "port unreachable" from one target ends nothing
      char address[INET_ADDRSTRLEN] = {};
      ::inet_ntop(AF_INET, &from.sin_addr, address, sizeof address);
      answers.push_back({address, buffer.substr(0, static_cast<std::size_t>(n))});
    }
    return answers;
  }
};

}  // namespace

IZtPrompt& Env::Prompt() {
  static TerminalPrompt* prompt = new TerminalPrompt();  // stateless; shared by every thread
  return *prompt;
}

IZtDatagramTransport& Env::Datagrams() {
  static UdpTransport* transport = new UdpTransport();  // stateless; shared by every thread
  return *transport;
}

std::optional<std::string> CZtDialog::ZtInputBox(const std::string& prompt,
                                                 const std::string& title,
                                                 const std::string& default_value, bool secret) {
  return Env::Current().Prompt().InputBox(prompt, title, default_value, secret);
}

bool CZtDialog::ZtAskYesNo(const std::string& question, const std::string& title) {
  return Env::Current().Prompt().AskYesNo(question, title);
}

}  // namespace zt
