#include "vexa/monitors/AppFile.h"

#include <cstdio>
#include <mutex>
#include <sstream>

namespace vexa {

using nlohmann::json;

namespace {

std::string orNull(const std::optional<std::string>& s) { return s ? *s : "(null)"; }

// Strings come back as written; anything else leaves the field alone.
void assignString(std::optional<std::string>& field, const ModelValue& v) {
  if (v.kind == ModelValue::Kind::Json && v.json.is_string()) field = v.json.get<std::string>();
}

template <typename T>
void assignNumber(T& field, const ModelValue& v) {
  if (v.kind != ModelValue::Kind::Json) return;
  if (v.json.is_number_unsigned())
    field = static_cast<T>(v.json.get<uint64_t>());
  else if (v.json.is_number_integer())
    field = static_cast<T>(v.json.get<int64_t>());
  else if (v.json.is_number_float())
    field = static_cast<T>(v.json.get<double>());
  else if (v.json.is_boolean())
    field = static_cast<T>(v.json.get<bool>());
}

void assignBool(bool& field, const ModelValue& v) {
  if (v.kind != ModelValue::Kind::Json) return;
  if (v.json.is_boolean())
    field = v.json.get<bool>();
  else if (v.json.is_number())
    field = v.json.get<double>() != 0;
}

ModelValue stringValue(const std::optional<std::string>& s) {
  return s ? ModelValue::of(json(*s)) : ModelValue::absent();
}

}  // namespace

void AppFile::registerModelClass() {
  static std::once_flag once;
  std::call_once(once, [] {
    Json2Model::registerModelClass(
        "AppFile", {"Json2Model",
                    [] { return std::make_shared<AppFile>(); },
                    {{"appName", "T@\"NSString\",&,N,V_appName"},
                     {"appDisplayName", "T@\"NSString\",&,N,V_appDisplayName"},
                     {"appVersion", "T@\"NSString\",&,N,V_appVersion"},
                     {"appPath", "T@\"NSString\",&,N,V_appPath"},
                     {"appBundleIdentifer", "T@\"NSString\",&,N,V_appBundleIdentifer"},
                     {"minSupportOSXVersion", "T@\"NSString\",&,N,V_minSupportOSXVersion"},
                     {"platformSupport", "Tc,N,V_platformSupport"},
                     {"appDomain", "T@\"NSString\",&,N,V_appDomain"},
                     {"appIconCachePath", "T@\"NSString\",&,N,V_appIconCachePath"},
                     {"executablePath", "T@\"NSString\",&,N,V_executablePath"},
                     {"appSize", "TQ,N,V_appSize"},
                     {"lastUseDate", "TI,N,V_lastUseDate"},
                     {"usedCount", "TQ,N,V_usedCount"},
                     {"createDate", "TQ,N,V_createDate"},
                     {"executableArchs", "T@\"NSMutableArray\",&,N,V_executableArchs"},
                     {"isUniBinary", "TB,N,V_isUniBinary"},
                     {"needForceRemove", "TB,N,V_needForceRemove"}}});
  });
}

std::shared_ptr<AppFile> AppFile::fromJSON(const std::string& text) {
  registerModelClass();
  return std::dynamic_pointer_cast<AppFile>(getObjectByJSON(text, "AppFile"));
}

ModelValue AppFile::valueForKey(const std::string& name) const {
  if (name == "appName") return stringValue(appName);
  if (name == "appDisplayName") return stringValue(appDisplayName);
  if (name == "appVersion") return stringValue(appVersion);
  if (name == "appPath") return ModelValue::of(json(appPath));
  if (name == "appBundleIdentifer") return stringValue(appBundleIdentifer);
  if (name == "minSupportOSXVersion") return stringValue(minSupportOSXVersion);
  if (name == "platformSupport") return ModelValue::of(json(platformSupport));
  if (name == "appDomain") return stringValue(appDomain);
  if (name == "appIconCachePath") return stringValue(appIconCachePath);
  if (name == "executablePath") return stringValue(executablePath);
  if (name == "appSize") return ModelValue::of(json(appSize));
  if (name == "lastUseDate") return ModelValue::of(json(lastUseDate));
  if (name == "usedCount") return ModelValue::of(json(usedCount));
  if (name == "createDate") return ModelValue::of(json(createDate));
  if (name == "executableArchs") {
    return executableArchs ? ModelValue::of(json(*executableArchs)) : ModelValue::absent();
  }
  if (name == "isUniBinary") return ModelValue::of(json(isUniBinary));
  if (name == "needForceRemove") return ModelValue::of(json(needForceRemove));
  return ModelValue::absent();
}

void AppFile::setValueForKey(const std::string& name, const ModelValue& v) {
  if (name == "appName")
    assignString(appName, v);
  else if (name == "appDisplayName")
    assignString(appDisplayName, v);
  else if (name == "appVersion")
    assignString(appVersion, v);
  else if (name == "appPath") {
    if (v.kind == ModelValue::Kind::Json && v.json.is_string()) appPath = v.json.get<std::string>();
  } else if (name == "appBundleIdentifer")
    assignString(appBundleIdentifer, v);
  else if (name == "minSupportOSXVersion")
    assignString(minSupportOSXVersion, v);
  else if (name == "platformSupport")
    assignBool(platformSupport, v);
  else if (name == "appDomain")
    assignString(appDomain, v);
  else if (name == "appIconCachePath")
    assignString(appIconCachePath, v);
  else if (name == "executablePath")
    assignString(executablePath, v);
  else if (name == "appSize")
    assignNumber(appSize, v);
  else if (name == "lastUseDate")
    assignNumber(lastUseDate, v);
  else if (name == "usedCount")
    assignNumber(usedCount, v);
  else if (name == "createDate")
    assignNumber(createDate, v);
  else if (name == "executableArchs") {
    if (v.kind == ModelValue::Kind::Json && v.json.is_array()) {
      std::vector<int64_t> archs;
      for (const auto& a : v.json) {
        if (a.is_number_integer()) archs.push_back(a.get<int64_t>());
      }
      executableArchs = archs;
    }
  } else if (name == "isUniBinary")
    assignBool(isUniBinary, v);
  else if (name == "needForceRemove")
    assignBool(needForceRemove, v);
}

std::string AppFile::description() const {
  std::string archs = "(null)";
  if (executableArchs) {
    archs = "(\n";
    for (size_t i = 0; i < executableArchs->size(); ++i) {
      archs += "    " + std::to_string((*executableArchs)[i]);
      archs += i + 1 < executableArchs->size() ? ",\n" : "\n";
    }
    archs += ")";
  }
  std::ostringstream out;
  out << "[AppName:" << orNull(appName) << ",AppDisplayName:" << orNull(appDisplayName)
      << ",AppVersion:" << orNull(appVersion) << ",AppPath:" << appPath
      << ",AppBundleIdentifer:" << orNull(appBundleIdentifer)
      << ",MinSupportOSXVersion:" << orNull(minSupportOSXVersion)
      << ",PlatformSupport:" << (platformSupport ? 1 : 0) << ",AppDomain:" << orNull(appDomain)
      << ",AppIconCachePath:" << orNull(appIconCachePath)
      << ",ExecutablePath:" << orNull(executablePath) << ",AppSize:" << appSize
      << ",LastUseDate:" << lastUseDate << ",UsedCount:" << usedCount
      << ",createDate:" << createDate << ",ExecutableArchs:" << archs
      << ",IsUniBinary:" << (isUniBinary ? 1 : 0)
      << ",NeedForceRemove:" << (needForceRemove ? 1 : 0) << "]";
  return out.str();
}

std::string AppFile::domainOf(const std::string& identifier) {
  std::string domain;
  bool previousWasCom = false;
  size_t start = 0;
  while (start <= identifier.size()) {
    size_t dot = identifier.find('.', start);
    if (dot == std::string::npos) dot = identifier.size();
    const std::string component = identifier.substr(start, dot - start);
    start = dot + 1;
    if (previousWasCom) {
      domain += component;
      break;
    }
    domain += component + ".";
    previousWasCom = component == "com";
  }
  return domain;
}

std::string AppFile::formatAppPath(const std::string& path) {
  if (path.empty()) return path;
  std::string out = path;
  if (out.rfind("file://localhost", 0) == 0) {
    out.erase(0, 16);
  } else if (out.rfind("file://", 0) == 0) {
    out.erase(0, 7);
  }
  // The trailing slash is kept: its removal only ever ran for empty strings.
  for (size_t at; (at = out.find("%20")) != std::string::npos;) out.replace(at, 3, " ");
  return out;
}

}  // namespace vexa
