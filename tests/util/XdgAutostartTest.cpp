#include "util/linux/XdgAutostart.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "support/TempDir.h"
#include "util/LoginItemRules.h"

namespace vexa {
namespace xdg_autostart_test {

namespace fs = std::filesystem;

struct ExecCase {
  const char* path;
  bool writable;
};

void PrintTo(const ExecCase& c, std::ostream* os) { *os << c.path; }

class ExecValueTest : public ::testing::TestWithParam<ExecCase> {};

// What is written reads back, through the same reader desktops use, as the one argument.
TEST_P(ExecValueTest, RoundTripsOrIsRefused) {
  const auto value = XdgAutostart::execValue(GetParam().path);
  ASSERT_EQ(value.has_value(), GetParam().writable);
  if (!value) return;
  const auto entry = DesktopEntry::parse("[Desktop Entry]\nExec=" + *value + "\n");
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->execArguments(), std::vector<std::string>{GetParam().path});
}

INSTANTIATE_TEST_SUITE_P(
    Paths, ExecValueTest,
    ::testing::Values(ExecCase{"/usr/bin/plain", true}, ExecCase{"/opt/My Apps/tool", true},
                      ExecCase{"/opt/say \"hi\"/tool", true}, ExecCase{"/opt/$HOME/tool", true},
                      ExecCase{"/opt/`id`/tool", true}, ExecCase{"/opt/ünïcödé/tool", true},
                      ExecCase{"/opt/semi;colon/tool", true}, ExecCase{"/opt/100%/tool", false},
                      ExecCase{"/opt/back\\slash/tool", false}, ExecCase{"/opt/new\nline", false},
                      ExecCase{"/opt/\xff\xfe/tool", false}, ExecCase{"", false}));

class XdgAutostartTest : public ::testing::Test {
 protected:
  XdgAutostartTest() {
    user = dir / "config/autostart";
    system = dir.mkdir("xdg/autostart");
    program = dir.write("My Apps/tool", "#!/bin/sh\n");
    other = dir.write("other/tool", "#!/bin/sh\n");
    fs::permissions(program, fs::perms::owner_all);
    fs::permissions(other, fs::perms::owner_all);
  }
  XdgAutostart items(const std::string& desktops = "GNOME") {
    return XdgAutostart(user, {system}, "Vexa Sweeper!", desktops);
  }
  static std::string entry(const std::string& exec, const std::string& extra = "") {
    return "[Desktop Entry]\nType=Application\nName=x\nExec=" + exec + "\n" + extra;
  }
  static std::string quoted(const std::string& path) { return "\"" + path + "\""; }
  std::vector<std::string> paths(XdgAutostart& list) {
    std::vector<std::string> found;
    for (const auto& item : list.list()) found.push_back(item.path);
    return found;
  }

