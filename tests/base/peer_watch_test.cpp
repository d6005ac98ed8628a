#include "base/peer_watch.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <thread>

#include "base/owners.h"
#include "base/platform/system.h"

namespace zot {
namespace {

// In threads of their own: a thread that stood back may have to stay there.
template <typename Work>
void InAThread(Work work) {
    std::thread(work).join();
}

TEST(PeerWatch, WhoHasWorkedForLongStandsBackAndWhoWaitsDoesNot) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    const UniqueFd socket(ends[0]);
    const UniqueFd peer(ends[1]);
    const int before = ThreadNice();
    bool known = false;
    InAThread([&] {
        SetThreadNice(before + 1);
        known = ThreadNice() != before;
    });
    InAThread([&] {
        PeerWatch watch(socket.Get());
        {
            WorkFor work(&watch);
            for (int i = 0; i < 3; ++i) EXPECT_FALSE(WorksInVain());
            EXPECT_EQ(ThreadNice(), before);
            for (size_t done = 0; done <= kLookNow; done += kEntryWork) {
                EXPECT_FALSE(WorksInVain(kEntryWork));
            }
            EXPECT_EQ(ThreadNice() > before, known);
        }
        EXPECT_EQ(ThreadNice() > before, known && WorkFor::StaysBack());
    });
}

}  // namespace
}  // namespace zot
