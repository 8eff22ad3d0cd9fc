#include "util/FolderWalk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <cstring>
#include <utility>
#include <vector>

#include "util/UniqueFd.h"

namespace vexa {

namespace {

struct Item {
  std::string name;
  unsigned char type;
};

// A folder being walked: its descriptor is open only while it is the innermost one.
struct Frame {
  UniqueFd fd;
  dev_t dev = 0;
  ino_t ino = 0;
  std::string path;
  std::vector<Item> items;
  size_t next = 0;
};

// Lists the folder open on `fd` through a copy of the descriptor, which the listing owns.
bool readFolder(int fd, std::vector<Item>& items) {
  const int copy = ::fcntl(fd, F_DUPFD_CLOEXEC, 0);
  if (copy < 0) return false;
  DIR* dir = ::fdopendir(copy);
  if (!dir) {
    ::close(copy);
    return false;
  }
  while (const dirent* entry = ::readdir(dir)) {
    const char* name = entry->d_name;
    if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) continue;
    unsigned char type = entry->d_type;
    struct stat st {};
    if (type == DT_UNKNOWN && ::fstatat(fd, name, &st, AT_SYMLINK_NOFOLLOW) == 0) {
      type = static_cast<unsigned char>(IFTODT(st.st_mode));
    }
    items.push_back({name, type});
  }
  ::closedir(dir);
  return true;
}

bool openFrame(UniqueFd fd, std::string path, Frame& frame) {
  struct stat st {};
  if (!fd || ::fstat(fd.get(), &st) != 0 || !readFolder(fd.get(), frame.items)) return false;
  frame.fd = std::move(fd);
  frame.dev = st.st_dev;
  frame.ino = st.st_ino;
  frame.path = std::move(path);
  return true;
}

// Reopens the parent of the innermost folder; false when ".." is no longer that folder.
bool reopenParent(const Frame& child, Frame& parent) {
  UniqueFd up(::openat(child.fd.get(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  struct stat st {};
  if (!up || ::fstat(up.get(), &st) != 0 || st.st_dev != parent.dev || st.st_ino != parent.ino) {
    return false;
  }
  parent.fd = std::move(up);
  return true;
}

}  // namespace

bool FolderWalk::walk(const std::string& root, const std::string& joinRoot, const Visit& visit,
                      const Failure& failed) {
  std::vector<Frame> stack(1);
  if (!openFrame(UniqueFd(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)), joinRoot,
                 stack.back())) {
    return false;
  }
  while (!stack.empty()) {
    Frame& top = stack.back();
    if (top.next == top.items.size()) {
      if (stack.size() > 1 && !reopenParent(top, stack[stack.size() - 2])) return true;
      stack.pop_back();
      continue;
    }
    const Item& item = top.items[top.next++];
    std::string path = top.path + "/" + item.name;
    const Step step = visit({top.fd.get(), item.name, path, item.type});
    if (step == Step::Stop) return true;
    if (step != Step::Enter) continue;
    Frame child;
    UniqueFd fd(
        ::openat(top.fd.get(), item.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!openFrame(std::move(fd), path, child)) {
      if (failed) failed(path);
      continue;
    }
    top.fd.reset();
    stack.push_back(std::move(child));
  }
  return true;
}

}  // namespace vexa

namespace vexa {

bool FolderWalk::stopRequested(int* stop) {
  return stop && std::atomic_ref<int>(*stop).load(std::memory_order_relaxed) == 1;
}

bool FolderWalk::isIgnoredName(const std::string& name) {
  static constexpr std::string_view kFinderInfo = ".DS_Store";
  return name.empty() || name[0] == '.' ||
         (name.size() >= kFinderInfo.size() &&
          name.compare(name.size() - kFinderInfo.size(), kFinderInfo.size(), kFinderInfo) == 0);
}

}  // namespace vexa
