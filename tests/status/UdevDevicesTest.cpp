// udev's announcements, from a device tree of the test's own (umockdev, which stands in for
// /sys and for udevd's announcements in this process). The suite runs under umockdev-wrapper.
#include <gtest/gtest.h>
#include <umockdev.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "status/BlockDeviceEvents.h"
#include "status/MachineFiles.h"
#include "status/PowerSupplyChanges.h"
#include "status/SysfsPowerSupplies.h"
#include "vexa/util/RunLoop.h"

namespace vexa {
namespace udev_devices_test {

using namespace std::chrono_literals;

class UdevDevicesTest : public testing::Test {
 protected:
  void SetUp() override {
    const char* preload = std::getenv("LD_PRELOAD");
    if (!preload || !std::strstr(preload, "libumockdev-preload")) {
      GTEST_SKIP() << "needs umockdev-wrapper";
    }
    bed_ = umockdev_testbed_new();
  }
  void TearDown() override {
    if (bed_) g_object_unref(bed_);
  }
  // A device of `subsystem`, with attributes and properties as name/value pairs.
  std::string add(const char* subsystem, const char* name, std::vector<const char*> attributes,
                  std::vector<const char*> properties) {
    attributes.push_back(nullptr);
    properties.push_back(nullptr);
    gchar* path = umockdev_testbed_add_devicev(bed_, subsystem, name, nullptr,
                                               const_cast<gchar**>(attributes.data()),
                                               const_cast<gchar**>(properties.data()));
    std::string syspath = path ? path : "";
    g_free(path);
    return syspath;
  }
  UMockdevTestbed* bed_ = nullptr;
};

TEST_F(UdevDevicesTest, AChargerPluggedInIsAnnouncedAndReadAnew) {
  const std::string charger = add("power_supply", "AC", {"type", "Mains", "online", "0"}, {});
  add("power_supply", "BAT0",
      {"type", "Battery", "present", "1", "status", "Discharging", "capacity", "57", "energy_now",
       "28500000", "energy_full", "50000000", "power_now", "9500000"},
      {});
  SysfsPowerSupplies supplies(MachineFiles::underRoot("/"), PowerSupplyChanges::system());
  const PowerSnapshot before = supplies.read();
  ASSERT_EQ(before.sources.size(), 1u);
  EXPECT_EQ(before.sources[0]["Power Source State"], "Battery Power");
  EXPECT_DOUBLE_EQ(before.timeRemaining, 3.0 * 3600);

  int announced = 0;
  ASSERT_TRUE(supplies.follow([&] { ++announced; }));
  umockdev_testbed_set_attribute(bed_, charger.c_str(), "online", "1");
  umockdev_testbed_uevent(bed_, charger.c_str(), "change");
  ASSERT_TRUE(RunLoop::current().runUntil([&] { return announced > 0; }, 5s));
  const PowerSnapshot after = supplies.read();
  ASSERT_EQ(after.sources.size(), 1u);
  EXPECT_EQ(after.sources[0]["Power Source State"], "AC Power");
}

// Collects what a BlockDeviceEvents source announces on a thread of its own.
class BlockListener {
 public:
  BlockListener() : events_(BlockDeviceEvents::system()) {
    thread_ = std::thread([this] {
      events_->run([this](const BlockDeviceEvent& event) {
        std::lock_guard guard(lock_);
        heard_.push_back(event);
        arrived_.notify_all();
      });
    });
  }
  ~BlockListener() {
    events_->stop();
    thread_.join();
  }
  // Waits until `count` announcements arrived, sending `nudge` again while none has (the
  // listener may not be listening yet when the first is sent).
  std::vector<BlockDeviceEvent> waitFor(size_t count, const std::function<void()>& nudge) {
    std::unique_lock guard(lock_);
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (heard_.size() < count && std::chrono::steady_clock::now() < deadline) {
      if (heard_.empty()) {
        guard.unlock();
        nudge();
        guard.lock();
      }
      arrived_.wait_for(guard, 100ms);
    }
    return heard_;
  }

 private:
  std::unique_ptr<BlockDeviceEvents> events_;
  std::mutex lock_;
  std::condition_variable arrived_;
  std::vector<BlockDeviceEvent> heard_;
  std::thread thread_;
};

TEST_F(UdevDevicesTest, BlockDevicesComeAndGoWithWhatUdevFoundOnThem) {
  const std::string stick =
      add("block", "sdb1", {"ro", "0", "dev", "8:17"},
          {"DEVNAME", "/dev/sdb1", "MAJOR", "8", "MINOR", "17", "DEVTYPE", "partition",
           "ID_FS_USAGE", "filesystem", "ID_FS_TYPE", "vfat", "ID_FS_LABEL", "STICK"});
  const std::string card = add("block", "mmcblk0", {"ro", "1", "dev", "179:0"},
                               {"DEVNAME", "/dev/mmcblk0", "MAJOR", "179", "MINOR", "0", "DEVTYPE",
                                "disk", "ID_FS_USAGE", "filesystem"});
  const std::string raw =
      add("block", "sdc", {"ro", "0", "dev", "8:32"},
          {"DEVNAME", "/dev/sdc", "MAJOR", "8", "MINOR", "32", "DEVTYPE", "disk"});
  BlockListener listener;
  const auto first =
      listener.waitFor(1, [&] { umockdev_testbed_uevent(bed_, stick.c_str(), "add"); });
  ASSERT_FALSE(first.empty());
  umockdev_testbed_uevent(bed_, card.c_str(), "add");
  umockdev_testbed_uevent(bed_, raw.c_str(), "add");
  umockdev_testbed_uevent(bed_, stick.c_str(), "remove");
  const auto heard = listener.waitFor(first.size() + 3, [] {});
  ASSERT_EQ(heard.size(), first.size() + 3);

  const BlockDeviceEvent& added = heard[0];
  EXPECT_EQ(added.kind, BlockDeviceEvent::Kind::Appeared);
  EXPECT_EQ(added.name, "sdb1");
  EXPECT_EQ(added.device, "8:17");
  EXPECT_TRUE(added.mountable);
  EXPECT_TRUE(added.writable);

  const BlockDeviceEvent& readOnly = heard[first.size()];
  EXPECT_EQ(readOnly.name, "mmcblk0");
  EXPECT_TRUE(readOnly.mountable);
  EXPECT_FALSE(readOnly.writable);

  const BlockDeviceEvent& unformatted = heard[first.size() + 1];
  EXPECT_EQ(unformatted.name, "sdc");
  EXPECT_FALSE(unformatted.mountable);

  const BlockDeviceEvent& removed = heard.back();
  EXPECT_EQ(removed.kind, BlockDeviceEvent::Kind::Disappeared);
  EXPECT_EQ(removed.name, "sdb1");
  EXPECT_EQ(removed.device, "8:17");
}

}  // namespace udev_devices_test
}  // namespace vexa
