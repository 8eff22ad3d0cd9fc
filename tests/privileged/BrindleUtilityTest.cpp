#include "vexa/privileged/BrindleUtility.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <mutex>

#include "privileged/HelperTransport.h"
#include "support/TempDir.h"
#include "vexa/util/MonitorString.h"
#include "vexa/util/SystemLog.h"

namespace vexa {
namespace brindle_utility_test {

namespace fs = std::filesystem;
using nlohmann::json;
using test::TempDir;

// A helper that records requests and answers from a script.
class ScriptedHelper : public HelperTransport {
 public:
  Outcome send(const json& request) override {
    std::lock_guard lock(mutex);
    requests.push_back(request);
    if (failure != Failure::None) return {std::nullopt, failure};
    if (request["command"] == BrindleUtility::kCheck) return {json{{"result", reachable}}, {}};
    return {answer, {}};
  }
  // Not the system's helper: an invalid connection never leads to installing anything.
  bool isPrivateBus() const override { return true; }
  std::vector<json> commands() {
    std::vector<json> out;
    for (const auto& r : requests) {
      if (r["command"] != BrindleUtility::kCheck) out.push_back(r);
    }
    return out;
  }
  std::mutex mutex;
  std::vector<json> requests;
  bool reachable = true;
  json answer = {{"result", true}};
  Failure failure = Failure::None;
};

class BrindleUtilityTest : public ::testing::Test {
 protected:
  void SetUp() override { BrindleUtility::setHelperTransport(helper); }
  void TearDown() override { BrindleUtility::setHelperTransport(nullptr); }
  TempDir dir;
  std::shared_ptr<ScriptedHelper> helper = std::make_shared<ScriptedHelper>();
};

TEST_F(BrindleUtilityTest, LocalSuccessNeverAsksTheHelper) {
  EXPECT_TRUE(BrindleUtility::remove(dir / "missing"));
  const std::string file = dir.write("f", "x");
  EXPECT_TRUE(BrindleUtility::remove(file));
  EXPECT_FALSE(fs::exists(file));
  dir.write("tree/a/b", "x");
  EXPECT_TRUE(BrindleUtility::remove(dir / "tree"));
  EXPECT_TRUE(helper->requests.empty());
}

TEST_F(BrindleUtilityTest, MovesAndCopiesChooseAFreeNameOrReplace) {
  dir.write("a", "A");
  dir.write("b", "B");
  EXPECT_EQ(BrindleUtility::move(dir / "a", dir / "b", false), dir / "b(1)");
  EXPECT_EQ(test::readFile(dir / "b(1)"), "A");
  EXPECT_EQ(BrindleUtility::copy(dir / "b(1)", dir / "b", true), dir / "b");
  EXPECT_EQ(test::readFile(dir / "b"), "A");
  EXPECT_TRUE(fs::exists(dir / "b(1)"));
  EXPECT_FALSE(BrindleUtility::move(dir / "missing", dir / "c", false));
  dir.write("tree/x/y", "deep");
  EXPECT_EQ(BrindleUtility::copy(dir / "tree", dir / "copy", false), dir / "copy");
  EXPECT_EQ(test::readFile(dir / "copy/x/y"), "deep");
  EXPECT_TRUE(helper->requests.empty());
}

TEST_F(BrindleUtilityTest, MakingFoldersAndFilesWithTheHiddenFlag) {
  const std::string folder = dir.mkdir("hidden-folder");
  ASSERT_TRUE(MonitorString::pathInvisibility(folder, true));
  EXPECT_EQ(BrindleUtility::mkdir(folder, true), folder);  // replace: made visible again
  EXPECT_FALSE(MonitorString::isPathHidden(folder));
  EXPECT_EQ(BrindleUtility::mkdir(folder, false), folder + "(1)");
  EXPECT_EQ(BrindleUtility::mkHideDir(dir / "new/deep", false), dir / "new/deep");
  EXPECT_TRUE(MonitorString::isPathHidden(dir / "new/deep"));

  const std::string file = dir.write("file.txt", "contents");
  EXPECT_EQ(BrindleUtility::mkHideFile(file, true), file);  // replace: emptied and hidden
  EXPECT_EQ(fs::file_size(file), 0u);
  EXPECT_TRUE(MonitorString::isPathHidden(file));
  EXPECT_EQ(BrindleUtility::mkfile(file, true), file);
  EXPECT_FALSE(MonitorString::isPathHidden(file));
  EXPECT_EQ(BrindleUtility::mkfile(file, false), dir / "file(1).txt");
  EXPECT_TRUE(helper->requests.empty());
}

TEST_F(BrindleUtilityTest, ModesOwnersAndTheModeString) {
  EXPECT_EQ(BrindleUtility::modeString("rwx", "rx", ""), "u=rwx,g=rx,o=");
  EXPECT_EQ(BrindleUtility::modeString("", "", ""), "u=,g=,o=");
  const std::string file = dir.write("f", "x");
  EXPECT_TRUE(BrindleUtility::chmode(file, "rw", "r", ""));
  EXPECT_EQ(fs::status(file).permissions() & fs::perms::all, static_cast<fs::perms>(0640));
  EXPECT_TRUE(BrindleUtility::chmod(file, 0600));
  EXPECT_EQ(fs::status(file).permissions() & fs::perms::all, static_cast<fs::perms>(0600));
  EXPECT_TRUE(BrindleUtility::chown(file, getuid(), getgid()));
  EXPECT_FALSE(BrindleUtility::chmod(dir / "missing", 0600));
  EXPECT_FALSE(BrindleUtility::hide(dir / "missing"));
}

TEST_F(BrindleUtilityTest, UnpackingArchives) {
  dir.write("src/inner/file", "payload");
  ASSERT_EQ(system(("tar -czf " + dir / "a.tgz" + " -C " + dir / "src" + " .").c_str()), 0);
  EXPECT_TRUE(BrindleUtility::unpark(dir / "a.tgz", "tar.gz", dir / "out"));
  EXPECT_EQ(test::readFile(dir / "out/inner/file"), "payload");
  EXPECT_FALSE(BrindleUtility::unpark(dir / "a.tgz", "rar", dir / "out2"));
  EXPECT_FALSE(BrindleUtility::unpark(dir / "missing.tgz", "tar.gz", dir / "out"));
  EXPECT_FALSE(BrindleUtility::unpark("", "tar.gz", dir / "out"));
  // A file where the folder should be is replaced by the folder.
  dir.write("blocked", "x");
  EXPECT_TRUE(BrindleUtility::unpark(dir / "a.tgz", "", "-xzf", dir / "blocked"));
  EXPECT_EQ(test::readFile(dir / "blocked/inner/file"), "payload");
  EXPECT_TRUE(BrindleUtility::unpark(dir / "a.tgz", "./no/such/member", "-xzf", dir / "x"));
  // A link to a folder is unpacked into and kept; a dangling one is replaced by a folder.
  const std::string real = dir.mkdir("real");
  fs::create_directory_symlink(real, dir / "linked");
  EXPECT_TRUE(BrindleUtility::unpark(dir / "a.tgz", "tar.gz", dir / "linked"));
  EXPECT_TRUE(fs::is_symlink(dir / "linked"));
  EXPECT_EQ(test::readFile(real + "/inner/file"), "payload");
  fs::create_symlink(dir / "nowhere", dir / "dangling");
  EXPECT_TRUE(BrindleUtility::unpark(dir / "a.tgz", "tar.gz", dir / "dangling"));
  EXPECT_EQ(test::readFile(dir / "dangling/inner/file"), "payload");
  EXPECT_FALSE(fs::is_symlink(dir / "dangling"));
  EXPECT_TRUE(helper->commands().empty());
}

TEST_F(BrindleUtilityTest, MovingToTheTrashCanBeUndone) {
  test::ScopedEnv home("HOME", dir.path());
  test::ScopedEnv data("XDG_DATA_HOME", dir / "data");
  const std::string file = dir.write("doc.txt", "keep me");
  EXPECT_TRUE(BrindleUtility::moveToTrash(file));
  EXPECT_FALSE(fs::exists(file));
  EXPECT_EQ(test::readFile(dir / "data/Trash/files/doc.txt"), "keep me");
  // The record a file manager restores from.
  const std::string info = test::readFile(dir / "data/Trash/info/doc.txt.trashinfo");
  EXPECT_NE(info.find("[Trash Info]"), std::string::npos);
  EXPECT_NE(info.find("Path=" + file), std::string::npos);
  EXPECT_FALSE(BrindleUtility::moveToTrash(file));  // nothing there any more
  EXPECT_TRUE(helper->requests.empty());
}

TEST_F(BrindleUtilityTest, RunTaskWithAndWithoutAFilter) {
  std::string out;
  EXPECT_TRUE(BrindleUtility::runTask("/usr/bin/printf", std::vector<std::string>{"a\\nb\\nab\\n"},
                                      std::nullopt, &out));
  EXPECT_EQ(out, "a\nb\nab\n");
  EXPECT_TRUE(BrindleUtility::runTask("/usr/bin/printf", std::vector<std::string>{"a\\nb\\nab\\n"},
                                      std::vector<std::string>{"b"}, &out));
  EXPECT_EQ(out, "b\nab\n");
  EXPECT_FALSE(BrindleUtility::runTask("/usr/bin/printf", std::vector<std::string>{"a\\n"},
                                       std::vector<std::string>{"zzz"}, &out));
  EXPECT_FALSE(BrindleUtility::runTask("/usr/bin/false", std::nullopt, std::nullopt, nullptr));
  EXPECT_FALSE(BrindleUtility::runTask("/no/such/tool", std::nullopt, std::nullopt, nullptr));
}

TEST_F(BrindleUtilityTest, LocalFailuresGoToTheHelperWithTheRightRequests) {
  // Nothing can be made under /proc, whoever asks.
  helper->answer = {{"result", true}, {"object", "/proc/made-by-helper"}};
  EXPECT_EQ(BrindleUtility::mkdir("/proc/vexa-test", false), "/proc/made-by-helper");
  EXPECT_EQ(BrindleUtility::mkHideFile("/proc/vexa-test", false), "/proc/made-by-helper");
  const std::string file = dir.write("f", "x");
  EXPECT_EQ(BrindleUtility::move(file, "/proc/vexa-test", false), "/proc/made-by-helper");
  EXPECT_TRUE(BrindleUtility::unpark(dir / "f", "tar", "/proc/vexa-out"));
  const auto sent = helper->commands();
  ASSERT_EQ(sent.size(), 5u);  // the unpacking first asks for its missing folder
  EXPECT_EQ(sent[0], (json{{"command", 3}, {"path", "/proc/vexa-test"}, {"replace", false}}));
  EXPECT_EQ(sent[1], (json{{"command", 2}, {"path", "/proc/vexa-test"}, {"replace", false}}));
  EXPECT_EQ(
      sent[2],
      (json{{"command", 6}, {"path", file}, {"topath", "/proc/vexa-test"}, {"replace", false}}));
  EXPECT_EQ(sent[3], (json{{"command", 3}, {"path", "/proc/vexa-out"}, {"replace", true}}));
  EXPECT_EQ(sent[4], (json{{"command", 10},
                           {"launch", "/usr/bin/tar"},
                           {"cmd", "-xvf&|&" + file + "&|&-C&|&/proc/vexa-out"}}));

  // Nothing under /proc goes to a Trash: the helper is asked to move it, by its own name.
  test::ScopedEnv data("XDG_DATA_HOME", dir / "data");
  helper->requests.clear();
  EXPECT_TRUE(BrindleUtility::moveToTrash("/proc/self/"));
  ASSERT_EQ(helper->commands().size(), 1u);
  EXPECT_EQ(helper->commands()[0], (json{{"command", 6},
                                         {"path", "/proc/self/"},
                                         {"topath", dir / "data/Trash/files/self"},
                                         {"replace", false}}));

  helper->reachable = false;  // not reachable: the operation fails and nothing else is sent
  helper->requests.clear();
  EXPECT_FALSE(BrindleUtility::mkdir("/proc/vexa-test", false));
  EXPECT_TRUE(helper->commands().empty());
  EXPECT_EQ(helper->requests.size(), 1u);
}

TEST_F(BrindleUtilityTest, ALinkIsAnItemOfItsOwn) {
  fs::create_symlink(dir / "nowhere", dir / "dangling");
  EXPECT_EQ(BrindleUtility::move(dir / "dangling", dir / "moved", false), dir / "moved");
  EXPECT_TRUE(fs::is_symlink(dir / "moved"));
  EXPECT_TRUE(BrindleUtility::hide(dir / "moved"));
  EXPECT_TRUE(MonitorString::isPathHidden(dir / "moved"));
  EXPECT_FALSE(BrindleUtility::chmod(dir / "moved", 0600));  // nothing behind it to change
  const std::string folder = dir.mkdir("folder");
  fs::create_directory_symlink(folder, dir / "to-folder");
  EXPECT_EQ(BrindleUtility::mkdir(dir / "to-folder", true), dir / "to-folder(1)");
  EXPECT_TRUE(BrindleUtility::remove(dir / "moved"));
  EXPECT_FALSE(fs::exists(fs::symlink_status(dir / "moved")));
  EXPECT_TRUE(BrindleUtility::remove(dir / "to-folder"));
  EXPECT_TRUE(fs::is_directory(folder));  // the link goes, not what it leads to
  EXPECT_TRUE(helper->requests.empty());
}

TEST_F(BrindleUtilityTest, TransportTroubleIsLoggedWithTheKnownTexts) {
  std::vector<std::string> logged;
  SystemLog::setSink([&](const std::string& m) { logged.push_back(m); });
  const std::pair<HelperTransport::Failure, const char*> cases[] = {
      {HelperTransport::Failure::NoConnection, "Failed to create XPC connection."},
      {HelperTransport::Failure::Interrupted, "XPC connection interupted."},
      {HelperTransport::Failure::Other, "Unexpected XPC connection error."},
      {HelperTransport::Failure::Invalid, "XPC connection invalid, releasing."}};
  for (auto [failure, text] : cases) {
    helper->failure = failure;
    logged.clear();
    EXPECT_FALSE(BrindleUtility::checkHelperConnect());
    ASSERT_FALSE(logged.empty());
    EXPECT_EQ(logged[0], text);
  }
  // An invalid connection re-installs the helper; with a private bus there is nothing to install.
  ASSERT_EQ(logged.size(), 2u);
  EXPECT_EQ(logged[1].rfind("Something went wrong! ", 0), 0u) << logged[1];
  SystemLog::setSink(nullptr);
  std::string error;
  EXPECT_FALSE(BrindleUtility::blessHelperWithLabel(BrindleUtility::kHelperLabel, &error));
  EXPECT_NE(error.find("private bus"), std::string::npos) << error;
  EXPECT_FALSE(BrindleUtility::blessHelperWithLabel("org.example.Other", &error));
  EXPECT_NE(error.find("unknown helper label"), std::string::npos) << error;
}

}  // namespace brindle_utility_test
}  // namespace vexa
