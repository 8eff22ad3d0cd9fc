#include "vexa/privileged/BrindleUtility.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <mutex>

#include "privileged/HelperTransport.h"
#include "privileged/PlatformFiles.h"
#include "util/PathName.h"
#include "util/ProcessRunner.h"
#include "util/UniqueFd.h"
#include "vexa/util/Image.h"
#include "vexa/util/MonitorString.h"
#include "vexa/util/SystemLog.h"

#ifndef VEXA_HELPER_INSTALLER
#define VEXA_HELPER_INSTALLER "/usr/local/libexec/vexamonitor/install-helper"
#endif

namespace vexa {

namespace fs = std::filesystem;
using nlohmann::json;
using P = HelperProtocol;

namespace {

std::mutex& transportMutex() {
  static std::mutex* m = new std::mutex;
  return *m;
}

std::shared_ptr<HelperTransport>& transportSlot() {
  static auto* slot = new std::shared_ptr<HelperTransport>;
  return *slot;
}

std::shared_ptr<HelperTransport> transport() {
  std::lock_guard lock(transportMutex());
  if (!transportSlot()) transportSlot() = makePlatformHelperTransport();
  return transportSlot();
}

std::string joined(const std::vector<std::string>& parts) {
  std::string out;
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i) out += P::kArgumentSeparator;
    out += parts[i];
  }
  return out;
}

struct Reply {
  bool result = false;
  std::optional<std::string> object;
};

// Asks the helper, but only when it answers the connection check.
std::optional<Reply> askHelper(const json& request) {
  if (!BrindleUtility::checkHelperConnect()) return std::nullopt;
  std::optional<Reply> answer;
  BrindleUtility::sendMessage(request, [&](bool result, const std::optional<std::string>& object) {
    answer = Reply{result, object};
  });
  return answer;
}

bool helperResult(const json& request) {
  auto reply = askHelper(request);
  return reply && reply->result;
}

std::optional<std::string> helperPath(const json& request) {
  auto reply = askHelper(request);
  if (!reply || !reply->result) return std::nullopt;
  return reply->object;
}

bool moveLocally(const std::string& source, const std::string& destination) {
  std::error_code ec;
  fs::rename(source, destination, ec);
  if (!ec) return true;
  if (ec != std::errc::cross_device_link) return false;
  fs::copy(source, destination, fs::copy_options::recursive | fs::copy_options::copy_symlinks, ec);
  if (ec) return false;
  return fs::remove_all(source, ec) != static_cast<std::uintmax_t>(-1) && !ec;
}

bool copyLocally(const std::string& source, const std::string& destination) {
  std::error_code ec;
  fs::copy(source, destination, fs::copy_options::recursive | fs::copy_options::copy_symlinks, ec);
  return !ec;
}

// move and copy share their rules: a free name or a replaced destination, then the helper.
std::optional<std::string> transfer(const std::string& source, std::string destination,
                                    bool replace, bool copying) {
  // A link is moved or copied as a link, and a link in the way is replaced or avoided.
  if (!PathName::entryExists(source)) return std::nullopt;
  bool local = true;
  if (PathName::entryExists(destination)) {
    if (replace) {
      std::error_code ec;
      fs::remove_all(destination, ec);
      local = !ec;
    } else {
      destination = MonitorString::generateSolePath(destination);
    }
  }
  if (local && (copying ? copyLocally(source, destination) : moveLocally(source, destination))) {
    return destination;
  }
  json request = {{P::kCommandKey, copying ? P::kCopy : P::kMove},
                  {P::kPathKey, source},
                  {P::kToPathKey, destination},
                  {P::kReplaceKey, replace}};
  if (copying) {
    request[P::kUidKey] = static_cast<int64_t>(getuid());
    request[P::kGidKey] = static_cast<int64_t>(getgid());
  }
  return helperPath(request);
}

