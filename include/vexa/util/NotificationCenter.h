#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "vexa/Export.h"

namespace vexa {

// A named notification: who posted it (an opaque identity, compared, never dereferenced) and a
// dictionary of details.
struct VEXA_EXPORT Notification {
  std::string name;
  const void* object = nullptr;
  nlohmann::json userInfo = nlohmann::json::object();
};

// The process's notification centre, in the manner of the platform's: observers register for a
// name (or every name) and, optionally, one sender; post() calls each matching observer
// synchronously on the posting thread, in the order they were added. The library's watchers post
// on the main thread, so their observers run there.
//
// Safe from any thread. No lock is held while an observer runs: an observer may post, add or
// remove observers (one removed during a post may still receive that post). Observers must not
// throw.
class VEXA_EXPORT NotificationCenter {
 public:
  using Observer = std::function<void(const Notification&)>;

  static NotificationCenter& defaultCenter();

  NotificationCenter() = default;
  NotificationCenter(const NotificationCenter&) = delete;
  NotificationCenter& operator=(const NotificationCenter&) = delete;

  // `name` empty: every name; `object` null: every sender. Answers a token for removeObserver.
  uint64_t addObserver(const std::string& name, const void* object, Observer observer);
  void removeObserver(uint64_t token);

  void post(const std::string& name, const void* object,
            const nlohmann::json& userInfo = nlohmann::json::object());

 private:
  struct Registration {
    uint64_t token;
    std::string name;
    const void* object;
    std::shared_ptr<Observer> observer;
  };
  std::mutex mutex_;
  uint64_t lastToken_ = 0;
  std::vector<Registration> registrations_;
};

}  // namespace vexa
