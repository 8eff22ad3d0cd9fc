#include <glib.h>

#include <array>
#include <cstdio>

#include "status/AppSpecificId.h"

namespace vexa {
namespace {

// Fixed, so that the UUID stays the same whichever program of the application asks.
constexpr const char* kApplication = "com.tarnwick.Vexa-Sweeper";

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::optional<std::string> appSpecificMachineUuid(const std::string& machineId) {
  std::string id = machineId;
  while (!id.empty() && (id.back() == '\n' || id.back() == ' ')) id.pop_back();
  if (id.size() != 32) return std::nullopt;
  std::array<guchar, 16> key{};
  for (size_t i = 0; i < 16; ++i) {
    const int high = hexValue(id[2 * i]), low = hexValue(id[2 * i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    key[i] = static_cast<guchar>(high * 16 + low);
  }
  GHmac* hmac = g_hmac_new(G_CHECKSUM_SHA256, key.data(), key.size());
  const std::string app = kApplication;
  g_hmac_update(hmac, reinterpret_cast<const guchar*>(app.data()), static_cast<gssize>(app.size()));
  std::array<guint8, 32> digest{};
  gsize length = digest.size();
  g_hmac_get_digest(hmac, digest.data(), &length);
  g_hmac_unref(hmac);
  digest[6] = static_cast<guint8>((digest[6] & 0x0F) | 0x40);
  digest[8] = static_cast<guint8>((digest[8] & 0x3F) | 0x80);
  char text[37];
  std::snprintf(
      text, sizeof text, "%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X",
      digest[0], digest[1], digest[2], digest[3], digest[4], digest[5], digest[6], digest[7],
      digest[8], digest[9], digest[10], digest[11], digest[12], digest[13], digest[14], digest[15]);
  return std::string(text);
}

}  // namespace vexa
