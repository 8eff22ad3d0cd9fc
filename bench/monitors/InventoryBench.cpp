// The inventory a first start takes: 1,000 desktop entries with themed icons and 200 ".app"
// bundles with their own icons. "cold" makes every 64-pixel thumbnail, "warm" finds them made
// (the cost of every later inventory). The floor reads every file the inventory has to read;
// "without-packages" is the warm inventory with no package database to ask (this machine's dpkg
// database is indexed once per inventory otherwise).
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "support/AppFixtures.h"
#include "support/FakeEventStream.h"
#include "vexa/events/FileSystemMonitor.h"
#include "vexa/events/MonitorDispatch.h"
#include "vexa/messaging/XSocketServer.h"
#include "vexa/monitors/MonitorApplication.h"
#include "vexa/util/DispatchQueue.h"
#include "vexa/util/Preferences.h"

namespace vexa {
namespace {

namespace fs = std::filesystem;

constexpr int kEntries = 1000, kBundles = 200;

// The machine: built once per run in a temporary folder, with the environment pointed at it.
struct Machine {
  Machine() {
    for (const auto& [name, value] : {std::pair{"HOME", "home"},
                                      {"XDG_DATA_HOME", "home/.local/share"},
                                      {"XDG_DATA_DIRS", "sys"},
                                      {"XDG_CACHE_HOME", "home/.cache"}}) {
      setenv(name, (dir / value).c_str(), 1);
    }
    auto icon = Image::filled(128, 128, 0x3366ccff);
    dir.mkdir("sys/icons/hicolor/128x128/apps");
    for (int i = 0; i < kEntries; ++i) {
      const std::string id = "org.example.App" + std::to_string(i);
      test::makeDesktopEntry(dir, "sys/applications/" + id + ".desktop", "App " + std::to_string(i),
                             "Icon=" + id + "\nX-AppVersion=1." + std::to_string(i) + "\n");
      icon->writePNG(dir / ("sys/icons/hicolor/128x128/apps/" + id + ".png"));
    }
    auto large = Image::filled(256, 256, 0xcc3366ff);
    for (int i = 0; i < kBundles; ++i) {
      test::BundleRecipe recipe;
      recipe.identifier = "com.example.Bundle" + std::to_string(i);
      recipe.name = "Bundle" + std::to_string(i);
      recipe.iconFile = "AppIcon";
      const std::string bundle =
          test::makeBundle(dir, "home/Applications/" + recipe.name + ".app", recipe);
      fs::create_directories(bundle + "/Contents/Resources");
      large->writePNG(bundle + "/Contents/Resources/AppIcon.icns");
    }
  }
  test::TempDir dir;
};

Machine& machine() {
  static Machine* m = new Machine();
  return *m;
}

struct Monitor {
  Monitor()
      : log(std::make_shared<test::FakeStreamLog>()),
        prefs(machine().dir / "prefs.json"),
        fsMonitor(std::make_unique<test::FakeEventStreamFactory>(log), prefs),
        dispatch(MonitorDispatch::create(fsMonitor, DispatchQueue::global())),
        server(XSocketServer::create("127.0.0.1", 0)),
        monitor(MonitorApplication::create(*dispatch, *server)) {
    monitor->setCacheFolderPath(machine().dir / "cache");
  }
  std::shared_ptr<test::FakeStreamLog> log;
  Preferences prefs;
  FileSystemMonitor fsMonitor;
  std::shared_ptr<MonitorDispatch> dispatch;
  std::shared_ptr<XSocketServer> server;
  std::shared_ptr<MonitorApplication> monitor;
};

void inventory(benchmark::State& state, bool cold, bool packages = true) {
  machine();
  Monitor m;
  // Without the package databases: the inventory as it was before records asked them.
  if (!packages) m.monitor->setPackageDatabase(nullptr);
  size_t found = 0;
  for (auto _ : state) {
    if (cold) {
      state.PauseTiming();
      fs::remove_all(machine().dir / "cache");
      state.ResumeTiming();
    }
    m.monitor->queryAllInstalledAppWithFilter({});
    found = m.monitor->apps().size();
  }
  if (found != kEntries + kBundles) state.SkipWithError("not every application was found");
  state.counters["apps"] = static_cast<double>(found);
}

void BM_InventoryCold(benchmark::State& state) { inventory(state, true); }
void BM_InventoryWarm(benchmark::State& state) { inventory(state, false); }
void BM_InventoryWarmWithoutPackages(benchmark::State& state) { inventory(state, false, false); }

// Reads every desktop entry and Info.plist and looks at every bundle's files.
void BM_InventoryWarmFloor(benchmark::State& state) {
  machine();
  for (auto _ : state) {
    size_t bytes = 0;
    for (const auto& item : fs::directory_iterator(machine().dir / "sys/applications")) {
      bytes += test::readFile(item.path()).size();
    }
    for (const auto& bundle : fs::directory_iterator(machine().dir / "home/Applications")) {
      bytes += test::readFile(bundle.path() / "Contents/Info.plist").size();
      for (const auto& file : fs::recursive_directory_iterator(bundle.path())) {
        if (file.is_regular_file()) bytes += file.file_size() > 0 ? 1 : 0;
      }
    }
    benchmark::DoNotOptimize(bytes);
  }
}

BENCHMARK(BM_InventoryCold)
    ->Name("Inventory1200/cold")
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);
BENCHMARK(BM_InventoryWarm)->Name("Inventory1200/library")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_InventoryWarmWithoutPackages)
    ->Name("Inventory1200/without-packages")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_InventoryWarmFloor)->Name("Inventory1200/floor")->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace vexa
