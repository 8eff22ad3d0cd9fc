#include "status/MemoryFigures.h"

#include <algorithm>

#include "util/Utf8.h"

namespace vexa {
namespace {

uint64_t valueOf(const KernelTable& table, std::string_view key) {
  const auto found = table.find(key);
  return found == table.end() ? 0 : found->second;
}

uint64_t saturatingAdd(uint64_t a, uint64_t b) { return a > UINT64_MAX - b ? UINT64_MAX : a + b; }

}  // namespace

std::optional<MemorySample> MemorySample::from(const KernelTable& meminfo,
                                               const std::vector<ZramUsage>& zram) {
  for (const char* key : {"MemTotal", "MemFree", "Active", "Inactive"}) {
    if (!meminfo.contains(key)) return std::nullopt;
  }
  MemorySample sample;
  sample.total = valueOf(meminfo, "MemTotal");
  sample.free = valueOf(meminfo, "MemFree");
  sample.active = valueOf(meminfo, "Active");
  sample.inactive = valueOf(meminfo, "Inactive");
  sample.compressed = valueOf(meminfo, "Zswap");
  sample.uncompressed = valueOf(meminfo, "Zswapped");
  for (const ZramUsage& device : zram) {
    sample.compressed = saturatingAdd(sample.compressed, device.used);
    sample.uncompressed = saturatingAdd(sample.uncompressed, device.original);
  }
  const uint64_t accounted = saturatingAdd(
      saturatingAdd(saturatingAdd(sample.free, sample.active), sample.inactive), sample.compressed);
  sample.wired = sample.total > accounted ? sample.total - accounted : 0;
  return sample;
}

double MemorySample::usedFraction() const {
  if (total == 0) return 0;
  return static_cast<double>(saturatingAdd(active, wired)) / static_cast<double>(total);
}

nlohmann::json MemorySample::dictionary() const {
  nlohmann::json dictionary;
  fill(dictionary);
  return dictionary;
}

void MemorySample::fill(nlohmann::json& dictionary) const {
  assignFigures(dictionary,
                {
                    {"memory_total", total},
                    {"memory_free", saturatingAdd(free, inactive)},
                    {"memory_used", saturatingAdd(saturatingAdd(active, wired), compressed)},
                    {"memory_active", active},
                    {"memory_inactive", inactive},
                    {"memory_wired", wired},
                    {"memory_freepage", free},
                    {"memory_compressed", compressed},
                    {"memory_uncompressed", uncompressed},
                });
}

void assignFigures(nlohmann::json& dictionary,
                   std::initializer_list<std::pair<std::string_view, uint64_t>> figures) {
  if (!dictionary.is_object()) dictionary = nlohmann::json::object();
  for (const auto& [key, value] : figures) {
    const auto found = dictionary.find(key);
    if (found != dictionary.end()) {
      *found = value;
    } else {
      dictionary.emplace(std::string(key), value);
    }
  }
}

nlohmann::json PagingDeltas::dictionary(const KernelTable& vmstat, uint64_t pageSize) {
  nlohmann::json dictionary;
  fill(dictionary, vmstat, pageSize);
  return dictionary;
}

void PagingDeltas::fill(nlohmann::json& dictionary, const KernelTable& vmstat, uint64_t pageSize) {
  const uint64_t kibPerPage = std::max<uint64_t>(pageSize / 1024, 1);
  const uint64_t pageIns = valueOf(vmstat, "pgpgin") / kibPerPage;
  const uint64_t pageOuts = valueOf(vmstat, "pgpgout") / kibPerPage;
  const uint64_t deltaIn = pageIns - (pageIns < lastPageIn_ ? 0 : lastPageIn_);
  const uint64_t deltaOut = pageOuts - (pageOuts < lastPageOut_ ? 0 : lastPageOut_);
  lastPageIn_ = pageIns;
  lastPageOut_ = pageOuts;
  // Linux keeps no counters for hits, lookups, copy-on-write faults, purges, purgeable and
  // speculative pages: those keys are 0.
  assignFigures(dictionary, {
                                {"vm_hits", 0},
                                {"vm_lookups", 0},
                                {"vm_pageins", pageIns},
                                {"vm_pageouts", pageOuts},
                                {"vm_faults", valueOf(vmstat, "pgfault")},
                                {"vm_cowfaults", 0},
                                {"vm_purges", 0},
                                {"vm_purgeablecount", 0},
                                {"vm_speculativecount", 0},
                                {"vm_decompressions", valueOf(vmstat, "zswpin")},
                                {"vm_compressions", valueOf(vmstat, "zswpout")},
                                {"vm_deltapageins", deltaIn},
                                {"vm_deltapageouts", deltaOut},
                            });
}

SwapLocation SwapLocation::of(const std::vector<SwapEntry>& entries) {
  // A path that is not UTF-8 cannot be told in a dictionary (the JSON form refuses it).
  if (entries.empty() || !Utf8::isText(entries.front().path)) {
    return {"/", "swapfile"};
  }
  const std::string& first = entries.front().path;
  const size_t slash = first.rfind('/');
  if (slash == std::string::npos) return {"/", first};
  return {slash == 0 ? "/" : first.substr(0, slash), first.substr(slash + 1)};
}

nlohmann::json swapDictionary(const std::vector<SwapEntry>& entries, bool encrypted,
                              uint32_t& peak) {
  const SwapLocation location = SwapLocation::of(entries);
  uint64_t size = 0, used = 0;
  for (const SwapEntry& entry : entries) {
    size = saturatingAdd(size, entry.size);
    used = saturatingAdd(used, entry.used);
  }
  const auto count = static_cast<uint32_t>(entries.size());
  peak = std::max(peak, count);
  return {
      {"swap_path", location.path},
      {"swap_prefix", location.prefix},
      {"swap_count", count},
      {"swap_countpeak", peak},
      {"swap_size", size},
      {"swap_used", used},
      {"swap_encrypted", encrypted && !entries.empty()},
  };
}

}  // namespace vexa
