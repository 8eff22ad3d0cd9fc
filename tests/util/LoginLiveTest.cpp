// A program adds itself to the login items from folders with awkward names; what systemd's
// autostart generator and GIO make of the entry is what a desktop session would do at login.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "support/Signal.h"
#include "support/TempDir.h"

namespace vexa {
namespace {

namespace fs = std::filesystem;

constexpr const char* kGenerator =
    "/usr/lib/systemd/user-generators/systemd-xdg-autostart-generator";

int run(const std::string& command) {
  const int status = std::system(command.c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string shellQuoted(const std::string& text) {
  std::string out = "'";
  for (const char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

class LoginLiveTest : public ::testing::TestWithParam<const char*> {};

TEST_P(LoginLiveTest, TheEntryStartsTheProgramAtLogin) {
  test::TempDir dir;
  test::ScopedEnv config("XDG_CONFIG_HOME", dir / "config");
  test::ScopedEnv system("XDG_CONFIG_DIRS", dir / "xdg");
  test::ScopedEnv marker("VEXA_PROBE_MARKER", dir / "marker");
  const std::string folder = dir.mkdir(GetParam());
  const std::string probe = folder + "/probe";
  fs::copy_file(VEXA_LOGIN_PROBE_PATH, probe);
  const std::string quotedProbe = shellQuoted(probe);

  ASSERT_EQ(run(quotedProbe + " has"), 3);
  ASSERT_EQ(run(quotedProbe + " install"), 0);
  ASSERT_EQ(std::distance(fs::directory_iterator(dir / "config/autostart"), {}), 1);
  const std::string entry = fs::directory_iterator(dir / "config/autostart")->path().string();

  if (fs::exists(kGenerator)) {
    const std::string out = dir.mkdir("units");
    ASSERT_EQ(run(std::string(kGenerator) + " " + out + " " + out + " " + out + " 2>/dev/null"), 0);
    int units = 0;
    for (const auto& unit : fs::directory_iterator(out)) {
      if (unit.path().extension() == ".service") ++units;
    }
    EXPECT_EQ(units, 1) << "systemd's generator refused the entry";
  }
  if (run("command -v gio >/dev/null") == 0) {
    ASSERT_EQ(run("gio launch " + shellQuoted(entry) + " 2>/dev/null"), 0);
    EXPECT_TRUE(test::eventually([&] { return fs::exists(dir / "marker"); }));
  }

  ASSERT_EQ(run(quotedProbe + " delete"), 3);
  EXPECT_EQ(std::distance(fs::directory_iterator(dir / "config/autostart"), {}), 0);
}

INSTANTIATE_TEST_SUITE_P(Folders, LoginLiveTest,
                         ::testing::Values("plain", "with space", "say \"hi\"", "cost $HOME",
                                           "run `id`"));

}  // namespace
}  // namespace vexa
