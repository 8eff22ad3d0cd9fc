#pragma once

#include <cstddef>
#include <string>

#include "vexa/Export.h"

namespace vexa {

// Receives file-system events as absolute paths. Every operation is optional: the defaults do
// nothing.
class VEXA_EXPORT FileSystemMonitorDelegate {
 public:
  virtual ~FileSystemMonitorDelegate() = default;

  // An item was created.
  virtual void fileCreated(const std::string& path) { (void)path; }
  // An item was moved or renamed to this path and exists there.
  virtual void fileMoveIn(const std::string& path) { (void)path; }
  // An item was moved or renamed away from this path and no longer exists there.
  virtual void fileMoveOut(const std::string& path) { (void)path; }
  // One item moved from source to target, both paths known.
  virtual void fileMoveOrRename(const std::string& source, const std::string& target) {
    (void)source;
    (void)target;
  }
  // An item was deleted.
  virtual void fileRemove(const std::string& path) { (void)path; }
  // An item's contents were modified.
  virtual void fileModify(const std::string& path) { (void)path; }
  // Events under this folder were lost (the kernel's queue overflowed, or too many were waiting
  // to be delivered): anything in it may have changed unseen, so what the delegate knows of it
  // must be checked again. "/" means everywhere.
  virtual void eventsLost(const std::string& folder) { (void)folder; }
  // The calls above come in batches (what the stream gathered over its latency, `events` of
  // them), each between these two: a delegate that passes the calls on can pass a batch on at
  // once.
  virtual void batchBegins(size_t events) { (void)events; }
  virtual void batchEnds() {}

  // Whether a call about this path can matter to the delegate. A dispatcher asks it for every
  // event, on the thread that dispatches them, and leaves out the call when the answer is no
  // for each path the call names (events lost are always passed on): it must be quick, safe
  // from any thread, and a function of the path alone, never of what the delegate has heard.
  virtual bool hearsPath(const std::string& path) const {
    (void)path;
    return true;
  }
};

}  // namespace vexa
