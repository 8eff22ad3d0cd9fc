#pragma once

#include <memory>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "vexa/Export.h"
#include "vexa/messaging/Json2Model.h"

namespace vexa {

// What crosses the socket between the agent and the host: a command name and its parameters.
// Both may be absent. Properties: "name" (the primary key), then "parms".
class VEXA_EXPORT Message : public Json2Model {
 public:
  Message() = default;  // NOLINT(bugprone-exception-escape): members that cannot throw
  explicit Message(std::string name, nlohmann::json parms = nullptr);

  // The name when it is a string; "" otherwise.
  std::string name() const;
  void setName(std::string name) { name_ = std::move(name); }
  bool hasName() const { return !name_.is_null(); }
  // The parameters (null when absent).
  const nlohmann::json& parms() const { return parms_; }
  void setParms(nlohmann::json parms) { parms_ = std::move(parms); }

  // The message's JSON text, as on the wire.
  std::optional<std::string> JSONText() const { return getJSONByObject(this); }
  static std::shared_ptr<Message> fromJSON(const std::string& text);

  std::string modelClassName() const override { return "Message"; }
  ModelValue valueForKey(const std::string& name) const override;
  void setValueForKey(const std::string& name, const ModelValue& value) override;

 private:
  nlohmann::json name_;  // as assigned: not always a string when read from outside
  nlohmann::json parms_;
};

}  // namespace vexa
