#pragma once

#include <algorithm>
#include <string>
#include <vector>

namespace vexa {

// The watchers' lists of paths: ordered, each path at most once.
class PathList {
 public:
  static bool contains(const std::vector<std::string>& list, const std::string& path) {
    return std::find(list.begin(), list.end(), path) != list.end();
  }
  // False when the path was there already.
  static bool add(std::vector<std::string>& list, const std::string& path) {
    if (contains(list, path)) return false;
    list.push_back(path);
    return true;
  }
  static void remove(std::vector<std::string>& list, const std::string& path) {
    list.erase(std::remove(list.begin(), list.end(), path), list.end());
  }
};

}  // namespace vexa
