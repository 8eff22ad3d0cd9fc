#pragma once

#include <sys/stat.h>

#include <fstream>
#include <memory>
#include <string>

#include "support/ChildProcess.h"
#include "support/TempDir.h"

namespace vexa::test {

// A private dbus-daemon any local user may use, for the lifetime of the object.
class PrivateBus {
 public:
  PrivateBus() {
    ::chmod(dir_.path().c_str(), 0755);  // unprivileged test clients reach the socket too
    const std::string config = dir_ / "bus.conf";
    std::ofstream(config) << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus "
                             "Configuration 1.0//EN\" "
                             "\"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
                             "<busconfig><type>session</type>"
                             "<listen>unix:path="
                          << dir_ / "socket"
                          << "</listen><auth>EXTERNAL</auth>"
                             "<policy context=\"default\"><allow user=\"*\"/>"
                             "<allow send_destination=\"*\" eavesdrop=\"true\"/>"
                             "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy>"
                             "</busconfig>\n";
    daemon_ = std::make_unique<ChildProcess>(std::vector<std::string>{
        "/usr/bin/dbus-daemon", "--config-file=" + config, "--nofork", "--print-address=1"});
    if (auto line = daemon_->readLine()) address_ = *line;
  }
  const std::string& address() const { return address_; }
  bool ok() const { return !address_.empty(); }

 private:
  TempDir dir_;
  std::unique_ptr<ChildProcess> daemon_;
  std::string address_;
};

}  // namespace vexa::test
