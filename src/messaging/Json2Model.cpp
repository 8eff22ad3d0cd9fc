#include "vexa/messaging/Json2Model.h"

#include <algorithm>
#include <mutex>

#include "vexa/messaging/Message.h"

namespace vexa {

namespace {

struct Registry {
  std::mutex mutex;
  std::map<std::string, Json2Model::ClassInfo> classes;
  std::map<std::string, std::vector<genModelDeclated>> propertyCache;
};

void registerBuiltins(Registry& registry);

Registry& registry() {
  static Registry* r = [] {
    auto* made = new Registry;
    registerBuiltins(*made);
    return made;
  }();
  return *r;
}

// Entries are never removed and map nodes never move: a found entry stays valid.
const Json2Model::ClassInfo* classInfo(const std::string& name) {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  auto it = r.classes.find(name);
  return it == r.classes.end() ? nullptr : &it->second;
}

// The cached property list of a class (own properties first), built on first use.
const std::vector<genModelDeclated>& propertiesOf(const std::string& clazz) {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  auto cached = r.propertyCache.find(clazz);
  if (cached != r.propertyCache.end() && !cached->second.empty()) return cached->second;
  std::vector<genModelDeclated> list;
  std::string current = clazz;
  for (int depth = 0; depth < 64; ++depth) {  // a registration cycle cannot loop for ever
    auto it = r.classes.find(current);
    if (it == r.classes.end()) break;
    list.insert(list.end(), it->second.properties.begin(), it->second.properties.end());
    if (it->second.base.empty()) break;
    current = it->second.base;
  }
  auto& slot = r.propertyCache[clazz];
  if (slot.empty()) slot = std::move(list);
  return slot;
}

bool isScalarLetter(const std::string& typeName) {
  const auto& letters = Json2Model::enumIntFlagArray();
  return std::find(letters.begin(), letters.end(), typeName) != letters.end();
}

// The part of a type name before its element type.
std::string containerPart(const std::string& typeName) {
  const size_t angle = typeName.find('<');
  return angle == std::string::npos ? typeName : typeName.substr(0, angle);
}

bool containsAny(const std::string& s, std::initializer_list<const char*> needles) {
  return std::any_of(needles.begin(), needles.end(),
                     [&](const char* n) { return s.find(n) != std::string::npos; });
}

bool isContainerType(const std::string& t) {
  return Json2Model::genStringTypeIsArray(t) || Json2Model::genStringTypeIsDictionary(t) ||
         Json2Model::genStringTypeIsSet(t);
}

nlohmann::json serializeModel(const Json2Model& object, const std::string& clazz);
ModelValue deserializeValue(const nlohmann::json& value, const std::string& typeName);

// A value declared as a non-model, non-container type and handed in as an element type.
nlohmann::json serializePlainAs(const std::string& typeName) {
  (void)typeName;
  return nlohmann::json::object();
}

nlohmann::json serializeContainer(const ModelValue& value, const std::string& typeName) {
  const std::string element = Json2Model::genericTypeOf(typeName);
  const bool array = !Json2Model::genStringTypeIsDictionary(typeName);  // sets travel as arrays
  if (element.empty()) {
    // Without an element type the container goes as it is.
    if (value.kind == ModelValue::Kind::Json) return value.json;
    nlohmann::json out = array ? nlohmann::json::array() : nlohmann::json::object();
    if (value.kind == ModelValue::Kind::ModelArray) {
      for (const auto& m : value.models) {
        if (m) out.push_back(serializeModel(*m, m->modelClassName()));
      }
    }
    if (value.kind == ModelValue::Kind::ModelDictionary) {
      for (const auto& [k, m] : value.modelDictionary) {
        if (m) out[k] = serializeModel(*m, m->modelClassName());
      }
    }
    return out;
  }
  const bool elementIsModel = Json2Model::genStringTypeIsGenModel(element);
  auto one = [&](const std::shared_ptr<Json2Model>& m) {
    return elementIsModel && m ? serializeModel(*m, element) : serializePlainAs(element);
  };
  if (array) {
    nlohmann::json out = nlohmann::json::array();
    if (value.kind == ModelValue::Kind::ModelArray) {
      for (const auto& m : value.models) out.push_back(one(m));
    } else if (value.kind == ModelValue::Kind::Json && value.json.is_array()) {
      for (size_t i = 0; i < value.json.size(); ++i) out.push_back(serializePlainAs(element));
    }
    return out;
  }
  nlohmann::json out = nlohmann::json::object();
  if (value.kind == ModelValue::Kind::ModelDictionary) {
    for (const auto& [k, m] : value.modelDictionary) out[k] = one(m);
  } else if (value.kind == ModelValue::Kind::Json && value.json.is_object()) {
    for (const auto& [k, v] : value.json.items()) out[k] = serializePlainAs(element);
  }
  return out;
}

nlohmann::json serializeModel(const Json2Model& object, const std::string& clazz) {
  nlohmann::json out = nlohmann::json::object();
  for (const auto& property : propertiesOf(clazz)) {
    if (property.name.empty() || property.pramDescription.empty()) continue;
    const ModelValue value = object.valueForKey(property.name);
    if (value.isAbsent()) continue;
    const std::string typeName = Json2Model::typeNameOf(property.pramDescription).value_or("");
    if (Json2Model::genStringTypeIsGenModel(typeName)) {
      if (value.kind == ModelValue::Kind::Model && value.model) {
        out[property.name] = serializeModel(*value.model, typeName);
      }
    } else if (property.pramDescription.rfind("T@\"", 0) != 0) {
      if (isScalarLetter(typeName) && value.kind == ModelValue::Kind::Json) {
        out[property.name] = value.json;
      }
    } else if (isContainerType(typeName)) {
      out[property.name] = serializeContainer(value, typeName);
    } else if (value.kind == ModelValue::Kind::Json) {
      out[property.name] = value.json;
    }
  }
  return out;
}

// A new, empty value of a plain type: what a non-model element type turns anything into.
nlohmann::json defaultValueOf(const std::string& typeName) {
  if (typeName.find("String") != std::string::npos) return "";
  if (typeName.find("Number") != std::string::npos) return 0;
  return nlohmann::json::object();
}

std::shared_ptr<Json2Model> deserializeModel(const nlohmann::json& source,
                                             const std::string& clazz) {
  const Json2Model::ClassInfo* info = classInfo(clazz);
  if (!info || !info->make) return nullptr;
  std::shared_ptr<Json2Model> object = info->make();
  const auto& properties = propertiesOf(clazz);
  const std::string primaryKey = properties.empty() ? "" : properties.front().name;
  for (const auto& property : properties) {
    if (property.name.empty() || property.pramDescription.empty()) continue;
    const nlohmann::json* value = nullptr;
    if (source.is_object()) {
      auto it = source.find(property.name);
      if (it != source.end()) value = &*it;
    } else if (property.name == primaryKey) {
      value = &source;  // a bare value fills the primary key
    }
    if (!value || value->is_null()) continue;
    const std::string typeName = Json2Model::typeNameOf(property.pramDescription).value_or("");
    if (Json2Model::genStringTypeIsGenModel(typeName)) {
      if (auto model = deserializeModel(*value, typeName)) {
        object->setValueForKey(property.name, ModelValue::of(model));
      }
    } else if (property.pramDescription.rfind("T@\"", 0) != 0) {
      if (!isScalarLetter(typeName)) continue;
      nlohmann::json scalar;
      if (value->is_number() || value->is_boolean()) {
        scalar = *value;
      } else if (value->is_string()) {
        try {
          scalar = std::stod(value->get<std::string>());
        } catch (...) {
          scalar = 0;
        }
      } else {
        continue;
      }
      if (typeName == "B" && scalar.is_number()) scalar = scalar.get<double>() != 0;
      object->setValueForKey(property.name, ModelValue::of(scalar));
    } else if (isContainerType(typeName)) {
      object->setValueForKey(property.name, deserializeValue(*value, typeName));
    } else {
      object->setValueForKey(property.name, ModelValue::of(*value));
    }
  }
  return object;
}

ModelValue deserializeValue(const nlohmann::json& value, const std::string& typeName) {
  if (Json2Model::genStringTypeIsGenModel(typeName)) {
    auto model = deserializeModel(value, typeName);
    return model ? ModelValue::of(model) : ModelValue::absent();
  }
  if (!isContainerType(typeName)) return ModelValue::of(defaultValueOf(typeName));
  const std::string element = Json2Model::genericTypeOf(typeName);
  if (element.empty()) return ModelValue::of(value);
  const bool elementIsModel = Json2Model::genStringTypeIsGenModel(element);
  if (Json2Model::genStringTypeIsDictionary(typeName)) {
    if (!value.is_object()) return ModelValue::of(nlohmann::json::object());
    if (!elementIsModel) {
      nlohmann::json out = nlohmann::json::object();
      for (const auto& [k, v] : value.items()) out[k] = defaultValueOf(element);
      return ModelValue::of(out);
    }
    std::map<std::string, std::shared_ptr<Json2Model>> out;
    for (const auto& [k, v] : value.items()) {
      if (auto m = deserializeModel(v, element)) out[k] = m;
    }
    return ModelValue::of(std::move(out));
  }
  // Arrays and sets (a JSON array stands for both).
  if (!value.is_array()) return ModelValue::of(nlohmann::json::array());
  if (!elementIsModel) {
    nlohmann::json out = nlohmann::json::array();
    for (size_t i = 0; i < value.size(); ++i) out.push_back(defaultValueOf(element));
    return ModelValue::of(out);
  }
  std::vector<std::shared_ptr<Json2Model>> out;
  for (const auto& v : value) {
    if (auto m = deserializeModel(v, element)) out.push_back(m);
  }
  return ModelValue::of(std::move(out));
}

void registerBuiltins(Registry& r) {
  r.classes["Json2Model"] = Json2Model::ClassInfo{"", nullptr, {}};
  r.classes["Message"] = Json2Model::ClassInfo{
      "Json2Model",
      [] { return std::make_shared<Message>(); },
      {{"name", "T@\"NSString\",&,N,V_name"}, {"parms", "T@\"NSDictionary\",&,N,V_parms"}}};
}

}  // namespace

ModelValue ModelValue::of(nlohmann::json value) {
  ModelValue v;
  v.kind = Kind::Json;
  v.json = std::move(value);
  return v;
}

ModelValue ModelValue::of(std::shared_ptr<Json2Model> value) {
  ModelValue v;
  v.kind = value ? Kind::Model : Kind::Absent;
  v.model = std::move(value);
  return v;
}

ModelValue ModelValue::of(std::vector<std::shared_ptr<Json2Model>> values) {
  ModelValue v;
  v.kind = Kind::ModelArray;
  v.models = std::move(values);
  return v;
}

ModelValue ModelValue::of(std::map<std::string, std::shared_ptr<Json2Model>> values) {
  ModelValue v;
  v.kind = Kind::ModelDictionary;
  v.modelDictionary = std::move(values);
  return v;
}

void Json2Model::registerModelClass(const std::string& name, ClassInfo info) {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  r.classes.emplace(name, std::move(info));
}

const std::vector<std::string>& Json2Model::enumIntFlagArray() {
  static const std::vector<std::string> letters = {"c", "C", "i", "I", "s", "S", "l",
                                                   "L", "q", "Q", "f", "d", "B"};
  return letters;
}

std::vector<genModelDeclated> Json2Model::genGetPropertyDeclared(const std::string& clazz) {
  return propertiesOf(clazz);
}

std::string Json2Model::genGetPrimaryKey(const std::string& clazz) {
  const auto& list = propertiesOf(clazz);
  return list.empty() ? "" : list.front().name;
}

std::optional<std::string> Json2Model::typeNameOf(const std::string& descriptor) {
  const size_t comma = descriptor.find(',');
  if (descriptor.empty() || comma == std::string::npos) return std::nullopt;
  std::string name;
  for (char c : descriptor.substr(1, comma - 1)) {
    if (c != '"' && c != '@') name += c;
  }
  return name;
}

std::string Json2Model::genericTypeOf(const std::string& typeName) {
  const size_t open = typeName.find('<');
  if (open == std::string::npos) return "";
  const size_t close = typeName.find('>', open);
  return typeName.substr(open + 1,
                         close == std::string::npos ? std::string::npos : close - open - 1);
}

bool Json2Model::genStringTypeIsArray(const std::string& typeName) {
  return containsAny(containerPart(typeName), {"NSArray", "NSMutableArray"});
}

bool Json2Model::genStringTypeIsDictionary(const std::string& typeName) {
  return containsAny(containerPart(typeName), {"NSDictionary", "NSMutableDictionary"});
}

bool Json2Model::genStringTypeIsSet(const std::string& typeName) {
  return containsAny(containerPart(typeName), {"NSSet", "NSMutableSet"});
}

bool Json2Model::genStringTypeIsGenModel(const std::string& clazz) {
  return !clazz.empty() && classInfo(clazz) != nullptr;
}

std::optional<nlohmann::json> Json2Model::getDictionaryByObject(const Json2Model* object) {
  if (!object || !genStringTypeIsGenModel(object->modelClassName())) return std::nullopt;
  return serializeModel(*object, object->modelClassName());
}

std::optional<std::string> Json2Model::getJSONByObject(const Json2Model* object) {
  auto dictionary = getDictionaryByObject(object);
  if (!dictionary) return std::nullopt;
  return JSONString(*dictionary);
}

std::shared_ptr<Json2Model> Json2Model::getObjectByDictionary(const nlohmann::json& value,
                                                              const std::string& clazz) {
  if (!genStringTypeIsGenModel(clazz)) return nullptr;
  return deserializeModel(value, clazz);
}

std::shared_ptr<Json2Model> Json2Model::getObjectByJSON(const std::string& text,
                                                        const std::string& clazz) {
  auto parsed = JSONObject(text);
  if (!parsed) return nullptr;
  return getObjectByDictionary(*parsed, clazz);
}

std::optional<std::string> JSONString(const nlohmann::json& value) {
  try {
    return value.dump();
  } catch (const nlohmann::json::exception&) {
    return std::nullopt;
  }
}

std::optional<nlohmann::json> JSONObject(const std::string& text) {
  nlohmann::json parsed = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (parsed.is_discarded() || !(parsed.is_object() || parsed.is_array())) return std::nullopt;
  return parsed;
}

}  // namespace vexa
