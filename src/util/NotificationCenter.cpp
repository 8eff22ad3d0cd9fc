#include "vexa/util/NotificationCenter.h"

#include <algorithm>

namespace vexa {

NotificationCenter& NotificationCenter::defaultCenter() {
  static NotificationCenter* center = new NotificationCenter();  // lives to process end
  return *center;
}

uint64_t NotificationCenter::addObserver(const std::string& name, const void* object,
                                         Observer observer) {
  std::lock_guard lock(mutex_);
  const uint64_t token = ++lastToken_;
  registrations_.push_back(
      Registration{token, name, object, std::make_shared<Observer>(std::move(observer))});
  return token;
}

void NotificationCenter::removeObserver(uint64_t token) {
  std::lock_guard lock(mutex_);
  std::erase_if(registrations_, [&](const Registration& r) { return r.token == token; });
}

void NotificationCenter::post(const std::string& name, const void* object,
                              const nlohmann::json& userInfo) {
  std::vector<std::shared_ptr<Observer>> matching;
  {
    std::lock_guard lock(mutex_);
    for (const auto& r : registrations_) {
      if ((r.name.empty() || r.name == name) && (r.object == nullptr || r.object == object)) {
        matching.push_back(r.observer);
      }
    }
  }
  const Notification notification{name, object, userInfo};
  for (const auto& observer : matching) (*observer)(notification);
}

}  // namespace vexa
