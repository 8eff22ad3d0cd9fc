#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "vexa/Export.h"
#include "vexa/privileged/HelperProtocol.h"

namespace vexa {

class HelperTransport;
class Image;

// File operations for the host application, each tried with the caller's own rights first and,
// only when that fails and the privileged helper answers, requested from the helper
// ("com.tarnwick.PrivilegesHelper"). Every method blocks the calling thread for the local
// attempt and for the helper's reply. Safe from any thread.
class VEXA_EXPORT BrindleUtility {
 public:
  static constexpr const char* kHelperLabel = HelperProtocol::kBusName;
  static constexpr const char* kArgumentSeparator = HelperProtocol::kArgumentSeparator;

  // The helper protocol's operation codes, kept here for hosts that name them
  // BrindleUtility::kCheck and so on.
  using Command = HelperProtocol::Command;
  using enum HelperProtocol::Command;

  using ReplyBlock = std::function<void(bool result, const std::optional<std::string>& object)>;

  // Installs the helper with administrator authorization (pkexec when not root).
  static bool helperInstaller();
  // `error` receives a description when installation fails.
  static bool blessHelperWithLabel(const std::string& label, std::string* error);
  // Sends one request and calls `reply` with the helper's answer; does not call it when the
  // helper cannot be reached (logged).
  static void sendMessage(const nlohmann::json& request, const ReplyBlock& reply);
  static bool checkHelperConnect();

  static bool remove(const std::string& path);
  static std::optional<std::string> move(const std::string& source, const std::string& destination,
                                         bool replace);
  static std::optional<std::string> copy(const std::string& source, const std::string& destination,
                                         bool replace);
  static bool moveToTrash(const std::string& path);
  static std::optional<std::string> mkdir(const std::string& path, bool replace);
  static std::optional<std::string> mkHideDir(const std::string& path, bool replace);
  static std::optional<std::string> mkfile(const std::string& path, bool replace);
  static std::optional<std::string> mkHideFile(const std::string& path, bool replace);
  static bool hide(const std::string& path);
  static bool unHide(const std::string& path);
  static bool chown(const std::string& path, int64_t uid, int64_t gid);
  static bool chmod(const std::string& path, int64_t mode);
  // chmod -R with the mode string "u=<user>,g=<group>,o=<other>".
  static bool chmode(const std::string& path, const std::string& user, const std::string& group,
                     const std::string& other);
  static std::string modeString(const std::string& user, const std::string& group,
                                const std::string& other);
  // Unpacks "zip", "tar", "tar.gz", "tar.bz2", "tar.Z" or "tar.xz" into `folder` (the archive's
  // own folder when empty).
  static bool unpark(const std::string& archive, const std::string& type,
                     const std::string& folder);
  // Runs tar with `options` on the archive (and `relativePath` inside it) in `folder`; true
  // whenever the archive exists.
  static bool unpark(const std::string& archive, const std::string& relativePath,
                     const std::string& options, const std::string& folder);
  static bool thinBinary(const std::string& binary, const std::string& architecture,
                         const std::string& lipo);

  // Flushes the file systems and drops the system's page, dentry and inode caches through the
  // helper; true when it did. The memory sampler's purger (MemoryStatus::setPurger).
  static bool purge();
  // Runs `tool` (standard error discarded), piping its output through /usr/bin/grep with
  // `filters` when given; true on exit status 0, with the output in `output`.
  static bool runTask(const std::string& tool,
                      const std::optional<std::vector<std::string>>& arguments,
                      const std::optional<std::vector<std::string>>& filters, std::string* output);
  // The item's attributes: "NSFileSize", "NSFileModificationDate", "NSFileCreationDate",
  // "NSFileOwnerAccountID", "NSFileGroupOwnerAccountID", "NSFilePosixPermissions", "NSFileType".
  static std::optional<nlohmann::json> attributesOfApp(const std::string& path);

  // A picture whose longest edge is `length`, the other edge in proportion (at least the
  // original's when the proportion truncates to 0). Empty for an empty picture.
  static std::shared_ptr<Image> createThumbnailWithImage(const std::shared_ptr<Image>& image,
                                                         int length);
  static std::shared_ptr<Image> scalingImage(const std::shared_ptr<Image>& image, int width,
                                             int height);

  // Where requests go (the platform's transport unless replaced, e.g. by a host that tunnels
  // them elsewhere). Null restores the platform's.
  static void setHelperTransport(std::shared_ptr<HelperTransport> transport);
};

}  // namespace vexa
