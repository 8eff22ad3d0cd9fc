#include "vexa/messaging/Message.h"

namespace vexa {

Message::Message(std::string name, nlohmann::json parms)
    : name_(std::move(name)), parms_(std::move(parms)) {}

std::string Message::name() const { return name_.is_string() ? name_.get<std::string>() : ""; }

std::shared_ptr<Message> Message::fromJSON(const std::string& text) {
  return std::dynamic_pointer_cast<Message>(getObjectByJSON(text, "Message"));
}

ModelValue Message::valueForKey(const std::string& name) const {
  if (name == "name" && !name_.is_null()) return ModelValue::of(name_);
  if (name == "parms" && !parms_.is_null()) return ModelValue::of(parms_);
  return ModelValue::absent();
}

void Message::setValueForKey(const std::string& name, const ModelValue& value) {
  if (value.kind != ModelValue::Kind::Json) return;
  if (name == "name") name_ = value.json;
  if (name == "parms") parms_ = value.json;
}

}  // namespace vexa
