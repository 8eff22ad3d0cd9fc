#pragma once

#include <cstdint>

namespace vexa {

// The privileged helper's protocol, shared by its clients and the helper itself. A request is a
// dictionary (D-Bus a{sv}) holding kCommandKey and the keys that command takes; the reply is a
// dictionary holding kResultKey (boolean) and, for some commands, kObjectKey (string). Hosts
// that build requests for BrindleUtility::sendMessage use these names too, so the values here
// are fixed: changing one breaks helpers already installed.
class HelperProtocol {
 public:
  // The service's well-known bus name, which is also its interface and its label.
  static constexpr const char* kBusName = "com.tarnwick.PrivilegesHelper";
  static constexpr const char* kObjectPath = "/com/tarnwick/PrivilegesHelper";
  static constexpr const char* kInterface = "com.tarnwick.PrivilegesHelper";
  // Request(a{sv} request) -> (a{sv} reply)
  static constexpr const char* kMethod = "Request";
  // The polkit actions a caller is authorized for: dropping the system's caches (the purge
  // tool) on its own, since it changes no file; every other request under the general one.
  static constexpr const char* kRequestAction = "com.tarnwick.PrivilegesHelper.request";
  static constexpr const char* kPurgeAction = "com.tarnwick.PrivilegesHelper.purge";
  // A value of kLaunchKey (any absolute path named "purge") that flushes the file systems and
  // drops the page, dentry and inode caches: done by the helper itself, no program is run.
  static constexpr const char* kPurgeTool = "/usr/sbin/purge";

  // Operation codes, the value of kCommandKey.
  enum Command : int64_t {
    kCheck = 0,             // answers true
    kMakeFile = 1,          // path, replace
    kMakeHiddenFile = 2,    // path, replace
    kMakeFolder = 3,        // path, replace
    kMakeHiddenFolder = 4,  // path, replace
    kRemove = 5,            // path
    kMove = 6,              // path, topath, replace
    kCopy = 7,              // path, topath, replace, uid, gid (the copies' owner)
    kHide = 8,              // path
    kUnhide = 9,            // path
    kChangeMode = 10,       // path, mode; or launch, cmd (archives travel with this code)
    kChangeOwner = 11,      // path, uid, gid
    kRunTool = 12           // launch, cmd
  };

  // Request keys.
  static constexpr const char* kCommandKey = "command";  // int64
  static constexpr const char* kPathKey = "path";        // string, absolute
  static constexpr const char* kToPathKey = "topath";    // string, absolute
  static constexpr const char* kReplaceKey = "replace";  // boolean, false when absent
  static constexpr const char* kUidKey = "uid";          // int64
  static constexpr const char* kGidKey = "gid";          // int64
  static constexpr const char* kModeKey = "mode";        // int64, 0 to 07777
  static constexpr const char* kLaunchKey = "launch";    // string, the tool's path
  static constexpr const char* kCmdKey = "cmd";  // string, arguments joined by the separator
  // Reply keys.
  static constexpr const char* kResultKey = "result";  // boolean
  static constexpr const char* kObjectKey = "object";  // string: a path made, or a tool's output

  // Joins the arguments in kCmdKey.
  static constexpr const char* kArgumentSeparator = "&|&";
};

}  // namespace vexa
