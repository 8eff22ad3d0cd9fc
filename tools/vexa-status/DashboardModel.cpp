#include "DashboardModel.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "DashboardText.h"

namespace vexa::tools {

namespace {

// The samplers' dictionaries leave out or null what a machine does not tell: read leniently.
std::string textOf(const nlohmann::json& object, const char* key) {
  if (!object.is_object()) return {};
  const auto found = object.find(key);
  return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

std::optional<double> numberOf(const nlohmann::json& object, const char* key) {
  if (!object.is_object()) return std::nullopt;
  const auto found = object.find(key);
  if (found == object.end() || !found->is_number()) return std::nullopt;
  return found->get<double>();
}

uint64_t countOf(const nlohmann::json& object, const char* key) {
  if (!object.is_object()) return 0;
  const auto found = object.find(key);
  if (found == object.end()) return 0;
  if (found->is_number_unsigned()) return found->get<uint64_t>();
  if (found->is_number_integer()) return static_cast<uint64_t>(std::max<int64_t>(0, *found));
  if (found->is_number_float()) return static_cast<uint64_t>(std::max(0.0, found->get<double>()));
  return 0;
}

std::string lowered(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

void keepLast(std::vector<double>& history, double value) {
  history.push_back(value);
  if (history.size() > DashboardModel::kHistoryLength) history.erase(history.begin());
}

}  // namespace

DashboardModel::DashboardModel(int interval) : interval_(std::clamp(interval, 1, kMaxInterval)) {}

void DashboardModel::setSystem(const nlohmann::json& dictionary) {
  system_.host = textOf(dictionary, "computerName");
  if (system_.host.empty()) system_.host = textOf(dictionary, "sysName");
  system_.os = textOf(dictionary, "sysOSVersion");
  system_.model = textOf(dictionary, "sysModelID");
  system_.processor = textOf(dictionary, "sysProcessorName");
  system_.processorCount = countOf(dictionary, "sysProcessorCount");
  system_.physicalMemory = countOf(dictionary, "sysPhysicalMemory");
}

void DashboardModel::setCore(const Core& core) {
  const auto at =
      std::lower_bound(cpu_.cores.begin(), cpu_.cores.end(), core.number,
                       [](const Core& known, uint32_t number) { return known.number < number; });
  if (at != cpu_.cores.end() && at->number == core.number) {
    *at = core;
  } else {
    cpu_.cores.insert(at, core);
  }
}

void DashboardModel::setCpuTotal(double system, double user, double idle) {
  cpu_.total = Core{0, system, user, idle};
}

void DashboardModel::setTasks(int32_t tasks, int32_t threads) {
  cpu_.tasks = tasks;
  cpu_.threads = threads;
}

void DashboardModel::setLoad(double oneMinute, double fiveMinutes, double fifteenMinutes) {
  cpu_.load1 = oneMinute;
  cpu_.load5 = fiveMinutes;
  cpu_.load15 = fifteenMinutes;
}

void DashboardModel::setMemory(const nlohmann::json& memory,
                               const std::optional<nlohmann::json>& swap) {
  // "memory_free" is MemFree plus the inactive lists: with active, wired and compressed it
  // makes up the total.
  memory_ = Memory{countOf(memory, "memory_total"), countOf(memory, "memory_active"),
                   countOf(memory, "memory_wired"), countOf(memory, "memory_compressed"),
                   countOf(memory, "memory_free")};
  if (swap && swap->is_object()) {
    swap_ = Swap{countOf(*swap, "swap_size"), countOf(*swap, "swap_used"),
                 static_cast<uint32_t>(countOf(*swap, "swap_count")), textOf(*swap, "swap_prefix")};
  }
}

void DashboardModel::setDisks(const nlohmann::json& disks) {
  std::vector<Disk> list;
  if (disks.is_array()) {
    for (const auto& disk : disks) {
      list.push_back(Disk{textOf(disk, "disk_name"), textOf(disk, "disk_path"),
                          countOf(disk, "disk_totalsize"), countOf(disk, "disk_usedsize")});
    }
  }
  disks_ = std::move(list);
}

void DashboardModel::setServices(const nlohmann::json& services) {
  std::vector<Service> list;
  if (services.is_array()) {
    for (const auto& record : services) {
      Service service;
      service.id = textOf(record, "service_id");
      service.name = textOf(record, "user_defind_name");
      if (service.name.empty()) service.name = service.id;
      service.active = record.is_object() && record.value("linkactive_status", false) == true;
      const auto known = std::find_if(services_.begin(), services_.end(),
                                      [&service](const Service& s) { return s.id == service.id; });
      if (known != services_.end()) {
        service.downHistory = std::move(known->downHistory);
        service.upHistory = std::move(known->upHistory);
        service.peak = known->peak;
      }
      const auto traffic = record.is_object() ? record.find("throughput_details") : record.end();
      if (traffic != record.end() && traffic->is_object()) {
        // Bytes since the previous reading, over the seconds since then.
        const double seconds = numberOf(record, "sampling_interval").value_or(0);
        const double period = seconds > 0 ? seconds : 1;
        const auto down = numberOf(*traffic, "downlink_speed");
        const auto up = numberOf(*traffic, "uplink_speed");
        if (down) service.down = *down / period;
        if (up) service.up = *up / period;
        service.peak = std::max(service.peak, numberOf(*traffic, "peak_speek").value_or(0));
      }
      list.push_back(std::move(service));
    }
  }
  services_ = std::move(list);
}

void DashboardModel::commitNetworkSample() {
  for (Service& service : services_) {
    if (service.down) keepLast(service.downHistory, *service.down);
    if (service.up) keepLast(service.upHistory, *service.up);
  }
}

void DashboardModel::setBatteryPercent(double percent) {
  if (!battery_) battery_.emplace();
  battery_->percent = percent;
}

void DashboardModel::setBatteryState(std::string state) {
  if (!battery_) battery_.emplace();
  battery_->state = std::move(state);
}

void DashboardModel::setApplications(std::vector<Application> applications) {
  applications_ = std::move(applications);
  applicationsReported_ = true;
}

std::vector<DashboardModel::Application> DashboardModel::sortedApplications() const {
  std::vector<Application> sorted = applications_;
  const Sort by = sort_;
  std::sort(sorted.begin(), sorted.end(), [by](const Application& a, const Application& b) {
    switch (by) {
      case Sort::Cpu:
        if (a.cpu != b.cpu) return a.cpu > b.cpu;
        break;
      case Sort::Memory:
        if (a.residentKiB != b.residentKiB) return a.residentKiB > b.residentKiB;
        break;
      case Sort::Name: {
        const std::string left = lowered(a.name), right = lowered(b.name);
        if (left != right) return left < right;
        break;
      }
      case Sort::Pid:
        break;
    }
    return a.pid < b.pid;
  });
  return sorted;
}

const char* DashboardModel::sortName(Sort sort) {
  switch (sort) {
    case Sort::Cpu:
      return "cpu";
    case Sort::Memory:
      return "memory";
    case Sort::Name:
      return "name";
    case Sort::Pid:
      return "pid";
  }
  return "?";
}

DashboardModel::Action DashboardModel::handleKey(int key) {
  message_.clear();
  if (prompt_ == Prompt::ConfirmClean) {
    prompt_ = Prompt::None;
    if (key == 'y' || key == 'Y') {
      cleaning_ = true;
      message_ = "cleaning memory...";
      return Action::Clean;
    }
    message_ = "cleaning cancelled";
    return Action::Redraw;
  }
  if (prompt_ == Prompt::Help && key != 'q' && key != 'Q') {
    prompt_ = Prompt::None;
    return Action::Redraw;
  }
  switch (key) {
    case 'q':
    case 'Q':
      return Action::Quit;
    case 's':
    case 'S':
      sort_ = static_cast<Sort>((static_cast<int>(sort_) + 1) % 4);
      return Action::Redraw;
    case '+':
    case '=':
      if (interval_ >= kMaxInterval) return Action::None;
      ++interval_;
      return Action::IntervalChanged;
    case '-':
    case '_':
      if (interval_ <= 1) return Action::None;
      --interval_;
      return Action::IntervalChanged;
    case 'p':
    case 'P':
      paused_ = !paused_;
      return Action::Redraw;
    case 'c':
    case 'C':
      if (!canClean_) {
        message_ = "no memory figures to clean";
      } else if (cleaning_) {
        message_ = "cleaning memory...";
      } else {
        prompt_ = Prompt::ConfirmClean;
      }
      return Action::Redraw;
    case '?':
    case 'h':
      prompt_ = Prompt::Help;
      return Action::Redraw;
    default:
      return Action::None;
  }
}

void DashboardModel::cleaningFinished(std::optional<double> gained) {
  cleaning_ = false;
  if (!gained) {
    message_ = "memory cleaned";
  } else if (*gained >= 0) {
    message_ = "memory cleaned: " + DashboardText::bytes(*gained) + " more available";
  } else {
    message_ = "memory cleaned: " + DashboardText::bytes(-*gained) + " less available";
  }
}

}  // namespace vexa::tools
