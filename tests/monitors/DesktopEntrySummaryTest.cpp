#include "monitors/DesktopEntrySummary.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "support/TempDir.h"

namespace vexa {
namespace desktop_entry_summary_test {

namespace fs = std::filesystem;

std::string entry(const std::string& name, const std::string& extra = "") {
  return "[Desktop Entry]\nType=Application\nName=" + name + "\nExec=true\n" + extra;
}

struct ChangeCase {
  const char* name;
  // Changes the entry at `path` (written as entry("Before")); `dir` for scratch files.
  void (*change)(const test::TempDir& dir, const std::string& path);
  bool application;
  const char* displayName;  // nullptr: none
};

class DesktopEntrySummaryTest : public ::testing::TestWithParam<ChangeCase> {};

TEST_P(DesktopEntrySummaryTest, AChangedEntryIsReadAgain) {
  test::TempDir dir;
  const std::string path = dir.write("viewer.desktop", entry("Before"));
  const auto first = DesktopEntrySummary::of(path);
  ASSERT_TRUE(first.application);
  ASSERT_EQ(first.displayName, "Before");
  GetParam().change(dir, path);
  const auto now = DesktopEntrySummary::of(path);
  EXPECT_EQ(now.application, GetParam().application);
  if (GetParam().displayName) {
    EXPECT_EQ(now.displayName, std::string(GetParam().displayName));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Changes, DesktopEntrySummaryTest,
    ::testing::Values(
        ChangeCase{"Unchanged", [](const test::TempDir&, const std::string&) {}, true, "Before"},
        // Same length, so only the times tell.
        ChangeCase{"RewrittenInPlaceSameSize",
                   [](const test::TempDir& dir, const std::string&) {
                     dir.write("viewer.desktop", entry("After_"));
                   },
                   true, "After_"},
        ChangeCase{"ReplacedByRename",
                   [](const test::TempDir& dir, const std::string& path) {
                     fs::rename(dir.write("new.desktop", entry("Renamed")), path);
                   },
                   true, "Renamed"},
        ChangeCase{"NowHidden",
                   [](const test::TempDir& dir, const std::string&) {
                     dir.write("viewer.desktop", entry("Before", "Hidden=true\n"));
                   },
                   false, nullptr},
        ChangeCase{"Removed",
                   [](const test::TempDir&, const std::string& path) { fs::remove(path); }, false,
                   nullptr},
        ChangeCase{"ReplacedByAFifo",
                   [](const test::TempDir&, const std::string& path) {
                     fs::remove(path);
                     ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
                   },
                   false, nullptr}),
    [](const auto& param) { return std::string(param.param.name); });

}  // namespace desktop_entry_summary_test
}  // namespace vexa
