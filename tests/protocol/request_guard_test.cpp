#include "protocol/request_guard.h"

#include <gtest/gtest.h>

#include <string>

namespace zot {
namespace {

TEST(RequestGuard, RemembersForTheWindowAndNeverMoreThanItMay) {
    SettingsStore store;
    Log log(store);
    AgentSettings settings;
    RequestGuard guard;
    auto admits = [&](const std::string& key, const std::string& text, int64_t now) {
        RequestPacket request;
        request.sessionKey = key;
        request.text = text;
        return guard.Admits(request, settings, 0, log, now);
    };
    for (int i = 0; i < 2; ++i) EXPECT_TRUE(admits("k", "off", 1));
    settings.replayWindow = 10;
    EXPECT_TRUE(admits("key", "text", 100));
    EXPECT_TRUE(admits("keyt", "ext", 100)) << "another key";
    EXPECT_FALSE(admits("key", "text", 110));
    EXPECT_TRUE(admits("key", "text", 111));
    EXPECT_FALSE(admits("key", "text", 112));
    for (size_t i = 0; i < RequestGuard::kMostRemembered - 1; ++i) {
        ASSERT_TRUE(admits("k", std::to_string(i), 200));
    }
    EXPECT_TRUE(admits("k", "the last", 200));
    EXPECT_FALSE(admits("k", "one more", 210));
    EXPECT_FALSE(admits("k", "0", 210));
    EXPECT_TRUE(admits("k", "one more", 211));
}

}  // namespace
}  // namespace zot
