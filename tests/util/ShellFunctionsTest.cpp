#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "support/TempDir.h"
#include "vexa/util/Utilities.h"

namespace shell_functions_test {

using vexa::test::ScopedEnv;
using vexa::test::TempDir;
namespace fs = std::filesystem;

constexpr auto kExecutable = fs::perms::owner_all | fs::perms::group_read | fs::perms::others_read;

std::string take(char* s) {
  if (!s) return "<null>";
  std::string copy(s);
  std::free(s);
  return copy;
}

size_t openDescriptors() {
  size_t n = 0;
  for ([[maybe_unused]] auto& e : fs::directory_iterator("/proc/self/fd")) ++n;
  return n;
}

// A folder of stand-in tools put first on PATH; each may record its arguments.
class FakeTools {
 public:
  FakeTools() : path_("PATH", bin_.path() + ":" + std::getenv("PATH")) {}
  void add(const std::string& name, const std::string& body) {
    bin_.write(name, "#!/bin/sh\n" + body + "\n", kExecutable);
  }
  // A tool that writes its arguments, one per line, to <name>.args and prints `output`.
  void recording(const std::string& name, const std::string& output = "") {
    add(name, "for a in \"$@\"; do printf '%s\\n' \"$a\"; done > '" + bin_ / name +
                  ".args'\nprintf '" + output + "'");
  }
  std::string args(const std::string& name) const {
    return vexa::test::readFile(bin_ / name + ".args");
  }

 private:
  TempDir bin_;
  ScopedEnv path_;
};

TEST(ShellFunctionsTest, ExistenceTestsRequireExecuteAccess) {
  TempDir dir;
  const std::string plain =
      dir.write("plain.txt", "x", fs::perms::owner_read | fs::perms::owner_write);
  const std::string tool = dir.write("tool", "x", kExecutable);
  EXPECT_EQ(is_file_exist(plain.c_str()), 0);  // readable but not executable: absent
  EXPECT_EQ(is_file_exist(tool.c_str()), 1);
  EXPECT_EQ(is_exec_file(tool.c_str()), 1);
  EXPECT_EQ(is_folder_exist(tool.c_str()), 0);
  EXPECT_EQ(is_folder_exist(dir.path().c_str()), 1);
  EXPECT_EQ(is_file_exist(dir.path().c_str()), 0);
  EXPECT_EQ(is_folder_exist(nullptr), 0);
  EXPECT_EQ(is_file_exist(nullptr), 0);
  EXPECT_EQ(is_file_exist((dir / "missing").c_str()), 0);

  char permit[4] = {'?', '?', '?', '?'};
  get_file_permit(permit, tool.c_str());
  EXPECT_STREQ(permit, "rwx");
  get_file_permit(permit, plain.c_str());
  EXPECT_STREQ(permit, "rw");
  get_file_permit(permit, (dir / "missing").c_str());
  EXPECT_EQ(std::string(permit, 4), std::string(4, '\0'));

  EXPECT_EQ(given_execute_permit_in_path(plain.c_str()), 1);
  EXPECT_EQ(fs::status(plain).permissions() & fs::perms::all, static_cast<fs::perms>(0755));
  EXPECT_EQ(given_execute_permit_in_path(""), 0);
  EXPECT_EQ(given_execute_permit_in_path((dir / "missing").c_str()), 0);
}

TEST(ShellFunctionsTest, FolderSizeIsTheLeadingIntegerOfDuTimesAThousand) {
  TempDir dir;
  dir.write("data/a.bin", std::string(20000, 'x'));
  const long long real = get_folder_size((dir / "data").c_str());
  EXPECT_GT(real, 0);
  EXPECT_EQ(real % 1000, 0);
  EXPECT_EQ(get_folder_size((dir / "missing").c_str()), 0);
  EXPECT_EQ(get_folder_size(""), 0);

  FakeTools tools;
  tools.recording("du", "4.0K\\t/somewhere\\n");
  EXPECT_EQ(get_folder_size((dir / "data").c_str()), 4000);
  EXPECT_EQ(tools.args("du"), "-h\n-d\n0\n" + dir / "data" + "\n");
  tools.add("du", "printf '1.5G\\t/x\\n'");
  EXPECT_EQ(get_folder_size((dir / "data").c_str()), 1000);  // "-h" output read as an integer
  tools.add("du", "printf '\\n12K\\t/x\\n'");
  EXPECT_EQ(get_folder_size((dir / "data").c_str()), 12000);  // the first non-empty line
}

TEST(ShellFunctionsTest, Counts) {
  TempDir dir;
  dir.write("tree/a", "");
  dir.write("tree/sub/b", "");
  dir.write("tree/sub/deeper/c", "");
  EXPECT_EQ(get_file_count((dir / "tree").c_str()), 3);
  EXPECT_EQ(get_item_count_not_contain_sub_item((dir / "tree").c_str()), 2);  // "a" and "sub"
  EXPECT_EQ(get_file_count((dir / "missing").c_str()), 0);
  // The escaped path sits inside single quotes, where the backslashes stay literal: a name
  // with a space is not found.
  dir.write("with space/a", "");
  EXPECT_EQ(get_file_count((dir / "with space").c_str()), 0);

  FakeTools tools;
  tools.add("wc", "cat >/dev/null");  // prints nothing: both line reads fail
  EXPECT_EQ(get_item_count_not_contain_sub_item((dir / "tree").c_str()), -2);
  EXPECT_EQ(get_file_count((dir / "tree").c_str()), 0);
}

TEST(ShellFunctionsTest, BinaryTypeTests) {
  TempDir dir;
  const std::string path = dir.write("Some App", "x");
  EXPECT_EQ(is_binary_file("/bin/sh"), 0);
  EXPECT_EQ(is_binary_file(""), 0);

  FakeTools tools;
  tools.recording("file", "x: Mach-O universal binary with 2 architectures\\n");
  EXPECT_EQ(is_binary_file(path.c_str()), 1);
  EXPECT_EQ(tools.args("file"), path + "\n");  // the escaped space is one argument

  tools.recording("lipo");
  EXPECT_EQ(is_fat_binary_file(path.c_str()), 1);
  // Backslash and space stay inside the quotes; newer systems verify "i386 ppc".
  EXPECT_EQ(tools.args("lipo"), dir / "Some\\ App" + "\n-verify_arch\ni386\nppc\n");
  tools.recording("lipo", "fatal error: not a universal file\\n");
  EXPECT_EQ(is_fat_binary_file(path.c_str()), 0);
}

TEST(ShellFunctionsTest, ExecCmdJudgesOnlyANormalZeroExit) {
  EXPECT_EQ(exec_cmd("true", "r"), 1);
  EXPECT_EQ(exec_cmd("false", "r"), 0);
  EXPECT_EQ(exec_cmd("exit 3", "r"), 0);
  EXPECT_EQ(exec_cmd("kill -9 $$", "r"), 0);
  EXPECT_EQ(exec_cmd("", "r"), 0);
  EXPECT_EQ(exec_cmd(nullptr, "r"), 0);
  // Far more output than a pipe holds: read away, so the command can finish.
  EXPECT_EQ(exec_cmd("head -c 3000000 /dev/zero", "r"), 1);
  EXPECT_EQ(exec_cmd("cat >/dev/null", "w"), 1);
}

TEST(ShellFunctionsTest, ExecCmdExReadsOneBlock) {
  EXPECT_EQ(take(exec_cmd_ex("printf abc", "r")), "abc");
  EXPECT_EQ(exec_cmd_ex("true", "r"), nullptr);
  EXPECT_EQ(exec_cmd_ex("", "r"), nullptr);
  char* big = exec_cmd_ex("head -c 500000 /dev/zero | tr '\\0' 'y'", "r");
  ASSERT_NE(big, nullptr);
  EXPECT_EQ(std::string(big, 1024), std::string(1024, 'y'));  // full: no terminating NUL
  std::free(big);
}

TEST(ShellFunctionsTest, Popen2TalksBothWaysAndLeaksNoDescriptor) {
  const size_t before = openDescriptors();
  int in = -1, out = -1;
  const int child = popen2("tr a-z A-Z", &in, &out);
  ASSERT_GT(child, 0);
  ASSERT_EQ(write(in, "hello\n", 6), 6);
  close(in);
  std::string answer;
  char buffer[64];
  ssize_t n;
  while ((n = read(out, buffer, sizeof buffer)) > 0) answer.append(buffer, static_cast<size_t>(n));
  close(out);  // reaching here means the output pipe saw end-of-file
  EXPECT_EQ(answer, "HELLO\n");
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);

