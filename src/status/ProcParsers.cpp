#include "status/ProcParsers.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <set>
#include <utility>

namespace vexa {
namespace {

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v'; }

std::string_view trim(std::string_view text) {
  while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && isSpace(text.back())) text.remove_suffix(1);
  return text;
}

// Calls fn with each line, without its new line.
template <typename Fn>
void forEachLine(std::string_view text, Fn&& fn) {
  while (!text.empty()) {
    const size_t end = text.find('\n');
    fn(text.substr(0, end));
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
}

// The white-space separated fields of a line.
std::vector<std::string_view> fields(std::string_view line) {
  std::vector<std::string_view> out;
  size_t i = 0;
  while (i < line.size()) {
    while (i < line.size() && isSpace(line[i])) ++i;
    const size_t start = i;
    while (i < line.size() && !isSpace(line[i])) ++i;
    if (i > start) out.push_back(line.substr(start, i - start));
  }
  return out;
}

std::optional<double> parseDouble(std::string_view text) {
  text = trim(text);
  if (text.empty()) return std::nullopt;
  double value = 0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) {
    return std::nullopt;
  }
  return value;
}

std::string unescapeOctal(std::string_view text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size()) {
      const std::string_view digits = text.substr(i + 1, 3);
      if (digits.size() == 3 && digits.find_first_not_of("01234567") == std::string_view::npos) {
        out.push_back(static_cast<char>(((digits[0] - '0') << 6) | ((digits[1] - '0') << 3) |
                                        (digits[2] - '0')));
        i += 3;
        continue;
      }
    }
    out.push_back(text[i]);
  }
  return out;
}

bool wanted(KeySet only, std::string_view key) {
  if (only.empty()) return true;
  // Most lines are not wanted: their first letter or length tells before a comparison does.
  for (const std::string_view name : only) {
    if (name.size() == key.size() && !key.empty() && name[0] == key[0] && name == key) return true;
  }
  return false;
}

// A whole decimal number of type T filling the trimmed text.
template <typename T>
std::optional<T> parseWhole(std::string_view text) {
  text = trim(text);
  if (text.empty()) return std::nullopt;
  T value = 0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

}  // namespace

std::optional<uint64_t> parseUnsigned(std::string_view text) { return parseWhole<uint64_t>(text); }

std::optional<int64_t> parseSigned(std::string_view text) { return parseWhole<int64_t>(text); }

KernelTable parseMeminfo(std::string_view text, KeySet only) {
  KernelTable table;
  forEachLine(text, [&](std::string_view line) {
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos || colon == 0) return;
    if (!wanted(only, trim(line.substr(0, colon)))) return;
    // One number, or a number and "kB".
    const std::string_view rest = trim(line.substr(colon + 1));
    const size_t blank = std::min(rest.find(' '), rest.find('\t'));
    const auto value = parseUnsigned(rest.substr(0, blank));
    if (!value) return;
    uint64_t bytes = *value;
    if (blank != std::string_view::npos) {
      if (trim(rest.substr(blank)) != "kB") return;
      if (bytes > UINT64_MAX / 1024) return;
      bytes *= 1024;
    }
    table.emplace(std::string(trim(line.substr(0, colon))), bytes);
  });
  return table;
}

KernelTable parseVmstat(std::string_view text, KeySet only) {
  KernelTable table;
  forEachLine(text, [&](std::string_view line) {
    if (!line.empty() && isSpace(line.front())) line = trim(line);
    // The name ends at the first blank. With a few names wanted, each is tried at the line's
    // start: most of the file's lines are passed over at their first letter.
    size_t space = 0;
    if (only.empty()) {
      while (space < line.size() && line[space] != ' ' && line[space] != '\t') ++space;
    } else {
      for (const std::string_view key : only) {
        if (!key.empty() && line.size() > key.size() && line[0] == key[0] &&
            (line[key.size()] == ' ' || line[key.size()] == '\t') && line.starts_with(key)) {
          space = key.size();
          break;
        }
      }
      if (space == 0) return;
    }
    if (space == line.size()) return;
    const std::string_view name = line.substr(0, space);
    // Exactly two fields: the rest must be one number.
    if (const auto value = parseUnsigned(line.substr(space)))
      table.emplace(std::string(name), *value);
  });
  return table;
}

