// What a run with a sanitizer cannot show, because its runtime needs memory and time of its own.
#pragma once

#if defined(__has_feature)
#define ZOT_HAS_FEATURE(name) __has_feature(name)
#else
#define ZOT_HAS_FEATURE(name) 0
#endif

namespace zot::test {

#if defined(__SANITIZE_THREAD__) || ZOT_HAS_FEATURE(thread_sanitizer)
constexpr bool kThreadChecker = true;
#else
constexpr bool kThreadChecker = false;
#endif

#if defined(__SANITIZE_ADDRESS__) || ZOT_HAS_FEATURE(address_sanitizer)
constexpr bool kAddressChecker = true;
#else
constexpr bool kAddressChecker = false;
#endif

// Whether sizes and times are those of the agent alone.
constexpr bool kMeasurable = !kThreadChecker && !kAddressChecker;

}  // namespace zot::test
