// The inventory through the real privileged helper, on a private bus.
#include <gtest/gtest.h>
#include <unistd.h>

#include "monitors/FindInventory.h"
#include "support/ChildProcess.h"
#include "support/PrivateBus.h"
#include "support/TempDir.h"

namespace vexa {
namespace find_inventory_helper_test {

using Strings = std::vector<std::string>;

TEST(FindInventoryHelperTest, WhenFindCannotStartTheHelperRunsIt) {
  test::PrivateBus bus;
  ASSERT_TRUE(bus.ok());
  test::ScopedEnv address("VEXA_HELPER_BUS_ADDRESS", bus.address());
  test::ChildProcess helper({VEXA_HELPER_PATH, "--allow-uid", std::to_string(::getuid())});
  ASSERT_EQ(helper.readLine(), std::optional<std::string>("vexa-helper ready"));

  test::TempDir dir;
  const std::string deb = dir.write("a/x.deb", "");
  dir.write("a/y.txt", "");
  const FindInventory inventory(
      [](const Strings&) { return ProcessRunner::Result{}; },  // does not start
      FindInventory::askHelper());
  EXPECT_EQ(inventory.run(FindInventory::command(dir / "a", "f", {"*.deb"})), Strings{deb});
}

}  // namespace find_inventory_helper_test
}  // namespace vexa