std::vector<CoreTicks> parseProcStat(std::string_view text) {
  std::vector<CoreTicks> cores;
  forEachLine(text, [&](std::string_view line) {
    const auto parts = fields(line);
    if (parts.size() < 5 || parts[0].size() <= 3 || parts[0].substr(0, 3) != "cpu") return;
    const auto index = parseUnsigned(parts[0].substr(3));
    if (!index || *index > 1u << 20) return;
    uint64_t counters[8] = {};
    for (size_t i = 1; i < parts.size() && i <= 8; ++i) {
      const auto value = parseUnsigned(parts[i]);
      if (!value) return;
      counters[i - 1] = *value;
    }
    CoreTicks core;
    core.index = static_cast<int>(*index);
    core.user = counters[0];
    core.nice = counters[1];
    core.system = counters[2];
    core.idle = counters[3];
    core.iowait = counters[4];
    core.irq = counters[5];
    core.softirq = counters[6];
    core.steal = counters[7];
    cores.push_back(core);
  });
  return cores;
}

std::optional<LoadAverage> parseLoadavg(std::string_view text) {
  const auto parts = fields(text);
  if (parts.size() < 4) return std::nullopt;
  const auto one = parseDouble(parts[0]), five = parseDouble(parts[1]),
             fifteen = parseDouble(parts[2]);
  const size_t slash = parts[3].find('/');
  if (!one || !five || !fifteen || slash == std::string_view::npos) return std::nullopt;
  const auto runnable = parseUnsigned(parts[3].substr(0, slash));
  const auto threads = parseUnsigned(parts[3].substr(slash + 1));
  if (!runnable || !threads) return std::nullopt;
  const auto lastPid = parts.size() > 4 ? parseUnsigned(parts[4]) : std::nullopt;
  return LoadAverage{*one, *five, *fifteen, *runnable, *threads, lastPid.value_or(0)};
}

std::vector<SwapEntry> parseSwaps(std::string_view text) {
  std::vector<SwapEntry> entries;
  forEachLine(text, [&](std::string_view line) {
    const auto parts = fields(line);
    if (parts.size() < 4 || parts[0] == "Filename") return;
    const auto size = parseUnsigned(parts[2]);
    const auto used = parseUnsigned(parts[3]);
    if (!size || !used || *size > UINT64_MAX / 1024 || *used > UINT64_MAX / 1024) return;
    entries.push_back({unescapeOctal(parts[0]), std::string(parts[1]), *size * 1024, *used * 1024});
  });
  return entries;
}

std::optional<std::vector<int>> parseCpuList(std::string_view text) {
  text = trim(text);
  std::vector<int> cpus;
  if (text.empty()) return cpus;
  constexpr uint64_t kMaxCpu = 1 << 16;
  while (!text.empty()) {
    const size_t comma = text.find(',');
    const std::string_view range = text.substr(0, comma);
    const size_t dash = range.find('-');
    const auto first = parseUnsigned(range.substr(0, dash));
    const auto last =
        dash == std::string_view::npos ? first : parseUnsigned(range.substr(dash + 1));
    if (!first || !last || *first > *last || *last >= kMaxCpu) return std::nullopt;
    for (uint64_t cpu = *first; cpu <= *last; ++cpu) cpus.push_back(static_cast<int>(cpu));
    if (comma == std::string_view::npos) break;
    text.remove_prefix(comma + 1);
  }
  return cpus;
}

CpuInfo parseCpuinfo(std::string_view text) {
  CpuInfo info;
  std::set<std::pair<uint64_t, uint64_t>> cores;
  std::optional<uint64_t> package, core;
  auto endEntry = [&] {
    if (package && core) cores.emplace(*package, *core);
    package.reset();
    core.reset();
  };
  forEachLine(text, [&](std::string_view line) {
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos) {
      if (trim(line).empty()) endEntry();
      return;
    }
    const std::string_view key = trim(line.substr(0, colon));
    const std::string_view value = trim(line.substr(colon + 1));
    if (key == "processor") {
      ++info.processors;
    } else if (key == "model name" && !info.modelName && !value.empty()) {
      info.modelName = std::string(value);
    } else if (key == "cpu MHz" && !info.megahertz) {
      if (const auto mhz = parseDouble(value); mhz && *mhz > 0) info.megahertz = mhz;
    } else if (key == "physical id") {
      package = parseUnsigned(value);
    } else if (key == "core id") {
      core = parseUnsigned(value);
    }
  });
  endEntry();
  info.cores = static_cast<int>(cores.size());
  return info;
}

