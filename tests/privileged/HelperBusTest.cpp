// The real vexa-helper on a private bus, asked by clients with and without the rights to act.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "support/ChildProcess.h"
#include "support/PrivateBus.h"
#include "support/TempDir.h"
#include "vexa/privileged/BrindleUtility.h"

namespace vexa {
namespace helper_bus_test {

namespace fs = std::filesystem;
using test::ChildProcess;

// A helper serving on its own private bus, allowing the given uids.
struct RunningHelper {
  explicit RunningHelper(std::vector<std::string> allowUids) {
    if (!bus.ok()) return;
    test::ScopedEnv address("VEXA_HELPER_BUS_ADDRESS", bus.address());
    std::vector<std::string> argv = {VEXA_HELPER_PATH};
    for (const auto& uid : allowUids) {
      argv.push_back("--allow-uid");
      argv.push_back(uid);
    }
    process = std::make_unique<ChildProcess>(argv);
    ready = process->readLine() == std::optional<std::string>("vexa-helper ready");
  }
  test::PrivateBus bus;
  std::unique_ptr<ChildProcess> process;
  bool ready = false;
};

// Runs the test client, as the unprivileged user "nobody" when asked.
int client(const std::string& bus, std::vector<std::string> args, bool asNobody) {
  test::ScopedEnv address("VEXA_HELPER_BUS_ADDRESS", bus);
  std::vector<std::string> argv;
  if (asNobody) {
    argv = {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
  }
  argv.push_back(VEXA_HELPER_CLIENT_PATH);
  argv.insert(argv.end(), args.begin(), args.end());
  ChildProcess child(argv);
  return child.waitExit(std::chrono::seconds(30));
}

// A root-owned folder nobody may change, readable by all.
std::string protectedFolder(const test::TempDir& dir) {
  ::chmod(dir.path().c_str(), 0755);
  const std::string folder = dir.mkdir("protected");
  ::chmod(folder.c_str(), 0755);
  return folder;
}

TEST(HelperBusTest, TheHelperAnswersOnTheBus) {
  RunningHelper helper({});
  ASSERT_TRUE(helper.ready);
  test::ScopedEnv address("VEXA_HELPER_BUS_ADDRESS", helper.bus.address());
  EXPECT_TRUE(BrindleUtility::checkHelperConnect());
  bool answered = false;
  BrindleUtility::sendMessage({{"command", 99}}, [&](bool result, const auto& object) {
    answered = true;
    EXPECT_FALSE(result);
    EXPECT_FALSE(object);
  });
  EXPECT_TRUE(answered);
}

TEST(HelperBusTest, WithoutAHelperOnTheBusNothingIsReached) {
  test::PrivateBus bus;
  ASSERT_TRUE(bus.ok());
  test::ScopedEnv address("VEXA_HELPER_BUS_ADDRESS", bus.address());
  EXPECT_FALSE(BrindleUtility::checkHelperConnect());
  test::ScopedEnv nowhere("VEXA_HELPER_BUS_ADDRESS", "unix:path=/nonexistent/socket");
  EXPECT_FALSE(BrindleUtility::checkHelperConnect());
}

TEST(HelperBusTest, AnUnprivilegedCallerIsHelpedWhenAllowed) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to act as another user";
  RunningHelper helper({"65534"});
  ASSERT_TRUE(helper.ready);
  test::TempDir dir;
  const std::string folder = protectedFolder(dir);
  const std::string file = dir.write("protected/item", "x");
  // The caller's own attempt fails (the folder is root's); the helper's succeeds.
  EXPECT_EQ(client(helper.bus.address(), {"remove", file}, true), 0);
  EXPECT_FALSE(fs::exists(file));
  EXPECT_EQ(client(helper.bus.address(), {"mkfile", folder + "/made"}, true), 0);
  EXPECT_TRUE(fs::exists(folder + "/made"));
  EXPECT_EQ(client(helper.bus.address(), {"chmod", folder + "/made", "600"}, true), 0);
  EXPECT_EQ(fs::status(folder + "/made").permissions() & fs::perms::all,
            static_cast<fs::perms>(0600));
}

TEST(HelperBusTest, AnUnauthorizedCallerIsRefused) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to act as another user";
  RunningHelper helper({});  // nobody is not allowed
  ASSERT_TRUE(helper.ready);
  test::TempDir dir;
  protectedFolder(dir);
  const std::string file = dir.write("protected/item", "x");
  EXPECT_EQ(client(helper.bus.address(), {"check"}, true), 1);
  EXPECT_EQ(client(helper.bus.address(), {"remove", file}, true), 1);
  EXPECT_TRUE(fs::exists(file));
  EXPECT_EQ(client(helper.bus.address(), {"check"}, false), 0);  // root is always served
}

// When polkit runs on the bus it decides for every caller but root, over the helper's own list,
// and is asked about the helper's action for the calling bus name.
TEST(HelperBusTest, PolkitDecidesWhenItRuns) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to act as another user";
  struct Case {
    const char* verdict;
    std::vector<std::string> allowUids;
    int exit;
  };
  for (const Case& c : {Case{"allow", {}, 0}, Case{"deny", {"65534"}, 1}}) {
    SCOPED_TRACE(c.verdict);
    RunningHelper helper(c.allowUids);
    ASSERT_TRUE(helper.ready);
    ChildProcess polkit({VEXA_FAKE_POLKIT_PATH, helper.bus.address(), c.verdict});
    ASSERT_EQ(polkit.readLine(), std::optional<std::string>("fake-polkit ready"));
    test::TempDir dir;
    protectedFolder(dir);
    const std::string file = dir.write("protected/item", "x");
    EXPECT_EQ(client(helper.bus.address(), {"remove", file}, true), c.exit);
    EXPECT_EQ(fs::exists(file), c.exit != 0);
    // The connection check, then (when allowed) the removal: each asked about once.
    const std::optional<std::string> asked(
        "check com.tarnwick.PrivilegesHelper.request system-bus-name");
    EXPECT_EQ(polkit.readLine(), asked);
    if (c.exit == 0) {
      EXPECT_EQ(polkit.readLine(), asked);
    }
  }
}

// Emptying the caches is asked about under an action of its own, which changes no file; refused,
// nothing is dropped.
TEST(HelperBusTest, PurgeIsAskedAboutUnderItsOwnAction) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to act as another user";
  RunningHelper helper({"65534"});
  ASSERT_TRUE(helper.ready);
  ChildProcess polkit(
      {VEXA_FAKE_POLKIT_PATH, helper.bus.address(), "deny:com.tarnwick.PrivilegesHelper.purge"});
  ASSERT_EQ(polkit.readLine(), std::optional<std::string>("fake-polkit ready"));
  EXPECT_EQ(client(helper.bus.address(), {"purge"}, true), 1);
  // The connection check goes under the general action, the purge under its own.
  EXPECT_EQ(polkit.readLine(), std::optional<std::string>(
                                   "check com.tarnwick.PrivilegesHelper.request system-bus-name"));
  EXPECT_EQ(polkit.readLine(), std::optional<std::string>(
                                   "check com.tarnwick.PrivilegesHelper.purge system-bus-name"));
}

}  // namespace helper_bus_test
}  // namespace vexa
