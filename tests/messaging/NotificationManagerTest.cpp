// The notification manager over a banner centre with recorded views, the real socket server and
// a raw host: which banners are shown, and what an answer to a removal banner starts and sends.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "banners/FakeBannerViews.h"
#include "messaging/AppLauncher.h"
#include "messaging/LocalizedStrings.h"
#include "support/RawClient.h"
#include "support/Signal.h"
#include "support/TempDir.h"
#include "util/AtomicFile.h"
#include "vexa/banners/UserNotification.h"
#include "vexa/banners/UserNotificationCenter.h"
#include "vexa/messaging/Message.h"
#include "vexa/messaging/NotificationManager.h"
#include "vexa/messaging/XCommandHandler.h"
#include "vexa/messaging/XConnectClient.h"
#include "vexa/messaging/XSocketServer.h"

namespace vexa {
namespace notification_manager_test {

using test::FakeBannerViews;
using test::RawClient;
constexpr const char* kHost = XSocketServer::kHostIdentity;

struct FakeLauncher : AppLauncher {
  bool launch(const std::string& identity) override {
    launched.push_back(identity);
    return result;
  }
  std::vector<std::string> launched;
  bool result = true;
};

// Answers the host as the application monitor does: the removal report at its connection.
struct RemovalReporter : XCommandHandler {
  void hostConnected(const std::shared_ptr<XConnectClient>& connection) override {
    sendRemoveAppToClient(connection);
  }
  void sendRemoveAppToClient(const std::shared_ptr<XConnectClient>& connection) override {
    connection->sendData(Message("RemoveCommand", {{"AppFiles", nlohmann::json::array()}}));
  }
};

class NotificationManagerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    center = UserNotificationCenter::create([] { return Date(1000); }, views);
    server = XSocketServer::create("127.0.0.1", 0);
    ASSERT_TRUE(server->startListen());
    server->setCommandHandler(reporter);
    acceptor = std::thread([this] { server->acceptConnect(); });
    manager = NotificationManager::create(*center, *server, launcher);
  }
  void TearDown() override {
    server->stopListen();
    acceptor.join();
  }
  std::shared_ptr<UserNotification> post(const std::string& identity, int64_t type = 0,
                                         const std::string& app = kHost) {
    manager->postNotification(nullptr, nullptr, "Viewer", "", "", type, app, identity);
    auto banner = center->scheduledNotifications().back();
    center->checkMethod();
    return banner;
  }
  // A host that connects and says who it is.
  std::unique_ptr<RawClient> connectHost() {
    auto host = std::make_unique<RawClient>(server->port());
    host->receive();  // the greeting
    host->send(Message("ConnectCommand", {{"Identity", kHost}}));
    return host;
  }
  static int removalsWithin(RawClient& host, int milliseconds) {
    int count = 0;
    while (auto text = host.receive(milliseconds)) {
      if (text->find("RemoveCommand") != std::string::npos) ++count;
    }
    return count;
  }

  std::shared_ptr<FakeBannerViews> views = std::make_shared<FakeBannerViews>();
  std::shared_ptr<UserNotificationCenter> center;
  std::shared_ptr<XSocketServer> server;
  std::shared_ptr<RemovalReporter> reporter = std::make_shared<RemovalReporter>();
  std::shared_ptr<FakeLauncher> launcher = std::make_shared<FakeLauncher>();
  std::shared_ptr<NotificationManager> manager;
  std::thread acceptor;
};

TEST_F(NotificationManagerTest, OneBannerOfAKindIsShownAtATime) {
  auto first = post("MonitorApplication");
  auto second = post("MonitorApplication");
  auto urgent = post("MonitorApplication", 1);
  auto nameless = post("");
  EXPECT_TRUE(first->isVisible());
  EXPECT_FALSE(second->isVisible());
  EXPECT_TRUE(urgent->isVisible());
  EXPECT_FALSE(nameless->isVisible());
  EXPECT_EQ(manager->showingItems(), (std::vector{first, urgent}));
  EXPECT_EQ(first->actionButtonTitle(), "OK");
  EXPECT_EQ(first->otherButtonTitle(), "Cancel");
  EXPECT_TRUE(first->hasActionButton());

  views->views.at(0)->events->bannerAnswered(0);  // "Cancel": it leaves
  EXPECT_EQ(manager->showingItems(), (std::vector{urgent}));
  center->presentedNotification(second);
  EXPECT_FALSE(second->isVisible());  // the urgent one is of the same kind
  views->views.at(1)->events->bannerAnswered(0);
  EXPECT_TRUE(manager->showingItems().empty());
  center->presentedNotification(second);
  EXPECT_TRUE(second->isVisible());
  EXPECT_TRUE(launcher->launched.empty());
}

struct ClickCase {
  int64_t answer;
  std::string identity;
  std::string app;
  bool launches;
};

class ClickTest : public NotificationManagerTest,
                  public ::testing::WithParamInterface<ClickCase> {};

TEST_P(ClickTest, AnAnsweredRemovalBannerStartsTheHostWhichGetsOneReport) {
  const auto& c = GetParam();
  post(c.identity, 0, c.app);
  views->views.at(0)->events->bannerAnswered(c.answer);
  EXPECT_EQ(launcher->launched,
            c.launches ? std::vector<std::string>{kHost} : std::vector<std::string>{});
  // Whether a click waited for it or not, the host that connects gets its report once.
  auto host = connectHost();
  EXPECT_EQ(removalsWithin(*host, 500), 1);
}

