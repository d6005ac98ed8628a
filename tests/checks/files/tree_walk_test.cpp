#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "checks/files/count_files.h"
#include "checks/files/folder_size.h"
#include "tests/support/file_tree.h"
#include "tests/support/temp_dir.h"

namespace zot {
namespace {

// More entries than one thread walks alone, in branches of unlike depth.
TEST(TreeWalk, LargeTreeIsCountedOnce) {
    test::TempDir dir;
    test::TempDir sources;
    test::MakeFile(sources / "file", 1);
    int files = 0;
    for (int branch = 0; branch < 30; ++branch) {
        std::string folder = dir / std::to_string(branch);
        test::MakeFolder(folder);
        for (int level = 0; level < branch % 7; ++level) test::MakeFolder(folder += "/below");
        for (int file = 0; file < 200; ++file, ++files) {
            std::filesystem::create_hard_link(sources / "file",
                                              folder + "/" + std::to_string(file));
        }
    }
    for (int run = 0; run < 20; ++run) {
        EXPECT_EQ(FolderSize(dir.Path(), true), files);
        EXPECT_EQ(CountFiles(dir.Path(), "*", true, CountMode::kAllFiles, 0), files);
        EXPECT_EQ(CountFiles(dir.Path(), "below", true, CountMode::kSubFolders, 0),
                  4 * (1 + 2 + 3 + 4 + 5 + 6) + 1);
    }
}

}  // namespace
}  // namespace zot
