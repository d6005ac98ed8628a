#include "base/mapped_bytes.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstddef>
#include <string>

#include "base/owners.h"
#include "tests/support/temp_dir.h"

namespace zot {
namespace {

// What was already looked at is no proof for the rest, so one missing page spoils all bytes.
TEST(MappedBytes, WhatIsCutOffBecomesZeros) {
    test::TempDir folder;
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const std::string path = folder.Write("file", std::string(4 * page, 'x'));
    UniqueFd file(open(path.c_str(), O_RDWR | O_CLOEXEC));
    GuardMappedBytes();
    for (const size_t offset : {page, page + 5}) {
        ASSERT_EQ(ftruncate(file.Get(), static_cast<off_t>(4 * page)), 0);
        MappedBytes bytes(file.Get(), static_cast<int64_t>(offset), 3 * page - 5);
        ASSERT_EQ(bytes.View().size(), 3 * page - 5);
        EXPECT_EQ(bytes.View().front(), offset == page ? 'x' : '\0');
        EXPECT_TRUE(bytes.IsWhole());
        ASSERT_EQ(ftruncate(file.Get(), static_cast<off_t>(page)), 0);
        EXPECT_EQ(bytes.View().back(), '\0');
        EXPECT_FALSE(bytes.IsWhole());
        EXPECT_EQ(bytes.View(), std::string(3 * page - 5, '\0'));
    }
    EXPECT_TRUE(MappedBytes(-1, 0, page).View().empty());
}

TEST(MappedBytesDeathTest, AnotherFaultStillEndsTheProcess) {
    EXPECT_EXIT(
        {
            GuardMappedBytes();
            raise(SIGBUS);
            _exit(0);
        },
        testing::KilledBySignal(SIGBUS), "");
}

}  // namespace
}  // namespace zot
