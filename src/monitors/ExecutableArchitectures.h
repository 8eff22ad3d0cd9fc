#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace vexa {

// The processor types an executable was built for, as Mach-O CPU type numbers (7 i386,
// 0x01000007 x86-64, 12 ARM, 0x0100000C ARM64, 18 PowerPC, 0x01000012 PowerPC 64): read from a
// Mach-O header (thin or universal, either byte order) or from an ELF header's machine field.
class ExecutableArchitectures {
 public:
  // Parses the start of a file (the first 4 KiB hold every universal header's entries). Empty
  // for anything that is not a known executable.
  static std::vector<int64_t> parse(std::span<const uint8_t> header);
  static std::vector<int64_t> ofFile(const std::string& path);
};

}  // namespace vexa
