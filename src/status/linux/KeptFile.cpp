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

constexpr size_t kFirstBytes = 16384;

class DescriptorFile final : public KeptFile {
 public:
  DescriptorFile(std::shared_ptr<const MachineFiles> files, std::string path)
      : files_(std::move(files)), path_(std::move(path)) {
    const std::string full = files_->root() + path_;
    UniqueFd fd(::open(full.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    struct stat st {};
    if (fd && ::fstat(fd.get(), &st) == 0 && S_ISREG(st.st_mode)) fd_ = std::move(fd);
  }

  std::optional<std::string_view> read() override { return readInto(buffer_); }

  std::optional<std::string_view> readInto(std::string& buffer) override {
    if (!fd_) {
      auto whole = files_->read(path_);
      if (!whole) return std::nullopt;
      buffer = std::move(*whole);
      return std::string_view(buffer);
    }
    // The buffer keeps its size between reads: growing it fills it with zeros, and a sample
    // would otherwise pay for that each time.
    if (buffer.size() < kFirstBytes) buffer.resize(kFirstBytes);
    size_t used = 0;
    for (;;) {
      if (used == buffer.size()) {
        if (buffer.size() >= MachineFiles::kMaxFileBytes) return std::nullopt;
        buffer.resize(buffer.size() * 2);
      }
      const ssize_t got =
          ::pread(fd_.get(), buffer.data() + used, buffer.size() - used, static_cast<off_t>(used));
      if (got < 0) {
        if (errno == EINTR) continue;
        return std::nullopt;
      }
      if (got == 0) break;
      used += static_cast<size_t>(got);
      // A short read is the end: the kernel fills the buffer while it has text. Asking again
      // would cost as much as the read itself, since a /proc file made of records is made
      // again from its start to reach a later offset.
      if (used < buffer.size()) break;
    }
    return std::string_view(buffer.data(), used);
  }

 private:
  std::shared_ptr<const MachineFiles> files_;
  std::string path_;
  UniqueFd fd_;
  std::string buffer_;
};

}  // namespace

std::unique_ptr<KeptFile> KeptFile::open(std::shared_ptr<const MachineFiles> files,
                                         const std::string& path) {
  return std::make_unique<DescriptorFile>(std::move(files), path);
}

}  // namespace vexa
