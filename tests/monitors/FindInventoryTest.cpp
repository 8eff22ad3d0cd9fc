#include "monitors/FindInventory.h"

#include <gtest/gtest.h>

#include <mutex>

#include "support/TempDir.h"

namespace vexa {
namespace find_inventory_test {

using nlohmann::json;
using Strings = std::vector<std::string>;

TEST(FindInventoryTest, CommandJoinsTheArgumentsWithTheSeparator) {
  EXPECT_EQ(
      FindInventory::command("/home/u", "f", {"*.dmg", "*.pkg", "*.deb"}),
      "/home/u&|&-type&|&f&|&(&|&-name&|&*.dmg&|&-o&|&-name&|&*.pkg&|&-o&|&-name&|&*.deb&|&)");
  EXPECT_EQ(FindInventory::command("/d", "", {"*.part"}), "/d&|&(&|&-name&|&*.part&|&)");
  EXPECT_EQ(FindInventory::request("c"),
            (json{{"command", 12}, {"launch", "/usr/bin/find"}, {"cmd", "c"}}));
}

struct OutputCase {
  const char* name;
  std::string output;
  Strings expected;
};

class FindOutputTest : public ::testing::TestWithParam<OutputCase> {};

TEST_P(FindOutputTest, KeepsAbsoluteUtf8Lines) {
  EXPECT_EQ(FindInventory::paths(GetParam().output), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, FindOutputTest,
    ::testing::Values(
        OutputCase{"Lines", "/a/x.deb\n/b/y.dmg\n", {"/a/x.deb", "/b/y.dmg"}},
        OutputCase{"NoFinalNewline", "/a/x.deb", {"/a/x.deb"}},
        OutputCase{
            "ErrorsAndBlanks", "find: '/a/p': Permission denied\n\n/a/x.deb\n\n", {"/a/x.deb"}},
        OutputCase{"NotUtf8Skipped", "/a/\xff.deb\n/a/\xC3\xA9.deb\n", {"/a/\xC3\xA9.deb"}},
        // A name with a newline splits into two lines; the second is not absolute.
        OutputCase{"NewlineInName", "/a/two\nlines.deb\n", {"/a/two"}},
        OutputCase{"Nothing", "", {}}),
    [](const auto& c) { return std::string(c.param.name); });

// What a run asked of each way.
struct Recorder {
  FindInventory inventory(bool starts, int status, std::string localOutput,
                          std::optional<std::string> helperOutput) {
    return FindInventory(
        [=, this](const Strings& argv) {
          std::lock_guard lock(mutex);
          localArgs.push_back(argv);
          ProcessRunner::Result result;
          result.started = starts;
          result.status = starts ? status : -1;
          result.output = localOutput;
          return result;
        },
        [=, this](const json& request) {
          std::lock_guard lock(mutex);
          helperRequests.push_back(request);
          return helperOutput;
        });
  }
  std::mutex mutex;
  std::vector<Strings> localArgs;
  std::vector<json> helperRequests;
};

TEST(FindInventoryTest, RunsLocallyAndUsesTheListingOfAFailedFind) {
  test::TempDir dir;
  const std::string deb = dir.write("a.deb", "");
  Recorder r;
  const std::string cmd = dir.path() + "&|&(&|&-name&|&*.deb&|&)";
  // Listed paths that are not there (a name with a line feed, split) are left out.
  EXPECT_EQ(r.inventory(true, 1, deb + "\nfind: x\n" + dir.path() + "/two\n", "/other\n").run(cmd),
            Strings{deb});
  ASSERT_EQ(r.localArgs.size(), 1U);
  EXPECT_EQ(r.localArgs[0], (Strings{"/usr/bin/find", dir.path(), "(", "-name", "*.deb", ")"}));
  EXPECT_TRUE(r.helperRequests.empty());
}

TEST(FindInventoryTest, AsksTheHelperWhenFindCannotStartOrTheArgumentsAreRefused) {
  test::TempDir dir;
  const std::string deb = dir.write("b.deb", "");
  Recorder r;
  const std::string cmd = dir.path() + "&|&(&|&-name&|&*.deb&|&)";
  EXPECT_EQ(r.inventory(false, 0, "", deb + "\n").run(cmd), Strings{deb});
  ASSERT_EQ(r.helperRequests.size(), 1U);
  EXPECT_EQ(r.helperRequests[0], FindInventory::request(cmd));
  EXPECT_EQ(r.inventory(false, 0, "", std::nullopt).run(cmd), Strings{});
  // Arguments the policy refuses are not run here; the helper refuses them too.
  const size_t localRuns = r.localArgs.size();
  EXPECT_EQ(r.inventory(true, 0, "/x\n", std::nullopt).run("/h&|&-delete"), Strings{});
  EXPECT_EQ(r.localArgs.size(), localRuns);
  EXPECT_EQ(r.helperRequests.size(), 3U);
}

TEST(FindInventoryTest, TheRealFindListsARealTree) {
  test::TempDir dir;
  const std::string deb = dir.write("a/b/x.deb", "");
  dir.write("a/b/x.txt", "");
  dir.write("a/\xff.deb", "");
  FindInventory find;
  EXPECT_EQ(find.run(FindInventory::command(dir / "a", "f", {"*.deb"})), Strings{deb});
}

}  // namespace find_inventory_test
}  // namespace vexa
