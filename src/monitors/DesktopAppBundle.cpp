#include "monitors/DesktopAppBundle.h"

#include "util/AtomicFile.h"
#include "util/DesktopEntryFolders.h"
#include "util/IconTheme.h"
#include "util/PathName.h"
#include "util/ProgramPath.h"

namespace vexa {

namespace {

constexpr std::size_t kEntryLimit = 1u << 20;
constexpr const char* kSuffix = ".desktop";

}  // namespace

bool DesktopAppBundle::hasEntryName(const std::string& path) {
  const std::string name = PathName::lastComponent(path);
  return name.size() > 8 && name.compare(name.size() - 8, 8, kSuffix) == 0;
}

nlohmann::json DesktopAppBundle::infoOf(const DesktopEntry& entry, const std::string& path) {
  nlohmann::json info = nlohmann::json::object();
  std::string id = DesktopEntryFolders::fileIdOf(path);
  id.resize(id.size() - 8);  // without ".desktop"
  info["CFBundleIdentifier"] = id;
  if (auto name = entry.value("Name")) info["CFBundleName"] = *name;
  // "Version" is the version of the desktop entry format, never the application's.
  if (auto version = entry.value("X-AppVersion")) info["CFBundleShortVersionString"] = *version;
  if (auto program = entry.executable()) info["CFBundleExecutable"] = *program;
  if (auto icon = entry.value("Icon")) {
    // The icon as the theme resolves it, so the record filler finds a file with an extension.
    if (auto file = IconTheme::lookup(*icon)) info["CFBundleIconFile"] = *file;
  }
  return info;
}

std::optional<DesktopEntry> DesktopAppBundle::readApplicationEntry(const std::string& path) {
  if (!hasEntryName(path)) return std::nullopt;
  auto text = AtomicFile::read(path, kEntryLimit);
  if (!text) return std::nullopt;
  auto entry = DesktopEntry::parse(*text);
  if (!entry || !entry->isApplication() || entry->isHidden() || entry->noDisplay()) {
    return std::nullopt;
  }
  return entry;
}

std::unique_ptr<AppBundle> DesktopAppBundle::open(const std::string& path) {
  auto entry = readApplicationEntry(path);
  if (!entry) return nullptr;
  auto display = entry->localized("Name", DesktopEntry::userLocales());
  std::optional<std::string> program;
  if (auto exe = entry->executable()) program = ProgramPath::find(*exe);
  return std::unique_ptr<AppBundle>(
      new DesktopAppBundle(path, infoOf(*entry, path), std::move(display), std::move(program)));
}

std::optional<std::string> DesktopAppBundle::displayName() const { return display_; }

std::optional<std::string> DesktopAppBundle::executablePath() const { return program_; }

}  // namespace vexa