  const int quiet = popen2("exit 0", nullptr, nullptr);
  ASSERT_GT(quiet, 0);
  waitpid(quiet, &status, 0);
  EXPECT_EQ(openDescriptors(), before);
}

std::vector<std::string>* collected = nullptr;
void collectLine(const char* line) { collected->emplace_back(line); }

TEST(ShellFunctionsTest, CompileByShellPassesEveryLine) {
  TempDir dir;
  const std::string script = dir.write(
      "script.sh", "#!/bin/sh\necho \"first $1\"\necho second\nprintf third", kExecutable);
  std::vector<std::string> lines;
  collected = &lines;
  EXPECT_EQ(compile_by_shell(script.c_str(), collectLine, "arg with space"), nullptr);
  EXPECT_EQ(lines, (std::vector<std::string>{"first arg with space\n", "second\n", "third"}));
  EXPECT_EQ(compile_by_shell(script.c_str(), nullptr, "x"), nullptr);  // no call-back: fine
  lines.clear();
  const std::string silent = dir.write("silent.sh", "#!/bin/sh\n", kExecutable);
  EXPECT_EQ(compile_by_shell(silent.c_str(), collectLine, ""), nullptr);  // no output: no hang
  EXPECT_TRUE(lines.empty());
}

TEST(ShellFunctionsTest, OpeningAnApplicationReturnsWhileItRuns) {
  TempDir dir;
  const std::string app = dir.mkdir("My App");
  FakeTools tools;
  // The "application" keeps running in the background, holding the shell's output (not its
  // error stream: that is ctest's, which would wait for it). It is stopped at the end.
  tools.add("xdg-open", "printf '%s\\n' \"$@\" > '" + dir / "opened" +
                            "'\n(sleep 30 2>/dev/null & echo $! > '" + dir / "app.pid" + "')");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(open_app_in_path(app.c_str()), 1);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
  EXPECT_EQ(vexa::test::readFile(dir / "opened"), app + "\n");
  EXPECT_EQ(open_app_in_path((dir / "missing").c_str()), 0);
  EXPECT_EQ(open_app_in_path(nullptr), 0);
  const std::string pid = vexa::test::readFile(dir / "app.pid");
  if (!pid.empty()) ::kill(std::stoi(pid), SIGTERM);
}

