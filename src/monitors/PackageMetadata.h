#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vexa {

// Pure readers of the package managers' metadata texts: the dpkg status file, AppStream
// metainfo and snap.yaml. Each takes the text, never a path, and tolerates any bytes.
class PackageMetadata {
 public:
  // One installed package of the dpkg status file.
  struct DpkgPackage {
    std::string name;
    std::string architecture;  // empty when the stanza has none
    std::optional<std::string> version;
    std::optional<uint64_t> installedKiB;  // "Installed-Size", in KiB
  };

  // The stanzas whose Status is "install ok installed", in file order. Stanzas without a
  // Package field, and a truncated last stanza's missing fields, are skipped or left empty.
  static std::vector<DpkgPackage> parseDpkgStatus(std::string_view text);

  // The absolute paths a dpkg "PACKAGE.list" names, one a line; views into `text`.
  static std::vector<std::string_view> listedPaths(std::string_view text);

  // The upstream part of a Debian version: without the epoch ("1:") and without the Debian
  // revision (after the last "-"). "1:2.5.1-3" -> "2.5.1", "2.0~rc1-1" -> "2.0~rc1".
  static std::string upstreamVersion(std::string_view version);

  // The version attribute of the first <release> element of an AppStream metainfo text;
  // empty when there is none (or the text is not XML at all).
  static std::optional<std::string> firstReleaseVersion(std::string_view xml);

  // The top-level "version:" of a snap.yaml text, quotes removed.
  static std::optional<std::string> snapVersion(std::string_view yaml);
};

}  // namespace vexa
