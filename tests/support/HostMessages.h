#pragma once

#include <chrono>
#include <functional>
#include <string>

#include <nlohmann/json.hpp>

#include "support/ChildProcess.h"

namespace vexa::test {

// The next message vexa-host prints whose name `wanted` accepts, the others passed over (the
// agent's monitors all talk on the one connection). Null at a time-out or the end; a line that is
// not a JSON object is returned as it parses, so the caller sees it.
inline nlohmann::json nextHostMessage(ChildProcess& host,
                                      const std::function<bool(const std::string&)>& wanted,
                                      int seconds = 15) {
  for (;;) {
    auto line = host.readLine(std::chrono::seconds(seconds));
    if (!line) return nlohmann::json();
    auto message = nlohmann::json::parse(*line, nullptr, false);
    if (!message.is_object() || wanted(message.value("name", ""))) return message;
  }
}

}  // namespace vexa::test
