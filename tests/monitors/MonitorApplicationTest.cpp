// The installed-application monitor's bookkeeping: inventory, cache, installs, trashings,
// delayed removals and what the host hears of them.
#include "vexa/monitors/MonitorApplication.h"

#include <gtest/gtest.h>

#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <future>
#include <random>
#include <set>
#include <thread>

#include "monitors/MonitorFixture.h"
#include "support/AppFixtures.h"
#include "util/PropertyList.h"
#include "vexa/util/MonitorData.h"

namespace vexa {
namespace monitor_application_test {

namespace fs = std::filesystem;
using nlohmann::json;
using test::makeBundle;
using test::makeDesktopEntry;

class RecordingAppDelegate : public MonitorApplicationDelegate {
 public:
  void appsScan(const std::vector<std::shared_ptr<AppFile>>& apps) override {
    std::lock_guard lock(mutex);
    for (const auto& app : apps) scanned.push_back(app->appPath);
    scans.add();
  }
  void appRemoved(const std::shared_ptr<AppFile>& app) override {
    {
      std::lock_guard lock(mutex);
      removed.push_back(app->appPath);
    }
    removals.add();
  }
  std::vector<std::string> removedPaths() {
    std::lock_guard lock(mutex);
    return removed;
  }
  std::mutex mutex;
  std::vector<std::string> scanned, removed;
  test::Signal scans, removals;
};

void writeCache(const std::string& file, const json& installed) {
  auto archive = PropertyList::toBinary(json{{"InstallApp", installed}});
  auto packed = MonitorData::gzipData(std::string_view(*archive));
  std::filesystem::create_directories(std::filesystem::path(file).parent_path());
  std::ofstream(file, std::ios::binary)
      .write(reinterpret_cast<const char*>(packed->data()),
             static_cast<std::streamsize>(packed->size()));
}

class MonitorApplicationTest : public test::MonitorFixture {
 protected:
  MonitorApplicationTest() : listener(std::make_shared<RecordingAppDelegate>()) {
    monitor->setDelegate(listener);
  }

