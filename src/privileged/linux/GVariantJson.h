#pragma once

#include <glib.h>

#include <nlohmann/json.hpp>

namespace vexa {

// The helper protocol's dictionaries as D-Bus a{sv}: integers as int64 ("x"), booleans ("b"),
// strings ("s"). Other JSON values are left out.
GVariant* dictionaryToVariant(const nlohmann::json& dictionary);
// Any a{sv}: integers of every width, booleans, strings and doubles come back; other entries
// are left out. A value that is not a dictionary gives an empty object.
nlohmann::json variantToDictionary(GVariant* variant);

}  // namespace vexa
