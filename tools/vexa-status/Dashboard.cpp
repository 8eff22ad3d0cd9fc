#include "Dashboard.h"

#include "DashboardFeed.h"
#include "DashboardLayout.h"
#include "DashboardScreen.h"
#include "vexa/status/PasteboardMonitor.h"
#include "vexa/status/SystemStatus.h"
#include "vexa/util/Timer.h"

#include <chrono>

namespace vexa::tools {

namespace {

// How often keys are read: short enough that typing feels immediate.
constexpr double kKeyInterval = 0.05;

// The cleaning's stop flag: the cleaning reads it on a worker until it reports its end, which
// may come after the dashboard is gone, so the flag lives as long as the process.
int32_t cleaningStop = 0;

}  // namespace

Dashboard::Dashboard(StatusSamplers samplers, int interval)
    : samplers_(std::move(samplers)), kernel_(samplers_.root), model_(interval) {
  feed_ = std::make_shared<DashboardFeed>(
      model_, samplers_.battery, [this] { dirty_ = true; }, [this] { cleaned(); });
  if (samplers_.system) model_.setSystem(SystemStatus::create(samplers_.root)->dictionary());
  model_.setCanClean(samplers_.memory != nullptr);
}

Dashboard::~Dashboard() {
  // Samplers and monitors that outlive this hear nothing more.
  if (samplers_.clipboard) PasteboardMonitor::shared().stop();
  if (samplers_.memory) samplers_.memory->setDelegate(nullptr);
  if (samplers_.cpu) samplers_.cpu->setDelegate(nullptr);
  if (samplers_.disk) samplers_.disk->setDelegate(nullptr);
  if (samplers_.battery) samplers_.battery->setDelegate(nullptr);
  if (samplers_.network) samplers_.network->setDelegate(nullptr);
  if (samplers_.process) samplers_.process->setDelegate(nullptr);
}

int Dashboard::run(const RunLoop& loop) {
  screen_ = std::make_unique<DashboardScreen>();
  if (samplers_.memory) samplers_.memory->setDelegate(feed_);
  if (samplers_.cpu) samplers_.cpu->setDelegate(feed_);
  if (samplers_.disk) samplers_.disk->setDelegate(feed_);
  if (samplers_.network) samplers_.network->setDelegate(feed_);
  if (samplers_.process) samplers_.process->setDelegate(feed_);
  if (samplers_.battery) {
    samplers_.battery->setDelegate(feed_);
    samplers_.battery->updateCurrentStatus();
  }
  if (samplers_.clipboard) {
    PasteboardMonitor& clipboard = PasteboardMonitor::shared();
    clipboard.setDelegate(feed_);
    clipboard.start();
    if (clipboard.isRunning()) model_.setClipboardChanges(clipboard.lastChangeCount());
  }
  // The first figures at once rather than after a whole interval.
  if (samplers_.memory) samplers_.memory->updateInfo();
  if (samplers_.disk) samplers_.disk->updateInfo();
  if (samplers_.process) samplers_.process->updateInfo();
  samplers_.setFreshInterval(model_.interval());

  const auto keys =
      Timer::scheduledOn(loop, kKeyInterval, true, [this, loop](Timer&) { tick(loop); });
  redraw();
  loop.run();
  keys->invalidate();
  if (model_.cleaning()) {
    cleaningStop = 1;
    loop.runUntil([this] { return !model_.cleaning(); }, std::chrono::seconds(3));
  }
  screen_.reset();
  return 0;
}

void Dashboard::tick(const RunLoop& loop) {
  while (const auto key = screen_->nextKey()) {
    if (*key == DashboardScreen::kResize) {
      dirty_ = true;
      continue;
    }
    act(model_.handleKey(*key), loop);
  }
  if (dirty_) redraw();
}

void Dashboard::act(DashboardModel::Action action, const RunLoop& loop) {
  using Action = DashboardModel::Action;
  switch (action) {
    case Action::None:
      return;
    case Action::Quit:
      loop.quit();
      return;
    case Action::IntervalChanged:
      samplers_.setFreshInterval(model_.interval());
      break;
    case Action::Clean:
      availableBeforeCleaning_ = kernel_.memAvailable();
      cleaningStop = 0;
      samplers_.memory->clearMemory(&cleaningStop);
      break;
    case Action::Redraw:
      break;
  }
  dirty_ = true;
}

void Dashboard::cleaned() {
  const auto after = kernel_.memAvailable();
  std::optional<double> gained;
  if (after && availableBeforeCleaning_) gained = *after - *availableBeforeCleaning_;
  model_.cleaningFinished(gained);
  dirty_ = true;
}

void Dashboard::redraw() {
  dirty_ = false;
  model_.setUptime(kernel_.uptime());
  screen_->draw(
      DashboardLayout::render(model_, screen_->width(), screen_->height(), screen_->ascii()));
}

}  // namespace vexa::tools
