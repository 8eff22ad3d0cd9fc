#pragma once

#include "vexa/Export.h"

namespace vexa {

class Pasteboard;

// Hears from PasteboardMonitor on the thread that started it. Every operation is optional.
class VEXA_EXPORT PasteboardMonitorDelegate {
 public:
  virtual ~PasteboardMonitorDelegate() = default;
  // The clipboard's contents changed (once or more) since the previous check.
  virtual void pasteboardChange(Pasteboard& pasteboard) { (void)pasteboard; }
};

}  // namespace vexa
