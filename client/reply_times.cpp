#include "client/reply_times.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "base/ascii.h"
#include "protocol/request_text.h"

namespace zot::client {
namespace {

bool IsTime(std::string_view text) {
    return text.size() == 14 && std::all_of(text.begin(), text.end(), IsDigit);
}

}  // namespace

std::string LocalTimeText(std::string_view text) {
    if (!IsTime(text)) return {};
    RequestDate date = ParseDate(text);
    char result[64];
    snprintf(result, sizeof result, "%04d-%02d-%02dT%02d:%02d:%02d", date.year, date.month,
             date.day, date.hour, date.minute, date.second);
    return result;
}

int64_t LocalTimeToEpoch(std::string_view text, int64_t ageSeconds, time_t now) {
    if (!IsTime(text)) return -1;
    RequestDate date = ParseDate(text);
    std::tm parts = {};
    parts.tm_mday = date.day;
    parts.tm_mon = date.month - 1;
    parts.tm_year = date.year - 1900;
    parts.tm_hour = date.hour;
    parts.tm_min = date.minute;
    parts.tm_sec = date.second;
    int64_t asUtc = timegm(&parts);
    // The age is rounded down, so the middle of its minute is the best guess.
    constexpr double kQuarter = 900;
    double offset = static_cast<double>(asUtc + ageSeconds + 30 - int64_t{now});
    return asUtc - std::llround(offset / kQuarter) * 900;
}

}  // namespace zot::client
