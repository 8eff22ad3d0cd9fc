#pragma once

#include <memory>

#include <nlohmann/json.hpp>

#include "DashboardModel.h"
#include "KernelFigures.h"
#include "StatusSamplers.h"
#include "vexa/util/RunLoop.h"

namespace vexa::tools {

class DashboardFeed;
class DashboardScreen;

// vexa-status on a terminal: the samplers feed the model, and a short timer on the main loop
// reads the keys and redraws the screen when the model or the terminal's size changed. All of
// it runs on the main loop's thread.
class Dashboard {
 public:
  Dashboard(StatusSamplers samplers, int interval);
  ~Dashboard();
  Dashboard(const Dashboard&) = delete;
  Dashboard& operator=(const Dashboard&) = delete;

  // Takes the terminal and turns `loop` until 'q' or the loop is quit otherwise; answers the
  // program's exit status.
  int run(const RunLoop& loop);

 private:
  void tick(const RunLoop& loop);
  void act(DashboardModel::Action action, const RunLoop& loop);
  void cleaned();
  void redraw();

  StatusSamplers samplers_;
  KernelFigures kernel_;
  DashboardModel model_;
  std::shared_ptr<DashboardFeed> feed_;
  std::unique_ptr<DashboardScreen> screen_;
  bool dirty_ = true;
  std::optional<double> availableBeforeCleaning_;
};

}  // namespace vexa::tools
