#include "monitors/BrowserDownloads.h"

#include <gtest/gtest.h>

#include <functional>
#include <mutex>

#include "support/TempDir.h"

namespace vexa {
namespace browser_downloads_test {

using Strings = std::vector<std::string>;

// The rules over a temporary home, with delayed checks run when the test says and deliveries
// recorded.
struct Rules {
  Rules()
      : rules(BrowserDownloads::create(
            BrowserFolders({dir / "home", dir / "home/.config", dir / "home/Library/Preferences",
                            dir / "home/Downloads", dir / "home/Desktop"}),
            [this](const std::string& path) {
              std::lock_guard lock(mutex);
              delivered.push_back(path);
            },
            [this](double seconds, std::function<void()> work) {
              std::lock_guard lock(mutex);
              delays.push_back(seconds);
              pending.push_back(std::move(work));
            })) {}
  void runPending() {
    std::vector<std::function<void()>> work;
    {
      std::lock_guard lock(mutex);
      work.swap(pending);
    }
    for (auto& w : work) w();
  }
  Strings deliveredRelative() {
    std::lock_guard lock(mutex);
    Strings out;
    for (const auto& p : delivered) out.push_back(p.substr(dir.path().size() + 1));
    return out;
  }

  test::TempDir dir;
  std::mutex mutex;
  Strings delivered;
  std::vector<double> delays;
  std::vector<std::function<void()>> pending;
  std::shared_ptr<BrowserDownloads> rules;
};

struct CompletionCase {
  const char* name;
  Strings present;       // files under home/Downloads when the check runs
  std::string finished;  // the partial file's name less its extension
  BrowserDownloads::BrowserType type;
  bool delayed;
  Strings expected;  // under home/Downloads
};

class CompletionRuleTest : public ::testing::TestWithParam<CompletionCase> {};

TEST_P(CompletionRuleTest, Delivers) {
  Rules r;
  for (const auto& name : GetParam().present) r.dir.write("home/Downloads/" + name, "");
  r.rules->checkDownload(r.dir / ("home/Downloads/" + GetParam().finished), GetParam().type);
  EXPECT_EQ(r.delays, GetParam().delayed ? std::vector<double>{2.0} : std::vector<double>{});
  r.runPending();
  Strings expected;
  for (const auto& name : GetParam().expected) expected.push_back("home/Downloads/" + name);
  EXPECT_EQ(r.deliveredRelative(), expected);
}

using B = BrowserDownloads;
INSTANTIATE_TEST_SUITE_P(
    Table, CompletionRuleTest,
    ::testing::Values(
        CompletionCase{"Plain", {"f.pdf"}, "f.pdf", B::kChrome, false, {"f.pdf"}},
        CompletionCase{"Cancelled", {}, "f.pdf", B::kChrome, false, {}},
        CompletionCase{"Archive", {"a.zip"}, "a.zip", B::kFirefox, true, {"a.zip"}},
        CompletionCase{"ZipUnpacked", {"a"}, "a.zip", B::kOpera, true, {"a"}},
        CompletionCase{"TarGzUnpackedOnce", {"a.tar"}, "a.tar.gz", B::kChrome, true, {"a.tar"}},
        CompletionCase{"TarGzUnpackedTwice", {"a"}, "a.tar.gz", B::kChrome, true, {"a"}},
        CompletionCase{"RarNotShortenedTwice", {"a"}, "a.b.rar", B::kChrome, true, {}},
        CompletionCase{"ArchiveGone", {}, "a.tar.xz", B::kUnknown, true, {}},
        CompletionCase{
            "SafariDuplicate", {"X.dmg", "X-2.dmg"}, "X.dmg", B::kSafari, false, {"X-2.dmg"}},
        CompletionCase{"SafariTarGz", {"s.tar"}, "s.tar.gz", B::kSafari, false, {"s.tar"}},
        CompletionCase{"SafariZipUnpacked", {"z", "z-2"}, "z.zip", B::kSafari, false, {"z-2"}}),
    [](const auto& c) { return std::string(c.param.name); });

TEST(BrowserDownloadsTest, EachFinishedPathIsDeliveredOnce) {
  Rules r;
  const std::string done = r.dir.write("home/Downloads/f.pdf", "");
  for (int i = 0; i < 3; ++i) r.rules->checkDownload(done, BrowserDownloads::kChrome);
  EXPECT_EQ(r.deliveredRelative(), Strings{"home/Downloads/f.pdf"});
}

TEST(BrowserDownloadsTest, ASafariZipWaitsForTheHistoryToSayWhereItWent) {
  Rules r;
  const std::string zip = r.dir.write("home/Downloads/pics.zip", "");
  r.rules->checkDownload(zip, BrowserDownloads::kSafari);
  EXPECT_EQ(r.rules->safariCache(), Strings{zip});
  r.dir.write("home/Library/Safari/Downloads.plist",
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
              "<key>DownloadHistory</key><array>"
              "<dict><key>DownloadEntryPath</key><string>~/Downloads/other.zip</string>"
              "<key>DownloadEntryPostPath</key><string>/nowhere</string></dict>"
              "<dict><key>DownloadEntryPath</key><string>~/Downloads/pics.zip</string>"
              "<key>DownloadEntryPostPath</key><string>~/Downloads/pics</string></dict>"
              "<string>not a dict</string></array></dict></plist>");
  r.rules->setModifyDate(10);
  r.runPending();
  EXPECT_EQ(r.deliveredRelative(), Strings{"home/Downloads/pics"});
  EXPECT_TRUE(r.rules->safariCache().empty());
  // An older or equal date is no change.
  r.rules->checkDownload(zip, BrowserDownloads::kSafari);
  r.rules->setModifyDate(10);
  r.runPending();
  EXPECT_EQ(r.rules->safariCache(), Strings{zip});
}

TEST(BrowserDownloadsTest, RemovingChromesSettingsChangesTheTableButRaisesNoFlag) {
  Rules r;
  r.dir.write("home/.config/google-chrome/Default/Preferences", "{}");
  r.dir.write("home/.config/opera/Preferences", "{}");
  r.rules->profileMonitor();
  EXPECT_TRUE(r.rules->downloadFolderChanged());
  EXPECT_EQ(r.rules->downloadFolders(), Strings{r.dir / "home/Downloads"});
  r.rules->clearDownloadFolderChanged();
  r.rules->profileMonitor();
  EXPECT_FALSE(r.rules->downloadFolderChanged());
  std::filesystem::remove(r.dir / "home/.config/google-chrome/Default/Preferences");
  r.rules->profileMonitor();
  EXPECT_FALSE(r.rules->downloadFolderChanged());
  EXPECT_EQ(r.rules->browserDownloadPaths().count("Chrome"), 0U);
  std::filesystem::remove(r.dir / "home/.config/opera/Preferences");
  r.rules->profileMonitor();
  EXPECT_TRUE(r.rules->downloadFolderChanged());
}

}  // namespace browser_downloads_test
}  // namespace vexa
