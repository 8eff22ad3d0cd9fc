// The real vexa-agent and vexa-host on the Trash of a home folder of their own, and vexa-watch
// printing the Trash watcher's call-backs.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <set>

#include <nlohmann/json.hpp>

#include "support/ChildProcess.h"
#include "support/IsolatedHome.h"

namespace vexa {
namespace agent_trash_test {

namespace fs = std::filesystem;
using nlohmann::json;
using test::ChildProcess;

// What du says the Trash's contents allocate: its total less the folder's own blocks.
uint64_t duBelow(const std::string& root) {
  FILE* pipe = ::popen(("du -s -l -B1 '" + root + "'").c_str(), "r");
  unsigned long long total = 0;
  if (!pipe || std::fscanf(pipe, "%llu", &total) != 1) total = 0;
  if (pipe) ::pclose(pipe);
  struct stat st {};
  if (::lstat(root.c_str(), &st) != 0) return 0;
  return total - static_cast<uint64_t>(st.st_blocks) * 512;
}

bool run(const std::string& command) { return std::system(command.c_str()) == 0; }

class AgentTrashTest : public ::testing::Test {
 protected:
  static json next(ChildProcess& child, int seconds = 15) {
    auto line = child.readLine(std::chrono::seconds(seconds));
    return line ? json::parse(*line, nullptr, false) : json();
  }
  // Trashes a file of `bytes` the way the desktop does.
  std::string gioTrash(const std::string& name, size_t bytes) {
    const std::string file = isolated.dir.write("home/" + name, std::string(bytes, 't'));
    EXPECT_TRUE(run("gio trash '" + file + "'"));
    return isolated.trash() + "/" + name;
  }

