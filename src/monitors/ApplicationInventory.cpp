#include "monitors/ApplicationInventory.h"

#include <algorithm>

#include "monitors/AppRecordBuilder.h"
#include "monitors/ApplicationFolders.h"
#include "util/ParallelFor.h"
#include "util/PathName.h"

namespace vexa {

std::map<std::string, std::shared_ptr<const AppFile>> ApplicationInventory::take(
    const std::vector<std::string>& prefixes, const AppRecordBuilder& builder,
    DispatchQueue& queue) {
  std::vector<std::string> paths;
  for (const auto& found : ApplicationFolders::allApplications()) {
    std::string path = AppFile::formatAppPath(found);
    const bool qualifies =
        prefixes.empty() ||
        std::any_of(prefixes.begin(), prefixes.end(),
                    [&](const std::string& prefix) { return PathName::hasPrefix(path, prefix); });
    if (qualifies) paths.push_back(std::move(path));
  }
  // Each worker fills slots of its own; nothing is shared until every call has returned.
  std::vector<std::shared_ptr<const AppFile>> filled(paths.size());
  parallelFor(queue, paths.size(), [&](std::size_t i) {
    auto app = std::make_shared<AppFile>();
    if (builder.fill(paths[i], *app)) filled[i] = std::move(app);
  });
  std::map<std::string, std::shared_ptr<const AppFile>> records;
  for (std::size_t i = 0; i < paths.size(); ++i) {
    if (filled[i]) records[paths[i]] = std::move(filled[i]);
  }
  return records;
}

}  // namespace vexa
