// Starts threads with a small stack: the system's default reserves megabytes that no thread of the
// agent needs.
#pragma once

#include <pthread.h>

#include <cstddef>

namespace zot {

// Enough for the deepest handler and the system's name resolution; many may exist at once.
inline constexpr size_t kThreadStack = size_t{256} * 1024;

namespace thread_detail {
inline int Start(pthread_t& thread, int detachState, void* (*entry)(void*), void* argument) {
    pthread_attr_t attributes;
    if (int error = pthread_attr_init(&attributes); error != 0) return error;
    pthread_attr_setdetachstate(&attributes, detachState);
    pthread_attr_setstacksize(&attributes, kThreadStack);
    int error = pthread_create(&thread, &attributes, entry, argument);
    pthread_attr_destroy(&attributes);
    return error;
}
}  // namespace thread_detail

// Starts a thread to be joined. Returns 0, or an errno value when the system grants none.
inline int StartThread(pthread_t& thread, void* (*entry)(void*), void* argument) {
    return thread_detail::Start(thread, PTHREAD_CREATE_JOINABLE, entry, argument);
}

// The same for a thread that nobody joins.
inline int StartDetachedThread(void* (*entry)(void*), void* argument) {
    pthread_t thread;
    return thread_detail::Start(thread, PTHREAD_CREATE_DETACHED, entry, argument);
}

}  // namespace zot
