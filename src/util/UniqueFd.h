#pragma once

#include <unistd.h>

#include <utility>

namespace vexa {

// Owns one open descriptor and closes it when it goes out of scope or is reset. Moves, never
// copies. Whoever opens the descriptor still passes O_CLOEXEC (or SOCK_CLOEXEC, IN_CLOEXEC):
// children spawned by other threads must not inherit it.
class UniqueFd {
 public:
  UniqueFd() noexcept = default;
  explicit UniqueFd(int fd) noexcept : fd_(fd) {}
  ~UniqueFd() { reset(); }
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;

  int get() const noexcept { return fd_; }
  bool ok() const noexcept { return fd_ >= 0; }
  explicit operator bool() const noexcept { return ok(); }

  // Gives the descriptor up without closing it.
  int release() noexcept { return std::exchange(fd_, -1); }
  // Closes the descriptor held (if any) and holds `fd` instead.
  void reset(int fd = -1) noexcept {
    const int old = std::exchange(fd_, fd);
    if (old >= 0) ::close(old);
  }

 private:
  int fd_ = -1;
};

}  // namespace vexa
