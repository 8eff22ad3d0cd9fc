#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include <map>

#include <nlohmann/json.hpp>

#include "support/TempDir.h"
#include "util/PropertyList.h"
#include "vexa/util/Image.h"
#include "vexa/util/MonitorData.h"

namespace vexa::test {

// The header of a Mach-O executable: thin for one CPU type, universal for several.
inline std::string machOHeader(const std::vector<uint32_t>& cpuTypes) {
  std::string out;
  auto be32 = [&](uint32_t v) {
    for (int shift = 24; shift >= 0; shift -= 8) out += static_cast<char>((v >> shift) & 0xff);
  };
  auto le32 = [&](uint32_t v) {
    for (int shift = 0; shift <= 24; shift += 8) out += static_cast<char>((v >> shift) & 0xff);
  };
  if (cpuTypes.size() == 1) {
    le32(0xfeedfacf);  // 64-bit magic as stored by a little-endian machine
    le32(cpuTypes[0]);
    le32(3);
    le32(2);
    out.resize(32, '\0');
    return out;
  }
  be32(0xcafebabe);
  be32(static_cast<uint32_t>(cpuTypes.size()));
  for (uint32_t type : cpuTypes) {
    be32(type);
    be32(3);
    be32(4096);
    be32(4096);
    be32(12);
  }
  return out;
}

struct BundleRecipe {
  std::string identifier = "com.example.Editor";
  std::string name = "Editor";
  std::string version = "2.1";
  std::string minimumSystem;                   // "Minimum system version" when not empty
  std::string iconFile;                        // CFBundleIconFile when not empty
  std::vector<uint32_t> cpuTypes{0x01000007};  // of Contents/MacOS/<name>
};

// A ".app" bundle with an XML Info.plist, its program, and the icon file when one is named.
inline std::string makeBundle(const TempDir& dir, const std::string& relative,
                              const BundleRecipe& recipe = {}) {
  std::string plist = R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict>)";
  auto key = [&](const std::string& k, const std::string& v) {
    if (!v.empty()) plist += "<key>" + k + "</key><string>" + v + "</string>";
  };
  key("CFBundleIdentifier", recipe.identifier);
  key("CFBundleName", recipe.name);
  key("CFBundleShortVersionString", recipe.version);
  key("CFBundleExecutable", recipe.name);
  key("Minimum system version", recipe.minimumSystem);
  key("CFBundleIconFile", recipe.iconFile);
  plist += "</dict></plist>\n";
  dir.write(relative + "/Contents/Info.plist", plist);
  dir.write(relative + "/Contents/MacOS/" + recipe.name, machOHeader(recipe.cpuTypes));
  return dir / relative;
}

// A desktop entry of an application whose program is this machine's shell.
inline std::string makeDesktopEntry(const TempDir& dir, const std::string& relative,
                                    const std::string& name = "Viewer",
                                    const std::string& extra = "") {
  return dir.write(
      relative, "[Desktop Entry]\nType=Application\nName=" + name + "\nExec=/bin/sh %U\n" + extra);
}

// A PNG picture of the given size.
inline std::string makePng(const TempDir& dir, const std::string& relative, int width, int height) {
  std::filesystem::create_directories(std::filesystem::path(dir / relative).parent_path());
  Image::filled(width, height, 0x3366ccff)->writePNG(dir / relative);
  return dir / relative;
}

}  // namespace vexa::test

namespace vexa::test {

// An AppImage built the way the tooling does: an ELF program (this machine's "true") marked as
// AppImage type 2, followed by a squashfs image of an AppDir whose root holds a link to the
// desktop entry and the icon. Empty when mksquashfs is not installed.
inline std::string makeAppImage(const TempDir& dir, const std::string& relative,
                                const std::string& entryExtra = "") {
  const std::string appDir =
      dir.mkdir("appdir-" + std::to_string(std::hash<std::string>{}(relative)));
  std::filesystem::create_directories(appDir + "/usr/share/applications");
  std::ofstream(appDir + "/usr/share/applications/org.example.Viewer.desktop")
      << "[Desktop Entry]\nType=Application\nName=Viewer\nIcon=viewer\n"
         "X-AppImage-Version=4.0.1\nExec=viewer\n"
      << entryExtra;
  std::filesystem::create_symlink("usr/share/applications/org.example.Viewer.desktop",
                                  appDir + "/org.example.Viewer.desktop");
  Image::filled(96, 96, 0xcc3366ff)->writePNG(appDir + "/viewer.png");
  std::filesystem::create_symlink("viewer.png", appDir + "/.DirIcon");
  const std::string image = dir / (relative + ".squashfs");
  const std::string command = "mksquashfs '" + appDir + "' '" + image +
                              "' -quiet -no-progress -noappend -all-root >/dev/null 2>&1";
  if (std::system(command.c_str()) != 0) return "";
  std::string program = readFile("/bin/true");
  program[8] = 'A';
  program[9] = 'I';
  program[10] = 2;
  return dir.write(relative, program + readFile(image),
                   std::filesystem::perms::owner_all | std::filesystem::perms::group_read);
}

}  // namespace vexa::test

namespace vexa::test {

// An application cache file's records by path; empty when it cannot be read.
inline std::map<std::string, nlohmann::json> readAppCache(const std::string& file) {
  std::map<std::string, nlohmann::json> out;
  const std::string packed = readFile(file);
  auto archive = MonitorData::ungzipData(
      std::span(reinterpret_cast<const uint8_t*>(packed.data()), packed.size()));
  if (!archive) return out;
  auto root = PropertyList::parse(std::span<const uint8_t>(archive->data(), archive->size()));
  if (!root || !root->contains("InstallApp")) return out;
  for (const auto& [path, text] : (*root)["InstallApp"].items()) {
    if (text.is_string())
      out[path] = nlohmann::json::parse(text.get<std::string>(), nullptr, false);
  }
  return out;
}

}  // namespace vexa::test