  test::TempDir dir;
  std::string user, system, program, other;
};

TEST_F(XdgAutostartTest, InstallWritesOneEntryAndRemoveMasksTheSystemsCopy) {
  auto list = items();
  ASSERT_TRUE(list.available());  // missing: made on the first append
  LoginItemRules::install(list, program);
  LoginItemRules::install(list, program);
  EXPECT_EQ(paths(list), std::vector<std::string>{program});
  EXPECT_TRUE(fs::exists(user + "/VexaSweeper.desktop"));

  // The administrator installed it for everyone too, under our name and another.
  dir.write("xdg/autostart/VexaSweeper.desktop", entry(quoted(program)));
  dir.write("xdg/autostart/site.desktop", entry("\"" + program + "\" --hidden"));
  dir.write("xdg/autostart/theirs.desktop", entry(other));
  EXPECT_EQ(paths(list).size(), 3u);
  LoginItemRules::remove(list, program);
  EXPECT_EQ(paths(list), std::vector<std::string>{other});
  const auto mask = DesktopEntry::parse(test::readFile(user + "/site.desktop"));
  ASSERT_TRUE(mask);
  EXPECT_TRUE(mask->isHidden());
  EXPECT_FALSE(fs::exists(user + "/theirs.desktop"));

  // Installed again: our masking file is turned back on, not joined by another.
  LoginItemRules::install(list, program);
  EXPECT_EQ(paths(list).size(), 2u);
  EXPECT_EQ(std::distance(fs::directory_iterator(user), {}), 2);
}

TEST_F(XdgAutostartTest, DisabledEntriesAreReenabledAndOthersNamesKept) {
  dir.write("config/autostart/VexaSweeper.desktop", entry(other));  // another program's
  dir.write("config/autostart/VexaSweeper-2.desktop",
            entry(quoted(program), "X-GNOME-Autostart-enabled=false\n"));
  auto list = items();
  EXPECT_EQ(paths(list), std::vector<std::string>{other});
  LoginItemRules::install(list, program);
  EXPECT_EQ(paths(list).size(), 2u);
  EXPECT_EQ(DesktopEntry::parse(test::readFile(user + "/VexaSweeper.desktop"))->executable(),
            other);
  EXPECT_EQ(DesktopEntry::parse(test::readFile(user + "/VexaSweeper-2.desktop"))->executable(),
            program);
  EXPECT_FALSE(fs::exists(user + "/VexaSweeper-3.desktop"));
}

TEST_F(XdgAutostartTest, ANameTakenInASystemFolderIsNotShadowed) {
  // A user file of these names would take the system's entries out of effect.
  dir.write("xdg/autostart/VexaSweeper.desktop", entry(other));
  const std::string loop = system + "/VexaSweeper-2.desktop";  // a link to itself: nobody reads it
  fs::create_symlink(loop, loop);
  auto list = items();
  LoginItemRules::install(list, program);
  EXPECT_EQ(paths(list), (std::vector<std::string>{program, other}));
  EXPECT_TRUE(fs::exists(user + "/VexaSweeper-3.desktop"));
  EXPECT_FALSE(fs::exists(user + "/VexaSweeper.desktop"));
  EXPECT_FALSE(fs::exists(user + "/VexaSweeper-2.desktop"));

  // The system's own (disabled) entry for the program may be overridden by name: it is ours.
  LoginItemRules::remove(list, program);
  dir.write("xdg/autostart/VexaSweeper.desktop",
            entry(quoted(program), "X-GNOME-Autostart-enabled=false\n"));
  EXPECT_TRUE(paths(list).empty());
  LoginItemRules::install(list, program);
  EXPECT_EQ(paths(list), std::vector<std::string>{program});
  EXPECT_TRUE(fs::exists(user + "/VexaSweeper.desktop"));
}

TEST_F(XdgAutostartTest, AnUnreadableEntryIsNotCountedAndKeepsItsName) {
  if (::geteuid() == 0) GTEST_SKIP() << "root reads every file";
  const std::string locked = dir.write("config/autostart/VexaSweeper.desktop", entry(other));
  fs::permissions(locked, fs::perms::none);
  auto list = items();
  EXPECT_TRUE(paths(list).empty());
  LoginItemRules::install(list, program);
  EXPECT_EQ(paths(list), std::vector<std::string>{program});
  EXPECT_TRUE(fs::exists(user + "/VexaSweeper-2.desktop"));
  EXPECT_EQ(fs::status(locked).permissions(), fs::perms::none);
}

TEST_F(XdgAutostartTest, EntriesOutOfEffectAreNotCounted) {
  dir.write("xdg/autostart/a.desktop", entry(quoted(program), "OnlyShowIn=KDE;\n"));
  dir.write("xdg/autostart/b.desktop", entry(quoted(program), "NotShowIn=XFCE;GNOME;\n"));
  dir.write("xdg/autostart/c.desktop", entry(quoted(program), "TryExec=no-such-program-here\n"));
  dir.write("xdg/autostart/d.desktop", entry(quoted(program), "Hidden=true\n"));
  dir.write("xdg/autostart/e.desktop", entry("no-such-program-here"));
  dir.write("xdg/autostart/f.desktop", "garbage without a group\n");
  dir.write("xdg/autostart/g.desktop", entry(quoted(program)) + std::string(1 << 20, '#'));
  dir.mkdir("xdg/autostart/h.desktop");
  ASSERT_EQ(::mkfifo((system + "/i.desktop").c_str(), 0600), 0);    // never opened
  dir.write("config/autostart/j.desktop", entry(quoted(program)));  // shadows the system one
  dir.write("xdg/autostart/j.desktop", entry(other));
  auto gnome = items("GNOME");
  EXPECT_EQ(paths(gnome), std::vector<std::string>{program});
  auto kde = items("ubuntu:KDE");
  EXPECT_EQ(paths(kde), (std::vector<std::string>{program, program, program}));
}

TEST_F(XdgAutostartTest, AnAutostartThatIsNotAFolderIsLeftAlone) {
  for (const bool link : {false, true}) {
    fs::remove_all(user);
    fs::create_directories(dir / "config");
    if (link) {
      fs::create_symlink(dir / "nowhere", user);
    } else {
      dir.write("config/autostart", "a file");
    }
    auto list = items();
    EXPECT_FALSE(list.available());
    LoginItemRules::install(list, program);
    EXPECT_EQ(fs::symlink_status(user).type(),
              link ? fs::file_type::symlink : fs::file_type::regular);
    EXPECT_FALSE(fs::exists(dir / "nowhere"));
  }
}

}  // namespace xdg_autostart_test
}  // namespace vexa
