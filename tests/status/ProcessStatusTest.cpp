#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <ostream>

#include "status/LaunchedApplications.h"
#include "status/ProcessRecorder.h"
#include "status/ProcessText.h"
#include "status/ProcessTool.h"
#include "support/Signal.h"
#include "vexa/status/ProcessStatus.h"
#include "vexa/status/ProcessStatusEx.h"

namespace vexa {
namespace process_status_test {

using test::ProcessRecorder;

class FixedApplications : public LaunchedApplications {
 public:
  explicit FixedApplications(std::vector<Record> records) : records_(std::move(records)) {}
  std::vector<Record> launched() override { return records_; }
  std::vector<Record> records_;
};

// Answers recorded tool text; nothing stands for a tool that exited with an error.
class RecordedTool : public ProcessTool {
 public:
  std::optional<std::string> usage(const std::vector<int32_t>& pids) override {
    asked = pids;
    return usageText;
  }
  std::optional<std::string> states(const std::vector<int32_t>& pids) override {
    asked = pids;
    return statesText;
  }
  std::optional<std::string> usageText;
  std::optional<std::string> statesText;
  std::vector<int32_t> asked;
};

std::vector<LaunchedApplications::Record> apps(std::initializer_list<int32_t> pids) {
  std::vector<LaunchedApplications::Record> records;
  for (const int32_t pid : pids) {
    records.push_back({"App " + std::to_string(pid), "/apps/" + std::to_string(pid), pid});
  }
  return records;
}

template <typename Info>
const Info* byPid(const std::vector<Info>& infos, int32_t pid) {
  const auto found =
      std::find_if(infos.begin(), infos.end(), [&](const Info& info) { return info.pid == pid; });
  return found == infos.end() ? nullptr : &*found;
}

// procps ps -o pid,%cpu,%mem,rss,vsz,stat as it prints on a desktop: a multi-letter state with
// a modifier ("S<Ll", "Ss+") ends the pattern's state letters early, so those lines match
// nothing and their records keep their zeros, while the lines around them still read whole.
constexpr const char* kProcpsScreen =
    "    PID %CPU %MEM   RSS    VSZ STAT\n"
    "      1  0.8  0.0 12112  41896 S<Ll\n"
    "    812  0.0  0.1  5120  17400 Ss+\n"
    "   2001 12.5  1.9 81234 912340 R\n"
    "   2002  0.3  0.4 20480 301244 S\n"
    "   2003  0.0  0.0  2048  10020 SX\n"
    "   2004  3.1  0.2  4096  20040 RX\n"
    "   2005  100  9.9 99999 999999 Ss\n"
    "   7777  1.0  1.0  1000   1000 R\n"
    "   2006  0.0  0.0 99999999999 3000000000 S\n";

TEST(ProcessStatusTest, ReadsEachLineOfARecordedScreenIntoItsRecord) {
  auto tool = std::make_shared<RecordedTool>();
  tool->usageText = kProcpsScreen;
  const auto status = ProcessStatus::create(
      std::make_shared<FixedApplications>(apps({1, 812, 2001, 2002, 2003, 2004, 2005, 2006, 4242})),
      tool);
  const auto recorder = std::make_shared<ProcessRecorder>();
  status->setDelegate(recorder);
  status->updateInfo();

  EXPECT_EQ(tool->asked, (std::vector<int32_t>{1, 812, 2001, 2002, 2003, 2004, 2005, 2006, 4242}));
  const auto reports = recorder->plain();
  ASSERT_EQ(reports.size(), 1u);
  ASSERT_TRUE(reports[0]);
  const auto& infos = *reports[0];
  ASSERT_EQ(infos.size(), 9u);  // the pid the tool did not print (4242) keeps its record

  struct Expected {
    int32_t pid;
    double cpu, memory;
    int32_t rss, vsz;
    int64_t stat;
  };
  const Expected expected[] = {
      {1, 0, 0, 0, 0, 0},
      {812, 0, 0, 0, 0, 0},
      {2001, 12.5, 1.9, 81234, 912340, 1},
      {2002, 0.3, 0.4, 20480, 301244, 0},
      {2003, 0, 0, 2048, 10020, 2},
      {2004, 3.1, 0.2, 4096, 20040, 3},
      {2005, 100, 9.9, 99999, 999999, 0},
      {2006, 0, 0, INT32_MAX, INT32_MAX, 0},  // sizes past the fields stay at the largest
      {4242, 0, 0, 0, 0, 0},
  };
  for (const Expected& e : expected) {
    SCOPED_TRACE(e.pid);
    const ProcessInfo* info = byPid(infos, e.pid);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->appName, "App " + std::to_string(e.pid));
    EXPECT_EQ(info->appPath, "/apps/" + std::to_string(e.pid));
    EXPECT_DOUBLE_EQ(info->cpu, e.cpu);
    EXPECT_DOUBLE_EQ(info->memory, e.memory);
    EXPECT_EQ(info->phyMemoryPages, e.rss);
    EXPECT_EQ(info->virtMemoryPages, e.vsz);
    EXPECT_EQ(info->stat, e.stat);
  }
  EXPECT_EQ(byPid(infos, 7777), nullptr);  // printed, but not an application
}

TEST(ProcessStatusTest, ReportsAbsentListWithoutApplicationsAndNothingWhenTheToolFails) {
  auto tool = std::make_shared<RecordedTool>();
  auto launched = std::make_shared<FixedApplications>(apps({}));
  const auto status = ProcessStatus::create(launched, tool);
  EXPECT_EQ(status->freshInterval(), 2);
  const auto recorder = std::make_shared<ProcessRecorder>();
  status->setDelegate(recorder);

  status->updateInfo();
  ASSERT_EQ(recorder->plain().size(), 1u);
  EXPECT_FALSE(recorder->plain()[0]);
  EXPECT_TRUE(tool->asked.empty());  // the tool is not even asked

  launched->records_ = apps({2001});
  tool->usageText.reset();  // ps exits 1 when none of its pids exists
  status->updateInfo();
  EXPECT_EQ(recorder->plain().size(), 1u);

  tool->usageText = "    PID %CPU %MEM   RSS    VSZ STAT\n";  // header only: empty records
  status->updateInfo();
  ASSERT_EQ(recorder->plain().size(), 2u);
  ASSERT_TRUE(recorder->plain()[1]);
  ASSERT_EQ(recorder->plain()[1]->size(), 1u);
  EXPECT_EQ((*recorder->plain()[1])[0].stat, 0);
}

TEST(ProcessTextTest, StateCodesCompareTheWholeText) {
  const std::pair<const char*, std::optional<int64_t>> cases[] = {
      {"R", 1},   {"SX", 2}, {"RX", 3}, {"S", 0},           {"Ss", 0},
      {"RXs", 0}, {"r", 0},  {"X", 0},  {"", std::nullopt},
  };
  for (const auto& [text, code] : cases) EXPECT_EQ(process_text::stateCode(text), code) << text;
}

TEST(ProcessStatusExTest, ByteSizesKeepTheLastIntegerWithItsUnit) {
  const auto status = ProcessStatusEx::create(std::make_shared<FixedApplications>(apps({})),
                                              std::make_shared<RecordedTool>(), {"/bin/true"});
  const std::pair<const char*, uint64_t> cases[] = {
      {"512K", 524288},
      {"3M+", 3145728},
      {"12", 12},
      {"", 0},
      {"0B", 0},
      {"7B", 7},
      {"2G", uint64_t{2} << 30},
      {"12M-", uint64_t{12} << 20},
      {"1.5G", uint64_t{5} << 30},  // the last integer decides
      {"K", 0},
      {"99999999999999999999K", 0},  // does not fit: no value
  };
  for (const auto& [text, bytes] : cases)
    EXPECT_EQ(status->getByteSizeFromStr(text), bytes) << text;
}

// Two screens of vexa-top with the columns pid,cpu,mem,purg,cmprs,msgsent,msgrecv,power.
constexpr const char* kTopFirst =
    "PID     %CPU    MEM     PURG    CMPRS   MSGSENT MSGRECV POWER\n"
    "2001    12.5    80M     0B      512K    1500    3200    12.5\n"
    "2002    0.0     3M+     0B      0B      12      40      0.0\n"
    "3333    1.0     1M      0B      0B      1       1       1.0\n";
constexpr const char* kTopSecond =
    "PID     %CPU    MEM     PURG    CMPRS   MSGSENT MSGRECV POWER\n"
    "2001    50.0    81M     0B      1M      1600    3300    50.0\n"
    "2002    0.5     3M      0B      0B      13      45      0.5\n";

class ProcessStatusExScreens : public ::testing::Test {
 protected:
  void SetUp() override {
    tool_->statesText = "    PID STAT\n   2001 R\n   2002 S\n";
    status_->setDelegate(recorder_);
    status_->updateProcessInfo();  // the records, and a stand-in for vexa-top that prints nothing
  }
  std::shared_ptr<RecordedTool> tool_ = std::make_shared<RecordedTool>();
  std::shared_ptr<ProcessStatusEx> status_ =
      ProcessStatusEx::create(std::make_shared<FixedApplications>(apps({2001, 2002})), tool_,
                              {"/bin/sh", "-c", "exec sleep 60"});
  std::shared_ptr<ProcessRecorder> recorder_ = std::make_shared<ProcessRecorder>();
};

TEST_F(ProcessStatusExScreens, FirstScreenCarriesTheIntervalLaterOnesThePreviousCounts) {
  status_->readOutputData(kTopFirst);
  auto reports = recorder_->extended();
  ASSERT_EQ(reports.size(), 1u);
  const auto& infos = reports[0];
  ASSERT_EQ(infos.size(), 2u);
  const ProcessInfoEx* first = byPid(infos, 2001);
  ASSERT_NE(first, nullptr);
  EXPECT_DOUBLE_EQ(first->cpu, 12.5);
  EXPECT_EQ(first->memory, uint64_t{80} << 20);
  EXPECT_EQ(first->purgMemory, 0u);
  EXPECT_EQ(first->cmprsMemory, 524288u);
  EXPECT_EQ(first->msgsent, 1500u);
  EXPECT_EQ(first->msgrecv, 3200u);
  EXPECT_EQ(first->prevMsgsent, 0u);
  EXPECT_EQ(first->prevMsgrecv, 0u);
  EXPECT_DOUBLE_EQ(first->power, 12.5);
  EXPECT_EQ(first->stat, 1);
  EXPECT_EQ(status_->freshInterval(), 1);
  EXPECT_DOUBLE_EQ(first->sampleInterval, 1.0);
  const ProcessInfoEx* second = byPid(infos, 2002);
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(second->memory, 3145728u);
  EXPECT_EQ(second->stat, 0);
  EXPECT_EQ(tool_->asked, (std::vector<int32_t>{2001, 2002}));

  // States the query no longer answers are left as they were.
  tool_->statesText.reset();
  status_->readOutputData(kTopSecond);
  reports = recorder_->extended();
  ASSERT_EQ(reports.size(), 2u);
  const ProcessInfoEx* later = byPid(reports[1], 2001);
  ASSERT_NE(later, nullptr);
  EXPECT_EQ(later->prevMsgsent, 1500u);
  EXPECT_EQ(later->msgsent, 1600u);
  EXPECT_EQ(later->prevMsgrecv, 3200u);
  EXPECT_EQ(later->msgrecv, 3300u);
  EXPECT_EQ(later->cmprsMemory, uint64_t{1} << 20);
  EXPECT_DOUBLE_EQ(later->cpu, 50.0);
  EXPECT_EQ(later->stat, 1);
  // The measured time since the first screen, no longer freshInterval.
  EXPECT_GE(later->sampleInterval, 0.0);
  EXPECT_LT(later->sampleInterval, 1.0);
}

TEST_F(ProcessStatusExScreens, ALineSplitBetweenChunksIsReadOnceWhole) {
  const std::string screen = kTopFirst;
  const size_t cut = screen.find("512K") + 2;  // inside the first process's line
  status_->readOutputData(screen.substr(0, cut));
  ASSERT_EQ(recorder_->extended().size(), 1u);
  EXPECT_EQ(byPid(recorder_->extended()[0], 2001)->msgsent, 0u);  // not seen yet
  status_->readOutputData(screen.substr(cut));
  const auto reports = recorder_->extended();
  ASSERT_EQ(reports.size(), 2u);
  const ProcessInfoEx* info = byPid(reports[1], 2001);
  ASSERT_NE(info, nullptr);
  EXPECT_EQ(info->cmprsMemory, 524288u);
  EXPECT_EQ(info->msgsent, 1500u);
  EXPECT_EQ(info->prevMsgsent, 0u);

  // A chunk without any line end reports nothing.
  status_->readOutputData("2002    0.0     3M");
  EXPECT_EQ(recorder_->extended().size(), 2u);
}

// The bookkeeping starts the top program on its queue; when the program ends, the next
// bookkeeping starts it again, and without applications it is stopped.
TEST(ProcessStatusExTest, RestartsTheTopProgramAfterItEndsAndStopsItWithoutApplications) {
  auto tool = std::make_shared<RecordedTool>();
  tool->statesText = "PID STAT\n2001 R\n";
  auto launched = std::make_shared<FixedApplications>(apps({2001}));
  const std::string screen = kTopFirst;
  // Prints one screen and ends; each start prints once more.
  const auto status =
      ProcessStatusEx::create(launched, tool, {"/bin/sh", "-c", "printf '%s' \"$0\"", screen});
  const auto recorder = std::make_shared<ProcessRecorder>();
  status->setDelegate(recorder);

  status->updateProcessInfo();
  ASSERT_TRUE(recorder->waitForExtended(1, std::chrono::seconds(10)));
  ASSERT_TRUE(test::eventually([&] { return !status->hasStatusTask(); }));
  status->updateProcessInfo();
  ASSERT_TRUE(recorder->waitForExtended(2, std::chrono::seconds(10)));
  EXPECT_EQ(byPid(recorder->extended()[1], 2001)->prevMsgsent, 1500u);

  // A program that keeps running is stopped once no application runs.
  const auto lasting = ProcessStatusEx::create(
      launched, tool, {"/bin/sh", "-c", "printf '%s' \"$0\"; exec sleep 30", screen});
  lasting->setDelegate(recorder);
  lasting->updateProcessInfo();
  ASSERT_TRUE(recorder->waitForExtended(3, std::chrono::seconds(10)));
  EXPECT_TRUE(lasting->hasStatusTask());
  launched->records_.clear();
  lasting->updateProcessInfo();
  EXPECT_FALSE(lasting->hasStatusTask());
}

// A top program that stops printing is ended after five intervals (5 s at least), and the next
// bookkeeping starts another.
TEST(ProcessStatusExTest, AStalledTopProgramIsEndedAndStartedAgain) {
  auto tool = std::make_shared<RecordedTool>();
  tool->statesText = "PID STAT\n2001 S\n";
  auto launched = std::make_shared<FixedApplications>(apps({2001}));
  const auto status = ProcessStatusEx::create(
      launched, tool, {"/bin/sh", "-c", "printf '%s' \"$0\"; exec sleep 60", kTopFirst});
  const auto recorder = std::make_shared<ProcessRecorder>();
  status->setDelegate(recorder);
  status->updateProcessInfo();
  ASSERT_TRUE(recorder->waitForExtended(1, std::chrono::seconds(10)));
  EXPECT_TRUE(status->hasStatusTask());
  ASSERT_TRUE(test::eventually([&] { return !status->hasStatusTask(); }, std::chrono::seconds(20)));
  status->updateProcessInfo();
  ASSERT_TRUE(recorder->waitForExtended(2, std::chrono::seconds(10)));
  EXPECT_TRUE(status->hasStatusTask());
}

}  // namespace process_status_test
}  // namespace vexa
