#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "vexa/Export.h"

namespace vexa {

class Json2Model;

// One declared property of a model class: its name and its type descriptor in the object
// runtime's form ('T@"NSString",&,N,V_name', 'Tq,N,V_count', 'T@"NSMutableArray<AppFile>",&').
struct VEXA_EXPORT genModelDeclated {
  std::string name;
  std::string pramDescription;
};

// The value of a model property: absent, a JSON value, a model object, or a container of model
// objects (for containers declared with a model element type).
struct VEXA_EXPORT ModelValue {  // NOLINT(bugprone-exception-escape): plain members
  enum class Kind { Absent, Json, Model, ModelArray, ModelDictionary };
  Kind kind = Kind::Absent;
  nlohmann::json json;
  std::shared_ptr<Json2Model> model;
  std::vector<std::shared_ptr<Json2Model>> models;
  std::map<std::string, std::shared_ptr<Json2Model>> modelDictionary;

  static ModelValue absent() { return {}; }
  static ModelValue of(nlohmann::json value);
  static ModelValue of(std::shared_ptr<Json2Model> value);
  static ModelValue of(std::vector<std::shared_ptr<Json2Model>> values);
  static ModelValue of(std::map<std::string, std::shared_ptr<Json2Model>> values);
  bool isAbsent() const { return kind == Kind::Absent; }
};

// Base of the JSON-mappable model classes.
//
// A model class registers itself once (registerModelClass) with its base class, a factory and its
// own properties in declaration order; the mapping walks a class's properties, its own before
// its base's, and treats the first one as the primary key. Every operation is safe from any
// thread.
class VEXA_EXPORT Json2Model {
 public:
  virtual ~Json2Model() = default;

  // The registered class name of this object.
  virtual std::string modelClassName() const = 0;
  // The value of a property by name (absent when unset or unknown).
  virtual ModelValue valueForKey(const std::string& name) const = 0;
  // Assigns a property by name; unknown names are ignored.
  virtual void setValueForKey(const std::string& name, const ModelValue& value) = 0;

  struct ClassInfo {
    std::string base;  // "" for the root ("Json2Model" itself has no properties)
    std::function<std::shared_ptr<Json2Model>()> make;
    std::vector<genModelDeclated> properties;  // own properties, in declaration order
  };
  static void registerModelClass(const std::string& name, ClassInfo info);

  static std::optional<nlohmann::json> getDictionaryByObject(const Json2Model* object);
  static std::optional<std::string> getJSONByObject(const Json2Model* object);
  static std::shared_ptr<Json2Model> getObjectByDictionary(const nlohmann::json& value,
                                                           const std::string& clazz);
  static std::shared_ptr<Json2Model> getObjectByJSON(const std::string& text,
                                                     const std::string& clazz);
  static const std::vector<std::string>& enumIntFlagArray();

  // The class's properties, own before its bases'; empty for an unknown class.
  static std::vector<genModelDeclated> genGetPropertyDeclared(const std::string& clazz);
  static std::string genGetPrimaryKey(const std::string& clazz);
  // A descriptor's type name and its element type ("" when there is none).
  static std::optional<std::string> typeNameOf(const std::string& descriptor);
  static std::string genericTypeOf(const std::string& typeName);

  static bool genStringTypeIsArray(const std::string& typeName);
  static bool genStringTypeIsDictionary(const std::string& typeName);
  static bool genStringTypeIsSet(const std::string& typeName);
  static bool genStringTypeIsGenModel(const std::string& clazz);
  static bool genObjectTypeIsArray(const nlohmann::json& value) { return value.is_array(); }
  static bool genObjectTypeIsDictionary(const nlohmann::json& value) { return value.is_object(); }
  // JSON has no sets.
  static bool genObjectTypeIsSet(const nlohmann::json&) { return false; }
};

// Any JSON value as compact text; empty when it cannot be written (invalid UTF-8).
VEXA_EXPORT std::optional<std::string> JSONString(const nlohmann::json& value);
// Parses JSON text (strictly; the top level must be an object or an array).
VEXA_EXPORT std::optional<nlohmann::json> JSONObject(const std::string& text);

}  // namespace vexa
