#include <gtest/gtest.h>

#include <sys/wait.h>

#include <filesystem>
#include <map>
#include <sstream>

#include "status/LaunchedApplications.h"
#include "status/MachineFiles.h"
#include "status/ProcessRecorder.h"
#include "status/ProcessTool.h"
#include "status/TopScreen.h"
#include "support/ChildProcess.h"
#include "support/Signal.h"
#include "support/TempDir.h"
#include "vexa/status/ProcessStatusEx.h"

namespace vexa {
namespace process_live_test {

struct Row {
  std::string cpu, mem;
  uint64_t rss = 0, vsz = 0;
  std::string stat;
};

// The rows of "pid %cpu %mem rss vsz stat" text by pid; the header is skipped.
std::map<int, Row> rows(const std::string& text) {
  std::map<int, Row> found;
  std::istringstream lines(text);
  std::string line;
  std::getline(lines, line);
  while (std::getline(lines, line)) {
    std::istringstream fields(line);
    int pid = 0;
    Row row;
    if (fields >> pid >> row.cpu >> row.mem >> row.rss >> row.vsz >> row.stat) found[pid] = row;
  }
  return found;
}

int endedPid() {
  test::ChildProcess child({"/bin/true"});
  child.waitExit();
  return child.pid();
}

TEST(ProcessLiveTest, ProcReaderAgreesWithProcpsOnSpawnedChildren) {
  test::ChildProcess sleeper({"/bin/sleep", "30"});
  test::ChildProcess shell({"/bin/sh", "-c", "read line"});
  test::ChildProcess stopped({"/bin/sleep", "30"});
  stopped.signal(SIGSTOP);
  const std::vector<int32_t> pids{sleeper.pid(), shell.pid(), stopped.pid()};
  const auto files = MachineFiles::underRoot("/");
  // Both look while the children sit still: stopped, or waiting in a system call.
  ASSERT_TRUE(test::eventually([&] {
    const auto text = files->read("/proc/" + std::to_string(stopped.pid()) + "/stat");
    return text && text->find(") T ") != std::string::npos;
  }));
  // A child still starting (loading its program, faulting pages in) changes its sizes between
  // the two looks, so they are compared until both show it settled.
  const auto ourTool = ProcessTool::fromProc(files);
  const auto psTool = ProcessTool::psProgram();
  std::string ours, procps;
  const bool agree = test::eventually([&] {
    ours = ourTool->usage(pids).value_or("");
    procps = psTool->usage(pids).value_or("");
    const auto a = rows(ours), b = rows(procps);
    if (a.size() != pids.size() || b.size() != pids.size()) return false;
    for (const int32_t pid : pids) {
      const Row &x = a.at(pid), &y = b.at(pid);
      if (x.rss != y.rss || x.vsz != y.vsz || x.stat != y.stat.substr(0, 1) || x.mem != y.mem) {
        return false;
      }
    }
    return true;
  });
  EXPECT_TRUE(agree) << "ours:\n" << ours << "procps:\n" << procps;
  const auto ourRows = rows(ours);
  ASSERT_TRUE(ourRows.contains(stopped.pid()));
  EXPECT_EQ(ourRows.at(stopped.pid()).stat, "T");
  stopped.signal(SIGCONT);
}

TEST(ProcessLiveTest, ProcessesThatEndedAreLeftOutAndNoneLeftAnswersNothing) {
  test::ChildProcess alive({"/bin/sleep", "30"});
  const int gone = endedPid();
  for (const auto& tool :
       {ProcessTool::fromProc(MachineFiles::underRoot("/")), ProcessTool::psProgram()}) {
    const auto usage = tool->usage({gone, alive.pid()});
    ASSERT_TRUE(usage);
    const auto found = rows(*usage);
    EXPECT_EQ(found.size(), 1u) << *usage;
    EXPECT_TRUE(found.contains(alive.pid()));
    EXPECT_FALSE(tool->usage({gone}));
    EXPECT_FALSE(tool->states({gone}));
  }
}

size_t openDescriptors() {
  return static_cast<size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                                           std::filesystem::directory_iterator()));
}

