#include "KernelFigures.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <sstream>
#include <system_error>

namespace vexa::tools {

namespace {

std::optional<std::string> readFile(const std::string& path) {
  std::ifstream file(path);
  if (!file) return std::nullopt;
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// The number at the start of `text` after blanks.
std::optional<double> leadingNumber(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end == text.data()) return std::nullopt;
  return value;
}

}  // namespace

std::optional<double> KernelFigures::uptime() const {
  const auto text = readFile(root_ + "/proc/uptime");
  return text ? parseUptime(*text) : std::nullopt;
}

std::optional<double> KernelFigures::memAvailable() const {
  const auto text = readFile(root_ + "/proc/meminfo");
  return text ? parseMemAvailable(*text) : std::nullopt;
}

std::optional<double> KernelFigures::parseUptime(std::string_view text) {
  return leadingNumber(text);
}

std::optional<double> KernelFigures::parseMemAvailable(std::string_view meminfo) {
  static constexpr std::string_view kKey = "MemAvailable:";
  size_t at = 0;
  while (at < meminfo.size()) {
    const size_t end = std::min(meminfo.find('\n', at), meminfo.size());
    const std::string_view line = meminfo.substr(at, end - at);
    if (line.starts_with(kKey)) {
      const auto kib = leadingNumber(line.substr(kKey.size()));
      if (kib) return *kib * 1024;
      return std::nullopt;
    }
    at = end + 1;
  }
  return std::nullopt;
}

}  // namespace vexa::tools
