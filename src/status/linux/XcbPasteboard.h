#pragma once

#include <xcb/xcb.h>

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "vexa/status/Pasteboard.h"

namespace vexa {

// The CLIPBOARD selection of an X display, followed through XFixes: the server sends an event
// for every change of the selection's owner, and the change counter counts those events. They
// are read without blocking when the counter is asked for, on the asking thread.
//
// XCB rather than Xlib: a dead display only sets an error on the connection, where Xlib's
// default I/O-error handler would end the process. A connection that failed is dropped, the
// counter falls to 0, and the next changeCount() connects again.
//
// Connecting waits for the server's set-up answer; every later wait has a deadline. Safe from
// any thread.
class XcbPasteboard : public Pasteboard {
 public:
  // A clipboard of `display` ("host:0", ":1"), connected at once when the display answers and
  // otherwise at a later changeCount(). An empty name makes a clipboard that never changes;
  // `whyNone` is logged once in that case.
  explicit XcbPasteboard(std::string display, const std::string& whyNone = {});
  ~XcbPasteboard() override;
  XcbPasteboard(const XcbPasteboard&) = delete;
  XcbPasteboard& operator=(const XcbPasteboard&) = delete;

  int64_t changeCount() override;
  std::optional<std::string> text() override;

 private:
  struct SelectionAnswer {
    uint32_t requestor = 0;
    bool arrived = false;
    uint32_t property = 0;
  };
  using Clock = std::chrono::steady_clock;

  bool connect();
  void disconnect();
  // Reads the events waiting on the connection; false when the connection failed.
  bool drain();
  void handle(xcb_generic_event_t* event);
  // Waits for input on the connection until the deadline; false at the deadline.
  bool waitForInput(Clock::time_point deadline);
  // The text the owner wrote into `requestor`, once it answered; nothing at the deadline.
  std::optional<std::string> fetch(uint32_t requestor, Clock::time_point deadline);
  uint32_t internAtom(const char* name);

  const std::string display_;
  mutable std::mutex lock_;
  xcb_connection_t* connection_ = nullptr;
  uint8_t xfixesFirstEvent_ = 0;
  uint32_t root_ = 0;
  uint32_t window_ = 0;
  uint32_t clipboard_ = 0;
  uint32_t utf8String_ = 0;
  uint32_t transfer_ = 0;
  int64_t count_ = 0;
  SelectionAnswer answer_;
  // Logged once per outage, not at every attempt.
  bool reportedUnreachable_ = false;
};

}  // namespace vexa