// mkdir and mkfile with or without hiding: `folder` chooses which, `hidden` whether the item
// ends up hidden.
std::optional<std::string> make(std::string path, bool replace, bool folder, bool hidden) {
  const auto setFlag = [&](const std::string& p) {
    return hidden ? BrindleUtility::hide(p) : BrindleUtility::unHide(p);
  };
  // An item already there is looked at itself: a link is never taken for what it leads to.
  if (PathName::entryExists(path)) {
    if (PathName::isFolderEntry(path) == folder && replace) {
      if (!folder) {
        std::error_code ec;
        fs::resize_file(path, 0, ec);
        if (ec) return std::nullopt;
      }
      return setFlag(path) ? std::optional(path) : std::nullopt;
    }
    path = MonitorString::generateSolePath(path);
  }
  bool created;
  if (folder) {
    std::error_code ec;
    fs::create_directories(path, ec);
    created = !ec && PathName::isFolder(path);
  } else {
    created = UniqueFd(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644)).ok();
  }
  if (!created) {
    const int64_t code = folder ? (hidden ? P::kMakeHiddenFolder : P::kMakeFolder)
                                : (hidden ? P::kMakeHiddenFile : P::kMakeFile);
    return helperPath({{P::kCommandKey, code}, {P::kPathKey, path}, {P::kReplaceKey, replace}});
  }
  if (hidden && !BrindleUtility::hide(path)) return std::nullopt;
  return path;
}

// Makes `folder` ready to receive an archive's contents.
std::string prepareFolder(const std::string& archive, std::string folder) {
  if (folder.empty()) folder = PathName::parent(archive);
  // A link to a folder is unpacked into, and kept; anything else in the way is replaced.
  if (!PathName::isFolder(folder)) {
    if (PathName::entryExists(folder)) BrindleUtility::remove(folder);
    BrindleUtility::mkdir(folder, true);
  }
  return folder;
}

}  // namespace

void BrindleUtility::setHelperTransport(std::shared_ptr<HelperTransport> transport) {
  std::lock_guard lock(transportMutex());
  transportSlot() = std::move(transport);
}

bool BrindleUtility::blessHelperWithLabel(const std::string& label, std::string* error) {
  auto fail = [&](const std::string& why) {
    if (error) *error = why;
    return false;
  };
  if (label != kHelperLabel) return fail("unknown helper label " + label);
  if (const auto current = transport(); current && current->isPrivateBus()) {
    return fail("the helper runs on a private bus; nothing to install");
  }
  if (::access(VEXA_HELPER_INSTALLER, X_OK) != 0) {
    return fail(std::string("no helper installer at ") + VEXA_HELPER_INSTALLER);
  }
  // Administrator rights: run as root directly, otherwise ask polkit through pkexec.
  std::vector<std::string> argv = {VEXA_HELPER_INSTALLER};
  if (geteuid() != 0) argv.insert(argv.begin(), "/usr/bin/pkexec");
  const auto result = ProcessRunner::run(argv);
  if (!result.started) return fail("cannot run " + argv.front());
  if (result.status != 0) return fail("installation refused or failed");
  return true;
}

bool BrindleUtility::helperInstaller() {
  std::string error;
  if (blessHelperWithLabel(kHelperLabel, &error)) {
    SystemLog::log("Job is available!");
    return true;
  }
  SystemLog::log("Something went wrong! %s / %d", error.c_str(), 1);
  return false;
}

void BrindleUtility::sendMessage(const json& request, const ReplyBlock& reply) {
  const auto current = transport();
  HelperTransport::Outcome outcome;
  if (current) {
    outcome = current->send(request);
  } else {
    outcome.failure = HelperTransport::Failure::NoConnection;
  }
  switch (outcome.failure) {
    case HelperTransport::Failure::None:
      break;
    case HelperTransport::Failure::NoConnection:
      SystemLog::log("Failed to create XPC connection.");
      return;
    case HelperTransport::Failure::Interrupted:
      SystemLog::log("XPC connection interupted.");
      return;
    case HelperTransport::Failure::Invalid:
      SystemLog::log("XPC connection invalid, releasing.");
      helperInstaller();
      return;
    case HelperTransport::Failure::Other:
      SystemLog::log("Unexpected XPC connection error.");
      return;
  }
  if (!outcome.reply || !reply) return;
  const json& answer = *outcome.reply;
  const auto result = answer.find(P::kResultKey);
  const auto object = answer.find(P::kObjectKey);
  reply(result != answer.end() && result->is_boolean() && result->get<bool>(),
        object != answer.end() && object->is_string() ? std::optional(object->get<std::string>())
                                                      : std::nullopt);
}

bool BrindleUtility::checkHelperConnect() {
  bool answered = false;
  sendMessage({{P::kCommandKey, kCheck}},
              [&](bool result, const std::optional<std::string>&) { answered = result; });
  return answered;
}

