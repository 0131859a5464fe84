// Writing a file beside its target and renaming it over the target.
#include "foundation/sibling_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <random>

namespace zt {

namespace {

constexpr std::size_t kBufferSize = 64 * 1024;

std::error_code LastError() {
  return {errno, std::generic_category()};
}

}  // namespace

// A free name beside `target`: ".<name>.<random><suffix>", for `make` to claim exclusively
// (it returns false with EEXIST when the name is taken).
template <class Make>
std::string ClaimSiblingName(const std::string& target, const char* suffix, Make&& make) {
  const std::filesystem::path path(target);
  std::random_device random;
  for (int attempt = 0; attempt < 16; ++attempt) {
    char tag[20];
    std::snprintf(tag, sizeof tag, "%08x", static_cast<unsigned>(random()));
    std::string name =
        (path.parent_path() / ("." + path.filename().string() + "." + tag + suffix)).string();
    if (make(name)) return name;
    if (errno != EEXIST) break;
  }
  return {};
}

SiblingFile::SiblingFile(std::string target) : target_(std::move(target)) {
  // The mode of the file being replaced; a new file gets the default one (0666 less umask).
  struct stat st {};
  const bool replaces = ::stat(target_.c_str(), &st) == 0 && S_ISREG(st.st_mode);
  std::string folder = std::filesystem::path(target_).parent_path().string();
  if (folder.empty()) folder = ".";
#ifdef O_TMPFILE
  // Readable too: where /proc is missing, Name copies the bytes out of it.
  fd_ = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0666);
  unnamed_ = fd_ >= 0;
#endif
  if (fd_ < 0)
    temp_ = ClaimSiblingName(target_, ".tmp", [&](const std::string& name) {
      fd_ = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
      return fd_ >= 0;
    });
  if (fd_ < 0) {
    error_ = LastError();
    return;
  }
  if (replaces && ::fchmod(fd_, st.st_mode & 07777) != 0) error_ = LastError();
  buffer_.reserve(kBufferSize);
}

SiblingFile::~SiblingFile() {
  if (fd_ >= 0) ::close(fd_);
  if (!temp_.empty()) ::unlink(temp_.c_str());
}

bool SiblingFile::Drain() {
  if (error_) return false;
  std::size_t done = 0;
  while (done < buffer_.size()) {
    const ssize_t n = ::write(fd_, buffer_.data() + done, buffer_.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      error_ = LastError();
      return false;
    }
    done += static_cast<std::size_t>(n);
  }
  buffer_.clear();
  return true;
}

SiblingFile::int_type SiblingFile::overflow(int_type c) {
  if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
  buffer_ += traits_type::to_char_type(c);
  if (buffer_.size() >= kBufferSize && !Drain()) return traits_type::eof();
  return c;
}

std::streamsize SiblingFile::xsputn(const char* s, std::streamsize n) {
  buffer_.append(s, static_cast<std::size_t>(n));
  if (buffer_.size() >= kBufferSize && !Drain()) return 0;
  return n;
}

int SiblingFile::sync() {
  return Drain() ? 0 : -1;
}

// Gives the unnamed file a name of its own beside the target. linkat() through /proc is the
// documented way to do that without privileges; where /proc is missing the bytes are copied to
// a named file instead.
std::error_code SiblingFile::Name() {
  const std::string proc = "/proc/self/fd/" + std::to_string(fd_);
  temp_ = ClaimSiblingName(target_, ".tmp", [&](const std::string& name) {
    return ::linkat(AT_FDCWD, proc.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0;
  });
  if (!temp_.empty()) return {};
  if (errno != ENOENT) return LastError();
  int copy = -1;
  temp_ = ClaimSiblingName(target_, ".tmp", [&](const std::string& name) {
    copy = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    return copy >= 0;
  });
  if (copy < 0) return LastError();
  struct stat st {};
  loff_t from = 0;
  bool ok = ::fstat(fd_, &st) == 0 && ::fchmod(copy, st.st_mode & 07777) == 0;
  while (ok && from < st.st_size) {
    const ssize_t n = ::copy_file_range(fd_, &from, copy, nullptr,
                                        static_cast<std::size_t>(st.st_size - from), 0);
    ok = n > 0;
  }
  ok = ok && ::fsync(copy) == 0;
  const std::error_code ec = ok ? std::error_code() : LastError();
  ::close(copy);
  return ec;
}

std::error_code SiblingFile::Commit(bool keep_backup) {
  if (!Drain()) return error_;
  if (::fsync(fd_) != 0) return error_ = LastError();
  if (unnamed_) {
    unnamed_ = false;
    if ((error_ = Name())) return error_;
  }
  const int fd = fd_;
  fd_ = -1;
  if (::close(fd) != 0) return error_ = LastError();
  struct stat st {};
  if (keep_backup && ::lstat(target_.c_str(), &st) == 0 && S_ISREG(st.st_mode)) {
    // The old file gets its second name before the new one takes its first: the target is
    // there all along. Where the file system has no hard links, the old file is moved aside.
    const std::string backup = target_ + ".bak";
    const std::string link = ClaimSiblingName(target_, ".bak", [&](const std::string& name) {
      return ::link(target_.c_str(), name.c_str()) == 0;
    });
    if (!link.empty() ? ::rename(link.c_str(), backup.c_str()) != 0
                      : ::rename(target_.c_str(), backup.c_str()) != 0) {
      error_ = LastError();
      if (!link.empty()) ::unlink(link.c_str());
      return error_;
    }
  }
  if (::rename(temp_.c_str(), target_.c_str()) != 0) return error_ = LastError();
  temp_.clear();
  return {};
}

}  // namespace zt
