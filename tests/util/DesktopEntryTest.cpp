#include "util/DesktopEntry.h"

#include <gtest/gtest.h>

namespace vexa {
namespace desktop_entry_test {

TEST(DesktopEntryTest, ReadsTheMainGroupOnly) {
  auto entry = DesktopEntry::parse(
      "# comment\n"
      "[Desktop Entry]\n"
      "Type=Application\n"
      "Name=Text Editor\n"
      "Name[de]=Texteditor\n"
      "Name[pt_BR]=Editor de texto\n"
      "Comment = Edit\\stext\\nfiles  \r\n"
      "X-AppVersion=4.2\n"
      "Name=Second value ignored\n"
      "not a key line\n"
      "=no key\n"
      "[Desktop Action new-window]\n"
      "Name=New Window\n"
      "Exec=editor --new\n");
  ASSERT_TRUE(entry);
  EXPECT_TRUE(entry->isApplication());
  EXPECT_EQ(entry->value("Name"), "Text Editor");
  EXPECT_EQ(entry->value("Comment"), "Edit text\nfiles");
  EXPECT_EQ(entry->value("X-AppVersion"), "4.2");
  EXPECT_FALSE(entry->value("Exec"));  // belongs to an action group
  EXPECT_EQ(entry->localized("Name", {"de-DE"}), "Texteditor");
  EXPECT_EQ(entry->localized("Name", {"pt_BR.UTF-8"}), "Editor de texto");
  EXPECT_EQ(entry->localized("Name", {"fr", "de"}), "Texteditor");
  EXPECT_EQ(entry->localized("Name", {"ja"}), "Text Editor");
  EXPECT_FALSE(entry->isHidden());
  EXPECT_FALSE(DesktopEntry::parse("[Other Group]\nType=Application\n"));
  EXPECT_FALSE(DesktopEntry::parse(""));
  EXPECT_FALSE(DesktopEntry::parse("\x00\xff garbage"));
}

TEST(DesktopEntryTest, ExecutablesAndArguments) {
  auto exec = [](const std::string& line) {
    return DesktopEntry::parse("[Desktop Entry]\nExec=" + line + "\n")->execArguments();
  };
  using Args = std::vector<std::string>;
  EXPECT_EQ(exec("editor %U"), (Args{"editor"}));
  // "\s" is a space of the string value; unquoted in Exec it separates arguments.
  EXPECT_EQ(exec("/opt/My\\sApp/run --flag=%f -x"), (Args{"/opt/My", "App/run", "--flag=", "-x"}));
  EXPECT_EQ(exec("\"/opt/with space/bin\" \"quoted \\\"arg\\\"\" 100%%"),
            (Args{"/opt/with space/bin", "quoted \"arg\"", "100%"}));
  EXPECT_EQ(exec("env A=1 tool \"\""), (Args{"env", "A=1", "tool", ""}));
  EXPECT_TRUE(exec("").empty());
  auto entry = DesktopEntry::parse("[Desktop Entry]\nTryExec=/usr/bin/real\nExec=wrapper %F\n");
  EXPECT_EQ(entry->executable(), "/usr/bin/real");
  EXPECT_EQ(DesktopEntry::parse("[Desktop Entry]\nExec=\"/x y/z\" %u\n")->executable(), "/x y/z");
  EXPECT_FALSE(DesktopEntry::parse("[Desktop Entry]\nName=x\n")->executable());
}

TEST(DesktopEntryTest, DesktopFileIds) {
  EXPECT_EQ(DesktopEntry::desktopFileId("/usr/share/applications/kde/konsole.desktop",
                                        "/usr/share/applications/"),
            "kde-konsole.desktop");
  EXPECT_EQ(DesktopEntry::desktopFileId("/usr/share/applications/org.gnome.gedit.desktop",
                                        "/usr/share/applications"),
            "org.gnome.gedit.desktop");
}

}  // namespace desktop_entry_test
}  // namespace vexa
