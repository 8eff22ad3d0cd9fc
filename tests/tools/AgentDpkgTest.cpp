// A real Debian package installed and removed with dpkg while the real vexa-agent watches the
// system applications folder and vexa-host listens. Needs root and dpkg; skipped otherwise. The
// package is purged whatever happens.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <nlohmann/json.hpp>

#include "support/AppFixtures.h"
#include "support/ChildProcess.h"
#include "support/HostMessages.h"
#include "support/IsolatedHome.h"
#include "support/Signal.h"

namespace vexa {
namespace agent_dpkg_test {

namespace fs = std::filesystem;
using nlohmann::json;
using test::ChildProcess;

constexpr const char* kPackage = "vexa-test-viewer";
constexpr const char* kEntry = "/usr/share/applications/vexa-test-viewer.desktop";
constexpr std::uintmax_t kPayloadBytes = 1 << 20;

bool run(const std::string& command) {
  return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}

class AgentDpkgTest : public ::testing::Test {
 protected:
  AgentDpkgTest() : dir(isolated.dir), systemData("XDG_DATA_DIRS", "/usr/share") {}
  ~AgentDpkgTest() override { run(std::string("dpkg --purge ") + kPackage); }

  void SetUp() override {
    if (::geteuid() != 0 || !run("command -v dpkg-deb") || !run("command -v dpkg")) {
      GTEST_SKIP() << "needs root and dpkg";
    }
    if (fs::exists(kEntry)) GTEST_SKIP() << kEntry << " exists already";
  }

  // A package as dpkg-deb builds it: a desktop entry (whose Version key is the format's) and a
  // megabyte of payload.
  std::string buildPackage() {
    const std::string root = dir.mkdir("pkg");
    dir.write("pkg/DEBIAN/control", std::string("Package: ") + kPackage +
                                        "\nVersion: 1:2.5.1-3\nArchitecture: all\n"
                                        "Maintainer: Tests <tests@example.org>\n"
                                        "Description: a viewer for the agent's tests\n");
    dir.write(std::string("pkg") + kEntry,
              "[Desktop Entry]\nType=Application\nVersion=1.0\nName=Test Viewer\n"
              "Exec=/usr/bin/true\n");
    dir.write("pkg/usr/share/vexa-test-viewer/payload.bin", std::string(kPayloadBytes, 'x'));
    const std::string deb = dir / "viewer.deb";
    EXPECT_TRUE(run("dpkg-deb --root-owner-group --build " + root + " " + deb));
    return deb;
  }

  // Only what the application monitor says.
  static json nextMessage(ChildProcess& host, int seconds = 30) {
    return test::nextHostMessage(
        host, [](const std::string& name) { return name.ends_with("Command"); }, seconds);
  }
  json cachedRecord() const {
    auto records = test::readAppCache(dir / "cache/appcache.dat");
    return records.count(kEntry) ? records[kEntry] : json::object();
  }

  test::IsolatedHome isolated;
  const test::TempDir& dir;
  test::ScopedEnv systemData;
};

TEST_F(AgentDpkgTest, DpkgInstallAndRemovalReachTheHost) {
  const std::string deb = buildPackage();
  ChildProcess agent({VEXA_AGENT_PATH, "--port", "0", "--cache", dir / "cache"});
  auto listening = agent.readLine(std::chrono::seconds(60));  // a first start's inventory
  ASSERT_TRUE(listening);
  const std::string port = listening->substr(listening->rfind(':') + 1);
  ChildProcess host({VEXA_HOST_PATH, "--port", port, "--install-path", "/usr/share/applications"});
  auto greeting = host.readLine();
  ASSERT_TRUE(greeting && greeting->find("ServerConnectCommand") != std::string::npos);

  ASSERT_TRUE(run("dpkg -i " + deb));
  const auto installed = std::chrono::steady_clock::now();
  json message = nextMessage(host);
  const auto heard = std::chrono::steady_clock::now();
  ASSERT_EQ(message["name"], "InstallCommand");
  const json& app = message["parms"]["AppFile"];
  EXPECT_EQ(app["appPath"], kEntry);
  EXPECT_EQ(app["appVersion"], "2.5.1");
  EXPECT_GE(app["appSize"].get<std::uintmax_t>(), kPayloadBytes);
  std::cout << "dpkg -i to InstallCommand: "
            << std::chrono::duration<double>(heard - installed).count() << " s\n";

  ASSERT_TRUE(run(std::string("dpkg -r ") + kPackage));
  EXPECT_TRUE(test::eventually([&] { return cachedRecord().value("needForceRemove", false); },
                               std::chrono::seconds(30)));
  agent.signal(SIGTERM);
  EXPECT_EQ(agent.waitExit(), 0);
}

}  // namespace agent_dpkg_test
}  // namespace vexa
