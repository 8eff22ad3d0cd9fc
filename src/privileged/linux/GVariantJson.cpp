#include "privileged/linux/GVariantJson.h"

namespace vexa {

GVariant* dictionaryToVariant(const nlohmann::json& dictionary) {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE("a{sv}"));
  if (dictionary.is_object()) {
    for (const auto& [key, value] : dictionary.items()) {
      GVariant* v = nullptr;
      if (value.is_boolean()) {
        v = g_variant_new_boolean(value.get<bool>());
      } else if (value.is_number_integer()) {
        v = g_variant_new_int64(value.get<int64_t>());
      } else if (value.is_string()) {
        const std::string& text = value.get_ref<const std::string&>();
        if (!g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr)) continue;
        v = g_variant_new_string(text.c_str());
      }
      if (v) g_variant_builder_add(&builder, "{sv}", key.c_str(), v);
    }
  }
  return g_variant_builder_end(&builder);
}

nlohmann::json variantToDictionary(GVariant* variant) {
  nlohmann::json out = nlohmann::json::object();
  if (!variant || !g_variant_is_of_type(variant, G_VARIANT_TYPE("a{sv}"))) return out;
  GVariantIter iter;
  const gchar* key = nullptr;
  GVariant* next = nullptr;
  g_variant_iter_init(&iter, variant);
  while (g_variant_iter_next(&iter, "{&sv}", &key, &next)) {
    g_autoptr(GVariant) value = next;
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_BOOLEAN)) {
      out[key] = static_cast<bool>(g_variant_get_boolean(value));
    } else if (g_variant_is_of_type(value, G_VARIANT_TYPE_INT64)) {
      out[key] = g_variant_get_int64(value);
    } else if (g_variant_is_of_type(value, G_VARIANT_TYPE_INT32)) {
      out[key] = g_variant_get_int32(value);
    } else if (g_variant_is_of_type(value, G_VARIANT_TYPE_UINT32)) {
      out[key] = g_variant_get_uint32(value);
    } else if (g_variant_is_of_type(value, G_VARIANT_TYPE_UINT64)) {
      out[key] = g_variant_get_uint64(value);
    } else if (g_variant_is_of_type(value, G_VARIANT_TYPE_DOUBLE)) {
      out[key] = g_variant_get_double(value);
    } else if (g_variant_is_of_type(value, G_VARIANT_TYPE_STRING)) {
      out[key] = g_variant_get_string(value, nullptr);
    }
  }
  return out;
}

}  // namespace vexa
