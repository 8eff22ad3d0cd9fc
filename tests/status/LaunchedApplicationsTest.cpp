#include <gtest/gtest.h>

#include <cstdlib>
#include <ostream>

#include "status/LaunchedApplications.h"
#include "status/MachineFiles.h"
#include "support/TempDir.h"

namespace vexa {
namespace launched_applications_test {

using Record = LaunchedApplications::Record;

std::string fixture(const std::string& name) {
  return std::string(VEXA_TEST_DATA_DIR) + "/launched/" + name;
}

// Desktop entries come from the XDG data folders: each case points them at its fixture.
class XdgData {
 public:
  explicit XdgData(const std::string& share) {
    setenv("XDG_DATA_HOME", (home_ / "share").c_str(), 1);
    setenv("XDG_DATA_DIRS", share.c_str(), 1);
    setenv("LC_ALL", "C", 1);
    unsetenv("LANGUAGE");
  }

 private:
  test::TempDir home_;
};

struct DesktopCase {
  const char* name;
  std::vector<Record> expected;
};
void PrintTo(const DesktopCase& c, std::ostream* os) { *os << c.name; }

class LaunchedApplicationsFixtures : public ::testing::TestWithParam<DesktopCase> {};

TEST_P(LaunchedApplicationsFixtures, FindsEachApplicationScopeWithItsEntryAndOldestProcess) {
  const std::string root = fixture(GetParam().name);
  XdgData data(root + "/share");
  std::vector<Record> expected = GetParam().expected;
  for (Record& record : expected) record.path = root + "/share/applications/" + record.path;
  const auto launched = LaunchedApplications::ofUser(MachineFiles::underRoot(root), 1000);
  EXPECT_EQ(launched->launched(), expected);
  EXPECT_EQ(launched->launched(), expected);  // kept entries answer the same

  // Another user has no applications here, and no process scan finds any.
  EXPECT_TRUE(
      LaunchedApplications::ofUser(MachineFiles::underRoot(root), 1001)->launched().empty());
}

INSTANTIATE_TEST_SUITE_P(Desktops, LaunchedApplicationsFixtures,
                         ::testing::Values(
                             // The oldest of three processes (one gone before it is read); the
                             // escaped dash of firefox-esr; no record for an autostart scope
                             // without an application entry, an empty scope, or a plain service.
                             DesktopCase{"gnome",
                                         {{"Text Editor", "org.gnome.TextEditor.desktop", 2002},
                                          {"Firefox ESR", "firefox-esr.desktop", 3001}}},
                             // No launcher part, an @-instance service, a nested slice, a name with
                             // ") (" and a new line in its process.
                             DesktopCase{"kde",
                                         {{"Konsole", "org.kde.konsole.desktop", 4001},
                                          {"Dolphin", "org.kde.dolphin.desktop", 4100},
                                          {"Kate", "org.kde.kate.desktop", 4200}}},
                             // The sandbox's first process stands for the application; a Link entry
                             // is no application.
                             DesktopCase{"flatpak",
                                         {{"GNU Image Manipulation Program",
                                           "org.gimp.GIMP.desktop", 5000}}}),
                         [](const auto& param) { return std::string(param.param.name); });

std::string pidStat(int pid, const std::string& comm, int start) {
  return std::to_string(pid) + " (" + comm + ") S 1 1 1 0 -1 0 0 0 0 0 3 4 0 0 20 0 1 0 " +
         std::to_string(start) +
         " 1000000 100 18446744073709551615 0 0 0 0 0 0 0 0 0 0 0 0 17 0 0 0 0 0 0\n";
}

// Without application cgroups, the processes whose environment names their own pid as the
// launched one.
TEST(LaunchedApplicationsTest, FallsBackToTheEnvironmentOfLaunchedProcesses) {
  test::TempDir root;
  XdgData data(root / "share");
  const std::string entry = root.write("share/applications/editor.desktop",
                                       "[Desktop Entry]\nType=Application\nName=Editor\n");
  auto process = [&](int pid, int uid, const std::string& environ) {
    const std::string folder = "proc/" + std::to_string(pid) + "/";
    root.write(folder + "stat", pidStat(pid, "p", pid));
    root.write(folder + "status",
               "Name:\tp\nUid:\t" + std::to_string(uid) + "\t" + std::to_string(uid) + "\t0\t0\n");
    root.write(folder + "environ", environ);
  };
  const std::string launchedBy = std::string("GIO_LAUNCHED_DESKTOP_FILE=") + entry + '\0';
  process(100, 1000,
          std::string("A=1\0", 4) + "GIO_LAUNCHED_DESKTOP_FILE_PID=100" + '\0' + launchedBy);
  // Its child inherited the variables with its parent's pid.
  process(101, 1000, std::string("GIO_LAUNCHED_DESKTOP_FILE_PID=100") + '\0' + launchedBy);
  // Another user's process.
  process(102, 1001, std::string("GIO_LAUNCHED_DESKTOP_FILE_PID=102") + '\0' + launchedBy);
  // An entry that is gone.
  process(103, 1000,
          std::string("GIO_LAUNCHED_DESKTOP_FILE_PID=103") + '\0' +
              "GIO_LAUNCHED_DESKTOP_FILE=" + root / "gone.desktop" + '\0');
  // A process that ended after the listing: folder without files.
  root.mkdir("proc/104");

  const auto launched = LaunchedApplications::ofUser(MachineFiles::underRoot(root.path()), 1000);
  const std::vector<Record> expected{{"Editor", entry, 100}};
  EXPECT_EQ(launched->launched(), expected);

  // A new process under the same pid (a later start) is read again, not taken from before.
  root.write("proc/100/stat", pidStat(100, "p", 5000));
  root.write("proc/100/environ", "A=1");
  EXPECT_TRUE(launched->launched().empty());
}

}  // namespace launched_applications_test
}  // namespace vexa
