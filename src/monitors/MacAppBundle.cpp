#include "monitors/MacAppBundle.h"

#include <filesystem>

#include "util/AtomicFile.h"
#include "util/PropertyList.h"

namespace vexa {

namespace {

constexpr std::size_t kInfoLimit = 8u << 20;  // an Info.plist is a few KiB; refuse absurd ones

std::string withoutSlash(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

}  // namespace

bool MacAppBundle::hasBundleName(const std::string& path) {
  const std::string p = withoutSlash(path);
  return p.size() > 4 && p.compare(p.size() - 4, 4, ".app") == 0 && p[p.size() - 5] != '/';
}

std::unique_ptr<AppBundle> MacAppBundle::open(const std::string& path) {
  std::error_code ec;
  if (!std::filesystem::is_directory(path, ec)) return nullptr;
  auto bytes = AtomicFile::read(withoutSlash(path) + "/Contents/Info.plist", kInfoLimit);
  if (!bytes) return nullptr;
  auto info = PropertyList::parse(*bytes);
  if (!info || !info->is_object()) return nullptr;
  return std::unique_ptr<AppBundle>(new MacAppBundle(path, std::move(*info)));
}

std::optional<std::string> MacAppBundle::displayName() const {
  // File managers show a bundle by its name without the ".app".
  const std::string p = withoutSlash(path());
  const std::string name = p.substr(p.rfind('/') + 1);
  return name.substr(0, name.size() - 4);
}

std::optional<std::string> MacAppBundle::executablePath() const {
  std::string program = infoString("CFBundleExecutable").value_or("");
  if (program.empty() || program.find('/') != std::string::npos) {
    // Without the key the program is named after the bundle.
    program = *displayName();
  }
  const std::string candidate = withoutSlash(path()) + "/Contents/MacOS/" + program;
  std::error_code ec;
  if (!std::filesystem::is_regular_file(candidate, ec)) return std::nullopt;
  return candidate;
}

}  // namespace vexa
