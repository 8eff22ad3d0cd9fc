#include "monitors/TrashFolder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <functional>

#include "support/TempDir.h"
#include "vexa/monitors/MonitorTrash.h"

namespace vexa {
namespace trash_folder_test {

namespace fs = std::filesystem;

uint64_t ownBlocks(const std::string& path) {
  struct stat st {};
  return ::lstat(path.c_str(), &st) == 0 ? static_cast<uint64_t>(st.st_blocks) * 512 : 0;
}

// What du says the tree below `root` allocates, hard links counted per link.
uint64_t duBelow(const std::string& root) {
  std::string command = "du -s -l -B1 '" + root + "'";
  FILE* pipe = ::popen(command.c_str(), "r");
  unsigned long long total = 0;
  if (!pipe || std::fscanf(pipe, "%llu", &total) != 1) total = 0;
  if (pipe) ::pclose(pipe);
  return total - ownBlocks(root);
}

struct SizeCase {
  const char* name;
  std::function<void(const test::TempDir&, const std::string&)> make;
};

class TrashFolderSizeTest : public ::testing::TestWithParam<SizeCase> {};

TEST_P(TrashFolderSizeTest, IsWhatDuCountsBelowTheRoot) {
  test::TempDir dir;
  const std::string root = dir.mkdir("Trash");
  GetParam().make(dir, root);
  EXPECT_EQ(TrashFolder::sizeOfFileWithPath(root), duBelow(root));
  EXPECT_EQ(MonitorTrash::folderSizeAtPath(root), duBelow(root));
}

const std::string kBlock(4096, 'x');

INSTANTIATE_TEST_SUITE_P(
    Trees, TrashFolderSizeTest,
    ::testing::Values(SizeCase{"Empty", [](const test::TempDir&, const std::string&) {}},
                      SizeCase{"FilesAndFolders",
                               [](const test::TempDir& dir, const std::string&) {
                                 dir.write("Trash/a.txt", "hello");
                                 dir.write("Trash/sub/deeper/b.bin", std::string(100000, 'b'));
                                 dir.write("Trash/sub/c", kBlock);
                                 dir.mkdir("Trash/empty/folder");
                               }},
                      SizeCase{"LinkToALargeFolderCountsOnlyItself",
                               [](const test::TempDir& dir, const std::string& root) {
                                 dir.write("outside/big", std::string(1 << 20, 'z'));
                                 fs::create_directory_symlink(dir / "outside", root + "/link");
                                 fs::create_symlink(dir / "outside/big", root + "/file-link");
                               }},
                      SizeCase{"HardLinksPerLink",
                               [](const test::TempDir& dir, const std::string& root) {
                                 dir.write("Trash/one", std::string(50000, 'h'));
                                 fs::create_hard_link(root + "/one", root + "/two");
                               }},
                      SizeCase{"SparseFile",
                               [](const test::TempDir& dir, const std::string&) {
                                 fs::resize_file(dir.write("Trash/sparse", "s"), 10 << 20);
                               }}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(TrashFolderTest, AFileIsItsAllocationAndAMissingPathNothing) {
  test::TempDir dir;
  const std::string file = dir.write("f", kBlock);
  EXPECT_EQ(TrashFolder::sizeOfFileWithPath(file), ownBlocks(file));
  EXPECT_EQ(TrashFolder::sizeOfFileWithPath(dir / "missing"), 0U);
  EXPECT_EQ(TrashFolder::commonAttributesOfFile(dir / "missing"), nlohmann::json::object());
  EXPECT_EQ(TrashFolder::commonAttributesOfFile(dir / "f")["NSFileSize"], 4096);
}

}  // namespace trash_folder_test
}  // namespace vexa
