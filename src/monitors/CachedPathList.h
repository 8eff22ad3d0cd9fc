#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <unordered_set>
#include <vector>

#include "monitors/CoalescingTask.h"
#include "monitors/HostAnnouncer.h"
#include "monitors/PathListCache.h"

namespace vexa {

class XSocketServer;

// The list of paths a file monitor keeps (install packages, partial downloads), its cache file,
// and what it tells the host: each path at most once, in the order found; every add and
// removal logged and announced to the host ("<add message>" / "<remove message>" {"Path"}) in
// the order the list changed, and the cache rewritten after it (a burst of changes costs at most
// two writes).
//
// Safe from any thread. The lock is held to change or copy the list only; cache writes run
// without it, one at a time, each writing the list as it is when the write begins.
class CachedPathList : public std::enable_shared_from_this<CachedPathList> {
 public:
  struct Names {
    std::string fileName;       // "packagecache.dat"
    std::string cacheKey;       // "InstallPackage"
    std::string addMessage;     // "PackageAdd"
    std::string removeMessage;  // "PackageRemove"
    std::string addLog;         // "Add Package: ", logged with the path; empty: no log
    std::string removeLog;      // "Remove Package: "
  };

  static std::shared_ptr<CachedPathList> create(Names names, XSocketServer& server);
  CachedPathList(const CachedPathList&) = delete;
  CachedPathList& operator=(const CachedPathList&) = delete;

  // The cache's folder; a non-empty one also names the file, Names::fileName inside it. A write
  // made before a folder is set writes nothing.
  std::string cacheFolderPath() const;
  void setCacheFolderPath(const std::string& folder);
  std::string cacheFilePath() const;
  // Makes the cache folder a folder, the library's default one when none was set.
  void makeCacheFolder();

  // Reads the cache into the list, in place of what it held, keeping only the paths that still
  // exist. Missing when there is no cache, or there was one that does not decode (logged and
  // deleted, so the caller takes a new inventory). When paths were dropped the cache is
  // rewritten.
  enum class Loaded { Missing, Read };
  Loaded load();

  // Adds without announcing (a first inventory).
  void addSilently(const std::vector<std::string>& paths);
  // Whether a message can carry the path (UTF-8 without NUL); others are never listed.
  static bool canCarry(const std::string& path);
  // Adds (or removes) the path in a task on the global queue, if by then it still exists (or is
  // gone): file events are handled in any order, and an item may be created and renamed, or
  // deleted and made again, within one batch of them.
  void addLater(const std::string& path);
  void removeLater(const std::string& path);
  // Adds and announces; false when the path was listed already.
  bool add(const std::string& path);
  // Removes and announces; false when it was not listed.
  bool remove(const std::string& path);
  bool contains(const std::string& path) const;
  // Tells the host `name` {"Path": path}, after every change announced before.
  void announce(const std::string& name, const std::string& path);
  void clear();
  std::vector<std::string> paths() const;

  // Writes the cache now, after any write under way. Blocks on the disk.
  void write();

 private:
  CachedPathList(Names names, XSocketServer& server);
  bool change(const std::string& path, bool adding);

  const Names names_;
  const PathListCache cache_;
  HostAnnouncer announcer_;
  std::unique_ptr<CoalescingTask> writer_;

  std::mutex writeMutex_;  // one write at a time; taken before lock_
  mutable std::mutex lock_;
  std::vector<std::string> paths_;         // guarded by lock_
  std::unordered_set<std::string> index_;  // guarded by lock_: the members of paths_
  std::string folder_, file_;              // guarded by lock_
};

}  // namespace vexa
