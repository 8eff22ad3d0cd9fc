#include "util/HiddenList.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <mutex>
#include <string_view>

#include "util/UniqueFd.h"

namespace vexa {

namespace {

constexpr const char* kListName = ".hidden";
constexpr size_t kMaxListBytes = size_t{16} << 20;
// Temporary names are predictable, so anyone who can write the folder can occupy a few.
constexpr int kTemporaryNameAttempts = 16;

std::mutex& listMutex() {
  static auto* m = new std::mutex;
  return *m;
}

bool listable(const std::string& name) {
  return !name.empty() && name != "." && name != ".." &&
         name.find_first_of("/\n") == std::string::npos;
}

// Reads what is left of the open file, at most `limit` bytes.
std::optional<std::string> readAll(int fd, size_t limit) {
  std::string data;
  char buffer[65536];
  for (;;) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return std::nullopt;
    if (n == 0) return data;
    data.append(buffer, static_cast<size_t>(n));
    if (data.size() > limit) return std::nullopt;
  }
}

bool writeAll(int fd, std::string_view data) {
  while (!data.empty()) {
    const ssize_t n = ::write(fd, data.data(), data.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

}  // namespace

std::optional<std::vector<std::string>> HiddenList::names() const {
  // O_NONBLOCK: a pipe planted as the list must not hold the caller up.
  UniqueFd list(
      ::openat(folder_, kListName, O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!list) {
    if (errno == ENOENT) return std::vector<std::string>{};
    return std::nullopt;
  }
  struct stat st {};
  if (::fstat(list.get(), &st) != 0 || !S_ISREG(st.st_mode) ||
      static_cast<size_t>(st.st_size) > kMaxListBytes) {
    return std::nullopt;
  }
  const auto text = readAll(list.get(), kMaxListBytes);
  if (!text) return std::nullopt;
  std::vector<std::string> out;
  for (size_t start = 0; start < text->size();) {
    size_t end = text->find('\n', start);
    if (end == std::string::npos) end = text->size();
    if (end > start) out.emplace_back(*text, start, end - start);
    start = end + 1;
  }
  return out;
}

bool HiddenList::isHidden(const std::string& name) const {
  if (name.starts_with(".")) return true;
  const auto listed = names();
  return listed && std::find(listed->begin(), listed->end(), name) != listed->end();
}

bool HiddenList::setHidden(const std::string& name, bool hidden) const {
  if (!listable(name)) return false;
  struct stat st {};
  if (::fstatat(folder_, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return false;
  if (name.starts_with(".")) return hidden;
  std::lock_guard lock(listMutex());
  auto listed = names();
  if (!listed) return false;
  const bool present = std::find(listed->begin(), listed->end(), name) != listed->end();
  if (present == hidden) return true;
  if (hidden) {
    listed->push_back(name);
  } else {
    std::erase(*listed, name);
  }
  if (listed->empty()) return ::unlinkat(folder_, kListName, 0) == 0 || errno == ENOENT;
  return write(*listed);
}

bool HiddenList::write(const std::vector<std::string>& names) const {
  std::string text;
  for (const auto& n : names) text += n + "\n";
  static std::atomic<unsigned> counter{0};
  for (int attempt = 0; attempt < kTemporaryNameAttempts; ++attempt) {
    const std::string temporary = std::string(kListName) + ".tmp." + std::to_string(::getpid()) +
                                  "." + std::to_string(counter.fetch_add(1));
    UniqueFd out(::openat(folder_, temporary.c_str(),
                          O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
    if (!out) {
      if (errno == EEXIST) continue;
      return false;
    }
    // The umask narrowed the mode at creation; file managers of every user read the list.
    const bool written = writeAll(out.get(), text) && ::fchmod(out.get(), 0644) == 0 &&
                         ::close(out.release()) == 0 &&
                         ::renameat(folder_, temporary.c_str(), folder_, kListName) == 0;
    if (!written) ::unlinkat(folder_, temporary.c_str(), 0);
    return written;
  }
  return false;
}

}  // namespace vexa
