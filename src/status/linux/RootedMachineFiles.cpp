#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>

#include "status/MachineFiles.h"
#include "util/UniqueFd.h"

namespace vexa {
namespace {

class RootedMachineFiles final : public MachineFiles {
 public:
  explicit RootedMachineFiles(std::string root) : root_(std::move(root)) {
    while (root_.size() > 1 && root_.back() == '/') root_.pop_back();
    if (root_ == "/") root_.clear();
  }

  std::optional<std::string> read(const std::string& path) const override {
    // O_NONBLOCK: opening a FIFO for reading must not wait for a writer.
    UniqueFd fd(::open(full(path).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    if (!fd) return std::nullopt;
    struct stat st {};
    if (::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) return std::nullopt;
    std::string text;
    char buffer[8192];
    for (;;) {
      const ssize_t got = ::read(fd.get(), buffer, sizeof buffer);
      if (got < 0) {
        if (errno == EINTR) continue;
        return std::nullopt;
      }
      if (got == 0) break;
      text.append(buffer, static_cast<size_t>(got));
      if (text.size() > kMaxFileBytes) return std::nullopt;
    }
    return text;
  }

  std::vector<std::string> list(const std::string& folder) const override {
    std::vector<std::string> names;
    DIR* dir = ::opendir(full(folder).c_str());
    if (!dir) return names;
    while (const dirent* entry = ::readdir(dir)) {
      const std::string name = entry->d_name;
      if (name != "." && name != "..") names.push_back(name);
    }
    ::closedir(dir);
    std::sort(names.begin(), names.end());
    return names;
  }

  std::optional<std::string> readLink(const std::string& path) const override {
    char buffer[4096];
    const ssize_t got = ::readlink(full(path).c_str(), buffer, sizeof buffer);
    if (got < 0 || static_cast<size_t>(got) >= sizeof buffer) return std::nullopt;
    return std::string(buffer, static_cast<size_t>(got));
  }

  const std::string& root() const override { return root_; }

  bool write(const std::string& path, const std::string& text) const override {
    UniqueFd fd(::open(full(path).c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    if (!fd) return false;
    struct stat st {};
    if (::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) return false;
    ssize_t done = 0;
    do {
      done = ::write(fd.get(), text.data(), text.size());
    } while (done < 0 && errno == EINTR);
    return done == static_cast<ssize_t>(text.size());
  }

  std::optional<VolumeSpace> volumeSpace(const std::string& path) const override {
    struct statvfs st {};
    if (::statvfs(full(path).c_str(), &st) != 0) return std::nullopt;
    const uint64_t blockSize = st.f_frsize != 0 ? st.f_frsize : st.f_bsize;
    return VolumeSpace{blockSize, st.f_blocks, st.f_bavail, st.f_bfree, st.f_files};
  }

  uint64_t pageSize() const override {
    const long size = ::sysconf(_SC_PAGESIZE);
    return size > 0 ? static_cast<uint64_t>(size) : 4096;
  }
  uint32_t userId() const override { return ::getuid(); }

 private:
  std::string full(const std::string& path) const { return root_ + path; }
  std::string root_;
};

}  // namespace

std::shared_ptr<MachineFiles> MachineFiles::underRoot(const std::string& root) {
  return std::make_shared<RootedMachineFiles>(root.empty() ? "/" : root);
}

}  // namespace vexa
