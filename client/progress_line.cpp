#include "client/progress_line.h"

#include <ostream>

#include "client/text.h"

namespace zot::client {

ProgressLine::ProgressLine(const Console& console, size_t total)
    : console_(console), total_(console.progress ? total : 0) {
    next_ = begin_ + std::chrono::milliseconds(500);
}

void ProgressLine::Count(bool failed) {
    ++done_;
    if (failed) ++failed_;
    auto now = Clock::now();
    if (total_ == 0 || now < next_) return;
    next_ = now + std::chrono::milliseconds(100);
    double elapsed = std::chrono::duration<double>(now - begin_).count();
    double left = elapsed / static_cast<double>(done_) * static_cast<double>(total_ - done_);
    console_.err << "\r\x1b[K" << done_ << '/' << total_ << " hosts, " << failed_ << " failed, "
                 << FormatDecimal(left, 0) << " s left" << std::flush;
    shown_ = true;
}

void ProgressLine::Clear() {
    if (!shown_) return;
    console_.err << "\r\x1b[K" << std::flush;
    shown_ = false;
}

}  // namespace zot::client
