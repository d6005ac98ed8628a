#include "base/files.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <thread>

#include "tests/support/file_tree.h"
#include "tests/support/temp_dir.h"

namespace zot {
namespace {

TEST(Files, OnlyRegularFilesAreOpened) {
    test::TempDir dir;
    std::string file = dir.Write("file", "12345");
    test::MakeFifo(dir / "fifo");
    test::MakeLink(file, dir / "link");
    struct stat status {};
    EXPECT_TRUE(OpenRegularFile(file.c_str(), status));
    EXPECT_EQ(status.st_size, 5);
    EXPECT_TRUE(OpenRegularFile((dir / "link").c_str(), status));
    EXPECT_FALSE(OpenRegularFile((dir / "link").c_str(), status, O_NOFOLLOW));
    for (const std::string& other : {dir / "fifo", dir / "none", dir.Path()}) {
        EXPECT_FALSE(OpenRegularFile(other.c_str(), status)) << other;
    }
}

#ifdef F_SETLEASE
TEST(Files, ALeaseIsWaitedFor) {
    test::TempDir dir;
    std::string path = dir.Write("file", "12345");
    UniqueFd holder(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    signal(SIGIO, SIG_IGN);  // tells the holder that somebody waits
    if (fcntl(holder.Get(), F_SETLEASE, F_WRLCK) != 0) GTEST_SKIP() << "no leases here";
    std::thread giveBack([&holder] {
        // The kernel names the lease that is left after the break it has announced.
        while (fcntl(holder.Get(), F_GETLEASE) == F_WRLCK) std::this_thread::yield();
        fcntl(holder.Get(), F_SETLEASE, F_UNLCK);
    });
    struct stat status {};
    EXPECT_TRUE(OpenRegularFile(path.c_str(), status));
    giveBack.join();
    signal(SIGIO, SIG_DFL);
}
#endif

}  // namespace
}  // namespace zot
