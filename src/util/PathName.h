#pragma once

#include <string>
#include <string_view>

namespace vexa {

// The path helpers every subsystem shares. The text helpers never touch the file system; the
// others say whether they follow a symbolic link at the end of the path.
class PathName {
 public:
  // "/a/b//" -> "/a/b". "/" stays "/" and "" stays "".
  static std::string withoutTrailingSlashes(std::string path);
  // The last component, trailing slashes ignored: "/a/Editor.app/" -> "Editor.app"; "/" -> "/".
  static std::string lastComponent(std::string_view path);
  // The folder holding the last component: "/a/b/" -> "/a", "/a" -> "/", "a" -> ".".
  static std::string parent(std::string_view path);
  // Whether `path` is `folder` or lies inside it, at a component boundary ("/ab" is not within
  // "/a"). Trailing slashes of either are ignored.
  static bool isWithin(std::string_view path, std::string_view folder);
  static bool hasPrefix(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
  }

  // What the path names, links followed: a link to a missing target does not exist.
  static bool exists(const std::string& path);
  static bool isFolder(const std::string& path);
  static bool isRegularFile(const std::string& path);
  // The entry itself, links not followed: a dangling link exists; a link to a folder is not a
  // folder.
  static bool entryExists(const std::string& path);
  static bool isFolderEntry(const std::string& path);
};

}  // namespace vexa