INSTANTIATE_TEST_SUITE_P(Answers, ClickTest,
                         ::testing::Values(ClickCase{1, "MonitorApplication", kHost, true},
                                           ClickCase{2, "MonitorApplication", kHost, true},
                                           ClickCase{0, "MonitorApplication", kHost, false},
                                           ClickCase{1, "Other", kHost, false},
                                           ClickCase{1, "MonitorApplication", "org.example.App",
                                                     false}));

TEST_F(NotificationManagerTest, AClickWhileTheHostIsConnectedSendsItTheReportAtOnce) {
  auto host = connectHost();
  ASSERT_EQ(removalsWithin(*host, 500), 1);
  post("MonitorApplication");
  views->views.at(0)->events->bannerAnswered(1);
  EXPECT_EQ(removalsWithin(*host, 500), 1);

  // A host that cannot be started is not waited for.
  launcher->result = false;
  post("MonitorApplication");
  views->views.at(1)->events->bannerAnswered(1);
  EXPECT_EQ(removalsWithin(*host, 300), 0);
}

TEST_F(NotificationManagerTest, ALaunchThatNeverConnectsAndASecondClickLeaveOneWaiter) {
  post("MonitorApplication");
  views->views.at(0)->events->bannerAnswered(1);  // started something that never connects
  post("MonitorApplication");
  views->views.at(1)->events->bannerAnswered(1);
  EXPECT_EQ(launcher->launched.size(), 2u);
  auto host = connectHost();
  EXPECT_EQ(removalsWithin(*host, 500), 1);
}

// Holds the host's hostConnected until the test lets it go.
struct HeldReporter : RemovalReporter {
  void hostConnected(const std::shared_ptr<XConnectClient>& connection) override {
    entered.add();
    released.waitFor(1);
    RemovalReporter::hostConnected(connection);
  }
  test::Signal entered;
  test::Signal released;
};

TEST_F(NotificationManagerTest, AClickWhileTheHostIsBeingServedAtItsConnectionAddsNoReport) {
  auto held = std::make_shared<HeldReporter>();
  server->setCommandHandler(held);
  auto host = connectHost();
  ASSERT_TRUE(held->entered.waitFor(1));
  test::Signal called;
  EXPECT_FALSE(server->whenIdentified(kHost, [&](const auto&) { called.add(); }));
  held->released.add();
  EXPECT_EQ(removalsWithin(*host, 500), 1);
  EXPECT_EQ(called.count(), 0);
  // Once served, a later click sends at once again.
  EXPECT_TRUE(test::eventually(
      [&] { return server->whenIdentified(kHost, [&](const auto&) { called.add(); }); }));
  EXPECT_EQ(called.count(), 1);
  EXPECT_EQ(removalsWithin(*host, 300), 0);  // the call was ours, not a report
}

TEST_F(NotificationManagerTest, WaitersForAnIdentityRunOnceWhicheverSideComesFirst) {
  test::Signal called;
  server->whenIdentified("org.example.Late", [&](const auto&) { called.add(); });
  RawClient late(server->port());
  late.receive();
  late.send(Message("ConnectCommand", {{"Identity", "org.example.Late"}}));
  ASSERT_TRUE(called.waitFor(1));
  server->whenIdentified("org.example.Late", [&](const auto&) { called.add(); });
  EXPECT_EQ(called.count(), 2);  // at once: it is connected
}

struct StringsCase {
  std::string text;
  std::string key;
  std::string expected;
};

class LocalizedStringsTest : public ::testing::TestWithParam<StringsCase> {};

TEST_P(LocalizedStringsTest, EntriesAreReadAndBadOnesSkipped) {
  const auto& c = GetParam();
  EXPECT_EQ(LocalizedStrings::parse(c.text).localized(c.key), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Files, LocalizedStringsTest,
    ::testing::Values(StringsCase{R"("OK" = "Bestätigen";)", "OK", "Bestätigen"},
                      StringsCase{"/* c */ \"OK\"=\"A\"; // x\n\"Cancel\" = \"B\";", "Cancel", "B"},
                      StringsCase{R"("a\"b" = "line\none";)", "a\"b", "line\none"},
                      StringsCase{"\"OK\" \"x\";\n\"Cancel\" = \"C\";", "Cancel", "C"},
                      StringsCase{R"("OK" = "unterminated)", "OK", "OK"},
                      StringsCase{"", "Missing", "Missing"}));

TEST(LocalizedStringsFileTest, TheLanguagesFolderIsReadAndOddLanguagesAreNot) {
  test::TempDir dir;
  ASSERT_TRUE(AtomicFile::createFolders(dir / "de.lproj"));
  ASSERT_FALSE(AtomicFile::write(dir / "de.lproj/Localizable.strings", R"("OK" = "Gut";)"));
  EXPECT_EQ(LocalizedStrings::load(dir.path(), "de").localized("OK"), "Gut");
  EXPECT_EQ(LocalizedStrings::load(dir.path(), "fr").size(), 0u);
  EXPECT_EQ(LocalizedStrings::load(dir.path(), "../de").size(), 0u);
  EXPECT_EQ(LocalizedStrings::load(dir.path(), "").size(), 0u);
}

}  // namespace notification_manager_test
}  // namespace vexa
