#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>
#include <utility>

namespace status_dashboard_live_test {

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// One private tmux server (its own socket, in a folder of its own) with one session running a
// shell command in a terminal of a given size. The server is killed and its socket removed when the
// value goes, whatever the test did.
class TmuxSession {
 public:
  TmuxSession(const std::string& command, int width, int height)
      : folder_(makeFolder()), socket_(folder_ + "/socket") {
    // tmux can tell a pane's end before it knows its exit status: a script around the command
    // writes the status to a file instead (renamed into place, so it is read whole).
    const std::string script = folder_ + "/run.sh";
    if (FILE* file = std::fopen(script.c_str(), "w")) {
      std::fprintf(file, "%s\necho $? >'%s/status.new' && mv '%s/status.new' '%s/status'\n",
                   command.c_str(), folder_.c_str(), folder_.c_str(), folder_.c_str());
      std::fclose(file);
    }
    run("new-session -d -s dash -x " + std::to_string(width) + " -y " + std::to_string(height) +
        " 'sh " + script + "'");
  }
  ~TmuxSession() {
    run("kill-server");
    // tmux leaves its socket behind.
    for (const char* name : {"/socket", "/run.sh", "/status"}) unlink((folder_ + name).c_str());
    rmdir(folder_.c_str());
  }
  TmuxSession(const TmuxSession&) = delete;
  TmuxSession& operator=(const TmuxSession&) = delete;

  // tmux's own output of one command line.
  std::string run(const std::string& arguments) const {
    const std::string command = "tmux -S " + socket_ + " -f /dev/null " + arguments + " 2>&1";
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return output;
    char buffer[4096];
    size_t read = 0;
    while ((read = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) output.append(buffer, read);
    pclose(pipe);
    return output;
  }

  std::string screen(bool withAttributes = false) const {
    return run(withAttributes ? "capture-pane -p -e -t dash" : "capture-pane -p -t dash");
  }

  // Polls the screen until `done` holds for it or ten seconds pass; answers the last screen.
  std::string waitFor(const std::function<bool(const std::string&)>& done,
                      bool withAttributes = false) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    std::string last = screen(withAttributes);
    while (!done(last) && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      last = screen(withAttributes);
    }
    return last;
  }

  // Whether the screen shows `text` within ten seconds.
  bool shows(const std::string& text) const {
    return contains(waitFor([&text](const std::string& s) { return contains(s, text); }), text);
  }

  // The command's exit status once it has ended; -1 when it still runs after ten seconds.
  int exitStatus() const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < deadline) {
      if (FILE* file = std::fopen((folder_ + "/status").c_str(), "r")) {
        int status = -1;
        const int read = std::fscanf(file, "%d", &status);
        std::fclose(file);
        if (read == 1) return status;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return -1;
  }

 private:
  static std::string makeFolder() {
    std::string folder = "/tmp/vexa-dashboard-XXXXXX";
    if (!mkdtemp(folder.data())) ADD_FAILURE() << "no folder for the tmux socket";
    return folder;
  }

  std::string folder_;
  std::string socket_;
};

std::string dashboard(const std::string& environment, const char* machine) {
  return "env " + environment + " " + VEXA_STATUS_TOOL + " --sysroot " + VEXA_TEST_DATA_DIR +
         "/machines/" + machine;
}

int widestLine(const std::string& screen) {
  int widest = 0, cells = 0;
  for (const char c : screen) {
    if (c == '\n') {
      widest = std::max(widest, cells);
      cells = 0;
    } else if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) {
      ++cells;
    }
  }
  return std::max(widest, cells);
}

// Whether captured text sets a foreground or background colour (30-37, 40-47); 39 and 49 are
// tmux's resets to the default colours.
bool hasColour(const std::string& screen) {
  for (size_t at = screen.find("\x1b["); at != std::string::npos;
       at = screen.find("\x1b[", at + 1)) {
    const std::string code = screen.substr(at + 2, 3);
    if (code.size() == 3 && (code[0] == '3' || code[0] == '4') && code[1] >= '0' &&
        code[1] <= '7' && code[2] == 'm') {
      return true;
    }
  }
  return false;
}

