#include "checks/files/folder_size.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <functional>
#include <string>

#include "base/owners.h"
#include "tests/support/file_tree.h"
#include "tests/support/ordinary_user.h"
#include "tests/support/temp_dir.h"

namespace zot {
namespace {

TEST(FolderSize, SumsWhatTheMaskTakes) {
    test::TempDir dir;
    test::MakeFile(dir / "a.log", 1);
    test::MakeFile(dir / ".b.log", 10);
    test::MakeFile(dir / "big", int64_t{5} << 30);
    test::MakeFifo(dir / "fifo.log");
    test::MakeFolder(dir / "sub.log");
    test::MakeFile(dir / "sub.log/c.log", 100);
    test::MakeFolder(dir / ".sub");
    test::MakeFile(dir / ".sub/d.log", 1000, 0444);
    test::MakeLink("big", dir / "link.log");
    test::MakeLink(".sub", dir / "sublink");
    test::MakeLink("..", dir / "sub.log/loop");
    constexpr int64_t kBig = int64_t{5} << 30;
    EXPECT_EQ(FolderSize(dir.Path(), false), 11 + kBig);
    EXPECT_EQ(FolderSize(dir.Path() + "/", true), 1111 + kBig);
    EXPECT_EQ(FolderSize(dir / "*.log", false), 11);
    EXPECT_EQ(FolderSize(dir / "*.log", true), 1111);
    EXPECT_EQ(FolderSize(dir / "a.log", true), 1);
    EXPECT_EQ(FolderSize(dir / "nothing", true), 0);
    EXPECT_EQ(FolderSize(dir / "nothing/*", true), -1);
    EXPECT_EQ(FolderSize(dir / "sublink", true), 1000);  // only the top may be a link
}

// A folder in the tree that bears the mask as its name is summed in place of its parent.
TEST(FolderSize, FolderNamedAsTheMask) {
    test::TempDir dir;
    test::MakeFolder(dir / "a");
    test::MakeFolder(dir / "a/core");
    test::MakeFile(dir / "a/core/other", 1);
    test::MakeFolder(dir / "a/core/deep");
    test::MakeFile(dir / "a/core/deep/other", 10);
    test::MakeFolder(dir / "b");
    test::MakeFile(dir / "b/core", 100);
    test::MakeFile(dir / "b/other", 1000);
    EXPECT_EQ(FolderSize(dir / "core", true), 111);
    test::MakeFolder(dir / "b/*");
    test::MakeFile(dir / "b/*/x", 5);
    EXPECT_EQ(FolderSize(dir.Path(), true), 16);
}

TEST(FolderSize, UnreadableFolders) {
    test::TempDir dir;
    test::SetMode(dir.Path(), 0755);
    test::MakeFolder(dir / "closed");
    test::MakeFile(dir / "closed/file", 1);
    test::MakeFile(dir / "file", 10);
    test::MakeFolder(dir / "unsearchable");
    test::MakeFile(dir / "unsearchable/file", 100);
    test::SetMode(dir / "closed", 0700);
    test::SetMode(dir / "unsearchable", 0744);
    EXPECT_EQ(test::AsOrdinaryUser([&] {
                  return std::to_string(FolderSize(dir.Path(), true)) + " " +
                         std::to_string(FolderSize(dir / "closed", true)) + " " +
                         std::to_string(FolderSize(dir / "unsearchable", true));
              }),
              "10 -1 -1");
}

// Below `path`, `levels` folders one in the other, each with a file "f" of one byte.
void MakeChain(const std::string& path, const std::string& name, int levels) {
    UniqueFd folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (int level = 0; level < levels; ++level) {
        ASSERT_EQ(mkdirat(folder.Get(), name.c_str(), 0755), 0);
        folder.Reset(openat(folder.Get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        UniqueFd file(openat(folder.Get(), "f", O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
        ASSERT_EQ(ftruncate(file.Get(), 1), 0);
    }
}

TEST(FolderSize, LevelsWithoutAPathAddNothing) {
    test::TempDir dir;
    MakeChain(dir.Path(), std::string(255, 'd'), 20);
    auto reachable = static_cast<int64_t>((4095 - dir.Path().size() - 1) / 256);
    EXPECT_EQ(FolderSize(dir.Path(), true), reachable);
}

// The stack of a session, and more or fewer descriptors than the tree has levels.
TEST(FolderSize, DepthCostsNoStackAndLeavesAReserveOfDescriptors) {
    constexpr int kLevels = 300;
    test::TempDir dir;
    test::SetMode(dir.Path(), 0755);
    MakeChain(dir.Path(), "d", kLevels);
    auto sizeWith = [&dir](rlim_t descriptors) {
        return std::stoll(test::AsOrdinaryUser([&] {
            rlimit limit{descriptors, descriptors};
            if (setrlimit(RLIMIT_NOFILE, &limit) != 0) return std::string("-2");
            std::pair<std::string, int64_t> work(dir.Path(), -3);
            pthread_attr_t attributes;
            pthread_attr_init(&attributes);
            pthread_attr_setstacksize(&attributes, size_t{128} * 1024);
            pthread_t thread{};
            auto run = [](void* argument) -> void* {
                auto& [path, size] = *static_cast<decltype(work)*>(argument);
                size = FolderSize(path, true);
                return nullptr;
            };
            if (pthread_create(&thread, &attributes, run, &work) == 0) {
                pthread_join(thread, nullptr);
            }
            return std::to_string(work.second);
        }));
    };
    EXPECT_EQ(sizeWith(kLevels + 178), kLevels);
    int64_t few = sizeWith(228);
    EXPECT_GT(few, 50);
    EXPECT_LT(few, 228 / 2);
}

}  // namespace
}  // namespace zot