  std::shared_ptr<RecordingAppDelegate> listener;
};

TEST_F(MonitorApplicationTest, AFirstStartTakesTheInventoryAndCachesIt) {
  const std::string editor = makeBundle(dir, "home/Applications/Editor.app");
  test::BundleRecipe nested;
  nested.identifier = "com.example.Nested";
  const std::string utility = makeBundle(dir, "home/Applications/Utilities/Nested.app", nested);
  test::BundleRecipe inner;
  inner.identifier = "com.example.Inner";  // inside another bundle: part of it, not an app
  makeBundle(dir, "home/Applications/Editor.app/Contents/Helpers/Inner.app", inner);
  const std::string viewer = makeDesktopEntry(dir, "sys/applications/viewer.desktop", "System");
  // The user's entry with the same id shadows the system one.
  const std::string mine =
      makeDesktopEntry(dir, "home/.local/share/applications/viewer.desktop", "Mine");
  makeDesktopEntry(dir, "home/.local/share/applications/gone.desktop", "G", "Hidden=true\n");
  const std::string gone = makeDesktopEntry(dir, "sys/applications/gone.desktop", "Gone");

  monitor->startMonitor();
  auto apps = monitor->apps();
  std::vector<std::string> paths;
  for (const auto& [path, app] : apps) paths.push_back(path);
  EXPECT_EQ(paths, (std::vector<std::string>{mine, editor, utility}));
  EXPECT_EQ(apps[mine]->appName, "Mine");

  auto cached = test::readAppCache(cache() + "/appcache.dat");
  ASSERT_EQ(cached.size(), 3u);
  EXPECT_EQ(cached[editor]["appBundleIdentifer"], "com.example.Editor");
  EXPECT_EQ(fs::status(cache() + "/appcache.dat").permissions() & fs::perms::all,
            fs::perms::owner_read | fs::perms::owner_write);

  // The home folder and the system applications folder are watched; the user's applications
  // folder lies inside the home folder and is covered by it.
  auto registered = dispatch->registrations();
  ASSERT_EQ(registered.size(), 2u);
  EXPECT_EQ(registered[0].first, dir / "home");
  EXPECT_EQ(registered[1].first, dir / "sys/applications");
  monitor->stopMonotor();
  EXPECT_TRUE(dispatch->registrations().empty());
}

TEST_F(MonitorApplicationTest, ALargeInventoryIsFilledByManyHands) {
  test::makePng(dir, "sys/icons/hicolor/64x64/apps/shared.png", 64, 64);
  std::set<std::string> made;
  for (int i = 0; i < 150; ++i) {
    made.insert(makeDesktopEntry(dir, "sys/applications/app" + std::to_string(i) + ".desktop",
                                 "App " + std::to_string(i), "Icon=shared\n"));
  }
  monitor->queryAllInstalledAppWithFilter({dir / "sys"});
  monitor->queryAllInstalledAppWithFilter({dir / "elsewhere"});  // nothing qualifies
  auto apps = monitor->apps();
  std::set<std::string> found;
  for (const auto& [path, app] : apps) {
    found.insert(path);
    const std::string id = path.substr(path.rfind('/') + 1, path.size() - path.rfind('/') - 9);
    EXPECT_EQ(app->appIconCachePath, cache() + "/" + id + ".png");
  }
  EXPECT_EQ(found, made);
  // One thumbnail per identifier, and no half-written file left over.
  size_t files = 0;
  for (const auto& item : fs::directory_iterator(cache())) {
    EXPECT_EQ(item.path().extension(), ".png") << item.path();
    ++files;
  }
  EXPECT_EQ(files, 150u);
}

TEST_F(MonitorApplicationTest, ALaterStartReadsTheCacheAndReportsWhatWaits) {
  AppFile waiting;
  waiting.appPath = "/gone/Old.app";
  waiting.appBundleIdentifer = "com.example.Old";
  waiting.needForceRemove = true;
  AppFile kept;
  kept.appPath = "/apps/Kept.app";
  writeCache(cache() + "/appcache.dat", {{"/gone/Old.app", waiting.toJSON()},
                                         {"/apps/Kept.app", kept.toJSON()},
                                         {"/apps/Bad.app", "{not json"},
                                         {"/apps/Odd.app", 42}});
  makeBundle(dir, "home/Applications/Editor.app");  // not looked for: the cache is trusted

  monitor->startMonitor();
  auto apps = monitor->apps();
  ASSERT_EQ(apps.size(), 2u);
  EXPECT_TRUE(apps.count("/gone/Old.app"));
  EXPECT_TRUE(apps.count("/apps/Kept.app"));
  ASSERT_EQ(listener->scans.count(), 1);
  EXPECT_EQ(listener->scanned, std::vector<std::string>{"/gone/Old.app"});
  auto marked = monitor->getAllScanApps();
  ASSERT_EQ(marked.size(), 1u);
  EXPECT_EQ(marked[0]->appBundleIdentifer, "com.example.Old");

  // A cache that is not one is ignored.
  auto fresh = MonitorApplication::create(*dispatch, *server);
  fresh->setCacheFolderPath(dir / "other");
  dir.write("other/appcache.dat", "definitely not gzip");
  fresh->unarchiver();
  EXPECT_TRUE(fresh->apps().empty());
}

TEST_F(MonitorApplicationTest, InstallsUnderAnInstallPathAreAnnounced) {
  monitor->startMonitor();
  auto host = connectHost({dir / "home/Applications"});

  // Outside every install path: recorded, not announced. In the Trash: ignored.
  const std::string elsewhere = makeBundle(dir, "home/Downloads/Other.app");
  monitor->fileCreated(elsewhere);
  const std::string trashed = makeBundle(dir, "home/.local/share/Trash/files/Old.app");
  monitor->fileCreated(trashed);
  monitor->fileCreated(dir.write("home/Applications/readme.txt", "not an app"));

  const std::string editor = makeBundle(dir, "home/Applications/Editor.app");
  monitor->fileCreated(editor);
  json message = receive(*host);
  EXPECT_EQ(message["name"], "InstallCommand");
  const json& app = message["parms"]["AppFile"];
  EXPECT_EQ(app["appPath"], editor);
  EXPECT_EQ(app["appBundleIdentifer"], "com.example.Editor");
  EXPECT_EQ(app["appVersion"], "2.1");
  EXPECT_EQ(app["needForceRemove"], false);

  const std::string viewer =
      makeDesktopEntry(dir, "home/Applications/viewer.desktop", "Viewer", "X-AppVersion=7\n");
  monitor->fileMoveIn(viewer);
  message = receive(*host);
  EXPECT_EQ(message["name"], "InstallCommand");
  EXPECT_EQ(message["parms"]["AppFile"]["appVersion"], "7");

  auto apps = monitor->apps();
  EXPECT_TRUE(apps.count(elsewhere));
  EXPECT_FALSE(apps.count(trashed));
  EXPECT_TRUE(apps.count(editor));

  // Moved out of the watched folders: forgotten, silently.
  fs::rename(elsewhere, dir / "Other.app");
  monitor->fileMoveOut(elsewhere);
  EXPECT_FALSE(monitor->apps().count(elsewhere));
  EXPECT_EQ(listener->removals.count(), 0);
}

// Package managers, editors and downloaders write under a temporary name and rename into place.
// The dispatcher reports each rename once per side it watches: twice here.
TEST_F(MonitorApplicationTest, ApplicationsRenamedIntoPlaceAreInstalledAndUpdatedOnce) {
  monitor->startMonitor();
  auto host = connectHost({dir / "home/Applications"});
  auto renamed = [&](const std::string& from, const std::string& to) {
    fs::rename(from, to);
    monitor->fileMoveOrRename(from, to);
    monitor->fileMoveOrRename(from, to);
  };

  const std::string viewer = dir / "home/Applications/viewer.desktop";
  renamed(makeDesktopEntry(dir, "home/Applications/viewer.desktop.dpkg-new", "Viewer",
                           "X-AppVersion=1.0\n"),
          viewer);
  json message = receive(*host);
  EXPECT_EQ(message["name"], "InstallCommand");
  EXPECT_EQ(message["parms"]["AppFile"]["appPath"], viewer);
  EXPECT_EQ(message["parms"]["AppFile"]["appVersion"], "1.0");

  // An upgrade replaces the entry by another rename: announced again, with the new version.
  renamed(makeDesktopEntry(dir, "home/Applications/.goutputstream-7QX2", "Viewer",
                           "X-AppVersion=2.0\n"),
          viewer);
  message = receive(*host);
  EXPECT_EQ(message["name"], "InstallCommand");
  EXPECT_EQ(message["parms"]["AppFile"]["appVersion"], "2.0");
  EXPECT_EQ(monitor->apps().at(viewer)->appVersion, "2.0");

  // A bundle finished under a partial name.
  const std::string editor = dir / "home/Applications/Editor.app";
  renamed(makeBundle(dir, "home/Applications/Editor.app.partial"), editor);
  message = receive(*host);  // and not a second viewer announcement before it
  EXPECT_EQ(message["name"], "InstallCommand");
  EXPECT_EQ(message["parms"]["AppFile"]["appPath"], editor);

  // Renamed from one application name to another: left alone.
  renamed(editor, dir / "home/Applications/Writer.app");
  EXPECT_FALSE(monitor->apps().count(dir / "home/Applications/Writer.app"));

  // Renamed away to a name no application has, then deleted: a removal, confirmed later.
  renamed(viewer, viewer + ".dpkg-old");
  fs::remove(viewer + ".dpkg-old");
  ASSERT_TRUE(listener->removals.waitFor(1, std::chrono::seconds(30)));
  EXPECT_EQ(listener->removedPaths(), std::vector<std::string>{viewer});
  EXPECT_TRUE(monitor->apps().at(viewer)->needForceRemove);
  EXPECT_FALSE(host->receive(100));  // nothing else was announced on the way
}

// When the kernel drops events, the stream says so for the folders concerned; what changed
// there unseen is found by looking again.
TEST_F(MonitorApplicationTest, LostEventsAreMadeUpForByLookingAgain) {
  const std::string old = makeBundle(dir, "home/Applications/Old.app");
  const std::string kept = makeBundle(dir, "home/Applications/Kept.app");
  monitor->startMonitor();
  auto host = connectHost({dir / "home/Applications"});
  const std::string stray = makeBundle(dir, "home/Downloads/Stray.app");
  monitor->fileCreated(stray);  // recorded by its event, though no folder lists it

  // Unseen: one application deleted, one installed by a rename, one beside the folder.
  fs::remove_all(old);
  const std::string fresh = dir / "home/Applications/Fresh.app";
  fs::rename(makeBundle(dir, "home/Applications/Fresh.app.partial"), fresh);
  const std::string beside = makeBundle(dir, "home/Applications-other/Beside.app");

  fsMonitor.processBatch({dir / "home/Applications"}, {0x1}, {1});
  json message = receive(*host);
  EXPECT_EQ(message["name"], "InstallCommand");
  EXPECT_EQ(message["parms"]["AppFile"]["appPath"], fresh);
  ASSERT_TRUE(listener->removals.waitFor(1, std::chrono::seconds(30)));
  EXPECT_EQ(listener->removedPaths(), std::vector<std::string>{old});
  auto apps = monitor->apps();
  EXPECT_FALSE(apps.count(beside));
  EXPECT_FALSE(apps.at(kept)->needForceRemove);
  EXPECT_FALSE(apps.at(stray)->needForceRemove);

  // Everywhere ("/"): nothing new, nothing announced twice.
  fsMonitor.processBatch({"/"}, {0x1}, {2});
  EXPECT_FALSE(host->receive(300));
  EXPECT_EQ(listener->removals.count(), 1);
}

TEST_F(MonitorApplicationTest, ABundleMovedToTheTrashIsUninstalled) {
  monitor->startMonitor();
  auto host = connectHost({dir / "home"});
  const std::string editor = makeBundle(dir, "home/Applications/Editor.app");
  monitor->fileCreated(editor);
  ASSERT_EQ(receive(*host)["name"], "InstallCommand");

  const std::string inTrash = trash() + "/Editor.app";
  fs::rename(editor, inTrash);
  monitor->fileMoveIn(inTrash);
  json message = receive(*host);
  EXPECT_EQ(message["name"], "UninstallCommand");
  EXPECT_EQ(message["parms"]["AppFile"]["appPath"], inTrash);
  EXPECT_EQ(message["parms"]["AppFile"]["needForceRemove"], true);
  EXPECT_EQ(listener->removedPaths(), std::vector<std::string>{inTrash});
  auto cached = test::readAppCache(cache() + "/appcache.dat");
  ASSERT_TRUE(cached.count(inTrash));
  EXPECT_EQ(cached[inTrash]["needForceRemove"], true);

  // Heard again (the dispatcher repeats): already known, nothing more.
  monitor->fileMoveIn(inTrash);
  EXPECT_EQ(listener->removals.count(), 1);

  // The trashed record waits for the host's clean-up; confirming it clears it.
  auto marked = monitor->getAllScanApps();
  ASSERT_EQ(marked.size(), 1u);
  EXPECT_EQ(marked[0]->appPath, inTrash);
  host->send(Message("ForceRemoveSuccessCommand", {{"Path", json::array()}}));
  host->send(Message("ForceRemoveSuccessCommand", {{"Path", {inTrash}}}));
  EXPECT_TRUE(test::eventually(
      [&] { return test::readAppCache(cache() + "/appcache.dat").count(inTrash) == 0; }));
  EXPECT_FALSE(monitor->apps().count(inTrash));
  EXPECT_TRUE(monitor->getAllScanApps().empty());
}

TEST_F(MonitorApplicationTest, DeletionsAreConfirmedAfterADelay) {
  monitor->startMonitor();
  const std::string kept = makeBundle(dir, "home/Applications/Kept.app");
  const std::string deleted = makeBundle(dir, "home/Applications/Deleted.app");
  monitor->fileCreated(kept);
  monitor->fileCreated(deleted);
  monitor->removeApp(dir / "home/Applications/Unknown.app", 0.0);  // never recorded: nothing

  // Deleted and made again before the check: not marked.
  fs::remove_all(kept);
  monitor->removeApp(kept, 0.05);
  makeBundle(dir, "home/Applications/Kept.app");
  fs::remove_all(deleted);
  monitor->removeApp(deleted, 0.1);

  ASSERT_TRUE(listener->removals.waitFor(1));
  EXPECT_EQ(listener->removedPaths(), std::vector<std::string>{deleted});
  auto apps = monitor->apps();
  EXPECT_FALSE(apps.at(kept)->needForceRemove);
  EXPECT_TRUE(apps.at(deleted)->needForceRemove);
  EXPECT_EQ(test::readAppCache(cache() + "/appcache.dat")[deleted]["needForceRemove"], true);

  // A host that identifies itself later is sent the removal report at once.
  auto host = connectHost({dir / "home/Applications"});
  json message = receive(*host);
  EXPECT_EQ(message["name"], "RemoveCommand");
  ASSERT_EQ(message["parms"]["AppFiles"].size(), 1u);
  EXPECT_EQ(message["parms"]["AppFiles"][0]["appPath"], deleted);

  // So does a restarted monitor, from its cache.
  auto restarted = MonitorApplication::create(*dispatch, *server);
  auto restartedListener = std::make_shared<RecordingAppDelegate>();
  restarted->setDelegate(restartedListener);
  restarted->setCacheFolderPath(cache());
  restarted->startMonitor();
  EXPECT_EQ(restartedListener->scanned, std::vector<std::string>{deleted});
  restarted->stopMonotor();
}

// The host hears of installs and trashings under the install paths it named, and of nothing
// while no application is marked removed; odd arguments change nothing.
TEST_F(MonitorApplicationTest, OutsideTheInstallPathsChangesAreRecordedButNotAnnounced) {
  monitor->startMonitor();
  auto host = connectHost(json::array());
  const auto connection = server->getConnetClientByIdentity(XSocketServer::kHostIdentity);
  monitor->sendRemoveAppToClient(connection);
  monitor->sendRemoveAppToClient(nullptr);
  monitor->clearForceRemovedApp(json::array());
  monitor->clearForceRemovedApp(json("not a list"));
  const std::string editor = makeBundle(dir, "home/Applications/Editor.app");
  monitor->fileCreated(editor);  // no install paths at all
  EXPECT_EQ(monitor->apps().size(), 1u);

  identify(*host, {dir / "home/Applications"});
  monitor->setInstallPaths(json(7));  // ignored: not a list
  EXPECT_EQ(monitor->installPaths(), std::vector<std::string>{dir / "home/Applications"});
  const std::string inTrash = trash() + "/Editor.app";
  fs::rename(editor, inTrash);
  monitor->fileMoveIn(inTrash);
  EXPECT_EQ(listener->removals.count(), 1);
  EXPECT_TRUE(monitor->apps().at(inTrash)->needForceRemove);
  // What the host hears first is the following install; then the removal report it asks for.
  monitor->fileCreated(makeBundle(dir, "home/Applications/Next.app"));
  EXPECT_EQ(receive(*host)["name"], "InstallCommand");
  monitor->sendRemoveAppToClient(connection);
  EXPECT_EQ(receive(*host)["name"], "RemoveCommand");
}

TEST_F(MonitorApplicationTest, OnePathsAnnouncementsKeepTheOrderOfItsChanges) {
  monitor->startMonitor();
  auto host = connectHost({dir / "home/Applications"});
  const std::string viewer = dir / "home/Applications/viewer.desktop";
  constexpr int kVersions = 20;
  for (int version = 1; version <= kVersions; ++version) {
    makeDesktopEntry(dir, "home/Applications/viewer.desktop", "Viewer",
                     "X-AppVersion=" + std::to_string(version) + "\n");
    monitor->fileCreated(viewer);
  }
  for (int version = 1; version <= kVersions; ++version) {
    json message = receive(*host);
    ASSERT_EQ(message["parms"]["AppFile"]["appVersion"], std::to_string(version));
  }
  EXPECT_EQ(monitor->apps().at(viewer)->appVersion, std::to_string(kVersions));
}

// Text that gzip cannot shrink much, so that messages carrying it fill socket buffers.
std::string incompressible(size_t size, unsigned seed) {
  static const char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+-";
  std::mt19937 random(seed);
  std::string text(size, ' ');
  for (char& c : text) c = kAlphabet[random() % 64];
  return text;
}

TEST_F(MonitorApplicationTest, AHostThatStopsReadingHoldsUpNeitherRecordsNorOtherHosts) {
  // Out of reach of this test: recording must not wait for a stuck host to be closed.
  server->setSendTimeout(std::chrono::minutes(10));
  monitor->startMonitor();
  monitor->fileMoveIn(makeBundle(dir, "home/.local/share/Trash/files/Old.app"));
  ASSERT_EQ(monitor->getAllScanApps().size(), 1u);

  // Identifies itself, then reads nothing, not even the greeting.
  serve();
  test::RawClient stuck;
  const int small = 4096;
  ASSERT_EQ(::setsockopt(stuck.fd(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small), 0);
  ASSERT_TRUE(stuck.connectTo(server->port()));
  const json installPaths{dir / "home/Applications"};
  identify(stuck, installPaths);

  // 100 installs whose announcements (about 100 KiB each, compressed) overflow what the two
  // socket buffers hold many times over, arriving as the dispatcher delivers events: each on a
  // task of its own.
  constexpr int kInstalls = 100;
  for (int i = 0; i < kInstalls; ++i) {
    const std::string entry = makeDesktopEntry(
        dir, "home/Applications/app" + std::to_string(i) + ".desktop", incompressible(64 << 10, i));
    dispatch->fileCreated(entry);
  }
  // Counted on a thread of its own: a monitor that kept its lock across a blocked send would
  // hold whoever asks for its records too.
  std::atomic<bool> giveUp{false};
  auto allRecorded = std::async(std::launch::async, [&] {
    while (monitor->apps().size() < kInstalls + 1u) {
      if (giveUp) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return true;
  });
  const bool recorded = allRecorded.wait_for(std::chrono::seconds(30)) == std::future_status::ready;

  // Another host that connects meanwhile is sent the removal report at once.
  test::RawClient other(server->port());
  EXPECT_TRUE(other.receive());  // the greeting
  other.send(Message("ConnectCommand",
                     {{"Identity", XSocketServer::kHostIdentity}, {"InstallPaths", installPaths}}));
  EXPECT_EQ(receive(other)["name"], "RemoveCommand");

  // Closing the stuck host fails the send it is blocked in; what waits behind it is dropped.
  giveUp = true;
  stuck.close();
  EXPECT_TRUE(recorded && allRecorded.get())
      << "installs were held up by a host that reads nothing";
}

}  // namespace monitor_application_test
}  // namespace vexa
