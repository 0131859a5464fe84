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

SiblingFile::SiblingFile(std::string target) : target_(std::move(target)) {
  const std::filesystem::path path(target_);
  // The mode of the file being replaced; a new file gets the default one (0666 less umask).
  struct stat st {};
  const bool replaces = ::stat(target_.c_str(), &st) == 0 && S_ISREG(st.st_mode);
  std::random_device random;
  for (int attempt = 0; attempt < 16 && fd_ < 0; ++attempt) {
    char tag[20];
    std::snprintf(tag, sizeof tag, "%08x", static_cast<unsigned>(random()));
    temp_ = (path.parent_path() / ("." + path.filename().string() + "." + tag + ".tmp")).string();
    fd_ = ::open(temp_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd_ < 0 && errno != EEXIST) break;
  }
  if (fd_ < 0) {
    error_ = LastError();
    temp_.clear();
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

std::error_code SiblingFile::Commit() {
  if (!Drain()) return error_;
  if (::fsync(fd_) != 0) return error_ = LastError();
  const int fd = fd_;
  fd_ = -1;
  if (::close(fd) != 0) return error_ = LastError();
  if (::rename(temp_.c_str(), target_.c_str()) != 0) return error_ = LastError();
  temp_.clear();
  return {};
}

}  // namespace zt
