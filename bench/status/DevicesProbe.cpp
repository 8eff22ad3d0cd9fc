// A probe for the device benchmark (bench/status/devices-peers.sh); run under umockdev-wrapper.
//   devices-probe battery FILE   loads the device tree described in FILE (a charger and a
//                                battery) and prints: "sample_us=" the mean time of one battery
//                                sample with a delegate, then "latency_ms p50= max=" from a
//                                charger plugged in or pulled out (attribute written, udev
//                                announcement sent) to the delegate's call, over 50 changes
#include <umockdev.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "vexa/status/BatteryStatus.h"
#include "vexa/util/RunLoop.h"

namespace {

using Clock = std::chrono::steady_clock;

class Heard : public vexa::BatteryDelegate {
 public:
  void batteryCalculating(double) override { ++calls; }
  void batteryWithRemaining(const std::string&) override { ++calls; }
  void batteryCharged() override { ++calls; }
  void batteryChargingCalculating() override { ++calls; }
  void batteryChargingWithRemaining(const std::string&) override { ++calls; }
  int calls = 0;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3 || std::string(argv[1]) != "battery") {
    std::fprintf(stderr, "usage: devices-probe battery FILE (under umockdev-wrapper)\n");
    return 2;
  }
  UMockdevTestbed* bed = umockdev_testbed_new();
  GError* error = nullptr;
  if (!umockdev_testbed_add_from_file(bed, argv[2], &error)) {
    std::fprintf(stderr, "cannot load %s: %s\n", argv[2], error ? error->message : "?");
    return 1;
  }
  const char* charger = "/sys/devices/LNXSYSTM:00/LNXSYBUS:00/ACPI0003:00/power_supply/AC";

  auto battery = vexa::BatteryStatus::create("/");
  auto heard = std::make_shared<Heard>();
  battery->setDelegate(heard);

  constexpr int kSamples = 2000;
  const auto start = Clock::now();
  for (int i = 0; i < kSamples; ++i) battery->updateCurrentStatus();
  const double sampleUs =
      std::chrono::duration<double, std::micro>(Clock::now() - start).count() / kSamples;
  std::printf("sample_us=%.2f\n", sampleUs);

  vexa::RunLoop loop = vexa::RunLoop::current();
  std::vector<double> latencies;
  for (int i = 0; i < 50; ++i) {
    const int before = heard->calls;
    const auto changed = Clock::now();
    umockdev_testbed_set_attribute(bed, charger, "online", i % 2 == 0 ? "1\n" : "0\n");
    umockdev_testbed_uevent(bed, charger, "change");
    if (!loop.runUntil([&] { return heard->calls > before; }, std::chrono::seconds(5))) {
      std::fprintf(stderr, "change %d was not heard\n", i);
      return 1;
    }
    latencies.push_back(std::chrono::duration<double, std::milli>(Clock::now() - changed).count());
  }
  std::sort(latencies.begin(), latencies.end());
  std::printf("latency_ms p50=%.3f max=%.3f\n", latencies[latencies.size() / 2], latencies.back());
  g_object_unref(bed);
  return 0;
}
