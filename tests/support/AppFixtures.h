#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/TempDir.h"
#include "vexa/util/Image.h"

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

struct BundleSpec {
  std::string identifier = "com.example.Editor";
  std::string name = "Editor";
  std::string version = "2.1";
  std::string minimumSystem;                   // "Minimum system version" when not empty
  std::string iconFile;                        // CFBundleIconFile when not empty
  std::vector<uint32_t> cpuTypes{0x01000007};  // of Contents/MacOS/<name>
};

// A ".app" bundle with an XML Info.plist, its program, and the icon file when one is named.
inline std::string makeBundle(const TempDir& dir, const std::string& relative,
                              const BundleSpec& spec = {}) {
  std::string plist = R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict>)";
  auto key = [&](const std::string& k, const std::string& v) {
    if (!v.empty()) plist += "<key>" + k + "</key><string>" + v + "</string>";
  };
  key("CFBundleIdentifier", spec.identifier);
  key("CFBundleName", spec.name);
  key("CFBundleShortVersionString", spec.version);
  key("CFBundleExecutable", spec.name);
  key("Minimum system version", spec.minimumSystem);
  key("CFBundleIconFile", spec.iconFile);
  plist += "</dict></plist>\n";
  dir.write(relative + "/Contents/Info.plist", plist);
  dir.write(relative + "/Contents/MacOS/" + spec.name, machOHeader(spec.cpuTypes));
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
