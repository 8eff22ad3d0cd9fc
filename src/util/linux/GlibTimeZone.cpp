// Time zones from the system's zone database through GLib's GTimeZone.
#include <glib.h>

#include "util/TimeZone.h"

namespace vexa {

namespace {

class GlibZone final : public TimeZone {
 public:
  explicit GlibZone(GTimeZone* zone) : zone_(zone) {}
  ~GlibZone() override { g_time_zone_unref(zone_); }
  GlibZone(const GlibZone&) = delete;
  GlibZone& operator=(const GlibZone&) = delete;

  int offsetAt(int64_t utcSeconds) const override {
    const gint interval = g_time_zone_find_interval(zone_, G_TIME_TYPE_UNIVERSAL, utcSeconds);
    return interval < 0 ? 0 : g_time_zone_get_offset(zone_, interval);
  }

 private:
  GTimeZone* zone_;
};

}  // namespace

std::shared_ptr<const TimeZone> TimeZone::local() {
  return std::make_shared<GlibZone>(g_time_zone_new_local());
}

std::shared_ptr<const TimeZone> TimeZone::named(const std::string& identifier) {
  if (identifier.empty()) return nullptr;
  GTimeZone* zone = g_time_zone_new_identifier(identifier.c_str());
  if (!zone) return nullptr;
  return std::make_shared<GlibZone>(zone);
}

}  // namespace vexa