class StatusDashboardTest : public testing::Test {
 protected:
  void SetUp() override {
    if (access("/usr/bin/tmux", X_OK) != 0) GTEST_SKIP() << "tmux is not installed";
  }
};

TEST_F(StatusDashboardTest, ShowsTheFixtureFollowsResizesAndQuitsWithQ) {
  const TmuxSession tmux(dashboard("LC_ALL=C.UTF-8", "intel-laptop"), 100, 30);
  std::string screen = tmux.waitFor([](const std::string& s) {
    return contains(s, "Ann's Laptop") && contains(s, "59.5 °C") && contains(s, "KINGSTON") &&
           contains(s, "on battery, 3:00 left") && contains(s, "Wi-Fi (wlp0s20f3)");
  });
  EXPECT_TRUE(contains(screen, "59.5 °C")) << screen;
  EXPECT_TRUE(contains(screen, "── Memory  9.22 GB used of 16.4 GB")) << screen;
  EXPECT_TRUE(contains(screen, "q quit")) << screen;

  tmux.run("resize-window -t dash -x 60 -y 20");
  screen = tmux.waitFor([](const std::string& s) {
    return widestLine(s) <= 60 && contains(s, "── CPU") && contains(s, "q quit");
  });
  EXPECT_LE(widestLine(screen), 60) << screen;
  EXPECT_TRUE(contains(screen, "── Memory")) << screen;

  tmux.run("resize-window -t dash -x 30 -y 20");
  EXPECT_TRUE(tmux.shows("terminal too small"));

  tmux.run("resize-window -t dash -x 100 -y 30");
  screen = tmux.waitFor([](const std::string& s) {
    return contains(s, "KINGSTON") && widestLine(s) > 60 && !contains(s, "too small");
  });
  EXPECT_TRUE(contains(screen, "Filesystem root")) << screen;

  tmux.run("send-keys -t dash q");
  EXPECT_EQ(tmux.exitStatus(), 0);
}

TEST_F(StatusDashboardTest, KeysChangeWhatIsShown) {
  const TmuxSession tmux(dashboard("LC_ALL=C.UTF-8", "amd-desktop"), 100, 30);
  ASSERT_TRUE(tmux.shows("sorted by cpu"));
  // The cleaning asks first; any answer but y leaves memory alone.
  const std::pair<const char*, const char*> keys[] = {
      {"s", "sorted by memory"},  {"+", "every 2s"}, {"p", "PAUSED"},
      {"'?'", "this help"},       {"x", "── CPU"},   {"c", "(y/n)"},
      {"n", "cleaning cancelled"}};
  for (const auto& [key, shown] : keys) {
    tmux.run(std::string("send-keys -t dash ") + key);
    EXPECT_TRUE(tmux.shows(shown)) << "after " << key << ":\n" << tmux.screen();
  }
  tmux.run("send-keys -t dash q");
  EXPECT_EQ(tmux.exitStatus(), 0);
}

TEST_F(StatusDashboardTest, TheCLocaleGetsPlainAsciiAndNoColourWhenAsked) {
  const TmuxSession tmux(dashboard("LANG=C LC_ALL=C NO_COLOR=1", "amd-desktop"), 100, 30);
  const std::string screen = tmux.waitFor(
      [](const std::string& s) { return contains(s, "ryzen") && contains(s, "45.1 C"); }, true);
  ASSERT_TRUE(contains(screen, "45.1 C")) << screen;
  EXPECT_TRUE(contains(screen, "-- CPU ---")) << screen;
  EXPECT_FALSE(contains(screen, "Battery")) << "a desktop has none";
  for (const char c : screen) {
    ASSERT_LT(static_cast<unsigned char>(c), 0x80) << screen;
  }
  // Bold and reverse video only: no foreground or background colour.
  EXPECT_FALSE(hasColour(screen)) << screen;

  const TmuxSession coloured(dashboard("LANG=C LC_ALL=C", "amd-desktop"), 100, 30);
  const std::string colours = coloured.waitFor(
      [](const std::string& s) { return contains(s, "ryzen") && hasColour(s); }, true);
  EXPECT_TRUE(hasColour(colours)) << colours;
}

}  // namespace status_dashboard_live_test
