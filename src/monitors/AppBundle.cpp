#include "monitors/AppBundle.h"

#include "monitors/AppImageBundle.h"
#include "monitors/DesktopAppBundle.h"
#include "monitors/DesktopEntrySummary.h"
#include "monitors/ExecutableArchitectures.h"
#include "monitors/MacAppBundle.h"

namespace vexa {

std::unique_ptr<AppBundle> AppBundle::open(const std::string& path) {
  if (MacAppBundle::hasBundleName(path)) return MacAppBundle::open(path);
  if (DesktopAppBundle::hasEntryName(path)) return DesktopAppBundle::open(path);
  if (AppImageBundle::hasMark(path)) return AppImageBundle::open(path);
  return nullptr;
}

bool AppBundle::isApplication(const std::string& path) {
  if (MacAppBundle::hasBundleName(path)) return MacAppBundle::open(path) != nullptr;
  if (DesktopAppBundle::hasEntryName(path)) return DesktopEntrySummary::of(path).application;
  return AppImageBundle::hasMark(path);
}

std::optional<std::string> AppBundle::displayNameOf(const std::string& path) {
  if (DesktopAppBundle::hasEntryName(path)) return DesktopEntrySummary::of(path).displayName;
  auto bundle = open(path);
  return bundle ? bundle->displayName() : std::nullopt;
}

bool AppBundle::hasApplicationName(const std::string& path) {
  return MacAppBundle::hasBundleName(path) || DesktopAppBundle::hasEntryName(path) ||
         AppImageBundle::hasImageName(path);
}

bool AppBundle::hasBundleName(const std::string& path) { return MacAppBundle::hasBundleName(path); }

std::optional<std::string> AppBundle::infoString(const std::string& key) const {
  auto it = info_.find(key);
  if (it == info_.end() || !it->is_string()) return std::nullopt;
  return it->get<std::string>();
}

std::vector<int64_t> AppBundle::executableArchitectures() const {
  auto program = executablePath();
  return program ? ExecutableArchitectures::ofFile(*program) : std::vector<int64_t>{};
}

}  // namespace vexa
