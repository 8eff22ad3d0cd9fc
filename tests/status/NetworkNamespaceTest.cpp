// The network sampler and the kernel's change announcements in a network namespace of their
// own: the test runs itself again under unshare(1) (an unprivileged user namespace mapping the
// user to root, with fresh network and mount namespaces and /sys mounted anew for them), so the
// links it makes and deletes never touch the machine's.
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <cstdlib>
#include <iostream>
#include <string>

#include "status/NetworkChanges.h"
#include "support/ChildProcess.h"
#include "vexa/status/NetworkStatus.h"
#include "vexa/util/RunLoop.h"

namespace vexa {
namespace network_namespace_test {

using namespace std::chrono_literals;

constexpr const char* kInsideVariable = "VEXA_TEST_IN_NETNS";
constexpr const char* kIp = "/usr/sbin/ip";

int shell(const std::string& command) {
  const int status = std::system(command.c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string selfPath() {
  char path[PATH_MAX] = {};
  const ssize_t n = ::readlink("/proc/self/exe", path, sizeof path - 1);
  return n > 0 ? std::string(path, static_cast<size_t>(n)) : std::string();
}

class RecordingNetwork : public NetworkDelegate {
 public:
  void networkStatus(const nlohmann::json& services) override { last = services; }
  bool lists(const std::string& device) const {
    for (const auto& service : last) {
      if (service.value("device_name", "") == device) return true;
    }
    return false;
  }
  nlohmann::json addressesOf(const std::string& device) const {
    for (const auto& service : last) {
      if (service.value("device_name", "") == device) {
        return service.value("ipv4_addresses", nlohmann::json());
      }
    }
    return nullptr;
  }
  nlohmann::json last = nlohmann::json::array();
};

// Runs every source that is ready now: the announcements of commands that have returned are
// already queued on the sockets.
void runReady() {
  while (RunLoop::current().iterate(false)) {
  }
}

void insideNamespace() {
  const std::string ip = kIp;
  int bursts = 0;
  auto heard = NetworkChanges::system();
  ASSERT_TRUE(heard->start([&] { ++bursts; }));
  auto status = NetworkStatus::create("/");
  status->setFreshInterval(0);  // samples are taken by hand
  auto recorder = std::make_shared<RecordingNetwork>();
  status->setDelegate(recorder);
  status->updateInfo();
  EXPECT_FALSE(recorder->lists("va"));

  // A new link with a global address is a service once its announcements are heard.
  ASSERT_EQ(shell(ip + " link add va type veth peer name vb && " + ip +
                  " addr add 10.9.0.1/24 dev va && " + ip + " link set va up && " + ip +
                  " link set vb up"),
            0);
  ASSERT_TRUE(RunLoop::current().runUntil([&] { return bursts > 0; }, 5s));
  runReady();
  status->updateInfo();
  EXPECT_TRUE(recorder->lists("va"));

  // Traffic out of the link: datagrams to a neighbour set by hand leave at once.
  ASSERT_EQ(shell(ip + " neigh add 10.9.0.2 lladdr 02:00:00:00:00:02 dev va nud permanent"), 0);
  ASSERT_EQ(shell("/bin/bash -c 'for i in 1 2 3 4 5; do echo traffic >/dev/udp/10.9.0.2/9; "
                  "done'"),
            0);
  status->updateInfo();
  const nlohmann::json sent = status->netHistoryData().back().value("va", nlohmann::json());
  ASSERT_TRUE(sent.is_object());
  EXPECT_TRUE(sent.contains("uplink_speed"));
  EXPECT_GT(sent.value("total_out", uint64_t{0}), 0u);

  // Deleted and made again: a new interface index and counters back at zero. That is a first
  // record, not a 32-bit wrap booked as 4 GiB.
  bursts = 0;
  ASSERT_EQ(shell(ip + " link del va && " + ip + " link add va type veth peer name vb && " + ip +
                  " addr add 10.9.1.1/24 dev va && " + ip + " link set va up && " + ip +
                  " link set vb up"),
            0);
  ASSERT_TRUE(RunLoop::current().runUntil([&] { return bursts > 0; }, 5s));
  runReady();
  status->updateInfo();
  const nlohmann::json again = status->netHistoryData().back().value("va", nlohmann::json());
  ASSERT_TRUE(again.is_object());
  EXPECT_FALSE(again.contains("uplink_speed"));
  EXPECT_LT(again.value("total_out", UINT64_MAX), uint64_t{1} << 20U);
  EXPECT_EQ(again.value("peak_speek", -1.0), 0.0);
  // The services were looked at again: the new link's address is the one listed.
  EXPECT_EQ(recorder->addressesOf("va"), nlohmann::json({"10.9.1.1"}));
}

TEST(NetworkNamespaceTest, LinksMadeAndDeletedAreHeardAndBookedAfresh) {
  if (std::getenv(kInsideVariable) != nullptr) {
    insideNamespace();
    return;
  }
  const std::string unshare = "/usr/bin/unshare --user --map-root-user --net --mount";
  if (shell(unshare + " /bin/true") != 0) {
    GTEST_SKIP() << "unprivileged user and network namespaces are not available";
  }
  ::setenv(kInsideVariable, "1", 1);
  test::ChildProcess child(
      {"/usr/bin/unshare", "--user", "--map-root-user", "--net", "--mount", "/bin/sh", "-c",
       "mount -t sysfs sysfs /sys && exec \"$0\" \"$@\"", selfPath(),
       "--gtest_filter=NetworkNamespaceTest.LinksMadeAndDeletedAreHeardAndBookedAfresh"});
  ::unsetenv(kInsideVariable);
  // The child's output ends when it does; its own result is what counts.
  while (const auto line = child.readLine(60s)) std::cout << "  | " << *line << "\n";
  EXPECT_EQ(child.waitExit(5s), 0) << "the run inside the namespace failed or did not end";
}

}  // namespace network_namespace_test
}  // namespace vexa
