#pragma once

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <string>

namespace vexa::test {

// A small tmpfs mounted on a folder for one scope, or a bind of another mount; detached when it
// goes (a lazy unmount: a walk still inside it does not make it fail). Root only: ok() is false
// elsewhere, and tests skip.
class ScratchMount {
 public:
  // Moves the test process into a mount namespace of its own with private propagation, so that
  // programs tested beside it, which count the Trashes of every mounted volume, never see its
  // mounts. Called on the main thread (whose namespace /proc/self shows) before anything reads
  // the mount table: a table opened earlier goes on showing the old namespace.
  static bool isolate() {
    return ::geteuid() == 0 && ::unshare(CLONE_NEWNS) == 0 &&
           ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  }

  explicit ScratchMount(const std::string& folder, const std::string& bindOf = {})
      : folder_(folder) {
    if (::geteuid() != 0) return;
    mounted_ = bindOf.empty()
                   ? ::mount("vexa-test", folder.c_str(), "tmpfs", 0, "size=4m,mode=0755") == 0
                   : ::mount(bindOf.c_str(), folder.c_str(), nullptr, MS_BIND, nullptr) == 0;
  }
  ~ScratchMount() { unmount(); }
  ScratchMount(const ScratchMount&) = delete;
  ScratchMount& operator=(const ScratchMount&) = delete;

  bool ok() const { return mounted_; }
  void unmount() {
    if (mounted_) ::umount2(folder_.c_str(), MNT_DETACH);
    mounted_ = false;
  }

 private:
  std::string folder_;
  bool mounted_ = false;
};

}  // namespace vexa::test
