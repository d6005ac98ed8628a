#include <gtest/gtest.h>

#include "agent/signals.h"

namespace zot {
namespace {

TEST(CrashPolicy, OnlyAnAgentThatHasRunForAWhileRestarts) {
    EXPECT_FALSE(RestartsAfterCrash(1000, 1000));
    EXPECT_FALSE(RestartsAfterCrash(1000, 1180));
    EXPECT_TRUE(RestartsAfterCrash(1000, 1181));
    EXPECT_TRUE(RestartsAfterCrash(1000, 100000));
}

}  // namespace
}  // namespace zot
