#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <tuple>
#include <utility>

#include "status/LaunchedApplications.h"
#include "status/MachineFiles.h"
#include "status/ProcParsers.h"
#include "util/AtomicFile.h"
#include "util/DesktopEntry.h"
#include "util/DesktopEntryFolders.h"
#include "util/PathName.h"

namespace vexa {
namespace {

// Desktops start each application in a transient unit of the user's service manager, named
// "app[-<launcher>]-<id>-<random>.scope" (or "app[-<launcher>]-<id>[@<random>].service"), with
// "-" inside the id escaped as "\x2d". The desktop file ids such a name may stand for, most
// specific first: the launcher part is optional and some launchers leave dashes unescaped, so
// every tail of the dash-separated middle is tried.
std::vector<std::string> desktopIdsOfUnit(const std::string& unit) {
  std::string_view name = unit;
  if (!name.starts_with("app-")) return {};
  name.remove_prefix(4);
  if (name.ends_with(".scope")) {
    name.remove_suffix(6);
    const size_t dash = name.rfind('-');
    if (dash == std::string_view::npos || dash + 1 == name.size()) return {};
    name = name.substr(0, dash);
  } else if (name.ends_with(".service")) {
    name.remove_suffix(8);
    name = name.substr(0, name.find('@'));
  } else {
    return {};
  }
  auto unescape = [](std::string_view text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
      if (text[i] == '\\' && i + 3 < text.size() && text[i + 1] == 'x') {
        const std::string hex(text.substr(i + 2, 2));
        if (hex.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos) {
          out += static_cast<char>(std::stoi(hex, nullptr, 16));
          i += 3;
          continue;
        }
      }
      out += text[i];
    }
    return out;
  };
  std::vector<std::string> ids;
  for (size_t start = 0; start < name.size();) {
    if (const std::string id = unescape(name.substr(start)); !id.empty()) ids.push_back(id);
    const size_t dash = name.find('-', start);
    if (dash == std::string_view::npos) break;
    start = dash + 1;
  }
  return ids;
}

class CgroupLaunchedApplications final : public LaunchedApplications {
 public:
  CgroupLaunchedApplications(std::shared_ptr<MachineFiles> files, uint32_t uid)
      : files_(std::move(files)),
        uid_(uid),
        appSlice_("/sys/fs/cgroup/user.slice/user-" + std::to_string(uid) + ".slice/user@" +
                  std::to_string(uid) + ".service/app.slice") {}

  std::vector<Record> launched() override {
    std::vector<Record> records;
    bool anyUnit = false;
    walkSlice(appSlice_, 0, records, anyUnit);
    if (!anyUnit) records = scanProcesses();
    std::sort(records.begin(), records.end(),
              [](const Record& a, const Record& b) { return a.pid < b.pid; });
    return records;
  }

 private:
  using ProcessKey = std::tuple<int32_t, uint64_t, std::string>;  // pid, start, name
  struct Entry {
    std::string name;
    std::string path;
  };

  // Slices group units ("app-gnome.slice", "app-flatpak.slice"); they nest only a few deep.
  void walkSlice(const std::string& folder, int depth, std::vector<Record>& records,
                 bool& anyUnit) {
    if (depth > 3) return;
    for (const std::string& name : files_->list(folder)) {
      std::string path = folder;
      path += '/';
      path += name;
      if (name.ends_with(".slice")) {
        walkSlice(path, depth + 1, records, anyUnit);
        continue;
      }
      const std::vector<std::string> ids = desktopIdsOfUnit(name);
      if (ids.empty()) continue;
      anyUnit = true;
      const auto pid = oldestProcess(path);
      if (!pid) continue;
      for (const std::string& id : ids) {
        if (const auto entry = entryOfId(id)) {
          records.push_back({entry->name, entry->path, *pid});
          break;
        }
      }
    }
  }

  // The process that has run longest in a cgroup: the one the launcher started. cgroup.procs
  // is in no set order, and a process that ends meanwhile is passed over.
  std::optional<int32_t> oldestProcess(const std::string& cgroup) const {
    const auto procs = files_->read(cgroup + "/cgroup.procs");
    if (!procs) return std::nullopt;
    std::optional<std::pair<uint64_t, int32_t>> oldest;
    std::string_view text = *procs;
    while (!text.empty()) {
      const size_t end = text.find('\n');
      const auto pid = parseSigned(text.substr(0, end));
      if (pid && *pid > 0 && *pid <= INT32_MAX) {
        const auto stat = files_->read("/proc/" + std::to_string(*pid) + "/stat");
        if (const auto parsed = stat ? parsePidStat(*stat) : std::nullopt) {
          const std::pair key{parsed->startTicks, parsed->pid};
          if (!oldest || key < *oldest) oldest = key;
        }
      }
      if (end == std::string_view::npos) break;
      text.remove_prefix(end + 1);
    }
    if (!oldest) return std::nullopt;
    return oldest->second;
  }

