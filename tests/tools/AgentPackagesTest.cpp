// The real vexa-agent and vexa-host on a home folder of their own: what the host hears about
// install packages and browser downloads, and what the agent keeps between runs.
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <fstream>

#include <nlohmann/json.hpp>

#include "monitors/PathListCache.h"
#include "support/ChildProcess.h"
#include "support/HostMessages.h"
#include "support/IsolatedHome.h"

namespace vexa {
namespace agent_packages_test {

namespace fs = std::filesystem;
using nlohmann::json;
using test::ChildProcess;
using Strings = std::vector<std::string>;

class AgentPackagesTest : public ::testing::Test {
 protected:
  AgentPackagesTest() : dir(isolated.dir) { dir.mkdir("home/Downloads"); }

  void startAgent() {
    agent = std::make_unique<ChildProcess>(
        std::vector<std::string>{VEXA_AGENT_PATH, "--port", "0", "--cache", dir / "cache"});
    auto listening = agent->readLine(std::chrono::seconds(30));
    ASSERT_TRUE(listening);
    host = std::make_unique<ChildProcess>(std::vector<std::string>{
        VEXA_HOST_PATH, "--port", listening->substr(listening->rfind(':') + 1)});
    auto greeting = host->readLine();
    ASSERT_TRUE(greeting && greeting->find("ServerConnectCommand") != std::string::npos);
  }
  void stopAgent() {
    agent->signal(SIGTERM);
    EXPECT_EQ(agent->waitExit(), 0);
    host.reset();
  }
  // The next message about packages or downloads; the others are passed over.
  json next(int seconds = 15) {
    return test::nextHostMessage(
        *host,
        [](const std::string& name) {
          return name.starts_with("Package") || name.starts_with("Download");
        },
        seconds);
  }
  static json message(const std::string& name, const std::string& path) {
    return {{"name", name}, {"parms", {{"Path", path}}}};
  }
  Strings cachedPackages() const {
    auto paths = PathListCache("InstallPackage").read(dir / "cache/packagecache.dat").paths;
    std::sort(paths.begin(), paths.end());
    return paths;
  }

  test::IsolatedHome isolated;
  const test::TempDir& dir;
  std::unique_ptr<ChildProcess> agent, host;
};

TEST_F(AgentPackagesTest, PackagesAndDownloadsReachTheHostAndSurviveARestart) {
  const std::string kept = dir.write("home/Downloads/kept.deb", "x");
  const std::string deleted = dir.write("home/old/deleted.dmg", "x");
  startAgent();
  EXPECT_EQ(cachedPackages(), (Strings{kept, deleted}));

  const std::string rpm = dir.write("home/Downloads/new.rpm", "x");
  EXPECT_EQ(next(), message("PackageAdd", rpm));
  const std::string partial = dir.write("home/Downloads/f.pdf.crdownload", "x");
  EXPECT_EQ(next(), message("DownloadAdd", partial));
  fs::rename(partial, dir / "home/Downloads/f.pdf");
  std::set<json> finished = {next(), next()};
  EXPECT_EQ(finished, (std::set<json>{message("DownloadRemove", partial),
                                      message("DownloadComplete", dir / "home/Downloads/f.pdf")}));
  stopAgent();

  // Deleted while no agent ran: dropped from the cache without a word to the host.
  fs::remove(deleted);
  startAgent();
  EXPECT_EQ(cachedPackages(), (Strings{kept, rpm}));
  const std::string snap = dir.write("home/late.snap", "x");
  EXPECT_EQ(next(), message("PackageAdd", snap));
  stopAgent();
}

TEST_F(AgentPackagesTest, ACorruptCacheIsReplacedByAnInventory) {
  const std::string deb = dir.write("home/a.deb", "x");
  dir.write("cache/packagecache.dat", "not a cache");
  dir.write("cache/downloadcache.dat", std::string(1000, '\xff'));
  startAgent();
  EXPECT_EQ(cachedPackages(), Strings{deb});
  EXPECT_EQ(PathListCache("Download").read(dir / "cache/downloadcache.dat").state,
            PathListCache::State::Read);
  stopAgent();
}

}  // namespace agent_packages_test
}  // namespace vexa
