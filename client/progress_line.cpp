#include "client/progress_line.h"

#include <ostream>

#include "client/text.h"

namespace zot::client {

ProgressLine::ProgressLine(const Console& console, size_t total, std::chrono::milliseconds most)
    : console_(console), total_(console.progress ? total : 0), most_(most) {}

void ProgressLine::Count(bool failed) {
    ++done_;
    if (failed) ++failed_;
}

void ProgressLine::Draw() {
    constexpr std::chrono::milliseconds kSilence{500};
    auto elapsed = Clock::now() - begin_;
    if (!Watched() || elapsed < kSilence) return;
    std::string line = Concat({"\r\x1b[K", std::to_string(done_), "/", std::to_string(total_),
                               " hosts, ", std::to_string(failed_), " failed"});
    auto left = std::chrono::ceil<std::chrono::seconds>(most_ - elapsed).count();
    if (left > 0) line += ", at most " + FormatSeconds(static_cast<double>(left)) + " left";
    console_.err << line << std::flush;
    shown_ = true;
}

void ProgressLine::Clear() {
    if (!shown_) return;
    console_.err << "\r\x1b[K" << std::flush;
    shown_ = false;
}

}  // namespace zot::client
