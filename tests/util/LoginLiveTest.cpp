// A program adds itself to the login items from folders with awkward names; what systemd's
// autostart generator and GIO make of the entry is what a desktop session would do at login.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "support/Signal.h"
#include "support/TempDir.h"

namespace vexa {
namespace login_live_test {

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

// The program of the one unit the generator wrote into `out` (none when it wrote none or more):
// the first word of its ExecStart, after the prefixes, unquoted.
std::optional<std::string> unitProgram(const std::string& out) {
  std::vector<fs::path> units;
  for (const auto& unit : fs::directory_iterator(out)) {
    if (unit.path().extension() == ".service") units.push_back(unit.path());
  }
  if (units.size() != 1) return std::nullopt;
  std::ifstream in(units.front());
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("ExecStart=", 0) != 0) continue;
    std::string value = line.substr(std::strlen("ExecStart="));
    value.erase(0, value.find_first_not_of(":-@+!"));
    if (value.empty() || value.front() != '"') return value.substr(0, value.find(' '));
    std::string program;
    for (size_t i = 1; i < value.size() && value[i] != '"'; ++i) {
      if (value[i] == '\\' && i + 1 < value.size()) ++i;
      program += value[i];
    }
    return program;
  }
  return std::string();
}

class LoginLiveTest : public ::testing::TestWithParam<const char*> {};

TEST_P(LoginLiveTest, TheEntryStartsTheProgramAtLogin) {
  if (!fs::exists(kGenerator)) GTEST_SKIP() << "no systemd autostart generator";
  if (run("command -v gio >/dev/null") != 0) GTEST_SKIP() << "no gio";
  test::TempDir dir;
  test::ScopedEnv config("XDG_CONFIG_HOME", dir / "config");
  test::ScopedEnv system("XDG_CONFIG_DIRS", dir / "xdg");
  test::ScopedEnv marker("VEXA_PROBE_MARKER", dir / "marker");
  // The launch reaches no session bus or display of whoever runs the tests.
  test::ScopedEnv bus("DBUS_SESSION_BUS_ADDRESS", std::nullopt);
  test::ScopedEnv display("DISPLAY", std::nullopt);
  test::ScopedEnv wayland("WAYLAND_DISPLAY", std::nullopt);
  const std::string folder = dir.mkdir(GetParam());
  const std::string probe = folder + "/probe";
  fs::copy_file(VEXA_LOGIN_PROBE_PATH, probe);
  const std::string quotedProbe = shellQuoted(probe);
  const auto generate = [&](const std::string& name) {
    const std::string out = dir.mkdir(name);
    EXPECT_EQ(run(std::string(kGenerator) + " " + out + " " + out + " " + out + " 2>/dev/null"), 0);
    return unitProgram(out);
  };

  ASSERT_EQ(run(quotedProbe + " has"), 3);
  ASSERT_EQ(run(quotedProbe + " install"), 0);
  ASSERT_EQ(std::distance(fs::directory_iterator(dir / "config/autostart"), {}), 1);
  const std::string entry = fs::directory_iterator(dir / "config/autostart")->path().string();

  EXPECT_EQ(generate("units"), probe) << "systemd's generator did not take the entry as written";
  ASSERT_EQ(run("gio launch " + shellQuoted(entry) + " 2>/dev/null"), 0);
  EXPECT_TRUE(test::eventually([&] { return fs::exists(dir / "marker"); }));

  ASSERT_EQ(run(quotedProbe + " delete"), 3);
  EXPECT_EQ(std::distance(fs::directory_iterator(dir / "config/autostart"), {}), 0);
  EXPECT_EQ(generate("units-after"), std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(Folders, LoginLiveTest,
                         ::testing::Values("plain", "with space", "say \"hi\"", "cost $HOME",
                                           "run `id`"));

}  // namespace login_live_test
}  // namespace vexa
