#include "util/MountTable.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "util/UniqueFd.h"

namespace vexa {

namespace {

constexpr size_t kMaxTableBytes = 16U << 20U;

bool isOctal(char c) { return c >= '0' && c <= '7'; }

std::vector<std::string_view> fields(std::string_view line) {
  std::vector<std::string_view> out;
  size_t at = 0;
  while (at < line.size()) {
    const size_t start = line.find_first_not_of(' ', at);
    if (start == std::string_view::npos) break;
    const size_t end = line.find(' ', start);
    out.push_back(line.substr(start, end == std::string_view::npos ? end : end - start));
    at = end == std::string_view::npos ? line.size() : end;
  }
  return out;
}

}  // namespace

std::string MountTable::unescape(std::string_view field) {
  std::string out;
  out.reserve(field.size());
  for (size_t i = 0; i < field.size(); ++i) {
    if (field[i] == '\\' && i + 3 < field.size() && isOctal(field[i + 1]) &&
        isOctal(field[i + 2]) && isOctal(field[i + 3])) {
      const int value = (field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 + (field[i + 3] - '0');
      if (value <= 0xff) {
        out.push_back(static_cast<char>(value));
        i += 3;
        continue;
      }
    }
    out.push_back(field[i]);
  }
  return out;
}

std::vector<MountEntry> MountTable::parse(std::string_view text) {
  std::vector<MountEntry> entries;
  size_t at = 0;
  while (at < text.size()) {
    size_t end = text.find('\n', at);
    if (end == std::string_view::npos) end = text.size();
    const auto parts = fields(text.substr(at, end - at));
    at = end + 1;
    // id, parent, major:minor, root, mount point, options, optional fields..., "-", type,
    // source, super options.
    if (parts.size() < 9) continue;
    size_t separator = 6;
    while (separator < parts.size() && parts[separator] != "-") ++separator;
    if (separator + 2 >= parts.size()) continue;
    std::string options(parts[5]);
    if (separator + 3 < parts.size()) options.append(",").append(parts[separator + 3]);
    entries.push_back(MountEntry{unescape(parts[3]), unescape(parts[4]),
                                 unescape(parts[separator + 1]), unescape(parts[separator + 2]),
                                 std::string(parts[2]), std::move(options)});
  }
  return entries;
}

std::vector<MountEntry> MountTable::read(const std::string& path) {
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat st {};
  if (!fd || ::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) return {};
  // The kernel's tables report no size: read until the end.
  std::string text;
  char buffer[16384];
  while (text.size() < kMaxTableBytes) {
    const ssize_t got = ::read(fd.get(), buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    text.append(buffer, static_cast<size_t>(got));
  }
  return parse(text);
}

}  // namespace vexa
