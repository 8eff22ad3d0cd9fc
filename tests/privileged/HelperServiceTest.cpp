#include "privileged/HelperService.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "support/TempDir.h"
#include "vexa/util/MonitorString.h"

namespace vexa {
namespace helper_service_test {

namespace fs = std::filesystem;
using nlohmann::json;
using test::TempDir;

json ask(json request) { return HelperService::handle(request); }
bool ok(const json& reply) { return reply.value("result", false); }

TEST(HelperServiceTest, EachOperation) {
  TempDir dir;
  EXPECT_EQ(ask({{"command", 0}}), (json{{"result", true}}));
  EXPECT_EQ(ask({{"command", 1}, {"path", dir / "f"}, {"replace", false}})["object"], dir / "f");
  EXPECT_EQ(ask({{"command", 1}, {"path", dir / "f"}, {"replace", false}})["object"], dir / "f(1)");
  EXPECT_EQ(ask({{"command", 2}, {"path", dir / "h"}})["object"], dir / "h");
  EXPECT_TRUE(MonitorString::isPathHidden(dir / "h"));
  EXPECT_EQ(ask({{"command", 3}, {"path", dir / "a/b/c"}})["object"], dir / "a/b/c");
  EXPECT_TRUE(fs::is_directory(dir / "a/b/c"));
  EXPECT_EQ(ask({{"command", 4}, {"path", dir / "hd"}})["object"], dir / "hd");
  EXPECT_TRUE(MonitorString::isPathHidden(dir / "hd"));
  EXPECT_TRUE(ok(ask({{"command", 9}, {"path", dir / "hd"}})));
  EXPECT_FALSE(MonitorString::isPathHidden(dir / "hd"));
  EXPECT_TRUE(ok(ask({{"command", 8}, {"path", dir / "hd"}})));

  dir.write("src/x/y", "data");
  EXPECT_EQ(ask({{"command", 7},
                 {"path", dir / "src"},
                 {"topath", dir / "copy"},
                 {"uid", 0},
                 {"gid", 0}})["object"],
            dir / "copy");
  EXPECT_EQ(test::readFile(dir / "copy/x/y"), "data");
  EXPECT_EQ(ask({{"command", 6}, {"path", dir / "copy"}, {"topath", dir / "src"}})["object"],
            dir / "src(1)");
  EXPECT_TRUE(ok(
      ask({{"command", 6}, {"path", dir / "src(1)"}, {"topath", dir / "src"}, {"replace", true}})));
  EXPECT_FALSE(fs::exists(dir / "src(1)"));

  EXPECT_TRUE(ok(ask({{"command", 10}, {"path", dir / "f"}, {"mode", 0640}})));
  EXPECT_EQ(fs::status(dir / "f").permissions() & fs::perms::all, static_cast<fs::perms>(0640));
  EXPECT_TRUE(
      ok(ask({{"command", 11}, {"path", dir / "f"}, {"uid", getuid()}, {"gid", getgid()}})));
  EXPECT_TRUE(ok(ask({{"command", 5}, {"path", dir / "src"}})));
  EXPECT_FALSE(fs::exists(dir / "src"));

  dir.write("tree/one.pkg", "");
  dir.write("tree/two.txt", "");
  const json found = ask(
      {{"command", 12}, {"launch", "/usr/bin/find"}, {"cmd", dir / "tree" + "&|&-name&|&*.pkg"}});
  EXPECT_TRUE(ok(found));
  EXPECT_EQ(found["object"], dir / "tree/one.pkg" + "\n");
  // Archives arrive with code 10 and a tool.
  ASSERT_EQ(system(("tar -cf " + dir / "t.tar" + " -C " + dir / "tree" + " .").c_str()), 0);
  dir.mkdir("out");
  EXPECT_TRUE(ok(ask({{"command", 10},
                      {"launch", "/usr/bin/tar"},
                      {"cmd", "-xvf&|&" + dir / "t.tar" + "&|&-C&|&" + dir / "out"}})));
  EXPECT_TRUE(fs::exists(dir / "out/one.pkg"));
}

TEST(HelperServiceTest, PlantedLinksAreNeverFollowed) {
  TempDir dir;
  const std::string victim = dir.write("victim", "precious");
  fs::permissions(victim, static_cast<fs::perms>(0600));
  dir.mkdir("open");
  fs::permissions(dir / "open", fs::perms::all);  // a folder anyone can write
  fs::create_symlink(victim, dir / "open/link");
  EXPECT_FALSE(ok(ask({{"command", 10}, {"path", dir / "open/link"}, {"mode", 0777}})));
  EXPECT_EQ(fs::status(victim).permissions() & fs::perms::all, static_cast<fs::perms>(0600));
  EXPECT_TRUE(
      ok(ask({{"command", 11}, {"path", dir / "open/link"}, {"uid", 65534}, {"gid", 65534}})));
  EXPECT_NE(fs::status(victim).permissions(), fs::perms::none);
  struct stat st {};
  ASSERT_EQ(stat(victim.c_str(), &st), 0);
  EXPECT_EQ(st.st_uid, getuid());  // the link changed owner, not the file behind it
  EXPECT_TRUE(ok(ask({{"command", 5}, {"path", dir / "open/link"}})));
  EXPECT_EQ(test::readFile(victim), "precious");

  // A folder swapped for a link in a folder anyone may write is not passed through.
  dir.mkdir("target");
  fs::create_directory_symlink(dir / "target", dir / "open/dirlink");
  EXPECT_FALSE(ok(ask({{"command", 1}, {"path", dir / "open/dirlink/planted"}})));
  EXPECT_FALSE(fs::exists(dir / "target/planted"));
  EXPECT_FALSE(ok(ask({{"command", 5}, {"path", dir / "open/dirlink/x"}})));
}

// Hiding (8) and un-hiding (9) write the parent's ".hidden" list: never through a link planted
// in a folder anyone may write, and never with the contents of a file a link leads to.
TEST(HelperServiceTest, HiddenListsAreNeverWrittenThroughPlantedLinks) {
  struct Case {
    int command;
    const char* secret;  // the linked-to file, shaped so that the old list would be rewritten
  };
  for (const Case& c : {Case{8, "secret-line\n"}, Case{9, "item\nsecret-line\n"}}) {
    SCOPED_TRACE(c.command);
    TempDir dir;
    const std::string victim = dir.write("victim", c.secret, fs::perms::owner_read);
    dir.write("target/item", "");
    dir.write("open/item", "");
    fs::permissions(dir / "open", fs::perms::all);
    fs::create_directory_symlink(dir / "target", dir / "open/dirlink");
    EXPECT_FALSE(ok(ask({{"command", c.command}, {"path", dir / "open/dirlink/item"}})));
    EXPECT_FALSE(fs::exists(fs::symlink_status(dir / "target/.hidden")));

    fs::create_symlink(victim, dir / "open/.hidden");
    EXPECT_FALSE(ok(ask({{"command", c.command}, {"path", dir / "open/item"}})));
    EXPECT_TRUE(fs::is_symlink(dir / "open/.hidden"));
    EXPECT_EQ(test::readFile(victim), c.secret);
    for (const auto& entry : fs::directory_iterator(dir / "open")) {
      if (entry.is_regular_file() && !entry.is_symlink()) {
        EXPECT_EQ(test::readFile(entry.path()).find("secret-line"), std::string::npos)
            << entry.path();
      }
    }
  }
}

// A folder swapped for a link to another folder while requests run: the list is written in the
// folder the safe walk reached, or not at all, never in the folder behind the link.
TEST(HelperServiceTest, HiddenListsFollowNoFolderSwappedForALink) {
  TempDir dir;
  dir.write("open/sub/item", "");
  dir.write("target/item", "");
  const std::string list = dir.write("target/.hidden", "other\n");
  fs::permissions(dir / "open", fs::perms::all);
  fs::create_directory_symlink(dir / "target", dir / "open/swap");
  struct stat before {};
  ASSERT_EQ(::stat(list.c_str(), &before), 0);

  std::atomic<bool> stop{false};
  std::atomic<long> swaps{0};
  std::thread swapper([&] {
    const std::string sub = dir / "open/sub", swap = dir / "open/swap";
    while (!stop.load()) {
      if (::renameat2(AT_FDCWD, sub.c_str(), AT_FDCWD, swap.c_str(), RENAME_EXCHANGE) == 0) {
        swaps.fetch_add(1);
      }
    }
  });
  bool leaked = false;
  for (int round = 0; round < 2000 && !leaked; ++round) {
    for (int command : {8, 9}) {
      ask({{"command", command}, {"path", dir / "open/sub/item"}});
      struct stat now {};
      leaked = leaked || ::stat(list.c_str(), &now) != 0 || now.st_ino != before.st_ino;
    }
  }
  stop = true;
  swapper.join();
  EXPECT_GT(swaps.load(), 0);
  EXPECT_FALSE(leaked);
  EXPECT_EQ(test::readFile(list), "other\n");
  for (const auto& entry : fs::directory_iterator(dir / "target")) {
    const std::string name = entry.path().filename();
    EXPECT_TRUE(name == "item" || name == ".hidden") << name;
  }
}

TEST(HelperServiceTest, MalformedRequestsAreRefused) {
  TempDir dir;
  const json bad[] = {json::array(),
                      json("text"),
                      json::object(),
                      {{"command", "5"}},
                      {{"command", 99}},
                      {{"command", -1}},
                      {{"command", 5}},
                      {{"command", 5}, {"path", 5}},
                      {{"command", 5}, {"path", "relative/path"}},
                      {{"command", 5}, {"path", "/"}},
                      {{"command", 5}, {"path", dir / "../x"}},
                      {{"command", 1}, {"path", "/" + std::string(10000, 'a')}},
                      {{"command", 6}, {"path", dir.path()}},
                      {{"command", 7}, {"path", dir.path()}, {"topath", dir / "c"}},
                      {{"command", 10}, {"path", dir.path()}, {"mode", 077777}},
                      {{"command", 11}, {"path", dir.path()}, {"uid", "root"}, {"gid", 0}},
                      {{"command", 12}, {"launch", "/bin/sh"}, {"cmd", "-c&|&id"}},
                      {{"command", 12}, {"launch", "/usr/bin/find"}},
                      {{"command", 12},
                       {"launch", "/usr/bin/find"},
                       {"cmd", std::string(HelperService::kMaxArgumentBytes + 1, 'x')}}};
  for (const auto& request : bad) EXPECT_FALSE(ok(ask(request))) << request.dump().substr(0, 120);
}

}  // namespace helper_service_test
}  // namespace vexa
