#include "monitors/AppImageBundle.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "monitors/DesktopAppBundle.h"
#include "util/AtomicFile.h"
#include "util/PathName.h"
#include "util/ProcessRunner.h"
#include "util/ProgramPath.h"
#include "util/UniqueFd.h"

namespace vexa {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kEntryLimit = 1u << 20;

// Reads exactly `size` bytes at `offset`. The descriptor is opened close-on-exec and without
// blocking (a FIFO given an AppImage's name must not hang the reader): other threads spawn
// unsquashfs meanwhile.
bool readAt(const std::string& path, uint64_t offset, void* buffer, size_t size) {
  const UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!fd) return false;
  return ::pread(fd.get(), buffer, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size);
}

uint64_t readLE(const uint8_t* p, int bytes) {
  uint64_t v = 0;
  for (int i = bytes - 1; i >= 0; --i) v = (v << 8) | p[i];
  return v;
}

// Unpacks the named entries of the image's root (wildcards allowed) into `dest`.
bool unpack(const std::string& image, uint64_t offset, const std::string& dest,
            const std::vector<std::string>& entries) {
  static const auto unsquashfs = ProgramPath::find("unsquashfs");
  if (!unsquashfs) return false;
  std::vector<std::string> argv{
      *unsquashfs, "-q", "-n", "-f", "-no-xattrs", "-o", std::to_string(offset), "-d", dest, image};
  argv.insert(argv.end(), entries.begin(), entries.end());
  return ProcessRunner::run(argv).started;
}

// A root entry that is a link into the image (usr/share/applications/x.desktop) is unpacked
// again through its target, a few links deep at most.
std::optional<std::string> resolveInside(const std::string& image, uint64_t offset,
                                         const std::string& root, std::string relative) {
  for (int depth = 0; depth < 4; ++depth) {
    const fs::path file = fs::path(root) / relative;
    std::error_code ec;
    if (!fs::is_symlink(file, ec)) {
      if (PathName::isRegularFile(file)) return file.string();
      return std::nullopt;
    }
    fs::path target = fs::read_symlink(file, ec);
    if (ec) return std::nullopt;
    if (target.is_absolute()) return std::nullopt;  // points outside the image
    const fs::path normal = (fs::path(relative).parent_path() / target).lexically_normal();
    if (normal.empty() || *normal.begin() == "..") return std::nullopt;
    fs::remove(file, ec);
    if (!unpack(image, offset, root, {"/" + normal.string()})) return std::nullopt;
    relative = normal.string();
  }
  return std::nullopt;
}

}  // namespace

bool AppImageBundle::hasImageName(const std::string& path) {
  const std::string suffix = ".appimage";
  if (path.size() <= suffix.size()) return false;
  for (size_t i = 0; i < suffix.size(); ++i) {
    const char c = path[path.size() - suffix.size() + i];
    if (std::tolower(static_cast<unsigned char>(c)) != suffix[i]) return false;
  }
  return true;
}

bool AppImageBundle::hasMark(const std::string& path) {
  if (!hasImageName(path)) return false;
  char head[16] = {};
  if (!readAt(path, 0, head, sizeof head)) return false;
  return std::memcmp(head,
                     "\x7f"
                     "ELF",
                     4) == 0 &&
         head[8] == 'A' && head[9] == 'I' && (head[10] == 1 || head[10] == 2);
}

uint64_t AppImageBundle::imageOffset(const std::string& path) {
  uint8_t h[64] = {};
  if (!readAt(path, 0, h, sizeof h)) return 0;
  if (std::memcmp(h,
                  "\x7f"
                  "ELF",
                  4) != 0 ||
      h[5] != 1) {
    return 0;  // little-endian ELF only: AppImages are built that way
  }
  uint64_t end = 0;
  if (h[4] == 2) {
    end = readLE(h + 0x28, 8) + readLE(h + 0x3A, 2) * readLE(h + 0x3C, 2);
  } else if (h[4] == 1) {
    end = readLE(h + 0x20, 4) + readLE(h + 0x2E, 2) * readLE(h + 0x30, 2);
  }
  char magic[4] = {};
  if (end == 0 || !readAt(path, end, magic, 4) || std::memcmp(magic, "hsqs", 4) != 0) return 0;
  return end;
}

AppImageBundle::~AppImageBundle() {
  std::error_code ec;
  if (!scratch_.empty()) fs::remove_all(scratch_, ec);
}

std::unique_ptr<AppBundle> AppImageBundle::open(const std::string& path) {
  if (!hasMark(path)) return nullptr;
  const uint64_t offset = imageOffset(path);
  if (offset == 0) return nullptr;
  const char* tmp = std::getenv("TMPDIR");
  std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/vexa-appimage-XXXXXX";
  if (!::mkdtemp(pattern.data())) return nullptr;
  const std::string scratch = pattern;
  const std::string root = scratch + "/root";
  auto cleanup = [&] {
    std::error_code ec;
    fs::remove_all(scratch, ec);
  };
  if (!unpack(path, offset, root, {"/*.desktop", "/.DirIcon"})) {
    cleanup();
    return nullptr;
  }
  std::string entryName;
  std::error_code ec;
  for (const auto& item : fs::directory_iterator(root, ec)) {
    const std::string name = item.path().filename().string();
    if (DesktopAppBundle::hasEntryName(name)) {
      entryName = name;
      break;
    }
  }
  std::optional<DesktopEntry> entry;
  if (!entryName.empty()) {
    if (auto file = resolveInside(path, offset, root, entryName)) {
      if (auto text = AtomicFile::read(*file, kEntryLimit)) entry = DesktopEntry::parse(*text);
    }
  }
  if (!entry || !entry->isApplication()) {
    cleanup();
    return nullptr;
  }

  nlohmann::json info = nlohmann::json::object();
  info["CFBundleIdentifier"] = entryName.substr(0, entryName.size() - 8);
  if (auto name = entry->value("Name")) info["CFBundleName"] = *name;
  for (const char* key : {"X-AppImage-Version", "X-AppVersion", "Version"}) {
    if (auto version = entry->value(key)) {
      info["CFBundleShortVersionString"] = *version;
      break;
    }
  }
  info["CFBundleExecutable"] = path;
  // The icon sits at the root under the entry's Icon name; .DirIcon is the image's own icon.
  std::optional<std::string> icon;
  if (auto iconName = entry->value("Icon");
      iconName && !iconName->empty() && iconName->find('/') == std::string::npos) {
    for (const char* ext : {".png", ".svg", ".xpm"}) {
      unpack(path, offset, root, {"/" + *iconName + ext});
      if ((icon = resolveInside(path, offset, root, *iconName + ext))) break;
    }
  }
  if (!icon) icon = resolveInside(path, offset, root, ".DirIcon");
  if (icon) info["CFBundleIconFile"] = *icon;

  return std::unique_ptr<AppBundle>(new AppImageBundle(
      path, std::move(info), entry->localized("Name", DesktopEntry::userLocales()), scratch));
}

std::optional<std::string> AppImageBundle::displayName() const { return display_; }

}  // namespace vexa