// A screen keeps each listed process's three files open for the next one, and gives them back
// when the process is gone; past the limit, files are opened for each screen.
TEST(ProcessLiveTest, TopScreenKeepsFilesOfLiveProcessesOnly) {
  test::ChildProcess child({"/bin/sleep", "60"});
  ASSERT_TRUE(child.running());
  const int pid = child.pid();
  TopScreen screen(MachineFiles::underRoot("/"), ::getuid(), 100,
                   *TopScreen::parseColumns("pid,mem,cmprs,msgsent"));
  const size_t before = openDescriptors();
  const std::string line = "\n" + std::to_string(pid) + " ";
  EXPECT_NE(screen.next({pid}).find(line), std::string::npos);
  EXPECT_EQ(openDescriptors(), before + 3);
  EXPECT_NE(screen.next({pid}).find(line), std::string::npos);
  EXPECT_EQ(openDescriptors(), before + 3);

  child.signal(SIGKILL);
  child.waitExit();
  EXPECT_EQ(screen.next({pid}).find(line), std::string::npos);
  EXPECT_EQ(openDescriptors(), before);

  test::ChildProcess other({"/bin/sleep", "60"});  // its pipes are the test's descriptors
  const size_t unkept = openDescriptors();
  screen.setKeptProcesses(0);
  EXPECT_NE(screen.next({other.pid()}).find("\n" + std::to_string(other.pid()) + " "),
            std::string::npos);
  EXPECT_EQ(openDescriptors(), unkept);
}

// A launcher that goes through GIO leaves its entry and the child's pid in the environment.
TEST(ProcessLiveTest, FindsALiveChildLaunchedThroughTheEnvironment) {
  const auto files = MachineFiles::underRoot("/");
  const uint32_t uid = files->userId();
  const std::string slice = "/sys/fs/cgroup/user.slice/user-" + std::to_string(uid) +
                            ".slice/user@" + std::to_string(uid) + ".service/app.slice";
  if (!files->list(slice).empty()) GTEST_SKIP() << "this session runs applications in cgroups";
  test::TempDir dir;
  const std::string entry =
      dir.write("Editor.desktop", "[Desktop Entry]\nType=Application\nName=Live Editor\n");
  test::ChildProcess child({"/usr/bin/env", "GIO_LAUNCHED_DESKTOP_FILE=" + entry, "/bin/sh", "-c",
                            "GIO_LAUNCHED_DESKTOP_FILE_PID=$$ exec /bin/sleep 30"});
  const auto launched = LaunchedApplications::ofUser(files, uid);
  const LaunchedApplications::Record expected{"Live Editor", entry, child.pid()};
  EXPECT_TRUE(test::eventually([&] {
    const auto records = launched->launched();
    return std::find(records.begin(), records.end(), expected) != records.end();
  })) <<
      [&] {
        std::string seen;
        for (const auto& record : launched->launched()) {
          seen += std::to_string(record.pid) + " " + record.name + " " + record.path + "\n";
        }
        return seen;
      }();
}

// The bundled vexa-top, read by the sampler: a record for a sleeping child from the first
// screen on.
TEST(ProcessLiveTest, ReadsTheScreensOfTheBundledTopProgram) {
  test::ChildProcess child({"/bin/sleep", "30"});
  class One : public LaunchedApplications {
   public:
    explicit One(int32_t pid) : pid_(pid) {}
    std::vector<Record> launched() override { return {{"Sleep", "/sleep.desktop", pid_}}; }
    int32_t pid_;
  };
  const auto status = ProcessStatusEx::create(
      std::make_shared<One>(child.pid()), ProcessTool::fromProc(MachineFiles::underRoot("/")),
      {VEXA_TOP_TOOL, "-stats", "pid,cpu,mem,purg,cmprs,msgsent,msgrecv,power", "-s", "0.2"});
  const auto recorder = std::make_shared<test::ProcessRecorder>();
  status->setDelegate(recorder);
  status->updateProcessInfo();
  ASSERT_TRUE(recorder->waitForExtended(2, std::chrono::seconds(10)));
  const auto reports = recorder->extended();
  ASSERT_EQ(reports[0].size(), 1u);
  const ProcessInfoEx& first = reports[0][0];
  EXPECT_EQ(first.pid, child.pid());
  EXPECT_GT(first.memory, 0u);
  EXPECT_EQ(first.memory % 1024, 0u);
  EXPECT_EQ(first.stat, 0);  // sleeping
  EXPECT_DOUBLE_EQ(first.sampleInterval, 1.0);
  EXPECT_EQ(first.prevMsgsent, 0u);
  EXPECT_TRUE(status->hasStatusTask());
}

}  // namespace process_live_test
}  // namespace vexa
