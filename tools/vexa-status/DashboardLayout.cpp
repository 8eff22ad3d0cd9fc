#include "DashboardLayout.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

#include "DashboardText.h"

namespace vexa::tools {

namespace {

using Line = DashboardLayout::Line;
using Style = DashboardLayout::Style;
using Text = DashboardText;

std::string number(const char* format, double value) {
  char text[64];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

// `left` and `right` at either end of `width` cells; `left` is cut first when both do not fit.
std::string spread(const std::string& left, const std::string& right, int width) {
  const int room = width - Text::cells(right);
  if (room <= 1) return Text::fit(right, width);
  return Text::fit(Text::fit(left, room - 1) + " " + right, width);
}

double fractionOf(uint64_t part, uint64_t whole) {
  return whole == 0 ? 0.0 : static_cast<double>(part) / static_cast<double>(whole);
}

// Lays out cells of equal width side by side, `columns` to a line.
std::vector<std::string> grid(const std::vector<std::string>& cells, int columns, int cellWidth) {
  std::vector<std::string> lines;
  for (size_t i = 0; i < cells.size(); ++i) {
    if (i % static_cast<size_t>(columns) == 0) lines.emplace_back();
    lines.back() += Text::fit(cells[i], cellWidth);
  }
  return lines;
}

// A labelled bar filling `width` cells: "label [bar] figures".
std::string labelledBar(const std::string& label, double fraction, const std::string& figures,
                        int width, bool ascii) {
  const int barWidth = width - Text::cells(label) - Text::cells(figures) - 4;
  if (barWidth < 3) return label + " " + figures;
  return label + " [" + Text::bar(fraction, barWidth, ascii) + "] " + figures;
}

class Builder {
 public:
  Builder(const DashboardModel& model, int width, bool ascii)
      : model_(model), width_(width), ascii_(ascii) {}

  std::vector<Line> header() const {
    const auto& system = model_.system();
    std::string left = system.host.empty() ? "vexa-status" : system.host;
    if (!system.os.empty()) left += "  " + system.os;
    std::string right;
    if (model_.uptime()) right = "up " + Text::duration(*model_.uptime()) + "  ";
    right += "every " + std::to_string(model_.interval()) + "s";
    if (model_.paused()) right += "  PAUSED";
    return {{spread(left, right, width_), Style::Header}};
  }

  std::vector<Line> machine() const {
    const auto& system = model_.system();
    std::string text = system.model;
    if (!system.processor.empty()) text += (text.empty() ? "" : ", ") + system.processor;
    if (system.processorCount) text += " x" + std::to_string(system.processorCount);
    if (system.physicalMemory) text += ", " + Text::bytes(double(system.physicalMemory)) + " RAM";
    if (text.empty()) return {};
    return {{text}};
  }

  std::vector<Line> cpu() const {
    const auto& cpu = model_.cpu();
    std::vector<Line> lines{title("CPU")};
    if (!cpu.total) {
      lines.push_back({"waiting for the first sample"});
      return lines;
    }
    // Busy is what user and system took: a period without ticks (a captured machine) is all
    // zero, not all busy.
    std::string figures = Text::percent(cpu.total->user + cpu.total->system) + " (user " +
                          Text::percent(cpu.total->user) + ", system " +
                          Text::percent(cpu.total->system) + ")";
    std::string load = "load";
    for (const auto& value : {cpu.load1, cpu.load5, cpu.load15}) {
      load += value ? number(" %.2f", *value) : " -";
    }
    const std::string temperature =
        cpu.celsius ? number("%.1f", *cpu.celsius) + (ascii_ ? " C" : " °C") : "no sensor";
    const std::string tasks =
        std::to_string(cpu.tasks) + " tasks, " + std::to_string(cpu.threads) + " threads";
    lines.push_back({spread(figures + "  " + load + "  " + temperature, tasks, width_)});
    std::vector<std::string> cells;
    const int columns = std::clamp(width_ / 25, 1, 8);
    const int cellWidth = width_ / columns;
    for (const auto& core : cpu.cores) {
      const double busy = core.user + core.system;
      char label[16];
      std::snprintf(label, sizeof label, "%3u", core.number);
      char figure[8];
      std::snprintf(figure, sizeof figure, "%4s", Text::percent(busy).c_str());
      cells.push_back(labelledBar(label, busy, figure, cellWidth - 1, ascii_));
    }
    for (auto& line : grid(cells, columns, cellWidth)) lines.push_back({std::move(line)});
    return lines;
  }

  std::vector<Line> memory() const {
    const auto& memory = model_.memory();
    if (!memory) return {title("Memory"), {"waiting for the first sample"}};
    const uint64_t used = memory->active + memory->wired + memory->compressed;
    std::vector<Line> lines{title("Memory  " + Text::bytes(double(used)) + " used of " +
                                  Text::bytes(double(memory->total)))};
    const int columns = width_ >= 80 ? 2 : 1;
    const int cellWidth = width_ / columns;
    std::vector<std::string> cells;
    const auto add = [&](const char* label, uint64_t bytes) {
      char figures[32];
      std::snprintf(figures, sizeof figures, "%9s %4s", Text::bytes(double(bytes)).c_str(),
                    Text::percent(fractionOf(bytes, memory->total)).c_str());
      cells.push_back(
          labelledBar(label, fractionOf(bytes, memory->total), figures, cellWidth - 1, ascii_));
    };
    add("active    ", memory->active);
    add("wired     ", memory->wired);
    add("compressed", memory->compressed);
    add("free      ", memory->free);
    for (auto& line : grid(cells, columns, cellWidth)) lines.push_back({std::move(line)});
    const auto& swap = model_.swap();
    if (!swap || swap->areas == 0) {
      lines.push_back({"swap       none"});
    } else {
      const std::string figures = Text::bytes(double(swap->used)) + " of " +
                                  Text::bytes(double(swap->size)) + " (" + swap->name + ")";
      lines.push_back({labelledBar("swap      ", fractionOf(swap->used, swap->size), figures,
                                   width_ - 1, ascii_)});
    }
    return lines;
  }

  std::vector<Line> disks() const {
    std::vector<Line> lines{title("Disks")};
    const auto& disks = model_.disks();
    if (!disks) {
      lines.push_back({"waiting for the first sample"});
    } else if (disks->empty()) {
      lines.push_back({"no local volumes"});
    }
    if (!disks) return lines;
    for (const auto& disk : *disks) {
      const std::string label = Text::fit(disk.name + " " + disk.path, std::min(30, width_ / 3));
      const std::string figures =
          Text::bytes(double(disk.used)) + " of " + Text::bytes(double(disk.total));
      const double fraction = fractionOf(disk.used, disk.total);
      lines.push_back({labelledBar(label, fraction, figures, width_, ascii_),
                       fraction >= 0.9 ? Style::Alert : Style::Normal});
    }
    return lines;
  }

  std::vector<Line> network() const {
    std::vector<Line> lines{title("Network")};
    if (model_.services().empty()) lines.push_back({"no network services"});
    for (const auto& service : model_.services()) {
      std::string label = service.name;
      if (service.id != service.name) label += " (" + service.id + ")";
      label = Text::fit(label, std::min(28, width_ / 3));
      if (!service.active) {
        lines.push_back({label + " no link"});
        continue;
      }
      char rates[64];
      std::snprintf(rates, sizeof rates, "%s %11s %s %11s", ascii_ ? "down" : "↓",
                    Text::rate(service.down.value_or(0)).c_str(), ascii_ ? "up" : "↑",
                    Text::rate(service.up.value_or(0)).c_str());
      const std::string peak = "peak " + Text::rate(service.peak);
      const int sparkWidth =
          width_ - Text::cells(label) - Text::cells(rates) - Text::cells(peak) - 4;
      std::string text = label + " " + rates;
      if (sparkWidth >= 4) {
        text += " " + Text::sparkline(service.downHistory, std::min(sparkWidth, 60), ascii_);
      }
      lines.push_back({spread(text, peak, width_)});
    }
    return lines;
  }

  std::vector<Line> battery() const {
    const auto& battery = model_.battery();
    if (!battery) return {};
    std::string figures = battery->percent ? number("%.0f%%", *battery->percent) : "-";
    figures += "  " + battery->state;
    const double fraction = battery->percent.value_or(0) / 100;
    return {title("Battery"),
            {labelledBar("charge", fraction, figures, width_, ascii_),
             battery->percent && *battery->percent < 10 ? Style::Alert : Style::Normal}};
  }

  std::vector<Line> clipboard() const {
    const auto changes = model_.clipboardChanges();
    return {title("Clipboard  " +
                  (changes ? std::to_string(*changes) + " changes" : std::string("not watched")))};
  }

  // The applications panel in `height` lines at most.
  std::vector<Line> applications(int height) const {
    if (height <= 0) return {};
    std::vector<Line> lines{
        title("Applications  sorted by " + std::string(DashboardModel::sortName(model_.sort())))};
    const auto sorted = model_.sortedApplications();
    if (sorted.empty()) {
      lines.push_back(
          {model_.hasApplications() ? "no launched applications" : "waiting for the first sample"});
    } else {
      lines.push_back({"    PID   CPU%   MEM%   RESIDENT  NAME", Style::Title});
      for (const auto& app : sorted) {
        if (static_cast<int>(lines.size()) >= height) break;
        char row[96];
        std::snprintf(row, sizeof row, "%7d %6.1f %6.1f %10s  ", app.pid, app.cpu, app.memory,
                      Text::bytes(double(app.residentKiB) * 1024).c_str());
        lines.push_back({row + app.name});
      }
    }
    lines.resize(std::min(lines.size(), static_cast<size_t>(height)));
    return lines;
  }

  Line footer() const {
    if (model_.prompt() == DashboardModel::Prompt::ConfirmClean) {
      return {"Clean memory now? It fills memory for up to ten seconds. (y/n)", Style::Alert};
    }
    if (!model_.message().empty()) return {model_.message(), Style::Footer};
    return {"q quit  s sort  +/- interval  p pause  c clean memory  ? help", Style::Footer};
  }

  std::vector<Line> help() const {
    return {
        title("Keys"),
        {"  q      quit"},
        {"  s      sort the applications by cpu, memory, name or process id"},
        {"  + -    sample less or more often (now every " + std::to_string(model_.interval()) +
         "s)"},
        {"  p      pause or resume the figures"},
        {"  c      clean memory (asks first), then show how much more is available"},
        {"  ?      this help; any key closes it"},
    };
  }

 private:
  Line title(const std::string& text) const {
    return {Text::rule(text, width_, ascii_), Style::Title};
  }

  const DashboardModel& model_;
  int width_;
  bool ascii_;
};

}  // namespace

std::vector<Line> DashboardLayout::render(const DashboardModel& model, int width, int height,
                                          bool ascii) {
  if (width < kMinWidth || height < kMinHeight) {
    const std::string text = "terminal too small (" + std::to_string(width) + "x" +
                             std::to_string(height) + "), need " + std::to_string(kMinWidth) + "x" +
                             std::to_string(kMinHeight);
    return {{Text::fit(text, std::max(width, 0)), Style::Alert}};
  }
  const Builder builder(model, width, ascii);
  std::vector<Line> lines = builder.header();
  if (height >= 20) {
    for (auto& line : builder.machine()) lines.push_back(std::move(line));
  }
  const auto room = static_cast<size_t>(height - 1);  // the footer's line
  const auto take = [&lines, room](std::vector<Line> panel) {
    for (auto& line : panel) {
      if (lines.size() >= room) return;
      lines.push_back(std::move(line));
    }
  };
  if (model.prompt() == DashboardModel::Prompt::Help) {
    take(builder.help());
  } else {
    take(builder.cpu());
    take(builder.memory());
    take(builder.disks());
    take(builder.network());
    take(builder.battery());
    take(builder.clipboard());
    take(builder.applications(static_cast<int>(room) - static_cast<int>(lines.size())));
  }
  lines.resize(room);
  lines.push_back(builder.footer());
  for (Line& line : lines) {
    line.text = Text::fit(ascii ? Text::asciiOnly(line.text) : line.text, width);
  }
  return lines;
}

}  // namespace vexa::tools
