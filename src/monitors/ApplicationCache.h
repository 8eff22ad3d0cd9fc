#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "vexa/monitors/AppFile.h"

namespace vexa {

// The installed-application monitor's cache file, "appcache.dat": a gzip-compressed binary
// property list {"InstallApp": {path: the record as JSON text}}.
//
// Records are shared immutable values, so a snapshot of the monitor's table can be encoded
// without its lock. The codec is pure; the file operations block on the disk and are meant to
// run without any lock a file event waits for. An object orders the writes of one monitor.
class ApplicationCache {
 public:
  using Records = std::map<std::string, std::shared_ptr<const AppFile>>;

  static constexpr const char* kKey = "InstallApp";
  // Neither the compressed file nor its inflated form may exceed this.
  static constexpr std::size_t kLimit = std::size_t{256} << 20;

  // The file's bytes; empty when the records cannot be encoded.
  static std::optional<std::string> encode(const Records& records);
  // The records of a cache file's bytes; a record that does not decode is left out. Empty when
  // the bytes are not a cache.
  static std::optional<Records> decode(std::string_view bytes);

  // The records of `file`; empty when it is missing, not a regular file, over the limit or not
  // a cache.
  static std::optional<Records> read(const std::string& file);
  // Replaces `file` in one step (a reader, or a crash, leaves the old cache or the new one),
  // owner-only, in `folder` (see makeFolder). False when nothing was written.
  static bool write(const std::string& folder, const std::string& file, const Records& records);
  // Where a monitor keeps its cache unless told otherwise: the library's cache folder, else
  // this application's folder in $XDG_CACHE_HOME.
  static std::string defaultFolder();
  // Makes `folder` a folder: made with its parents when missing, replaced when something else
  // (a file, a dangling link) has its name. True when it is one.
  static bool makeFolder(const std::string& folder);

  // Returns once the snapshot numbered `generation` (numbers grow with each change of the
  // table), or one numbered later, is on disk. One write at a time, always of the latest
  // snapshot given: callers that come while a write is under way leave theirs and wait, and
  // one of them writes the newest, so a burst of changes costs two writes, not one per change.
  // Safe from any thread.
  void store(const std::string& folder, const std::string& file, const Records& snapshot,
             uint64_t generation);

 private:
  std::mutex mutex_;  // guards the fields below
  std::condition_variable written_;
  uint64_t stored_ = 0;  // on disk, or given up on (the write failed)
  bool writing_ = false;
  // The newest snapshot not yet written, with where it goes.
  uint64_t pendingGeneration_ = 0;
  Records pending_;
  std::string pendingFolder_, pendingFile_;
};

}  // namespace vexa
