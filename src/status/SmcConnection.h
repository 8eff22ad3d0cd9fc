#pragma once

#include <optional>
#include <string>

namespace vexa {

// Where the SMC functions look for the applesmc chip: the machine root ("/" unless a test sets
// another) and, while open, the chip's hwmon folder.
class SmcConnection {
 public:
  static void setRoot(const std::string& root);
  static std::string root();
  static bool open();
  static void close();
  // The temperature labelled `key` on the open chip.
  static std::optional<double> temperature(const std::string& key);
  // The sp78 bytes that decode to `celsius` (to a quarter of a 64th of a degree).
  static void encodeSp78(double celsius, unsigned char bytes[2]);
};

}  // namespace vexa