  // The entry "<id>.desktop" of the first applications folder that has one. Found entries are
  // kept: a running application's entry rarely changes, and a name read a little late is
  // harmless.
  std::optional<Entry> entryOfId(const std::string& id) {
    if (const auto known = entries_.find(id); known != entries_.end()) return known->second;
    for (const std::string& folder : DesktopEntryFolders::all()) {
      std::string file = folder;
      file += '/';
      file += id;
      file += ".desktop";
      if (auto entry = entryAt(file)) {
        entries_.emplace(id, *entry);
        return entry;
      }
    }
    return std::nullopt;
  }

  static std::optional<Entry> entryAt(const std::string& path) {
    const auto text = AtomicFile::read(path, 1 << 20);
    const auto entry = text ? DesktopEntry::parse(*text) : std::nullopt;
    if (!entry || !entry->isApplication()) return std::nullopt;
    std::string name = entry->localized("Name", DesktopEntry::userLocales()).value_or("");
    if (name.empty()) {
      name = PathName::lastComponent(path);
      if (name.ends_with(".desktop")) name.resize(name.size() - 8);
    }
    return Entry{std::move(name), path};
  }

  // Without application cgroups, launchers that go through GIO leave the entry they started in
  // the child's environment, with the child's own pid beside it (its children inherit the
  // variables but have other pids). What a process's environment says is kept for as long as
  // that process (pid and start time) runs the same program (its name: a launcher sets the
  // variables between fork and exec, so a process seen before its exec is read again after).
  std::vector<Record> scanProcesses() {
    std::vector<Record> records;
    std::map<ProcessKey, std::optional<Record>> seen;
    for (const std::string& name : files_->list("/proc")) {
      const auto pid = parseSigned(name);
      if (!pid || *pid <= 0 || *pid > INT32_MAX) continue;
      const std::string folder = "/proc/" + name;
      const auto stat = files_->read(folder + "/stat");
      const auto parsed = stat ? parsePidStat(*stat) : std::nullopt;
      if (!parsed) continue;  // ended meanwhile
      const ProcessKey key{parsed->pid, parsed->startTicks, parsed->comm};
      auto known = processes_.find(key);
      bool settled = true;
      std::optional<Record> record = known != processes_.end()
                                         ? known->second
                                         : launchedFromEnvironment(folder, parsed->pid, settled);
      if (record) records.push_back(*record);
      if (settled) seen.emplace(key, std::move(record));
    }
    processes_ = std::move(seen);
    return records;
  }

  // `settled` turns false when the answer may still change for the same program: a process in
  // the middle of exec already has its new name but, for a moment, no environment.
  std::optional<Record> launchedFromEnvironment(const std::string& folder, int32_t pid,
                                                bool& settled) {
    const auto status = files_->read(folder + "/status");
    const auto uids = status ? statusField(*status, "Uid") : std::nullopt;
    const auto realUid =
        uids ? parseUnsigned(uids->substr(0, uids->find_first_of(" \t"))) : std::nullopt;
    if (!realUid || *realUid != uid_) return std::nullopt;
    const auto environ = files_->read(folder + "/environ");
    if (!environ || environ->empty()) {
      settled = false;
      return std::nullopt;
    }
    const auto launchedPid = environValue(*environ, "GIO_LAUNCHED_DESKTOP_FILE_PID");
    const auto launchedFile = environValue(*environ, "GIO_LAUNCHED_DESKTOP_FILE");
    if (!launchedPid || !launchedFile || parseSigned(*launchedPid) != pid) return std::nullopt;
    if (const auto entry = entryAt(*launchedFile)) return Record{entry->name, entry->path, pid};
    return std::nullopt;
  }

  std::shared_ptr<MachineFiles> files_;
  uint32_t uid_;
  std::string appSlice_;
  std::map<std::string, Entry> entries_;
  std::map<ProcessKey, std::optional<Record>> processes_;
};

}  // namespace

std::shared_ptr<LaunchedApplications> LaunchedApplications::ofUser(
    std::shared_ptr<MachineFiles> files, uint32_t uid) {
  return std::make_shared<CgroupLaunchedApplications>(std::move(files), uid);
}

}  // namespace vexa
