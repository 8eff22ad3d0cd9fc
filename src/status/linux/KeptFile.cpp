#include "status/KeptFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "status/MachineFiles.h"
#include "util/UniqueFd.h"

namespace vexa {
namespace {

constexpr size_t kMaxFileBytes = 4 << 20;

class DescriptorFile final : public KeptFile {
 public:
  DescriptorFile(std::shared_ptr<const MachineFiles> files, std::string path)
      : files_(std::move(files)), path_(std::move(path)) {
    const std::string full = files_->root() + path_;
    UniqueFd fd(::open(full.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    struct stat st {};
    if (fd && ::fstat(fd.get(), &st) == 0 && S_ISREG(st.st_mode)) fd_ = std::move(fd);
  }

  bool read(std::string& text) override {
    if (!fd_) {
      auto whole = files_->read(path_);
      if (!whole) return false;
      text = std::move(*whole);
      return true;
    }
    text.resize(std::max<size_t>(text.capacity(), 16384));
    size_t used = 0;
    for (;;) {
      if (used == text.size()) {
        if (text.size() >= kMaxFileBytes) return false;
        text.resize(text.size() * 2);
      }
      const ssize_t got =
          ::pread(fd_.get(), text.data() + used, text.size() - used, static_cast<off_t>(used));
      if (got < 0) {
        if (errno == EINTR) continue;
        return false;
      }
      if (got == 0) break;
      used += static_cast<size_t>(got);
      // A short read is the end: the kernel fills the buffer while it has text. Asking again
      // would cost as much as the read itself, since a /proc file made of records is made
      // again from its start to reach a later offset.
      if (used < text.size()) break;
    }
    text.resize(used);
    return true;
  }

 private:
  std::shared_ptr<const MachineFiles> files_;
  std::string path_;
  UniqueFd fd_;
};

}  // namespace

std::unique_ptr<KeptFile> KeptFile::open(std::shared_ptr<const MachineFiles> files,
                                         const std::string& path) {
  return std::make_unique<DescriptorFile>(std::move(files), path);
}

}  // namespace vexa
