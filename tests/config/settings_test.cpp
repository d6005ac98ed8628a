#include "config/settings.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace zot {
namespace {

TEST(SettingsStore, ChangesLoseNothingOfEachOtherAndSnapshotsStayWhole) {
    SettingsStore store;
    std::atomic<bool> done{false};
    std::thread reader([&] {
        while (!done) {
            SettingsSnapshot seen = store.Snapshot();
            EXPECT_EQ(seen->comment, std::string(static_cast<size_t>(seen->port), 'x'));
        }
    });
    std::vector<std::thread> writers;
    for (int i = 0; i < 4; ++i) {
        writers.emplace_back([&] {
            for (int n = 0; n < 100; ++n) {
                store.Change([](AgentSettings& settings) {
                    settings.comment.Append('x');
                    return ++settings.port > 0;
                });
            }
        });
    }
    for (auto& writer : writers) writer.join();
    done = true;
    reader.join();
    EXPECT_EQ(store.Snapshot()->port, 400);
}

TEST(SettingsStore, WhoMustNotWaitIsTurnedAwayWhileAChangeGoesOn) {
    SettingsStore store;
    auto set = [](AgentSettings& settings) { return settings.port = 1; };
    store.Change([&](AgentSettings&) {
        std::thread([&] { EXPECT_FALSE(store.TryChange(set).has_value()); }).join();
        return true;
    });
    EXPECT_EQ(store.Snapshot()->port, 0);
    EXPECT_EQ(store.TryChange(set), true);
    EXPECT_EQ(store.Snapshot()->port, 1);
}

TEST(SettingsStore, SnapshotAndCrashRecordOutliveChanges) {
    SettingsStore store;
    // The result of a change is passed on, and the change is published whatever it is.
    auto set = [&store](int port) {
        return store.Change([port](AgentSettings& settings) {
            settings.port = port;
            return port != 2;
        });
    };
    EXPECT_TRUE(set(1));
    SettingsSnapshot held = store.Snapshot();
    EXPECT_FALSE(set(2));
    EXPECT_EQ(held->port, 1);
    const AgentSettings& atCrash = store.ForCrashHandler();
    EXPECT_EQ(atCrash.port, 2);
    EXPECT_TRUE(set(3));
    EXPECT_EQ(atCrash.port, 2);
    EXPECT_EQ(store.ForCrashHandler().port, 3);
}

}  // namespace
}  // namespace zot
