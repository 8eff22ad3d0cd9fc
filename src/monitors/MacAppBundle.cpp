#include "monitors/MacAppBundle.h"

#include "util/AtomicFile.h"
#include "util/PathName.h"
#include "util/PropertyList.h"

namespace vexa {

namespace {

constexpr std::size_t kInfoLimit = 8u << 20;  // an Info.plist is a few KiB; refuse absurd ones

}  // namespace

bool MacAppBundle::hasBundleName(const std::string& path) {
  const std::string name = PathName::lastComponent(path);
  return name.size() > 4 && name.compare(name.size() - 4, 4, ".app") == 0;
}

std::unique_ptr<AppBundle> MacAppBundle::open(const std::string& path) {
  if (!PathName::isFolder(path)) return nullptr;
  auto bytes =
      AtomicFile::read(PathName::withoutTrailingSlashes(path) + "/Contents/Info.plist", kInfoLimit);
  if (!bytes) return nullptr;
  auto info = PropertyList::parse(*bytes);
  if (!info || !info->is_object()) return nullptr;
  return std::unique_ptr<AppBundle>(new MacAppBundle(path, std::move(*info)));
}

std::optional<std::string> MacAppBundle::displayName() const {
  // File managers show a bundle by its name without the ".app".
  const std::string name = PathName::lastComponent(path());
  return name.substr(0, name.size() - 4);
}

std::optional<std::string> MacAppBundle::executablePath() const {
  std::string program = infoString("CFBundleExecutable").value_or("");
  if (program.empty() || program.find('/') != std::string::npos) {
    // Without the key the program is named after the bundle.
    program = *displayName();
  }
  const std::string candidate =
      PathName::withoutTrailingSlashes(path()) + "/Contents/MacOS/" + program;
  if (!PathName::isRegularFile(candidate)) return std::nullopt;
  return candidate;
}

}  // namespace vexa