std::map<std::string, std::string> parseKeyValueFile(std::string_view text) {
  std::map<std::string, std::string> values;
  forEachLine(text, [&](std::string_view line) {
    line = trim(line);
    if (line.empty() || line.front() == '#') return;
    const size_t equals = line.find('=');
    if (equals == std::string_view::npos || equals == 0) return;
    const std::string_view key = line.substr(0, equals);
    if (key.find_first_of(" \t\"'") != std::string_view::npos) return;
    std::string_view raw = line.substr(equals + 1);
    std::string value;
    char quote = 0;
    if (!raw.empty() && (raw.front() == '"' || raw.front() == '\'')) {
      quote = raw.front();
      raw.remove_prefix(1);
      if (raw.empty() || raw.back() != quote) return;
      raw.remove_suffix(1);
    }
    for (size_t i = 0; i < raw.size(); ++i) {
      if (raw[i] == '\\' && quote != '\'' && i + 1 < raw.size()) ++i;
      value.push_back(raw[i]);
    }
    values[std::string(key)] = value;
  });
  return values;
}

std::optional<double> parseMillidegrees(std::string_view text) {
  text = trim(text);
  bool negative = false;
  if (!text.empty() && text.front() == '-') {
    negative = true;
    text.remove_prefix(1);
  }
  const auto magnitude = parseUnsigned(text);
  if (!magnitude || *magnitude > 273000) return std::nullopt;
  const double celsius = (negative ? -1.0 : 1.0) * static_cast<double>(*magnitude) / 1000.0;
  if (celsius <= -273.0 || celsius > 200.0) return std::nullopt;
  return celsius;
}

std::optional<ZramUsage> parseZramMmStat(std::string_view text) {
  const auto parts = fields(text);
  if (parts.size() < 3) return std::nullopt;
  const auto original = parseUnsigned(parts[0]);
  const auto used = parseUnsigned(parts[2]);
  if (!original || !used) return std::nullopt;
  return ZramUsage{*original, *used};
}

std::optional<PasswdEntry> findPasswdEntry(std::string_view text, uint32_t uid) {
  std::optional<PasswdEntry> found;
  forEachLine(text, [&](std::string_view line) {
    if (found) return;
    std::vector<std::string_view> columns;
    size_t start = 0;
    for (;;) {
      const size_t colon = line.find(':', start);
      columns.push_back(line.substr(start, colon - start));
      if (colon == std::string_view::npos) break;
      start = colon + 1;
    }
    if (columns.size() < 7 || columns[0].empty()) return;
    const auto id = parseUnsigned(columns[2]);
    if (!id || *id != uid) return;
    const std::string_view gecos = columns[4].substr(0, columns[4].find(','));
    found = PasswdEntry{std::string(columns[0]), std::string(gecos)};
  });
  return found;
}

std::optional<std::string> trimmedValue(const std::optional<std::string>& text) {
  if (!text) return std::nullopt;
  std::string_view value = *text;
  while (!value.empty() && (value.back() == '\0' || isSpace(value.back()))) value.remove_suffix(1);
  while (!value.empty() && isSpace(value.front())) value.remove_prefix(1);
  if (value.empty()) return std::nullopt;
  return std::string(value);
}

std::vector<NetDevCounters> parseNetDev(std::string_view text) {
  std::vector<NetDevCounters> counters;
  forEachLine(text, [&](std::string_view line) {
    // The name may run straight into the first counter ("eth0:123"), so split at the colon.
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos) return;
    const std::string_view name = trim(line.substr(0, colon));
    if (name.empty()) return;
    const auto parts = fields(line.substr(colon + 1));
    if (parts.size() < 16) return;
    const auto received = parseUnsigned(parts[0]);
    const auto sent = parseUnsigned(parts[8]);
    if (!received || !sent) return;
    counters.push_back(NetDevCounters{std::string(name), *received, *sent});
  });
  return counters;
}

