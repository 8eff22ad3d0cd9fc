#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vexa {

// A monitor's cache of paths ("packagecache.dat", "downloadcache.dat"): a gzip-compressed
// binary property list {key: [path, ...]}. The codec is pure; the file operations block on the
// disk. Not thread-safe: the monitor orders its writes.
class PathListCache {
 public:
  enum class State { Missing, Undecodable, Read };
  struct Contents {
    State state = State::Missing;
    std::vector<std::string> paths;  // when Read; entries that are not strings are left out
  };

  // Neither the compressed file nor its inflated form may exceed this (a million long paths fit).
  static constexpr std::size_t kLimit = std::size_t{256} << 20;

  explicit PathListCache(std::string key) : key_(std::move(key)) {}

  std::optional<std::string> encode(const std::vector<std::string>& paths) const;
  std::optional<std::vector<std::string>> decode(std::string_view bytes) const;

  // Missing when nothing (or a dangling link) has the name; Undecodable when something does
  // that is not a cache: a folder, a pipe, a file over the limit or of other bytes. Never
  // blocks on a pipe planted as the file.
  Contents read(const std::string& file) const;
  // Replaces the file in one step, owner-only, after making `folder` a folder. False when
  // nothing was written.
  bool write(const std::string& folder, const std::string& file,
             const std::vector<std::string>& paths) const;

 private:
  std::string key_;
};

}  // namespace vexa