bool BrindleUtility::remove(const std::string& path) {
  if (!PathName::entryExists(path)) return true;
  std::error_code ec;
  fs::remove_all(path, ec);
  if (!ec) return true;
  return helperResult({{P::kCommandKey, kRemove}, {P::kPathKey, path}});
}

std::optional<std::string> BrindleUtility::move(const std::string& source,
                                                const std::string& destination, bool replace) {
  return transfer(source, destination, replace, false);
}

std::optional<std::string> BrindleUtility::copy(const std::string& source,
                                                const std::string& destination, bool replace) {
  return transfer(source, destination, replace, true);
}

bool BrindleUtility::moveToTrash(const std::string& path) {
  if (!PathName::entryExists(path)) return false;
  if (platformMoveToTrash(path)) return true;
  auto trash = MonitorString::userTrashPath();
  if (!trash) return false;
  return helperResult({{P::kCommandKey, kMove},
                       {P::kPathKey, path},
                       {P::kToPathKey, *trash + "/" + PathName::lastComponent(path)},
                       {P::kReplaceKey, false}});
}

std::optional<std::string> BrindleUtility::mkdir(const std::string& path, bool replace) {
  return make(path, replace, true, false);
}

std::optional<std::string> BrindleUtility::mkHideDir(const std::string& path, bool replace) {
  return make(path, replace, true, true);
}

std::optional<std::string> BrindleUtility::mkfile(const std::string& path, bool replace) {
  return make(path, replace, false, false);
}

std::optional<std::string> BrindleUtility::mkHideFile(const std::string& path, bool replace) {
  return make(path, replace, false, true);
}

bool BrindleUtility::hide(const std::string& path) {
  if (!PathName::entryExists(path)) return false;
  if (MonitorString::pathInvisibility(path, true)) return true;
  return helperResult({{P::kCommandKey, kHide}, {P::kPathKey, path}});
}

bool BrindleUtility::unHide(const std::string& path) {
  if (!PathName::entryExists(path)) return false;
  if (MonitorString::pathInvisibility(path, false)) return true;
  return helperResult({{P::kCommandKey, kUnhide}, {P::kPathKey, path}});
}

bool BrindleUtility::chown(const std::string& path, int64_t uid, int64_t gid) {
  if (!PathName::entryExists(path)) return false;  // the link itself changes owner
  if (::lchown(path.c_str(), static_cast<uid_t>(uid), static_cast<gid_t>(gid)) == 0) return true;
  return helperResult(
      {{P::kCommandKey, kChangeOwner}, {P::kPathKey, path}, {P::kUidKey, uid}, {P::kGidKey, gid}});
}

bool BrindleUtility::chmod(const std::string& path, int64_t mode) {
  if (!PathName::exists(path)) return false;  // a link has no mode of its own
  if (::chmod(path.c_str(), static_cast<mode_t>(mode)) == 0) return true;
  return helperResult({{P::kCommandKey, kChangeMode}, {P::kPathKey, path}, {P::kModeKey, mode}});
}

std::string BrindleUtility::modeString(const std::string& user, const std::string& group,
                                       const std::string& other) {
  std::string mode = "u=" + user;
  mode += ",g=" + group;
  mode += ",o=" + other;
  return mode;
}

bool BrindleUtility::chmode(const std::string& path, const std::string& user,
                            const std::string& group, const std::string& other) {
  const std::string mode = modeString(user, group, other);
  if (ProcessRunner::run({"/bin/chmod", "-R", mode, path}).status == 0) return true;
  return helperResult({{P::kCommandKey, kRunTool},
                       {P::kLaunchKey, "/bin/chmod"},
                       {P::kCmdKey, joined({"-R", mode, path})}});
}

bool BrindleUtility::purge() {
  return helperResult(
      {{P::kCommandKey, kRunTool}, {P::kLaunchKey, P::kPurgeTool}, {P::kCmdKey, ""}});
}

