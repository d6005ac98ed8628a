// Starts threads with a small stack: the system's default reserves megabytes that no thread of the
// agent needs.
#pragma once

#include <pthread.h>

#include <cstddef>

namespace zot {

// Enough for the deepest handler and the system's name resolution.
inline constexpr size_t kThreadStack = size_t{256} * 1024;

// Starts a thread to be joined. Returns 0, or an errno value when none can be had.
inline int StartThread(pthread_t& thread, void* (*entry)(void*), void* argument,
                       size_t stackSize = kThreadStack) {
    pthread_attr_t attributes;
    if (int error = pthread_attr_init(&attributes); error != 0) return error;
    pthread_attr_setstacksize(&attributes, stackSize);
    int error = pthread_create(&thread, &attributes, entry, argument);
    pthread_attr_destroy(&attributes);
    return error;
}

}  // namespace zot
