#include "checks/files/file_content.h"

#include <string.h>
#include <sys/types.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>

#include "base/ascii.h"
#include "base/files.h"
#include "base/vystring.h"
#include "checks/files/path.h"
#include "checks/files/regular_file.h"

namespace zot {
namespace {

// Two blocks of this size stay in a processor's second-level cache while they are compared.
constexpr size_t kComparedBlock = size_t{128} * 1024;
// How much is read at once for a short text.
constexpr size_t kReadAhead = size_t{256} * 1024;

// Searches through overlapping windows of at most three times the text. Each begins with the last
// bytes of the one before, as many as the text has. Whole words depend on the windows: a hit at the
// border of a window has no neighbour there, whatever the file holds next to it, and a hit that one
// window refuses may count in the next. Many windows are read at once, and those without any hit
// are skipped, which changes no result.
class WindowSearch {
  public:
    WindowSearch(std::string_view text, bool caseSensitive, bool wholeWord, uint64_t fileSize);
    // REQUIRES a file at least as long as the text. Returns as FindInFile.
    std::optional<bool> Run(RegularFile& file);

  private:
    bool FindInBlock(std::string_view block, size_t lastWindow) const;
    bool FindWord(std::string_view window) const;
    size_t Find(std::string_view bytes, size_t start) const;

    VyString lowered_;
    std::string_view text_;
    bool caseSensitive_;
    bool wholeWord_;
    size_t window_;
    size_t step_;  // from the beginning of one window to the next
};

void LowerCase(char* bytes, size_t count) {
    std::transform(bytes, bytes + count, bytes, LowerAscii);
}

WindowSearch::WindowSearch(std::string_view text, bool caseSensitive, bool wholeWord,
                           uint64_t fileSize)
    : text_(text),
      caseSensitive_(caseSensitive),
      wholeWord_(wholeWord),
      window_(static_cast<size_t>(std::min<uint64_t>(fileSize + 1, uint64_t{3} * text.size()))),
      step_(window_ - text.size()) {
    if (caseSensitive) return;
    lowered_ = text;
    lowered_.LowerCase();
    text_ = lowered_;
}

std::optional<bool> WindowSearch::Run(RegularFile& file) {
    // A block is a row of windows; the next block begins with the end of its last one.
    size_t more = kReadAhead > window_ ? (kReadAhead - window_) / step_ * step_ : 0;
    size_t capacity = window_ + more;
    auto block = ReadBuffer<char>(capacity);
    for (size_t kept = 0;; kept = text_.size()) {
        ssize_t count = file.Read(block.get() + kept, capacity - kept);
        if (count < 0) return std::nullopt;
        auto fresh = static_cast<size_t>(count);
        if (!caseSensitive_) LowerCase(block.get() + kept, fresh);
        bool full = kept + fresh == capacity;
        // The last bytes of a full block belong to a window that the next block completes.
        if (FindInBlock({block.get(), kept + fresh}, full ? more : capacity)) return true;
        if (!full) return false;
        // Windows of zeros after one without a hit have none either.
        auto step = static_cast<int64_t>(step_);
        file.Skip(file.HoleAfter({block.get(), capacity}) / step * step);
        memmove(block.get(), block.get() + capacity - text_.size(), text_.size());
    }
}

bool WindowSearch::FindInBlock(std::string_view block, size_t lastWindow) const {
    if (!wholeWord_) return Find(block, 0) != std::string_view::npos;
    size_t begin = 0;  // of the next window to search
    for (size_t hit; (hit = Find(block, begin)) != std::string_view::npos; begin += step_) {
        // On to the first window that holds the whole hit; those before it hold none.
        size_t end = hit + text_.size();
        if (end > window_) begin = std::max(begin, (end - window_ + step_ - 1) / step_ * step_);
        if (begin > lastWindow) return false;
        if (FindWord(block.substr(begin, window_))) return true;
    }
    return false;
}

bool WindowSearch::FindWord(std::string_view window) const {
    for (size_t hit = 0; (hit = Find(window, hit)) != std::string_view::npos;) {
        bool begins = hit == 0 || !IsAlnum(window[hit - 1]);
        hit += text_.size();
        bool ends = hit == window.size() || !IsAlnum(window[hit]);
        if (begins && ends) return true;
    }
    return false;
}

// memmem takes linear time whatever text and file hold.
size_t WindowSearch::Find(std::string_view bytes, size_t start) const {
    if (start >= bytes.size()) return std::string_view::npos;
    const void* hit =
        memmem(bytes.data() + start, bytes.size() - start, text_.data(), text_.size());
    if (hit == nullptr) return std::string_view::npos;
    return static_cast<size_t>(static_cast<const char*>(hit) - bytes.data());
}

}  // namespace

std::optional<bool> FindInFile(std::string_view path, std::string_view text, bool caseSensitive,
                               bool wholeWord) {
    RegularFile file;
    if (text.empty() || path.empty() || !file.Open(path)) return std::nullopt;
    auto size = static_cast<uint64_t>(file.Size());
    if (size < text.size()) return false;
    return WindowSearch(text, caseSensitive, wholeWord, size).Run(file);
}

std::optional<bool> FindFileInFile(std::string_view path1, std::string_view path2) {
    int64_t size = FileSize(path2);
    if (size == 0) return true;
    RegularFile file2;
    // Checked here again, because the file may have grown since the request was checked.
    if (size < 0 || size > kMaxSoughtFile || !file2.Open(path2)) return std::nullopt;
    auto content = ReadBuffer<char>(static_cast<size_t>(size));
    ssize_t count = file2.Read(content.get(), static_cast<size_t>(size));
    if (count < 0) return std::nullopt;
    return FindInFile(path1, {content.get(), static_cast<size_t>(count)}, true, false);
}

std::optional<bool> SameContent(std::string_view path1, std::string_view path2) {
    RegularFile file1;
    RegularFile file2;
    if (!file1.Open(path1) || !file2.Open(path2)) return std::nullopt;
    auto block1 = ReadBuffer<char>(kComparedBlock);
    auto block2 = ReadBuffer<char>(kComparedBlock);
    for (;;) {
        ssize_t count1 = file1.Read(block1.get(), kComparedBlock);
        ssize_t count2 = count1 < 0 ? -1 : file2.Read(block2.get(), kComparedBlock);
        if (count2 < 0) return std::nullopt;
        auto common = static_cast<size_t>(std::min(count1, count2));
        if (std::memcmp(block1.get(), block2.get(), common) != 0) return false;
        // Where one file ends the other may go on: servers that mind compare the sizes too.
        if (common < kComparedBlock) return true;
        int64_t hole = file1.HoleAfter({block1.get(), common});
        if (hole > 0) hole = std::min(hole, file2.HoleAfter({block2.get(), common}));
        file1.Skip(hole);
        file2.Skip(hole);
    }
}

}  // namespace zot
