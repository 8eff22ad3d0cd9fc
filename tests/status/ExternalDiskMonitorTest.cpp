#include "vexa/status/ExternalDiskMonitor.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <deque>
#include <thread>

#include "status/BlockDeviceEvents.h"
#include "status/MachineFiles.h"
#include "support/Signal.h"
#include "support/TempDir.h"

namespace vexa {
namespace external_disk_monitor_test {

using namespace std::chrono_literals;

// Announcements the test posts, handed out on the monitor's thread.
class PostedDevices : public BlockDeviceEvents {
 public:
  bool run(const std::function<void(const BlockDeviceEvent&)>& handle) override {
    std::unique_lock lock(mutex_);
    for (;;) {
      posted_.wait(lock, [this] { return stopped_ || !queue_.empty(); });
      if (queue_.empty()) return true;
      const BlockDeviceEvent event = queue_.front();
      queue_.pop_front();
      lock.unlock();
      handle(event);
      handled.add();
      lock.lock();
    }
  }
  void stop() override {
    std::lock_guard lock(mutex_);
    stopped_ = true;
    posted_.notify_all();
  }
  void post(BlockDeviceEvent event) {
    std::lock_guard lock(mutex_);
    queue_.push_back(std::move(event));
    posted_.notify_all();
  }
  test::Signal handled;  // once per event the monitor has handled

 private:
  std::mutex mutex_;
  std::condition_variable posted_;
  std::deque<BlockDeviceEvent> queue_;
  bool stopped_ = false;
};

class HeardDisks : public ExternalDiskDelegate {
 public:
  void mountedPath(const std::string& path, bool writable) override {
    record("mounted " + path + (writable ? " rw" : " ro"));
  }
  void unmountedPath(const std::string& path) override { record("unmounted " + path); }
  std::vector<std::string> calls() {
    std::lock_guard lock(mutex_);
    return calls_;
  }
  test::Signal heard;  // once per call

 private:
  void record(std::string call) {
    {
      std::lock_guard lock(mutex_);
      calls_.push_back(std::move(call));
    }
    heard.add();
  }
  std::mutex mutex_;
  std::vector<std::string> calls_;
};

constexpr const char* kRoot = "28 1 259:2 / / rw - ext4 /dev/nvme0n1p2 rw\n";

class ExternalDiskMonitorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    root_.write("proc/self/mountinfo", kRoot);
    auto devices = std::make_unique<PostedDevices>();
    devices_ = devices.get();
    monitor_ = std::make_unique<ExternalDiskMonitor>(std::move(devices),
                                                     MachineFiles::underRoot(root_.path()), 500ms);
    monitor_->setDelegate(heard_);
    loop_ = std::thread([this] { monitor_->startMonitor(); });
  }
  // A plain file never signals a change by itself: the test tells the monitor.
  void change(const std::string& text) {
    root_.write("proc/self/mountinfo", text);
    monitor_->mountTableChanged();
  }
  void TearDown() override {
    monitor_->endMonitor();
    loop_.join();
    EXPECT_EQ(monitor_->status(), 0);
    monitor_.reset();
  }
  static BlockDeviceEvent appeared(const std::string& name, const std::string& device,
                                   bool writable = true, bool mountable = true) {
    return {BlockDeviceEvent::Kind::Appeared, name, device, mountable, writable};
  }
  static BlockDeviceEvent gone(const std::string& name) {
    return {BlockDeviceEvent::Kind::Disappeared, name, {}, false, false};
  }

  test::TempDir root_;  // its mount table is rewritten by the test
  PostedDevices* devices_ = nullptr;
  std::unique_ptr<ExternalDiskMonitor> monitor_;
  std::shared_ptr<HeardDisks> heard_ = std::make_shared<HeardDisks>();
  std::thread loop_;
};

TEST_F(ExternalDiskMonitorTest, MountedThenUnmountedWithoutARemoval) {
  devices_->post(appeared("sdb1", "8:17"));
  // The stick mounts a moment after it appears: the worker is woken by the table's change.
  change(std::string(kRoot) + "95 26 8:17 / /media/anna/My\\040Stick rw - vfat /dev/sdb1 rw\n");
  ASSERT_TRUE(heard_->heard.waitFor(1));
  EXPECT_TRUE(monitor_->hasMountPoint("sdb1"));
  // A plain unmount: the device stays, only the table tells.
  change(kRoot);
  ASSERT_TRUE(heard_->heard.waitFor(2));
  EXPECT_EQ(heard_->calls(), (std::vector<std::string>{"mounted /media/anna/My Stick rw",
                                                       "unmounted /media/anna/My Stick"}));
  EXPECT_FALSE(monitor_->hasMountPoint("sdb1"));
}

// Mounted before udev tells of it; a mapped device is found by its number, not its name.
TEST_F(ExternalDiskMonitorTest, ReadOnlyMappedDiskAndRemovalAfterTheMount) {
  change(std::string(kRoot) +
         "97 26 253:3 / /media/anna/vault ro - ext4 /dev/mapper/luks-3f1e ro\n");
  devices_->post(appeared("dm-3", "253:3", false));
  ASSERT_TRUE(heard_->heard.waitFor(1));
  devices_->post(gone("dm-3"));
  ASSERT_TRUE(heard_->heard.waitFor(2));
  EXPECT_EQ(heard_->calls(), (std::vector<std::string>{"mounted /media/anna/vault ro",
                                                       "unmounted /media/anna/vault"}));
}

TEST_F(ExternalDiskMonitorTest, GoneBeforeItsMountSaysNothing) {
  devices_->post(appeared("sdc1", "8:33"));
  devices_->post(gone("sdc1"));
  // Nor does one that never mounts: given up after the monitor's wait.
  devices_->post(appeared("sdd1", "8:49"));
  // Not a file system (a swap partition, say): not followed at all.
  devices_->post(appeared("sde2", "8:66", true, false));
  // A type never listed does not count as the mount either.
  change(std::string(kRoot) + "98 26 8:49 / /mnt/net rw - nfs /dev/sdd1 rw\n");
  ASSERT_TRUE(devices_->handled.waitFor(4));
  EXPECT_TRUE(test::eventually([&] { return !monitor_->hasMountPoint("sdd1"); }, 5s));
  EXPECT_FALSE(monitor_->hasMountPoint("sdc1"));
  EXPECT_FALSE(monitor_->hasMountPoint("sde2"));
  EXPECT_TRUE(heard_->calls().empty());
}

TEST_F(ExternalDiskMonitorTest, StopForgetsButKeepsListening) {
  devices_->post(appeared("sdf1", "8:81"));
  monitor_->stopMonitor();
  change(std::string(kRoot) + "99 26 8:97 / /media/anna/B rw - exfat /dev/sdg1 rw\n");
  devices_->post(appeared("sdg1", "8:97"));
  ASSERT_TRUE(heard_->heard.waitFor(1));
  EXPECT_EQ(heard_->calls(), std::vector<std::string>{"mounted /media/anna/B rw"});
}

// udev's source ends when asked, whether or not a udev daemon runs.
TEST(BlockDeviceEventsTest, SystemSourceStops) {
  auto events = BlockDeviceEvents::system();
  std::atomic<bool> returned{false};
  std::thread loop([&] {
    events->run([](const BlockDeviceEvent&) {});
    returned = true;
  });
  events->stop();
  loop.join();
  EXPECT_TRUE(returned);
}

}  // namespace external_disk_monitor_test
}  // namespace vexa