namespace {

// A hexadecimal IPv4 address of /proc/net/route (network byte order read as a host-order
// little-endian number) in dotted form.
std::optional<std::string> routeAddress(std::string_view hex) {
  if (hex.size() != 8) return std::nullopt;
  uint32_t value = 0;
  const auto [end, ec] = std::from_chars(hex.data(), hex.data() + hex.size(), value, 16);
  if (ec != std::errc() || end != hex.data() + hex.size()) return std::nullopt;
  return std::to_string(value & 0xffU) + "." + std::to_string((value >> 8U) & 0xffU) + "." +
         std::to_string((value >> 16U) & 0xffU) + "." + std::to_string(value >> 24U);
}

}  // namespace

std::vector<DefaultRoute> parseDefaultRoutes(std::string_view text) {
  std::vector<DefaultRoute> routes;
  forEachLine(text, [&](std::string_view line) {
    // Iface Destination Gateway Flags RefCnt Use Metric Mask ...
    const auto parts = fields(line);
    if (parts.size() < 8 || parts[1] != "00000000" || parts[7] != "00000000") return;
    const auto gateway = routeAddress(parts[2]);
    const auto metric = parseUnsigned(parts[6]);
    if (!gateway || !metric || *metric > UINT32_MAX) return;
    routes.push_back(DefaultRoute{std::string(parts[0]),
                                  *gateway == "0.0.0.0" ? std::string() : *gateway,
                                  static_cast<uint32_t>(*metric)});
  });
  std::stable_sort(routes.begin(), routes.end(),
                   [](const auto& a, const auto& b) { return a.metric < b.metric; });
  return routes;
}

std::vector<std::string> parseResolvConf(std::string_view text) {
  std::vector<std::string> servers;
  forEachLine(text, [&](std::string_view line) {
    const auto parts = fields(line);
    if (parts.size() >= 2 && parts[0] == "nameserver") servers.emplace_back(parts[1]);
  });
  return servers;
}

}  // namespace vexa

namespace vexa {

std::optional<PidStat> parsePidStat(std::string_view text) {
  // The name is the only field that can hold white space or parentheses, so it runs from the
  // first "(" to the last ")"; everything after that is plain numbers and the state letter.
  const size_t open = text.find('(');
  const size_t close = text.rfind(')');
  if (open == std::string_view::npos || close == std::string_view::npos || close < open) {
    return std::nullopt;
  }
  const auto pid = parseSigned(text.substr(0, open));
  if (!pid || *pid <= 0 || *pid > INT32_MAX) return std::nullopt;
  const std::vector<std::string_view> rest = fields(text.substr(close + 1));
  // rest[0] is field 3 (state); field N sits at rest[N - 3]. rss is field 24.
  if (rest.size() < 22 || rest[0].size() != 1) return std::nullopt;
  auto number = [&](size_t field) { return parseUnsigned(rest[field - 3]); };
  const auto parent = number(4), user = number(14), system = number(15), start = number(22),
             vsize = number(23);
  const auto rss = parseSigned(rest[24 - 3]);
  if (!parent || !user || !system || !start || !vsize || !rss) return std::nullopt;
  PidStat stat;
  stat.pid = static_cast<int32_t>(*pid);
  stat.comm = std::string(text.substr(open + 1, close - open - 1));
  stat.state = rest[0][0];
  stat.parentPid = static_cast<uint32_t>(*parent);
  stat.userTicks = *user;
  stat.systemTicks = *system;
  stat.startTicks = *start;
  stat.virtualBytes = *vsize;
  // A kernel thread or a zombie has no memory map; the kernel never prints a negative count.
  stat.residentPages = *rss > 0 ? static_cast<uint64_t>(*rss) : 0;
  return stat;
}

std::optional<std::string> statusField(std::string_view text, std::string_view key) {
  std::optional<std::string> found;
  forEachLine(text, [&](std::string_view line) {
    if (found || line.size() <= key.size() || line.substr(0, key.size()) != key ||
        line[key.size()] != ':') {
      return;
    }
    found = std::string(trim(line.substr(key.size() + 1)));
  });
  return found;
}

std::optional<std::string> environValue(std::string_view block, std::string_view name) {
  while (!block.empty()) {
    const size_t end = block.find('\0');
    const std::string_view entry = block.substr(0, end);
    if (entry.size() > name.size() && entry.substr(0, name.size()) == name &&
        entry[name.size()] == '=') {
      return std::string(entry.substr(name.size() + 1));
    }
    if (end == std::string_view::npos) break;
    block.remove_prefix(end + 1);
  }
  return std::nullopt;
}

}  // namespace vexa
