#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "monitors/BrowserFolders.h"

namespace vexa {

// What the download monitor and the download-folder watcher share: the browsers' download
// folders (kept up to date by profileMonitor), the partial-download names, and the rules that
// judge a download complete. A completed path goes to the deliver call-back given at creation,
// at most once in kRememberSeconds however many events tell of it; checks that must wait go to
// the scheduler given.
//
// Safe from any thread; no call-back is called with a lock held.
class BrowserDownloads : public std::enable_shared_from_this<BrowserDownloads> {
 public:
  using Deliver = std::function<void(const std::string& path)>;
  // Runs the work no sooner than `seconds` from now, on any thread.
  using Schedule = std::function<void(double seconds, std::function<void()> work)>;

  // Browser types, four-character codes.
  enum BrowserType : uint32_t {
    kSafari = 0x73616277,   // 'sabw'
    kFirefox = 0x66696277,  // 'fibw'
    kChrome = 0x63686277,   // 'chbw'
    kOpera = 0x6f706277,    // 'opbw'
    kUnknown = 0x756e6277   // 'unbw'
  };
  // The partial-download extensions, Safari's, Chrome's, Firefox's and Opera's.
  static constexpr std::array<const char*, 4> extRules = {"download", "crdownload", "part",
                                                          "opdownload"};
  static constexpr double kArchiveDelaySeconds = 2.0;
  static constexpr double kRememberSeconds = 10.0;

  static std::shared_ptr<BrowserDownloads> create(BrowserFolders folders, Deliver deliver,
                                                  Schedule schedule);

  // The text after the last dot of the last component ("" when none).
  static std::string extension(const std::string& path);
  static std::string withoutExtension(const std::string& path);
  static bool isDownloads(const std::string& path);
  static BrowserType browserType(const std::string& path);

  // Reads the browsers' settings again and updates the table; a changed, new or removed entry
  // raises the changed flag, except the removal of Chrome's (kept as the host expects).
  void profileMonitor();
  bool downloadFolderChanged() const;
  void clearDownloadFolderChanged();
  std::map<std::string, std::string> browserDownloadPaths() const;
  // The distinct folders of the table, sorted; the user's Downloads folder when it is empty.
  std::vector<std::string> downloadFolders() const;
  // Whether an event on this path may change the table.
  bool isSettingsFile(const std::string& path) const;
  // Whether an event on this path can matter to the rules at all, by its name alone: a partial
  // file, a file named as a settings file, Safari's history or its folder.
  static bool mayMatter(const std::string& path);

  // Judges whether the download that was `path` (without its partial extension) completed,
  // and delivers what it finished as: at once, or for archives a browser may unpack, after
  // kArchiveDelaySeconds.
  void checkDownload(const std::string& path, BrowserType type);
  // The newest of a file's numbered duplicates ("X.dmg", "X-2.dmg", ...), or for a folder the
  // chained name ("X-2-3-2" when "X-2" exists); empty when nothing is at the path.
  static std::optional<std::string> getLatelyPathForSafariDl(const std::string& path);
  // Safari's download history changed (its modification time, in seconds): completes the
  // cached archives it names.
  void setModifyDate(double seconds);
  std::string safariFolder() const;
  std::string safariDLPlist() const;
  std::vector<std::string> safariCache() const;

 private:
  BrowserDownloads(BrowserFolders folders, Deliver deliver, Schedule schedule);
  void complete(const std::optional<std::string>& path);
  void checkArchive(const std::string& path);
  void readSafariHistory(const std::vector<std::string>& cached);

  const BrowserFolders folders_;
  const Deliver deliver_;
  const Schedule schedule_;

  mutable std::mutex mutex_;
  std::map<std::string, std::string> paths_;  // guarded by mutex_
  std::unordered_set<std::string> settings_;  // guarded by mutex_
  bool changed_ = false;                      // guarded by mutex_
  std::vector<std::string> safariCache_;      // guarded by mutex_
  std::optional<double> modifyDate_;          // guarded by mutex_
  // Completed paths by when they were delivered; guarded by mutex_.
  std::map<std::string, std::chrono::steady_clock::time_point> delivered_;
};

}  // namespace vexa