TEST(ShellFunctionsTest, LaunchdListsAreHandedToLaunchctl) {
  TempDir dir;
  const std::string plist = dir.write("com.example agent.plist", "<plist/>");
  FakeTools tools;
  tools.add("launchctl", "printf '%s\\n' \"$@\" >> '" + dir / "calls" + "'\nexit 1");
  EXPECT_EQ(load_plist_file(plist.c_str()), 1);  // whatever launchctl answered
  EXPECT_EQ(unload_plist_file(plist.c_str()), 1);
  EXPECT_EQ(vexa::test::readFile(dir / "calls"),
            "load\n-w\n" + plist + "\nunload\n-w\n" + plist + "\n");
  EXPECT_EQ(load_plist_file((dir / "missing.plist").c_str()), 0);
  EXPECT_EQ(unload_plist_file(""), 0);
}

TEST(ShellFunctionsTest, UnpackChoosesTheToolByExactType) {
  TempDir dir;
  for (int i = 0; i < 2000; ++i) dir.write("src/file" + std::to_string(i), "content");
  const std::string src = dir / "src";
  ASSERT_EQ(exec_cmd(("tar -czf " + dir / "a.tgz" + " -C " + src + " .").c_str(), "r"), 1);
  ASSERT_EQ(exec_cmd(("tar -cJf " + dir / "a.txz" + " -C " + src + " .").c_str(), "r"), 1);
  ASSERT_EQ(exec_cmd(("tar -cf " + dir / "a.tar" + " -C " + src + " .").c_str(), "r"), 1);
  const std::pair<const char*, const char*> cases[] = {
      {"a.tgz", "tar.gz"}, {"a.txz", "tar.xz"}, {"a.tar", "tar"}};
  for (auto [archive, type] : cases) {
    const std::string out = dir.mkdir(std::string("out-") + type);
    // tar lists 2,000 names ("-v"): the listing must be read away for tar to finish.
    EXPECT_EQ(unpack((dir / archive).c_str(), type, out.c_str()), 1) << type;
    EXPECT_TRUE(fs::exists(out + "/file1999")) << type;
  }
  EXPECT_EQ(unpack((dir / "a.tgz").c_str(), "tar.bz2", dir.mkdir("bad").c_str()), 0);
  FakeTools tools;
  tools.recording("unrar");
  EXPECT_EQ(unpack((dir / "a.tgz").c_str(), "rar", dir.path().c_str()), 0);
  EXPECT_FALSE(fs::exists(dir / "../unrar.args"));
  EXPECT_EQ(unpack((dir / "a.tgz").c_str(), "TAR.GZ", dir.path().c_str()), 0);
  EXPECT_EQ(unpack((dir / "missing.tgz").c_str(), "tar.gz", dir.path().c_str()), 0);
  EXPECT_EQ(unpack(nullptr, "tar", dir.path().c_str()), 0);
}

TEST(ShellFunctionsTest, IndexingServiceAnswers) {
  {
    ScopedEnv path("PATH", "/usr/bin:/bin");  // no mdutil anywhere
    EXPECT_EQ(is_serv_opened(), 0);
  }
  FakeTools tools;
  tools.add("mdutil", "printf '/:\\n\\tIndexing enabled. \\n'");
  EXPECT_EQ(is_serv_opened(), 2);
  tools.add("mdutil", "printf '/:\\n\\tIndexing disabled.\\n'");
  EXPECT_EQ(is_serv_opened(), 1);
  tools.add("mdutil", "printf 'Spotlight server is disabled.\\n'");
  EXPECT_EQ(is_serv_opened(), 0);
  tools.add("mdutil", "exit 0");  // never answers: bounded tries, then 0
  EXPECT_EQ(is_serv_opened(), 0);
}

TEST(ShellFunctionsTest, NamedPipeReceivesOneLine) {
  TempDir dir;
  const std::string previous = fs::current_path();
  fs::current_path(dir.path());
  ASSERT_EQ(mkfifo("MYFIFO", 0600), 0);
  std::thread writer([] {
    const int fd = open("MYFIFO", O_WRONLY | O_CLOEXEC);  // waits for the reader
    if (fd >= 0) {
      [[maybe_unused]] ssize_t n = write(fd, "ping\n", 5);
      close(fd);
    }
  });
  testing::internal::CaptureStdout();
  EXPECT_EQ(create_named_pip(), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Receivedstring:ping\n ");
  writer.join();
  fs::current_path(previous);
}

}  // namespace shell_functions_test
