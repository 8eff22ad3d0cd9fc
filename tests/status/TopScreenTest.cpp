#include <gtest/gtest.h>

#include "status/MachineFiles.h"
#include "status/TopScreen.h"
#include "support/TempDir.h"

namespace vexa {
namespace top_screen_test {

using Column = TopScreen::Column;

TEST(TopScreenTest, ColumnListsAndSizes) {
  EXPECT_EQ(TopScreen::parseColumns("pid,cpu,mem,purg,cmprs,msgsent,msgrecv,power"),
            (std::vector<Column>{Column::Pid, Column::Cpu, Column::Mem, Column::Purg, Column::Cmprs,
                                 Column::Msgsent, Column::Msgrecv, Column::Power}));
  EXPECT_EQ(TopScreen::parseColumns("power,pid"),
            (std::vector<Column>{Column::Power, Column::Pid}));
  for (const char* bad : {"", "pid,", "pid,command", "PID", "pid,,cpu"}) {
    EXPECT_FALSE(TopScreen::parseColumns(bad)) << bad;
  }
  const std::pair<uint64_t, const char*> sizes[] = {
      {0, "0B"},
      {1000, "1000B"},
      {1024, "1K"},
      {524288, "512K"},
      {3145728, "3M"},
      {3146752, "3073K"},
      {uint64_t{5} << 30, "5G"},
      {(uint64_t{5} << 30) + 4096, "5242884K"},
  };
  for (const auto& [bytes, text] : sizes) EXPECT_EQ(TopScreen::byteSize(bytes), text) << bytes;
}

std::string pidStat(int pid, const std::string& comm, char state, int ticks, int start,
                    int rssPages) {
  return std::to_string(pid) + " (" + comm + ") " + state + " 1 1 1 0 -1 0 0 0 0 0 " +
         std::to_string(ticks) + " 0 0 0 20 0 1 0 " + std::to_string(start) + " 1000000 " +
         std::to_string(rssPages) + " 18446744073709551615 0 0 0 0 0 0 0 0 0 0 0 0 17 0 0 0\n";
}

class TopScreenMachine : public ::testing::Test {
 protected:
  void process(int pid, int uid, const std::string& comm, int ticks, int rssPages) {
    const std::string folder = "proc/" + std::to_string(pid) + "/";
    root_.write(folder + "stat", pidStat(pid, comm, 'S', ticks, 5000, rssPages));
    root_.write(folder + "status", "Name:\tx\nUid:\t" + std::to_string(uid) + "\t" +
                                       std::to_string(uid) + "\t0\t0\nVmSwap:\t    2048 kB\n");
    root_.write(folder + "io", "rchar: 1\nwchar: 2\nsyscr: 40\nsyscw: 12\n");
  }
  test::TempDir root_;
};

// The first screen counts the processor time since the process started, later ones the time
// since the previous screen.
TEST_F(TopScreenMachine, PrintsTheUsersProcessesWithTheirFigures) {
  root_.write("proc/uptime", "100.00 50.00\n");
  process(2001, 1000, "a) (b\nc", 7, 100);
  process(2002, 1001, "other", 7, 100);
  root_.mkdir("proc/2003");  // ended while the screen was made
  const auto files = MachineFiles::underRoot(root_.path());
  const uint64_t page = files->pageSize();
  TopScreen screen(files, 1000, 100,
                   *TopScreen::parseColumns("pid,cpu,mem,purg,cmprs,msgsent,msgrecv,power"));
  const std::string mem = TopScreen::byteSize(100 * page);
  EXPECT_EQ(screen.next(),
            "PID     %CPU    MEM     PURG    CMPRS   MSGSENT MSGRECV POWER\n"
            "2001    0.1     " +
                mem + std::string(8 - mem.size(), ' ') + "0B      2M      12      40      0.1\n");

  root_.write("proc/uptime", "102.00 50.00\n");
  process(2001, 1000, "a) (b\nc", 107, 100);
  const std::string second = screen.next({2001, 2002, 2003});
  EXPECT_NE(second.find("\n2001    50.0    "), std::string::npos) << second;
  EXPECT_EQ(second.find("2002"), std::string::npos);
}

}  // namespace top_screen_test
}  // namespace vexa
