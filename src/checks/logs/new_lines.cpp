#include "checks/logs/new_lines.h"

#include <sys/types.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "base/mapped_bytes.h"
#include "base/vystring.h"

namespace zot {
namespace {

// The smallest buffer, in bytes.
constexpr size_t kSmallBlock = 4096;

// Where matches are frequent the bytes are needed in any case, so mapping them first is in vain.
constexpr int kBlocksBeforeMapping = 4;

const char* FindLineEnd(const char* begin, const char* end) {
    return std::find_if(begin, end, IsLineEnd);
}

// How many bytes of the text are complete lines.
size_t SizeOfLines(std::string_view text) {
    size_t size = text.size();
    while (size > 0 && !IsLineEnd(text[size - 1])) --size;
    return size;
}

size_t SizeWithoutLineEnds(std::string_view text) {
    size_t size = text.size();
    while (size > 0 && IsLineEnd(text[size - 1])) --size;
    return size;
}

}  // namespace

NewLines::NewLines(RegularFile& file, int64_t fileSize, const LineMatchers& matchers, bool findAll,
                   const LogScanTuning& tuning, int64_t& position, LogScanFindings& found)
    : file_(file),
      matchers_(matchers),
      findAll_(findAll),
      // A few new lines, the usual case, need no large buffer; with one byte more a single read
      // finds the end.
      blockSize_(std::min(tuning.blockSize,
                          std::max(kSmallBlock, static_cast<size_t>(fileSize - position) + 1))),
      longestLine_(tuning.longestLine),
      mapFrom_(tuning.mapFrom),
      mapped_(tuning.mapped),
      size_(fileSize),
      position_(position),
      found_(found),
      blocksWithoutMatch_(kBlocksBeforeMapping),
      offset_(position) {
    for (const auto& matcher : matchers)
        long_.overlap = std::max(long_.overlap, matcher->Overlap());
    longestLine_ = std::max({longestLine_, long_.overlap, blockSize_});
}

int64_t NewLines::Scan(struct stat& status) {
    for (;;) {
        PassLinesWithoutMatch();
        MakeRoom(used_ + blockSize_);
        if (!file_.Stat(status)) return -1;
        ssize_t count = file_.Read(buffer_.get() + used_, blockSize_);
        if (count < 0) return -1;
        size_t fresh = std::exchange(used_, used_ + static_cast<size_t>(count));
        long_.active ? TakeLongLine(fresh) : TakeBytes(fresh);
        bool ended = static_cast<size_t>(count) < blockSize_;
        if (ended || (result_ != 0 && !findAll_) || stopped_) return result_;
    }
}

// Goes past lines that need not be read, as far as that can be told from the mapped file.
void NewLines::PassLinesWithoutMatch() {
    if (long_.active || blocksWithoutMatch_ < kBlocksBeforeMapping) return;
    while (size_ - offset_ >= mapFrom_ && !stopped_) {
        const MappedBytes bytes = file_.Map(offset_, offset_ + std::min(mapped_, size_ - offset_));
        std::string_view text = bytes.View();
        for (const auto& matcher : matchers_) {
            text = text.substr(0, matcher->SizeWithoutMatch(text));
        }
        text = text.substr(0, SizeOfLines(text));
        const size_t size = SizeWithoutLineEnds(text);
        if (text.empty() || !bytes.IsWhole() ||
            !file_.Seek(offset_ + static_cast<int64_t>(text.size()))) {
            blocksWithoutMatch_ = 0;
            return;
        }
        // What the buffer holds of the first line has been seen again.
        used_ = 0;
        if (size > 0) position_ = offset_ + static_cast<int64_t>(size) + 1;
        offset_ += static_cast<int64_t>(text.size());
    }
}

// Room for this many bytes in all.
void NewLines::MakeRoom(size_t needed) {
    if (capacity_ >= needed) return;
    size_t capacity = std::max(needed, std::min(2 * capacity_, longestLine_));
    std::unique_ptr<char[]> buffer(new char[capacity]);
    if (used_ > 0) std::memcpy(buffer.get(), buffer_.get(), used_);
    buffer_ = std::move(buffer);
    capacity_ = capacity;
}

// The bytes from `fresh` on were just read; those before them hold no line end.
void NewLines::TakeBytes(size_t fresh) {
    const char* bytes = buffer_.get();
    auto lineEnd = static_cast<size_t>(FindLineEnd(bytes + fresh, bytes + used_) - bytes);
    if (lineEnd > longestLine_) {
        BeginLongLine();
        TakeLongLine(fresh);
    } else if (lineEnd < used_) {
        size_t size = SizeOfLines({bytes, used_});
        TakeLines({bytes, size});
        DropFront(size);
    }
}

void NewLines::TakeLines(std::string_view lines) {
    bool byFirst = false;
    ++blocksWithoutMatch_;
    if (LineMatch match = FindMatch(lines, byFirst)) {
        auto begin = static_cast<size_t>(match.line.data() - lines.data());
        size_t before = SizeWithoutLineEnds(lines.substr(0, begin));
        // The line before has consumed one line end.
        int64_t consumed = before == 0 ? position_ : offset_ + static_cast<int64_t>(before) + 1;
        Report(consumed + match.value, match.line, byFirst);
        blocksWithoutMatch_ = 0;
        if (!findAll_) {
            position_ = offset_ + static_cast<int64_t>(begin + match.line.size()) + 1;
            return;
        }
    }
    size_t size = SizeWithoutLineEnds(lines);
    if (size > 0) position_ = offset_ + static_cast<int64_t>(size) + 1;
}

// The line that counts: the first or the last of those that the matchers find, each by itself.
LineMatch NewLines::FindMatch(std::string_view lines, bool& byFirst) const {
    LineMatch best;
    for (const auto& matcher : matchers_) {
        LineMatch match = findAll_ ? matcher->FindLast(lines) : matcher->FindFirst(lines);
        if (!match) continue;
        const char* at = match.line.data();
        if (best && (findAll_ ? at <= best.line.data() : at >= best.line.data())) continue;
        best = match;
        byFirst = matcher == matchers_.front();
    }
    return best;
}

void NewLines::Report(int64_t result, std::string_view line, bool byFirst) {
    result_ = result;
    found_.foundLine = line;
    found_.byFirst = byFirst;
}

void NewLines::DropFront(size_t count) {
    std::memmove(buffer_.get(), buffer_.get() + count, used_ - count);
    used_ -= count;
    offset_ += static_cast<int64_t>(count);
}

void NewLines::BeginLongLine() {
    MakeRoom(longestLine_ + long_.overlap + blockSize_);
    long_.active = true;
    long_.windowBegin = longestLine_ - long_.overlap;
    long_.windowOffset = static_cast<int64_t>(long_.windowBegin);
    long_.values.assign(matchers_.size(), 0);
    for (size_t i = 0; i < matchers_.size(); ++i) {
        long_.values[i] = matchers_[i]->MatchPart({buffer_.get(), longestLine_}, true, false);
    }
}

void NewLines::TakeLongLine(size_t fresh) {
    char* bytes = buffer_.get();
    const char* begin = bytes + long_.windowBegin;
    const char* end = FindLineEnd(bytes + fresh, bytes + used_);
    bool isLast = end < bytes + used_;
    std::string_view window(begin, static_cast<size_t>(end - begin));
    for (size_t i = 0; i < matchers_.size(); ++i) {
        if (long_.values[i] != 0) continue;
        int64_t value = matchers_[i]->MatchPart(window, false, isLast);
        if (value != 0) long_.values[i] = long_.windowOffset + value;
    }
    if (isLast) return EndLongLine(static_cast<size_t>(end - bytes));
    size_t kept = long_.overlap;
    long_.windowOffset += static_cast<int64_t>(window.size() - kept);
    // What a window of zeros does not hold is not in the zeros after it either.
    int64_t hole = file_.HoleAfter(window);
    file_.Skip(hole);
    long_.windowOffset += hole;
    std::memmove(bytes + longestLine_, end - kept, kept);
    long_.windowBegin = longestLine_;
    used_ = longestLine_ + kept;
}

// The line ends at this place of the buffer; takes what follows it in the buffer as well.
void NewLines::EndLongLine(size_t lineEnd) {
    int64_t lineSize = long_.windowOffset + static_cast<int64_t>(lineEnd - long_.windowBegin);
    auto matched = std::find_if(long_.values.begin(), long_.values.end(),
                                [](int64_t value) { return value != 0; });
    if (matched != long_.values.end()) {
        Report(position_ + *matched, {buffer_.get(), longestLine_},
               matched == long_.values.begin());
    }
    position_ = offset_ + lineSize + 1;
    long_.active = false;
    DropFront(lineEnd + 1);
    offset_ = position_;
    if (matched == long_.values.end() || findAll_) TakeBytes(0);
}

}  // namespace zot
