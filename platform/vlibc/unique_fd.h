// A file descriptor that closes itself.
#ifndef QRIX_PLATFORM_VLIBC_UNIQUE_FD_H_
#define QRIX_PLATFORM_VLIBC_UNIQUE_FD_H_

#include <unistd.h>

#include <utility>

namespace qrix {

class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) {
      Reset(std::exchange(other.fd_, -1));
    }
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  ~UniqueFd() { Reset(); }

  int Get() const { return fd_; }
  bool Valid() const { return fd_ >= 0; }
  int Release() { return std::exchange(fd_, -1); }
  void Reset(int fd = -1) {
    if (fd_ >= 0) {
      ::close(fd_);
    }
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

}  // namespace qrix

#endif  // QRIX_PLATFORM_VLIBC_UNIQUE_FD_H_
