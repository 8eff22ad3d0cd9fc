#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "vexa/Export.h"

namespace vexa {

// The desktop's clipboard, as far as a monitor needs it: a counter that grows with every change
// of its contents, and the contents as text when asked.
class VEXA_EXPORT Pasteboard {
 public:
  virtual ~Pasteboard() = default;

  // How many times the contents changed. Never blocks: changes that arrived since the last call
  // are counted on the calling thread. The counter starts again at 0 when the clipboard's
  // server was replaced (a display that went away and came back), and stays 0 where there is
  // no clipboard to follow.
  virtual int64_t changeCount() = 0;
  // The contents as UTF-8 text, fetched from the clipboard's owner now. Waits at most a short,
  // fixed time for the owner; nothing when there is no owner, the owner offers no text, does
  // not answer in time, or sends it in pieces.
  virtual std::optional<std::string> text() = 0;

  // The session's clipboard, shared by the whole process and kept until it ends.
  static std::shared_ptr<Pasteboard> general();
};

}  // namespace vexa
