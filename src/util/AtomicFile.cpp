#include "util/AtomicFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "util/UniqueFd.h"

namespace vexa {

namespace {

std::error_code lastError() { return {errno, std::generic_category()}; }

}  // namespace

std::error_code AtomicFile::write(const std::string& path, std::string_view contents,
                                  unsigned mode) {
  static std::atomic<unsigned> counter{0};
  const std::string temp =
      path + ".tmp." + std::to_string(getpid()) + "." + std::to_string(counter.fetch_add(1));
  UniqueFd fd(::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW,
                     static_cast<mode_t>(mode)));
  if (!fd) return lastError();
  const char* p = contents.data();
  size_t left = contents.size();
  while (left > 0) {
    const ssize_t n = ::write(fd.get(), p, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      const std::error_code ec = n < 0 ? lastError() : std::make_error_code(std::errc::io_error);
      fd.reset();
      ::unlink(temp.c_str());
      return ec;
    }
    p += n;
    left -= static_cast<size_t>(n);
  }
  // The umask narrowed the mode at creation; the caller asked for this one.
  ::fchmod(fd.get(), static_cast<mode_t>(mode));
  // close() reports a write error some file systems keep until then.
  if (::close(fd.release()) != 0 || ::rename(temp.c_str(), path.c_str()) != 0) {
    const std::error_code ec = lastError();
    ::unlink(temp.c_str());
    return ec;
  }
  return {};
}

bool AtomicFile::createFolders(const std::string& path, unsigned mode) {
  for (size_t at = 1; at != std::string::npos;) {
    at = path.find('/', at + 1);
    ::mkdir(path.substr(0, at).c_str(), static_cast<mode_t>(mode));
  }
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::optional<std::string> AtomicFile::read(const std::string& path, std::size_t limit) {
  // O_NONBLOCK: opening a pipe planted under the name must not wait for a writer. It changes
  // nothing for the regular files read below.
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!fd) return std::nullopt;
  struct stat st {};
  if (::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode) ||
      static_cast<size_t>(st.st_size) > limit) {
    return std::nullopt;
  }
  std::string data;
  char buffer[65536];
  for (;;) {
    const ssize_t n = ::read(fd.get(), buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return std::nullopt;
    if (n == 0) break;
    data.append(buffer, static_cast<size_t>(n));
    if (data.size() > limit) return std::nullopt;
  }
  return data;
}

}  // namespace vexa
