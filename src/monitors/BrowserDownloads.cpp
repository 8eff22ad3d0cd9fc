#include "monitors/BrowserDownloads.h"

#include <algorithm>
#include <set>

#include "util/AtomicFile.h"
#include "util/PathName.h"
#include "util/PropertyList.h"

namespace vexa {

namespace {

bool endsWith(const std::string& s, std::string_view suffix) {
  return s.size() >= suffix.size() &&
         s.compare(s.size() - suffix.size(), suffix.size(), suffix.data(), suffix.size()) == 0;
}

// Archives that a browser (or the user, right after) may unpack in place of the download.
constexpr std::array<std::string_view, 7> kArchiveSuffixes = {
    ".rar", ".zip", ".tar", ".tar.gz", ".tar.bz2", ".tar.Z", ".tar.xz"};

bool isFolder(const std::string& path) { return PathName::isFolder(path); }

// Safari's download history, in a folder beside its preferences folder.
constexpr char kSafariFolderName[] = "Safari";
constexpr char kSafariHistoryName[] = "Downloads.plist";

}  // namespace

std::shared_ptr<BrowserDownloads> BrowserDownloads::create(BrowserFolders folders, Deliver deliver,
                                                           Schedule schedule) {
  return std::shared_ptr<BrowserDownloads>(
      new BrowserDownloads(std::move(folders), std::move(deliver), std::move(schedule)));
}

BrowserDownloads::BrowserDownloads(BrowserFolders folders, Deliver deliver, Schedule schedule)
    : folders_(std::move(folders)), deliver_(std::move(deliver)), schedule_(std::move(schedule)) {}

std::string BrowserDownloads::extension(const std::string& path) {
  const size_t slash = path.rfind('/');
  const size_t dot = path.rfind('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash) ||
      dot == (slash == std::string::npos ? 0 : slash + 1)) {
    return "";
  }
  return path.substr(dot + 1);
}

std::string BrowserDownloads::withoutExtension(const std::string& path) {
  const std::string ext = extension(path);
  return ext.empty() ? path : path.substr(0, path.size() - ext.size() - 1);
}

bool BrowserDownloads::isDownloads(const std::string& path) {
  const std::string ext = extension(path);
  return std::any_of(extRules.begin(), extRules.end(),
                     [&](const char* rule) { return ext == rule; });
}

bool BrowserDownloads::mayMatter(const std::string& path) {
  if (isDownloads(path)) return true;
  const size_t slash = path.rfind('/');
  const std::string_view name = slash == std::string::npos
                                    ? std::string_view(path)
                                    : std::string_view(path).substr(slash + 1);
  return BrowserFolders::isSettingsName(name) || name == kSafariFolderName ||
         name == kSafariHistoryName;
}

BrowserDownloads::BrowserType BrowserDownloads::browserType(const std::string& path) {
  const std::string ext = extension(path);
  if (ext == "download") return kSafari;
  if (ext == "part") return kFirefox;
  if (ext == "crdownload") return kChrome;
  if (ext == "opdownload") return kOpera;
  return kUnknown;
}

void BrowserDownloads::profileMonitor() {
  auto table = folders_.read();
  auto files = folders_.settingsFiles();
  std::lock_guard lock(mutex_);
  settings_ = std::unordered_set<std::string>(files.begin(), files.end());
  for (const auto& [browser, folder] : table) {
    auto it = paths_.find(browser);
    if (it == paths_.end() || it->second.empty() || it->second != folder) {
      paths_[browser] = folder;
      changed_ = true;
    }
  }
  for (auto it = paths_.begin(); it != paths_.end();) {
    if (table.count(it->first)) {
      ++it;
      continue;
    }
    // The host is not told to look again when Chrome's settings go.
    if (it->first != "Chrome") changed_ = true;
    it = paths_.erase(it);
  }
}

bool BrowserDownloads::downloadFolderChanged() const {
  std::lock_guard lock(mutex_);
  return changed_;
}

void BrowserDownloads::clearDownloadFolderChanged() {
  std::lock_guard lock(mutex_);
  changed_ = false;
}

std::map<std::string, std::string> BrowserDownloads::browserDownloadPaths() const {
  std::lock_guard lock(mutex_);
  return paths_;
}

std::vector<std::string> BrowserDownloads::downloadFolders() const {
  std::set<std::string> folders;
  {
    std::lock_guard lock(mutex_);
    for (const auto& [browser, folder] : paths_) folders.insert(folder);
  }
  if (folders.empty()) folders.insert(folders_.locations().downloads);
  return {folders.begin(), folders.end()};
}

bool BrowserDownloads::isSettingsFile(const std::string& path) const {
  std::lock_guard lock(mutex_);
  return settings_.count(path) > 0;
}

void BrowserDownloads::complete(const std::optional<std::string>& path) {
  if (!path || path->empty()) return;
  const auto now = std::chrono::steady_clock::now();
  const auto remember = std::chrono::duration<double>(kRememberSeconds);
  {
    std::lock_guard lock(mutex_);
    for (auto it = delivered_.begin(); it != delivered_.end();) {
      it = now - it->second > remember ? delivered_.erase(it) : std::next(it);
    }
    if (!delivered_.emplace(*path, now).second) return;
  }
  deliver_(*path);
}

void BrowserDownloads::checkDownload(const std::string& path, BrowserType type) {
  if (type != kSafari) {
    const bool archive = std::any_of(kArchiveSuffixes.begin(), kArchiveSuffixes.end(),
                                     [&](std::string_view s) { return endsWith(path, s); });
    if (!archive) {
      if (PathName::exists(path)) complete(path);
      return;
    }
    std::weak_ptr<BrowserDownloads> weak = weak_from_this();
    schedule_(kArchiveDelaySeconds, [weak, path] {
      if (auto self = weak.lock()) self->checkArchive(path);
    });
    return;
  }
  for (std::string_view suffix : {".tar.bz2", ".tar", ".rar", ".tar.xz"}) {
    if (endsWith(path, suffix)) return complete(getLatelyPathForSafariDl(path));
  }
  if (endsWith(path, ".tar.gz")) return complete(getLatelyPathForSafariDl(withoutExtension(path)));
  if (!endsWith(path, ".zip")) return complete(getLatelyPathForSafariDl(path));
  auto unpacked = getLatelyPathForSafariDl(withoutExtension(path));
  if (unpacked && !unpacked->empty()) return complete(unpacked);
  // Safari unpacks it later; its download history tells where.
  std::lock_guard lock(mutex_);
  if (std::find(safariCache_.begin(), safariCache_.end(), path) == safariCache_.end()) {
    safariCache_.push_back(path);
  }
}

void BrowserDownloads::checkArchive(const std::string& path) {
  if (PathName::exists(path)) return complete(path);
  const std::string shorter = withoutExtension(path);
  const std::string ext = extension(path);
  if (ext == "rar" || ext == "zip" || ext == "tar") {
    if (PathName::exists(shorter)) complete(shorter);
    return;
  }
  if (PathName::exists(shorter)) return complete(shorter);
  const std::string shortest = withoutExtension(shorter);
  if (PathName::exists(shortest)) complete(shortest);
}

std::optional<std::string> BrowserDownloads::getLatelyPathForSafariDl(const std::string& path) {
  if (!PathName::exists(path)) return std::nullopt;
  constexpr int kMostDuplicates = 100000;
  if (isFolder(path)) {
    // Folders: each name tried is built on the one before ("X-2", "X-2-3", ...), and the answer
    // on the last one tried. Hosts have always been answered this way; it stays.
    std::string candidate = path;
    int n = 0;
    do {
      candidate += "-" + std::to_string(n + 2);
      ++n;
    } while (n < kMostDuplicates && PathName::exists(candidate));
    return n == 1 ? path : candidate + "-" + std::to_string(n);
  }
  // Files: duplicates are numbered from 2 ("X-2.dmg", "X-3.dmg"); the newest is the last that
  // exists.
  const std::string base = withoutExtension(path);
  const std::string ext = extension(path);
  auto numbered = [&](int n) {
    return base + "-" + std::to_string(n) + (ext.empty() ? "" : "." + ext);
  };
  int n = 2;
  while (n < kMostDuplicates && PathName::exists(numbered(n))) ++n;
  return n == 2 ? path : numbered(n - 1);
}

std::string BrowserDownloads::safariFolder() const {
  return PathName::parent(folders_.locations().preferencesFolder) + "/" + kSafariFolderName;
}

std::string BrowserDownloads::safariDLPlist() const {
  return safariFolder() + "/" + kSafariHistoryName;
}

std::vector<std::string> BrowserDownloads::safariCache() const {
  std::lock_guard lock(mutex_);
  return safariCache_;
}

void BrowserDownloads::setModifyDate(double seconds) {
  std::vector<std::string> cached;
  {
    std::lock_guard lock(mutex_);
    if (modifyDate_ && seconds <= *modifyDate_) return;
    modifyDate_ = seconds;
    if (!PathName::exists(safariDLPlist())) return;
    cached.swap(safariCache_);
  }
  std::weak_ptr<BrowserDownloads> weak = weak_from_this();
  schedule_(0, [weak, cached = std::move(cached)] {
    if (auto self = weak.lock()) self->readSafariHistory(cached);
  });
}

void BrowserDownloads::readSafariHistory(const std::vector<std::string>& cached) {
  auto bytes = AtomicFile::read(safariDLPlist());
  auto plist = bytes ? PropertyList::parse(*bytes) : std::nullopt;
  if (!plist || !plist->is_object()) return;
  auto history = plist->find("DownloadHistory");
  if (history == plist->end() || !history->is_array()) return;
  for (const auto& path : cached) {
    const std::string name = PathName::lastComponent(path);
    for (const auto& entry : *history) {
      if (!entry.is_object()) continue;
      auto at = entry.find("DownloadEntryPath");
      if (at == entry.end() || !at->is_string() ||
          at->get_ref<const std::string&>().find(name) == std::string::npos) {
        continue;
      }
      auto post = entry.find("DownloadEntryPostPath");
      if (post != entry.end() && post->is_string()) {
        std::string done = post->get<std::string>();
        if (done.rfind("~/", 0) == 0) done = folders_.locations().home + done.substr(1);
        complete(done);
      }
      break;
    }
  }
}

}  // namespace vexa