bool BrindleUtility::unpark(const std::string& archive, const std::string& type,
                            const std::string& folder) {
  if (!PathName::exists(archive)) return false;
  const std::string target = prepareFolder(archive, folder);
  std::vector<std::string> argv;
  if (type == "zip") {
    argv = {"/usr/bin/unzip", archive, "-d", target};
  } else {
    static const std::pair<const char*, const char*> kTar[] = {{"tar", "-xvf"},
                                                               {"tar.gz", "-xzvf"},
                                                               {"tar.bz2", "-xjvf"},
                                                               {"tar.Z", "-xZvf"},
                                                               {"tar.xz", "-Jxvf"}};
    for (auto [name, option] : kTar) {
      if (type == name) argv = {"/usr/bin/tar", option, archive, "-C", target};
    }
  }
  if (argv.empty()) return false;
  if (ProcessRunner::run(argv).status == 0) return true;
  // Archive requests travel with code 10, as the helper protocol has always had them.
  return helperResult(
      {{P::kCommandKey, kChangeMode},
       {P::kLaunchKey, argv.front()},
       {P::kCmdKey, joined(std::vector<std::string>(argv.begin() + 1, argv.end()))}});
}

bool BrindleUtility::unpark(const std::string& archive, const std::string& relativePath,
                            const std::string& options, const std::string& folder) {
  if (!PathName::exists(archive)) return false;
  const std::string target = prepareFolder(archive, folder);
  std::vector<std::string> argv = {"/usr/bin/tar", options, archive};
  if (!relativePath.empty()) argv.push_back(relativePath);
  ProcessRunner::run(argv, std::nullopt, target);
  return true;
}

bool BrindleUtility::thinBinary(const std::string& binary, const std::string& architecture,
                                const std::string& lipo) {
  if (!PathName::exists(binary) || !PathName::exists(lipo)) return false;
  const std::vector<std::string> arguments = {binary, "-thin", architecture, "-output", binary};
  std::vector<std::string> argv = {lipo};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  if (ProcessRunner::run(argv).status == 0) return true;
  return helperResult(
      {{P::kCommandKey, kRunTool}, {P::kLaunchKey, lipo}, {P::kCmdKey, joined(arguments)}});
}

bool BrindleUtility::runTask(const std::string& tool,
                             const std::optional<std::vector<std::string>>& arguments,
                             const std::optional<std::vector<std::string>>& filters,
                             std::string* output) {
  std::vector<std::string> argv = {tool};
  if (arguments) argv.insert(argv.end(), arguments->begin(), arguments->end());
  std::optional<std::vector<std::string>> grep;
  if (filters && !filters->empty()) {
    grep = std::vector<std::string>{"/usr/bin/grep"};
    grep->insert(grep->end(), filters->begin(), filters->end());
  }
  const auto result = ProcessRunner::run(argv, grep);
  if (result.status != 0) return false;
  if (output) *output = result.output;
  return true;
}

std::shared_ptr<Image> BrindleUtility::createThumbnailWithImage(const std::shared_ptr<Image>& image,
                                                                int length) {
  if (!image) return nullptr;
  const int w = image->width(), h = image->height();
  if (w > h) {
    const int other = static_cast<int>(static_cast<int64_t>(length) * h / w);
    return scalingImage(image, length, other == 0 ? h : other);
  }
  const int other = static_cast<int>(static_cast<int64_t>(length) * w / h);
  return scalingImage(image, other == 0 ? w : other, length);
}

std::shared_ptr<Image> BrindleUtility::scalingImage(const std::shared_ptr<Image>& image, int width,
                                                    int height) {
  return image ? image->scaled(width, height) : nullptr;
}

std::optional<json> BrindleUtility::attributesOfApp(const std::string& path) {
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0) return std::nullopt;
  const char* type = S_ISDIR(st.st_mode)   ? "NSFileTypeDirectory"
                     : S_ISLNK(st.st_mode) ? "NSFileTypeSymbolicLink"
                     : S_ISREG(st.st_mode) ? "NSFileTypeRegular"
                                           : "NSFileTypeUnknown";
  json attributes = {
      {"NSFileSize", static_cast<uint64_t>(st.st_size)},
      {"NSFileModificationDate", static_cast<double>(st.st_mtim.tv_sec) + st.st_mtim.tv_nsec / 1e9},
      {"NSFileOwnerAccountID", static_cast<uint64_t>(st.st_uid)},
      {"NSFileGroupOwnerAccountID", static_cast<uint64_t>(st.st_gid)},
      {"NSFilePosixPermissions", static_cast<uint64_t>(st.st_mode & 07777)},
      {"NSFileType", type}};
  struct statx sx {};
  if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BTIME, &sx) == 0 &&
      (sx.stx_mask & STATX_BTIME)) {
    attributes["NSFileCreationDate"] =
        static_cast<double>(sx.stx_btime.tv_sec) + sx.stx_btime.tv_nsec / 1e9;
  }
  return attributes;
}

}  // namespace vexa
