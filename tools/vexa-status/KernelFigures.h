#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace vexa::tools {

// The two kernel figures the dashboard shows that no sampler reports: the time since boot and
// MemAvailable (the kernel's estimate of memory that can be had without swapping), read under
// a root folder like the samplers'.
class KernelFigures {
 public:
  explicit KernelFigures(std::string root) : root_(std::move(root)) {}

  // Seconds since boot, from proc/uptime.
  std::optional<double> uptime() const;
  // MemAvailable in bytes, from proc/meminfo.
  std::optional<double> memAvailable() const;

  static std::optional<double> parseUptime(std::string_view text);
  static std::optional<double> parseMemAvailable(std::string_view meminfo);

 private:
  std::string root_;
};

}  // namespace vexa::tools
