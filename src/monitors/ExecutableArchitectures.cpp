#include "monitors/ExecutableArchitectures.h"

#include <fcntl.h>
#include <unistd.h>

#include "util/UniqueFd.h"

namespace vexa {

namespace {

constexpr uint32_t kMachMagic = 0xfeedface, kMachMagic64 = 0xfeedfacf;
constexpr uint32_t kMachCigam = 0xcefaedfe, kMachCigam64 = 0xcffaedfe;
constexpr uint32_t kFatMagic = 0xcafebabe, kFatMagic64 = 0xcafebabf;
// Java class files share the universal magic; their "count" is a version number of 45 or more.
constexpr uint32_t kMaxFatArchs = 30;

uint32_t big32(const uint8_t* p) {
  return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
}

uint32_t little32(const uint8_t* p) {
  return (uint32_t{p[3]} << 24) | (uint32_t{p[2]} << 16) | (uint32_t{p[1]} << 8) | p[0];
}

int64_t cpuTypeOfElfMachine(uint16_t machine) {
  switch (machine) {
    case 3:  // EM_386
      return 7;
    case 62:  // EM_X86_64
      return 0x01000007;
    case 40:  // EM_ARM
      return 12;
    case 183:  // EM_AARCH64
      return 0x0100000C;
    case 20:  // EM_PPC
      return 18;
    case 21:  // EM_PPC64
      return 0x01000012;
    default:
      return -1;
  }
}

}  // namespace

std::vector<int64_t> ExecutableArchitectures::parse(std::span<const uint8_t> h) {
  if (h.size() < 8) return {};
  const uint32_t magic = big32(h.data());
  if (magic == kMachMagic || magic == kMachMagic64) {
    return {static_cast<int32_t>(big32(h.data() + 4))};
  }
  if (magic == kMachCigam || magic == kMachCigam64) {
    return {static_cast<int32_t>(little32(h.data() + 4))};
  }
  if (magic == kFatMagic || magic == kFatMagic64) {
    const uint32_t count = big32(h.data() + 4);
    const size_t entry = magic == kFatMagic ? 20 : 32;
    if (count == 0 || count > kMaxFatArchs) return {};
    std::vector<int64_t> types;
    for (uint32_t i = 0; i < count; ++i) {
      const size_t at = 8 + i * entry;
      if (at + 4 > h.size()) break;
      types.push_back(static_cast<int32_t>(big32(h.data() + at)));
    }
    return types;
  }
  if (h.size() >= 20 && h[0] == 0x7f && h[1] == 'E' && h[2] == 'L' && h[3] == 'F') {
    const bool bigEndian = h[5] == 2;
    const uint16_t machine = bigEndian ? static_cast<uint16_t>((h[18] << 8) | h[19])
                                       : static_cast<uint16_t>((h[19] << 8) | h[18]);
    const int64_t type = cpuTypeOfElfMachine(machine);
    if (type >= 0) return {type};
  }
  return {};
}

std::vector<int64_t> ExecutableArchitectures::ofFile(const std::string& path) {
  const UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!fd) return {};
  uint8_t header[4096];
  const ssize_t n = ::read(fd.get(), header, sizeof header);
  if (n <= 0) return {};
  return parse(std::span(header, static_cast<size_t>(n)));
}

}  // namespace vexa
