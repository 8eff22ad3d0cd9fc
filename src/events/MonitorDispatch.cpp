#include "vexa/events/MonitorDispatch.h"

#include <algorithm>
#include <utility>

#include "util/PathName.h"
#include "vexa/events/FileSystemMonitor.h"
#include "vexa/util/DispatchQueue.h"
#include "vexa/util/MonitorString.h"

namespace vexa {

namespace {

bool matches(const std::string& path, const std::string& key) {
  return MonitorString::startWith(path, key);
}

bool underTrash(const std::string& path) {
  auto trash = MonitorString::userTrashPath();
  return trash && matches(path, *trash);
}

}  // namespace

MonitorDispatch& MonitorDispatch::shared() {
  static std::shared_ptr<MonitorDispatch>* instance =
      new std::shared_ptr<MonitorDispatch>(new MonitorDispatch(nullptr, DispatchQueue::global()));
  return **instance;
}

std::shared_ptr<MonitorDispatch> MonitorDispatch::create(FileSystemMonitor& monitor,
                                                         DispatchQueue& queue) {
  return std::shared_ptr<MonitorDispatch>(new MonitorDispatch(&monitor, queue));
}

MonitorDispatch::MonitorDispatch(FileSystemMonitor* monitor, DispatchQueue& queue)
    : fsMonitor_(monitor), queue_(queue) {}

void MonitorDispatch::addMonitorPath(const std::string& path,
                                     const std::shared_ptr<FileSystemMonitorDelegate>& delegate) {
  std::lock_guard changing(changeMutex_);
  if (!fsMonitor_) fsMonitor_ = &FileSystemMonitor::shared();
  if (!attached_) {
    fsMonitor_->setDelegate(weak_from_this());
    attached_ = true;
  }
  // May restart the stream over the new set of paths, a crawl: the table stays open meanwhile.
  if (!fsMonitor_->addMonitorPath(path)) return;
  std::lock_guard lock(mutex_);
  auto entry = std::find_if(monitorDict_.begin(), monitorDict_.end(),
                            [&](const Registration& r) { return r.first == path; });
  if (entry == monitorDict_.end()) {
    monitorDict_.emplace_back(path, std::vector{delegate});
    return;
  }
  auto& delegates = entry->second;
  if (std::find(delegates.begin(), delegates.end(), delegate) == delegates.end()) {
    delegates.push_back(delegate);
  }
}

void MonitorDispatch::removeMonitorPath(
    const std::string& path, const std::shared_ptr<FileSystemMonitorDelegate>& delegate) {
  std::lock_guard changing(changeMutex_);
  if (!fsMonitor_) return;
  {
    std::lock_guard lock(mutex_);
    auto entry = std::find_if(monitorDict_.begin(), monitorDict_.end(),
                              [&](const Registration& r) { return r.first == path; });
    if (entry == monitorDict_.end()) return;
    auto& delegates = entry->second;
    delegates.erase(std::remove(delegates.begin(), delegates.end(), delegate), delegates.end());
    // Calls already waiting still run: their task holds the inbox.
    const bool elsewhere =
        std::any_of(monitorDict_.begin(), monitorDict_.end(), [&](const auto& r) {
          return std::find(r.second.begin(), r.second.end(), delegate) != r.second.end();
        });
    if (!elsewhere) {
      inboxes_.erase(std::remove_if(inboxes_.begin(), inboxes_.end(),
                                    [&](const auto& box) { return box.first == delegate.get(); }),
                     inboxes_.end());
    }
    if (!delegates.empty()) return;
    monitorDict_.erase(entry);
  }
  fsMonitor_->removeMonitorPath(path);
}

std::vector<MonitorDispatch::Registration> MonitorDispatch::registrations() const {
  std::lock_guard lock(mutex_);
  return monitorDict_;
}

const std::string* MonitorDispatch::logLocked(const std::string& path) {
  if (!log_) log_ = std::make_shared<PathLog>();
  return &log_->paths.emplace_back(path);
}

// Each delegate hears its calls in the order of the events, from one task at a time: a burst of
// events is one task per delegate that runs them all, not one task (and one wake-up of a worker)
// per event. Delegates still run beside one another.
void MonitorDispatch::deliverLocked(const std::shared_ptr<FileSystemMonitorDelegate>& delegate,
                                    Pending call) {
  auto found = std::find_if(inboxes_.begin(), inboxes_.end(),
                            [&](const auto& box) { return box.first == delegate.get(); });
  if (found == inboxes_.end()) {
    found = inboxes_.emplace(inboxes_.end(), delegate.get(), std::make_shared<Inbox>(delegate));
  }
  const std::shared_ptr<Inbox>& inbox = found->second;
  if (batches_ > 0) {
    if (!inbox->held) {
      inbox->held = true;
      held_.push_back(inbox);
      // Room for the batch at once rather than grown call by call; a delegate that hears
      // little of a large batch must not hold room for all of it, hence the bound.
      inbox->batch.reserve(std::min<size_t>(batchEvents_, kBatchRoom));
    }
    inbox->batch.push_back(call);
    return;
  }
  std::lock_guard lock(inbox->mutex);
  if (inbox->logs.empty() || inbox->logs.back() != log_) inbox->logs.push_back(log_);
  inbox->calls.push_back(call);
  if (inbox->draining) return;
  inbox->draining = true;
  queue_.async([box = inbox] { drain(box); });
}

void MonitorDispatch::callEndsLocked() {
  // Outside a batch each call has a log of its own, held now by the inboxes it reached.
  if (batches_ == 0) log_.reset();
}

void MonitorDispatch::batchBegins(size_t events) {
  std::lock_guard lock(mutex_);
  if (batches_++ == 0) {
    batchEvents_ = events;
    log_.reset();
  }
}

void MonitorDispatch::batchEnds() {
  std::lock_guard lock(mutex_);
  if (batches_ == 0 || --batches_ > 0) return;
  for (const auto& inbox : held_) {
    inbox->held = false;
    std::lock_guard boxLock(inbox->mutex);
    // The inboxes hold the log as long as their calls need it.
    inbox->logs.push_back(log_);
    if (inbox->calls.empty()) {
      inbox->calls.swap(inbox->batch);
    } else {
      inbox->calls.insert(inbox->calls.end(), inbox->batch.begin(), inbox->batch.end());
    }
    inbox->batch = {};
    if (inbox->draining) continue;
    inbox->draining = true;
    queue_.async([box = inbox] { drain(box); });
  }
  held_.clear();
  log_.reset();
}

void MonitorDispatch::drain(const std::shared_ptr<Inbox>& inbox) {
  FileSystemMonitorDelegate& delegate = *inbox->delegate;
  std::vector<Pending> calls;
  std::vector<std::shared_ptr<const PathLog>> logs;
  for (;;) {
    {
      std::lock_guard lock(inbox->mutex);
      if (inbox->calls.empty()) {
        inbox->draining = false;
        return;
      }
      calls.swap(inbox->calls);
      logs.swap(inbox->logs);
    }
    for (const Pending& pending : calls) {
      if (pending.call) {
        (delegate.*pending.call)(*pending.path);
      } else if (!pending.target) {
        delegate.eventsLost(*pending.path);
      } else {
        delegate.fileMoveOrRename(*pending.path, *pending.target);
      }
    }
    calls.clear();
    logs.clear();
  }
}

void MonitorDispatch::fanOut(const std::string& path, Call call) {
  std::lock_guard lock(mutex_);
  const std::string* logged = nullptr;
  for (const auto& [key, delegates] : monitorDict_) {
    if (!matches(path, key)) continue;
    for (const auto& delegate : delegates) {
      if (!delegate || !delegate->hearsPath(path)) continue;
      if (!logged) logged = logLocked(path);
      deliverLocked(delegate, Pending{call, logged, nullptr});
    }
  }
  callEndsLocked();
}

void MonitorDispatch::fileCreated(const std::string& path) {
  fanOut(path, &FileSystemMonitorDelegate::fileCreated);
}

void MonitorDispatch::fileMoveIn(const std::string& path) {
  fanOut(path, &FileSystemMonitorDelegate::fileMoveIn);
}

void MonitorDispatch::fileMoveOut(const std::string& path) {
  fanOut(path, &FileSystemMonitorDelegate::fileMoveOut);
}

void MonitorDispatch::fileRemove(const std::string& path) {
  fanOut(path, &FileSystemMonitorDelegate::fileRemove);
}

void MonitorDispatch::fileModify(const std::string& path) {
  fanOut(path, &FileSystemMonitorDelegate::fileModify);
}

void MonitorDispatch::eventsLost(const std::string& folder) {
  std::lock_guard lock(mutex_);
  for (const auto& [key, delegates] : monitorDict_) {
    const std::string* scope = nullptr;
    if (PathName::isWithin(key, folder)) {
      scope = logLocked(key);
    } else if (PathName::isWithin(folder, key)) {
      scope = logLocked(folder);
    } else {
      continue;
    }
    for (const auto& delegate : delegates) {
      if (delegate) deliverLocked(delegate, Pending{nullptr, scope, nullptr});
    }
  }
  callEndsLocked();
}

void MonitorDispatch::fileMoveOrRename(const std::string& source, const std::string& target) {
  if (underTrash(target) || underTrash(source)) {
    fileMoveIn(target);
    return;
  }
  std::lock_guard lock(mutex_);
  const std::string* loggedSource = nullptr;
  const std::string* loggedTarget = nullptr;
  for (const auto& [key, delegates] : monitorDict_) {
    // Once for the source and once more for the target: a move within one tree is reported
    // twice to each of its delegates.
    const int times = int{matches(source, key)} + int{matches(target, key)};
    if (times == 0) continue;
    for (const auto& delegate : delegates) {
      if (!delegate || (!delegate->hearsPath(source) && !delegate->hearsPath(target))) continue;
      if (!loggedSource) {
        loggedSource = logLocked(source);
        loggedTarget = logLocked(target);
      }
      for (int i = 0; i < times; ++i) {
        deliverLocked(delegate, Pending{nullptr, loggedSource, loggedTarget});
      }
    }
  }
  callEndsLocked();
}

}  // namespace vexa