  test::IsolatedHome isolated;
};

TEST_F(AgentTrashTest, TheHostHearsTheTrashSizeAsDuCountsIt) {
  if (!run("command -v gio >/dev/null")) GTEST_SKIP() << "gio is not installed";
  ChildProcess agent({VEXA_AGENT_PATH, "--port", "0", "--cache", isolated.dir / "cache"});
  auto listening = agent.readLine(std::chrono::seconds(30));
  ASSERT_TRUE(listening);
  ChildProcess host({VEXA_HOST_PATH, "--port", listening->substr(listening->rfind(':') + 1),
                     "--install-path", isolated.dir / "home"});
  auto greeting = host.readLine();
  ASSERT_TRUE(greeting && greeting->find("ServerConnectCommand") != std::string::npos);

  gioTrash("notes.txt", 10000);
  json message = next(host);
  ASSERT_EQ(message["name"], "TrashSizeChange");
  EXPECT_EQ(message["parms"]["Used"], duBelow(isolated.trash()));
  EXPECT_GT(message["parms"]["Used"].get<uint64_t>(), 0U);

  for (const auto& entry : fs::directory_iterator(isolated.trash())) fs::remove_all(entry);
  message = next(host);
  EXPECT_EQ(message["name"], "TrashSizeChange");
  EXPECT_EQ(message["parms"]["Used"], 0U);
  agent.signal(SIGTERM);
  EXPECT_EQ(agent.waitExit(), 0);
}

TEST_F(AgentTrashTest, VexaWatchPrintsTheTrashWatchersCallBacks) {
  ChildProcess watch({VEXA_WATCH_PATH, "trash"});
  EXPECT_EQ(next(watch), (json{{"watch", "started"}, {"what", "trash"}}));
  EXPECT_EQ(next(watch), (json{{"watch", "trashUsedSizeChanged"}, {"size", 0}}));
  isolated.dir.mkdir("home/Editor.app/Contents");
  fs::rename(isolated.dir / "home/Editor.app", isolated.trash() + "/Editor.app");
  EXPECT_EQ(next(watch),
            (json{{"watch", "trashAddedApp"}, {"path", isolated.trash() + "/Editor.app"}}));
  json size = next(watch);
  EXPECT_EQ(size["watch"], "trashUsedSizeChanged");
  EXPECT_EQ(size["size"], duBelow(isolated.trash()));
  watch.signal(SIGINT);
  EXPECT_EQ(watch.waitExit(), 0);
}

TEST_F(AgentTrashTest, VexaWatchPrintsTheApplicationsFolderMovedIntoTheTrash) {
  isolated.dir.mkdir("sys/applications/Games/Chess.app");
  ChildProcess watch({VEXA_WATCH_PATH, "apps"});
  EXPECT_EQ(next(watch), (json{{"watch", "started"}, {"what", "apps"}}));
  isolated.dir.mkdir("sys/applications/New.app");
  EXPECT_EQ(next(watch),
            (json{{"watch", "appAdded"}, {"path", isolated.dir / "sys/applications/New.app"}}));
  const std::string trashed = isolated.trash() + "/applications";
  fs::rename(isolated.dir / "sys/applications", trashed);
  std::set<json> lines;
  for (int i = 0; i < 3; ++i) lines.insert(next(watch));
  EXPECT_EQ(lines,
            (std::set<json>{{{"watch", "movedToTrash"}, {"path", trashed}},
                            {{"watch", "trashAddedApp"}, {"path", trashed + "/New.app"}},
                            {{"watch", "trashAddedApp"}, {"path", trashed + "/Games/Chess.app"}}}));
  watch.signal(SIGTERM);
  EXPECT_EQ(watch.waitExit(), 0);
}

// A name that is not UTF-8 has no JSON text: it is left out, and the watch goes on.
TEST_F(AgentTrashTest, VexaWatchLeavesOutNamesThatAreNotUtf8) {
  ChildProcess watch({VEXA_WATCH_PATH, "apps"});
  EXPECT_EQ(next(watch), (json{{"watch", "started"}, {"what", "apps"}}));
  isolated.dir.mkdir("sys/applications/Caf\xe9.app");
  isolated.dir.mkdir("sys/applications/Cafe.app");
  EXPECT_EQ(next(watch),
            (json{{"watch", "appAdded"}, {"path", isolated.dir / "sys/applications/Cafe.app"}}));
  watch.signal(SIGTERM);
  EXPECT_EQ(watch.waitExit(), 0);
}

TEST_F(AgentTrashTest, VexaWatchAtTheWatchLimitNamesTheSettingAndStillMeasures) {
  if (!run("/usr/bin/unshare --user --map-root-user true 2>/dev/null")) {
    GTEST_SKIP() << "user namespaces are not available";
  }
  isolated.dir.write("home/.local/share/Trash/files/page", std::string(4096, 'p'));
  // A user namespace of its own, whose inotify watch limit is 0.
  ChildProcess watch({"/usr/bin/unshare", "--user", "--map-root-user", "sh", "-c",
                      "echo 0 > /proc/sys/user/max_inotify_watches && exec \"$0\" trash 2>&1",
                      VEXA_WATCH_PATH});
  ASSERT_TRUE(watch.running());
  std::string logged;
  json size;
  while (auto line = watch.readLine(std::chrono::seconds(15))) {
    const json parsed = json::parse(*line, nullptr, false);
    if (parsed.is_discarded()) logged += *line + "\n";
    if (parsed.is_object() && parsed["watch"] == "trashUsedSizeChanged") {
      size = parsed;
      break;
    }
  }
  EXPECT_NE(logged.find("fs.inotify.max_user_watches"), std::string::npos) << logged;
  EXPECT_NE(logged.find("WatchQueue tried to add the path " + isolated.trash() +
                        " to watchedPathEntries, but the WatchQueuePathEntry was nil."),
            std::string::npos)
      << logged;
  EXPECT_EQ(size["size"], 4096U);
  watch.signal(SIGTERM);
  EXPECT_EQ(watch.waitExit(), 0);
}

}  // namespace agent_trash_test
}  // namespace vexa
