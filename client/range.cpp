#include "client/range.h"

#include <cstddef>
#include <limits>

#include "client/text.h"

namespace zot::client {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

}  // namespace

std::optional<Range> Range::Parse(std::string_view text) {
    Range range;
    if (text.starts_with('@')) {
        range.alertInside_ = true;
        text.remove_prefix(1);
    }
    size_t colon = text.find(':');
    std::string_view start = colon == std::string_view::npos ? "" : text.substr(0, colon);
    std::string_view end = colon == std::string_view::npos ? text : text.substr(colon + 1);
    if (text.empty()) return {};
    if (start == "~") {
        range.start_ = -kInfinity;
    } else if (!start.empty() && !ParseDecimal(start, range.start_)) {
        return {};
    }
    if (end.empty()) {
        range.end_ = kInfinity;
    } else if (!ParseDecimal(end, range.end_)) {
        return {};
    }
    if (range.start_ > range.end_) return {};
    return range;
}

std::string Range::Format(double factor) const {
    std::string text = alertInside_ ? "@" : "";
    if (start_ == -kInfinity) {
        text += "~:";
    } else if (start_ != 0 || end_ == kInfinity) {
        text += FormatDecimal(start_ * factor, kDataDecimals) + ":";
    }
    if (end_ != kInfinity) text += FormatDecimal(end_ * factor, kDataDecimals);
    return text;
}

}  // namespace zot::client
