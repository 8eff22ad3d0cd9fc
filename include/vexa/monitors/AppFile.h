#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vexa/Export.h"
#include "vexa/messaging/Json2Model.h"

namespace vexa {

// The record of one installed (or trashed) application, keyed by its path. Persisted and sent
// through the JSON model mapping, whose keys are the property names below.
class VEXA_EXPORT AppFile : public Json2Model {
 public:
  AppFile() { registerModelClass(); }

  std::optional<std::string> appName;
  std::optional<std::string> appDisplayName;
  std::optional<std::string> appVersion;
  std::string appPath;
  std::optional<std::string> appBundleIdentifer;
  std::optional<std::string> minSupportOSXVersion;
  bool platformSupport = true;
  std::optional<std::string> appDomain;
  std::optional<std::string> appIconCachePath;
  std::optional<std::string> executablePath;
  uint64_t appSize = 0;
  uint32_t lastUseDate = 0;
  uint64_t usedCount = 0;
  uint64_t createDate = 0;
  std::optional<std::vector<int64_t>> executableArchs;
  bool isUniBinary = false;
  bool needForceRemove = false;

  // "[AppName:...,AppDisplayName:...,...,NeedForceRemove:0]": every field in order, absent
  // strings as "(null)", the architectures as a parenthesized list.
  std::string description() const;

  std::string toJSON() const { return getJSONByObject(this).value_or(""); }
  static std::shared_ptr<AppFile> fromJSON(const std::string& text);

  // The vendor domain of a bundle identifier: components up to and including the one after
  // "com"; without a "com" component, every component followed by a dot.
  static std::string domainOf(const std::string& identifier);
  // A file URL or path as a plain path: "file://localhost" or "file://" cut, "%20" as " ".
  static std::string formatAppPath(const std::string& path);

  std::string modelClassName() const override { return "AppFile"; }
  ModelValue valueForKey(const std::string& name) const override;
  void setValueForKey(const std::string& name, const ModelValue& value) override;

  // Makes the class known to the model mapping (every constructor and fromJSON do it).
  static void registerModelClass();
};

}  // namespace vexa
