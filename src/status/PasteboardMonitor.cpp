#include "vexa/status/PasteboardMonitor.h"

#include "vexa/status/Pasteboard.h"
#include "vexa/util/Timer.h"

namespace vexa {

namespace {

constexpr double kCheckSeconds = 0.75;

}  // namespace

PasteboardMonitor& PasteboardMonitor::shared() {
  static PasteboardMonitor instance([] { return Pasteboard::general(); });
  return instance;
}

PasteboardMonitor::PasteboardMonitor(PasteboardSource source) : source_(std::move(source)) {}

PasteboardMonitor::~PasteboardMonitor() { stop(); }

std::shared_ptr<PasteboardMonitorDelegate> PasteboardMonitor::delegate() const {
  std::lock_guard guard(lock_);
  return delegate_.lock();
}

void PasteboardMonitor::setDelegate(std::weak_ptr<PasteboardMonitorDelegate> delegate) {
  std::lock_guard guard(lock_);
  delegate_ = std::move(delegate);
}

void PasteboardMonitor::start() {
  std::lock_guard guard(lock_);
  if (monitorTimer_ && monitorTimer_->isValid()) return;
  if (!pb_ && source_) pb_ = source_();
  monitorTimer_ = Timer::scheduled(kCheckSeconds, true, [this](Timer&) { checkPasteboard(); });
}

void PasteboardMonitor::stop() {
  std::shared_ptr<Timer> timer;
  std::shared_ptr<Pasteboard> pasteboard;
  {
    std::lock_guard guard(lock_);
    timer = std::move(monitorTimer_);
    pasteboard = std::move(pb_);
  }
  // Invalidated outside the lock: a look already under way on the loop's thread takes it.
  if (timer) timer->invalidate();
}

bool PasteboardMonitor::isRunning() const {
  std::lock_guard guard(lock_);
  return monitorTimer_ && monitorTimer_->isValid();
}

void PasteboardMonitor::checkPasteboard() {
  std::shared_ptr<Pasteboard> pasteboard;
  {
    std::lock_guard guard(lock_);
    pasteboard = pb_;
  }
  if (!pasteboard) return;
  // Read without the lock: the clipboard's own lock guards its connection.
  const int64_t count = pasteboard->changeCount();
  std::shared_ptr<PasteboardMonitorDelegate> to;
  {
    std::lock_guard guard(lock_);
    if (count > lastChangeCount_) to = delegate_.lock();
    lastChangeCount_ = count;
  }
  if (to) to->pasteboardChange(*pasteboard);
}

int64_t PasteboardMonitor::lastChangeCount() const {
  std::lock_guard guard(lock_);
  return lastChangeCount_;
}

}  // namespace vexa
