#include "status/linux/XcbPasteboard.h"

#include <poll.h>
#include <xcb/xcb.h>
#include <xcb/xcbext.h>
#include <xcb/xfixes.h>

#include <cstdlib>
#include <memory>

#include "status/PasteboardText.h"
#include "vexa/util/SystemLog.h"

namespace vexa {

namespace {

// How long text() waits for the clipboard's owner, in all.
constexpr std::chrono::milliseconds kTextWait(500);
// The largest text fetched, in 32-bit units as the protocol counts (16 MiB).
constexpr uint32_t kLongestText = 4u << 20;

struct FreeReply {
  void operator()(void* reply) const { std::free(reply); }
};
template <typename T>
using Reply = std::unique_ptr<T, FreeReply>;

std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

}  // namespace

std::shared_ptr<Pasteboard> Pasteboard::general() {
  static const std::shared_ptr<Pasteboard> instance = [] {
    const std::string display = environment("DISPLAY");
    std::string why;
    if (display.empty()) {
      why = environment("WAYLAND_DISPLAY").empty()
                ? "no X display (DISPLAY is not set)"
                : "a Wayland session without an X server (DISPLAY is not set)";
    }
    return std::make_shared<XcbPasteboard>(display, why);
  }();
  return instance;
}

XcbPasteboard::XcbPasteboard(std::string display, const std::string& whyNone)
    : display_(std::move(display)) {
  if (display_.empty()) {
    SystemLog::log("clipboard changes are unsupported here: %s",
                   whyNone.empty() ? "no X display" : whyNone.c_str());
    return;
  }
  // Connected at once, so that changes from now on are counted.
  std::lock_guard guard(lock_);
  connect();
}

XcbPasteboard::~XcbPasteboard() {
  std::lock_guard guard(lock_);
  disconnect();
}

int64_t XcbPasteboard::changeCount() {
  std::lock_guard guard(lock_);
  if (display_.empty()) return 0;
  if (!connection_ && !connect()) return 0;
  if (!drain()) {
    SystemLog::log("clipboard: lost the X display %s; connecting again at the next look",
                   display_.c_str());
    disconnect();
    return 0;
  }
  return count_;
}

std::optional<std::string> XcbPasteboard::text() {
  std::lock_guard guard(lock_);
  if (!connection_) return std::nullopt;
  // Every fetch has a window of its own, destroyed after it. An owner that answers late, or one
  // still sending a large text in pieces after it lost the clipboard, then writes into a window
  // that is gone (and gets an error), never into the next fetch's answer.
  const uint32_t requestor = xcb_generate_id(connection_);
  xcb_create_window(connection_, XCB_COPY_FROM_PARENT, requestor, root_, 0, 0, 1, 1, 0,
                    XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
  auto text = fetch(requestor, Clock::now() + kTextWait);
  if (connection_) {
    xcb_destroy_window(connection_, requestor);
    xcb_flush(connection_);
  }
  answer_ = {};
  return text;
}

std::optional<std::string> XcbPasteboard::fetch(uint32_t requestor, Clock::time_point deadline) {
  // The owner writes the text into a property of the window and answers with SelectionNotify.
  // Clipboard changes that arrive meanwhile are counted as usual.
  answer_ = {requestor};
  xcb_convert_selection(connection_, requestor, clipboard_, utf8String_, transfer_,
                        XCB_CURRENT_TIME);
  xcb_flush(connection_);
  while (!answer_.arrived) {
    if (!drain()) {
      disconnect();
      return std::nullopt;
    }
    if (answer_.arrived) break;
    if (!waitForInput(deadline)) return std::nullopt;
  }
  if (answer_.property == XCB_NONE) return std::nullopt;

  // Deleting the property as it is read tells the owner the transfer is over.
  const auto cookie = xcb_get_property(connection_, 1, requestor, transfer_,
                                       XCB_GET_PROPERTY_TYPE_ANY, 0, kLongestText);
  xcb_flush(connection_);
  xcb_get_property_reply_t* raw = nullptr;
  for (;;) {
    xcb_generic_error_t* error = nullptr;
    const int done =
        xcb_poll_for_reply(connection_, cookie.sequence, reinterpret_cast<void**>(&raw), &error);
    std::free(error);
    if (done) break;
    if (xcb_connection_has_error(connection_)) {
      disconnect();
      return std::nullopt;
    }
    if (!waitForInput(deadline)) return std::nullopt;
  }
  const Reply<xcb_get_property_reply_t> reply(raw);
  // Large texts come in pieces (INCR), which this reader does not follow; a text longer than the
  // part read is not cut short either: both give nothing.
  if (!reply || reply->type != utf8String_ || reply->format != 8 || reply->bytes_after > 0) {
    return std::nullopt;
  }
  const auto* data = static_cast<const char*>(xcb_get_property_value(reply.get()));
  const int length = xcb_get_property_value_length(reply.get());
  return PasteboardText::repaired(std::string_view(data, length > 0 ? length : 0));
}

bool XcbPasteboard::connect() {
  int screenNumber = 0;
  connection_ = xcb_connect(display_.c_str(), &screenNumber);
  const auto fail = [&](const char* why) {
    if (!reportedUnreachable_) {
      SystemLog::log("clipboard: cannot follow X display %s: %s", display_.c_str(), why);
      reportedUnreachable_ = true;
    }
    disconnect();
    return false;
  };
  if (xcb_connection_has_error(connection_)) return fail("no connection");

  const xcb_query_extension_reply_t* xfixes = xcb_get_extension_data(connection_, &xcb_xfixes_id);
  if (!xfixes || !xfixes->present) return fail("the server has no XFixes extension");
  xfixesFirstEvent_ = xfixes->first_event;
  // The server answers XFixes requests only after the client said which version it speaks.
  const Reply<xcb_xfixes_query_version_reply_t> version(xcb_xfixes_query_version_reply(
      connection_, xcb_xfixes_query_version(connection_, 5, 0), nullptr));
  if (!version || version->major_version < 1) return fail("XFixes is too old");

  const xcb_setup_t* setup = xcb_get_setup(connection_);
  auto screens = xcb_setup_roots_iterator(setup);
  for (int i = 0; i < screenNumber && screens.rem > 0; ++i) xcb_screen_next(&screens);
  if (screens.rem <= 0) return fail("no such screen");

  clipboard_ = internAtom("CLIPBOARD");
  utf8String_ = internAtom("UTF8_STRING");
  transfer_ = internAtom("VEXA_CLIPBOARD_TEXT");
  if (!clipboard_ || !utf8String_ || !transfer_) return fail("cannot name the clipboard");

  // An unmapped input-only window of our own, through which the selection events are selected.
  root_ = screens.data->root;
  window_ = xcb_generate_id(connection_);
  xcb_create_window(connection_, XCB_COPY_FROM_PARENT, window_, screens.data->root, 0, 0, 1, 1, 0,
                    XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
  xcb_xfixes_select_selection_input(connection_, window_, clipboard_,
                                    XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER);
  xcb_flush(connection_);
  if (xcb_connection_has_error(connection_)) return fail("the connection failed");
  if (reportedUnreachable_) {
    SystemLog::log("clipboard: following X display %s again", display_.c_str());
    reportedUnreachable_ = false;
  }
  count_ = 0;
  return true;
}

void XcbPasteboard::disconnect() {
  if (connection_) xcb_disconnect(connection_);
  connection_ = nullptr;
  count_ = 0;
}

bool XcbPasteboard::drain() {
  while (xcb_generic_event_t* event = xcb_poll_for_event(connection_)) {
    handle(event);
    std::free(event);
  }
  return xcb_connection_has_error(connection_) == 0;
}

void XcbPasteboard::handle(xcb_generic_event_t* event) {
  const uint8_t type = event->response_type & 0x7f;
  if (type == xfixesFirstEvent_ + XCB_XFIXES_SELECTION_NOTIFY) {
    const auto* notify = reinterpret_cast<xcb_xfixes_selection_notify_event_t*>(event);
    if (notify->selection == clipboard_ &&
        notify->subtype == XCB_XFIXES_SELECTION_EVENT_SET_SELECTION_OWNER) {
      ++count_;
    }
  } else if (type == XCB_SELECTION_NOTIFY) {
    const auto* notify = reinterpret_cast<xcb_selection_notify_event_t*>(event);
    if (answer_.requestor != XCB_NONE && notify->requestor == answer_.requestor &&
        notify->selection == clipboard_) {
      answer_.arrived = true;
      answer_.property = notify->property;
    }
  }
}

bool XcbPasteboard::waitForInput(Clock::time_point deadline) {
  const auto left =
      std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
  if (left <= 0) return false;
  pollfd input{xcb_get_file_descriptor(connection_), POLLIN, 0};
  return ::poll(&input, 1, static_cast<int>(left)) > 0;
}

uint32_t XcbPasteboard::internAtom(const char* name) {
  const Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
      connection_,
      xcb_intern_atom(connection_, 0, static_cast<uint16_t>(std::char_traits<char>::length(name)),
                      name),
      nullptr));
  return reply ? reply->atom : XCB_NONE;
}

}  // namespace vexa
