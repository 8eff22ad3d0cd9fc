#include "privileged/HelperService.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include "privileged/ToolPolicy.h"
#include "util/HiddenList.h"
#include "util/ProcessRunner.h"
#include "util/UniqueFd.h"
#include "vexa/privileged/HelperProtocol.h"
#include "vexa/util/MonitorString.h"
#include "vexa/util/SystemLog.h"

namespace vexa {

using nlohmann::json;

namespace {

using P = HelperProtocol;

struct DirCloser {
  void operator()(DIR* listing) const { ::closedir(listing); }
};
using DirStream = std::unique_ptr<DIR, DirCloser>;

json reply(bool result, const std::optional<std::string>& object = std::nullopt) {
  json r = {{P::kResultKey, result}};
  if (object) r[P::kObjectKey] = *object;
  return r;
}

// A folder only root can change: a link in it was put there by root.
bool rootControlled(int folderFd) {
  struct stat st {};
  return ::fstat(folderFd, &st) == 0 && st.st_uid == 0 && (st.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

// The folder holding the path's last component, reached without following a symbolic link
// unless root alone controls the folder the link is in.
struct Parent {
  UniqueFd folder;
  std::string name;
};

std::optional<Parent> openParent(const std::string& path) {
  if (path.empty() || path[0] != '/' || path.size() > HelperService::kMaxPathBytes)
    return std::nullopt;
  std::vector<std::string> parts;
  size_t start = 1;
  while (start <= path.size()) {
    size_t end = path.find('/', start);
    if (end == std::string::npos) end = path.size();
    std::string part = path.substr(start, end - start);
    if (part == "..") return std::nullopt;
    if (!part.empty() && part != ".") parts.push_back(part);
    start = end + 1;
  }
  if (parts.empty()) return std::nullopt;
  UniqueFd folder(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
  for (size_t i = 0; i + 1 < parts.size(); ++i) {
    UniqueFd next(
        ::openat(folder.get(), parts[i].c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!next.ok() && (errno == ELOOP || errno == ENOTDIR) && rootControlled(folder.get())) {
      next.reset(::openat(folder.get(), parts[i].c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    }
    if (!next.ok()) return std::nullopt;
    folder = std::move(next);
  }
  return Parent{std::move(folder), parts.back()};
}

bool existsAt(const Parent& p, struct stat* st = nullptr) {
  struct stat local {};
  return ::fstatat(p.folder.get(), p.name.c_str(), st ? st : &local, AT_SYMLINK_NOFOLLOW) == 0;
}

// The names in an open folder, "." and ".." left out; nothing when it cannot be listed.
std::optional<std::vector<std::string>> entryNames(int folder) {
  // A descriptor of its own: the stream reads from, and closes, the one it is given.
  UniqueFd own(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!own) return std::nullopt;
  DirStream listing(::fdopendir(own.get()));
  if (!listing) return std::nullopt;
  own.release();
  std::vector<std::string> names;
  while (const dirent* entry = ::readdir(listing.get())) {
    if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
      names.emplace_back(entry->d_name);
    }
  }
  return names;
}

// Removes an item and, for a folder, everything in it; links are removed, never followed.
bool removeAt(int folder, const char* name) {
  struct stat st {};
  if (::fstatat(folder, name, &st, AT_SYMLINK_NOFOLLOW) != 0) return errno == ENOENT;
  if (!S_ISDIR(st.st_mode)) return ::unlinkat(folder, name, 0) == 0;
  const UniqueFd inner(::openat(folder, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  const auto names = inner ? entryNames(inner.get()) : std::nullopt;
  if (!names) return false;
  bool ok = true;
  for (const auto& child : *names) ok = removeAt(inner.get(), child.c_str()) && ok;
  return ok && ::unlinkat(folder, name, AT_REMOVEDIR) == 0;
}

// Copies an item (a folder with everything in it; links as links) and gives the copies the
// owner asked for.
bool copyAt(int fromFolder, const char* from, int toFolder, const char* to, uid_t uid, gid_t gid) {
  struct stat st {};
  if (::fstatat(fromFolder, from, &st, AT_SYMLINK_NOFOLLOW) != 0) return false;
  if (S_ISLNK(st.st_mode)) {
    std::vector<char> target(static_cast<size_t>(st.st_size) + 1);
    const ssize_t n = ::readlinkat(fromFolder, from, target.data(), target.size());
    if (n < 0) return false;
    target[static_cast<size_t>(n)] = 0;
    return ::symlinkat(target.data(), toFolder, to) == 0 &&
           ::fchownat(toFolder, to, uid, gid, AT_SYMLINK_NOFOLLOW) == 0;
  }
  if (S_ISDIR(st.st_mode)) {
    if (::mkdirat(toFolder, to, st.st_mode & 07777) != 0) return false;
    UniqueFd source(::openat(fromFolder, from, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    UniqueFd target(::openat(toFolder, to, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!source || !target) return false;
    const auto names = entryNames(source.get());
    if (!names) return false;
    bool ok = true;
    for (const auto& child : *names) {
      ok = copyAt(source.get(), child.c_str(), target.get(), child.c_str(), uid, gid) && ok;
    }
    return ok && ::fchownat(toFolder, to, uid, gid, AT_SYMLINK_NOFOLLOW) == 0;
  }
  if (!S_ISREG(st.st_mode)) return false;
  UniqueFd in(::openat(fromFolder, from, O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
  UniqueFd out(::openat(toFolder, to, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                        st.st_mode & 07777));
  if (!in || !out) return false;
  char buffer[65536];
  for (;;) {
    const ssize_t n = ::read(in.get(), buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    if (n == 0) break;
    for (ssize_t done = 0; done < n;) {
      const ssize_t w = ::write(out.get(), buffer + done, static_cast<size_t>(n - done));
      if (w < 0 && errno == EINTR) continue;
      if (w <= 0) return false;
      done += w;
    }
  }
  return ::fchown(out.get(), uid, gid) == 0;
}

// Makes every missing folder of the path.
bool makeFolders(const std::string& path) {
  std::string prefix;
  size_t start = 1;
  while (start <= path.size()) {
    size_t end = path.find('/', start);
    if (end == std::string::npos) end = path.size();
    prefix = path.substr(0, end);
    start = end + 1;
    if (prefix.empty() || prefix == "/") continue;
    auto parent = openParent(prefix);
    if (!parent) return false;
    struct stat st {};
    if (existsAt(*parent, &st)) {
      if (!S_ISDIR(st.st_mode)) return false;
      continue;
    }
    if (::mkdirat(parent->folder.get(), parent->name.c_str(), 0755) != 0 && errno != EEXIST) {
      return false;
    }
  }
  return true;
}

std::optional<std::string> stringAt(const json& request, const char* key) {
  auto it = request.find(key);
  if (it == request.end() || !it->is_string()) return std::nullopt;
  const std::string& s = it->get_ref<const std::string&>();
  if (s.find('\0') != std::string::npos) return std::nullopt;
  return s;
}

std::optional<int64_t> integerAt(const json& request, const char* key) {
  auto it = request.find(key);
  if (it == request.end() || !it->is_number_integer()) return std::nullopt;
  return it->get<int64_t>();
}

bool replaceOf(const json& request) {
  auto it = request.find(P::kReplaceKey);
  return it != request.end() && it->is_boolean() && it->get<bool>();
}

}  // namespace

const char* HelperService::actionFor(const json& request) {
  const auto command = integerAt(request, P::kCommandKey);
  const auto launch = stringAt(request, P::kLaunchKey);
  if (command != P::kRunTool || !launch) return P::kRequestAction;
  // As runTool will decide it: only a request it would answer by purging counts as one.
  const auto decision = ToolPolicy::check(*launch, stringAt(request, P::kCmdKey).value_or(""));
  const bool purge = decision.allowed && decision.tool == ToolPolicy::Tool::Purge;
  return purge ? P::kPurgeAction : P::kRequestAction;
}

namespace {

json runTool(const std::string& launch, const std::string& cmd) {
  if (cmd.size() > HelperService::kMaxArgumentBytes) return reply(false);
  const ToolPolicy::Decision decision = ToolPolicy::check(launch, cmd);
  if (!decision.allowed) {
    SystemLog::log("helper refused to run %s: %s", launch.c_str(), decision.reason.c_str());
    return reply(false);
  }
  if (decision.tool == ToolPolicy::Tool::Purge) {
    // Flush the file systems, then drop the page, dentry and inode caches.
    ::sync();
    const UniqueFd caches(::open("/proc/sys/vm/drop_caches", O_WRONLY | O_CLOEXEC));
    return reply(caches && ::write(caches.get(), "3", 1) == 1);
  }
  std::vector<std::string> argv = {decision.program};
  argv.insert(argv.end(), decision.arguments.begin(), decision.arguments.end());
  const auto result = ProcessRunner::run(argv);
  return reply(result.status == 0, result.output);
}

// Sets the item's hidden flag in the list of the folder the safe walk reached, never by path:
// a link planted in the path since cannot redirect the write.
bool setHidden(const Parent& item, bool hidden) {
  return HiddenList(item.folder.get()).setHidden(item.name, hidden);
}

json createItem(std::string path, bool replace, bool folder, bool hidden) {
  auto parent = openParent(path);
  // A folder is made with the folders it needs; a file's folder must exist.
  if (!parent && !folder) return reply(false);
  struct stat st {};
  if (parent && existsAt(*parent, &st)) {
    if (S_ISDIR(st.st_mode) == folder && replace) {
      if (!folder) {
        const UniqueFd file(::openat(parent->folder.get(), parent->name.c_str(),
                                     O_WRONLY | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
        struct stat opened {};
        if (!file || ::fstat(file.get(), &opened) != 0 || !S_ISREG(opened.st_mode) ||
            ::ftruncate(file.get(), 0) != 0) {
          return reply(false);
        }
      }
      return setHidden(*parent, hidden) ? reply(true, path) : reply(false);
    }
    path = MonitorString::generateSolePath(path);
    parent = openParent(path);
    if (!parent) return reply(false);
  }
  bool created;
  if (folder) {
    created = makeFolders(path);
    if (created && !parent) parent = openParent(path);
  } else {
    const UniqueFd file(::openat(parent->folder.get(), parent->name.c_str(),
                                 O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
    created = file.ok();
  }
  if (!created) return reply(false);
  if (hidden && !(parent && setHidden(*parent, true))) return reply(false);
  return reply(true, path);
}

json transfer(const std::string& source, std::string destination, bool replace, bool copying,
              uid_t uid, gid_t gid) {
  auto from = openParent(source);
  if (!from || !existsAt(*from)) return reply(false);
  auto to = openParent(destination);
  if (!to) return reply(false);
  if (existsAt(*to)) {
    if (replace) {
      if (!removeAt(to->folder.get(), to->name.c_str())) return reply(false);
    } else {
      destination = MonitorString::generateSolePath(destination);
      to = openParent(destination);
      if (!to) return reply(false);
    }
  }
  bool done;
  if (copying) {
    done = copyAt(from->folder.get(), from->name.c_str(), to->folder.get(), to->name.c_str(), uid,
                  gid);
  } else {
    done =
        ::renameat(from->folder.get(), from->name.c_str(), to->folder.get(), to->name.c_str()) == 0;
    if (!done && errno == EXDEV) {
      struct stat st {};
      ::fstatat(from->folder.get(), from->name.c_str(), &st, AT_SYMLINK_NOFOLLOW);
      done = copyAt(from->folder.get(), from->name.c_str(), to->folder.get(), to->name.c_str(),
                    st.st_uid, st.st_gid) &&
             removeAt(from->folder.get(), from->name.c_str());
    }
  }
  return done ? reply(true, destination) : reply(false);
}

}  // namespace

json HelperService::handle(const json& request) {
  if (!request.is_object()) return reply(false);
  const auto command = integerAt(request, P::kCommandKey);
  if (!command) return reply(false);
  const auto path = stringAt(request, P::kPathKey);
  const auto pathOk = [&] { return path && path->size() <= kMaxPathBytes && (*path)[0] == '/'; };
  switch (*command) {
    case P::kCheck:
      return reply(true);
    case P::kMakeFile:
    case P::kMakeHiddenFile:
    case P::kMakeFolder:
    case P::kMakeHiddenFolder: {
      if (!pathOk()) return reply(false);
      const bool folder = *command >= P::kMakeFolder;
      const bool hidden = *command == P::kMakeHiddenFile || *command == P::kMakeHiddenFolder;
      return createItem(*path, replaceOf(request), folder, hidden);
    }
    case P::kRemove: {
      if (!pathOk()) return reply(false);
      auto parent = openParent(*path);
      return reply(parent && removeAt(parent->folder.get(), parent->name.c_str()));
    }
    case P::kMove:
    case P::kCopy: {
      const auto topath = stringAt(request, P::kToPathKey);
      if (!pathOk() || !topath || topath->size() > kMaxPathBytes) return reply(false);
      const bool copying = *command == P::kCopy;
      const auto uid = integerAt(request, P::kUidKey);
      const auto gid = integerAt(request, P::kGidKey);
      if (copying && (!uid || !gid || *uid < 0 || *gid < 0)) return reply(false);
      return transfer(*path, *topath, replaceOf(request), copying,
                      static_cast<uid_t>(uid.value_or(0)), static_cast<gid_t>(gid.value_or(0)));
    }
    case P::kHide:
    case P::kUnhide: {
      if (!pathOk()) return reply(false);
      auto parent = openParent(*path);
      return reply(parent && setHidden(*parent, *command == P::kHide));
    }
    case P::kChangeMode: {
      const auto launch = stringAt(request, P::kLaunchKey);
      const auto cmd = stringAt(request, P::kCmdKey);
      if (launch && cmd) return runTool(*launch, *cmd);  // archives travel with this code
      const auto mode = integerAt(request, P::kModeKey);
      if (!pathOk() || !mode || *mode < 0 || *mode > 07777) return reply(false);
      auto parent = openParent(*path);
      if (!parent) return reply(false);
      const UniqueFd item(
          ::openat(parent->folder.get(), parent->name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
      struct stat st {};
      if (!item || ::fstat(item.get(), &st) != 0 || S_ISLNK(st.st_mode)) return reply(false);
      // An O_PATH descriptor names the item itself; its /proc entry changes that item only.
      const std::string self = "/proc/self/fd/" + std::to_string(item.get());
      return reply(::chmod(self.c_str(), static_cast<mode_t>(*mode)) == 0);
    }
    case P::kChangeOwner: {
      const auto uid = integerAt(request, P::kUidKey);
      const auto gid = integerAt(request, P::kGidKey);
      if (!pathOk() || !uid || !gid || *uid < -1 || *gid < -1) return reply(false);
      auto parent = openParent(*path);
      return reply(parent &&
                   ::fchownat(parent->folder.get(), parent->name.c_str(), static_cast<uid_t>(*uid),
                              static_cast<gid_t>(*gid), AT_SYMLINK_NOFOLLOW) == 0);
    }
    case P::kRunTool: {
      const auto launch = stringAt(request, P::kLaunchKey);
      const auto cmd = stringAt(request, P::kCmdKey);
      if (!launch || !cmd) return reply(false);
      return runTool(*launch, *cmd);
    }
    default:
      return reply(false);
  }
}

}  // namespace vexa
