// Arbitrary text through the JSON-to-model mapping of Message, and back: whatever maps must
// map back to text that maps to the same message.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "vexa/messaging/Message.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  auto message = vexa::Message::fromJSON(text);
  if (!message) return 0;
  auto again = message->JSONText();
  if (!again) return 0;  // values the writer refuses (invalid UTF-8 cannot come from a parse)
  auto back = vexa::Message::fromJSON(*again);
  if (!back || back->JSONText() != again) std::abort();
  return 0;
}
