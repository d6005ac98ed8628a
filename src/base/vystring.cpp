#include "base/vystring.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

#include "base/ascii.h"
#include "base/wipe.h"

namespace zot {
namespace {

constexpr size_t kGrowthStep = 128;
// Lengths are 32-bit; the rounded-up capacity of the longest text must still fit.
constexpr size_t kMaxCapacity = std::numeric_limits<int32_t>::max() - kGrowthStep;

size_t GrownCapacity(size_t n) { return n / kGrowthStep * kGrowthStep + kGrowthStep; }

bool IsBlank(char c) { return static_cast<unsigned char>(c) <= 32; }

int64_t OneBased(size_t found) {
    return found == std::string_view::npos ? 0 : static_cast<int64_t>(found) + 1;
}

}  // namespace

VyString::VyString(std::string_view text) { Append(text); }

VyString::VyString(const char* text) : VyString(std::string_view(text)) {}

VyString::VyString(const VyString& other) : fixed_(other.fixed_) {
    if (fixed_) SetCapacity(other.capacity_);
    Append(other.View());
}

VyString::VyString(VyString&& other) noexcept
    : length_(std::exchange(other.length_, 0)),
      capacity_(std::exchange(other.capacity_, 0)),
      data_(std::exchange(other.data_, nullptr)),
      fixed_(std::exchange(other.fixed_, false)) {}

VyString& VyString::operator=(const VyString& other) {
    if (this != &other) Assign(other.View());
    return *this;
}

// NOLINTNEXTLINE(bugprone-exception-escape): what is cut to a fixed capacity needs no memory
VyString& VyString::operator=(VyString&& other) noexcept {
    if (this == &other) return *this;
    if (fixed_) {
        // cppcheck-suppress throwInNoexceptFunction
        Assign(other.View());
    } else {
        std::swap(length_, other.length_);
        std::swap(capacity_, other.capacity_);
        std::swap(data_, other.data_);
        other.fixed_ = false;
    }
    other.length_ = 0;
    return *this;
}

VyString& VyString::operator=(std::string_view text) {
    Assign(text);
    return *this;
}

VyString::~VyString() { std::free(data_); }

VyString VyString::Fixed(uint32_t capacity) {
    VyString result;
    result.fixed_ = capacity != 0;
    result.SetCapacity(capacity);
    return result;
}

void VyString::SetCapacity(size_t n) {
    if (n == 0) {
        std::free(data_);
        data_ = nullptr;
        length_ = 0;
        capacity_ = 0;
        fixed_ = false;
        return;
    }
    if (n >= kMaxCapacity) throw std::length_error("VyString");
    size_t wanted = fixed_ ? n : GrownCapacity(n);
    if (wanted == capacity_) return;
    auto* grown = static_cast<char*>(std::realloc(data_, wanted));
    if (grown == nullptr) throw std::bad_alloc();
    if (wanted > capacity_) std::memset(grown + capacity_, 0, wanted - capacity_);
    data_ = grown;
    capacity_ = static_cast<uint32_t>(wanted);
    length_ = std::min(length_, static_cast<int32_t>(wanted));
}

void VyString::Reserve(size_t n) {
    if (n > capacity_ && !fixed_) SetCapacity(n);
}

void VyString::Wipe() noexcept {
    if (data_ != nullptr) WipeMemory(data_, capacity_);
    length_ = 0;
}

void VyString::Cut(int32_t n) noexcept { length_ = std::clamp(n, 0, length_); }

void VyString::Assign(std::string_view text) {
    if (fixed_) text = text.substr(0, capacity_);
    // A view of this very string stays where it is in the buffer; a longer text is never a view.
    if (text.size() > capacity_) {
        Wipe();  // what is replaced may be a secret, and the buffer may be freed
        SetCapacity(text.size());
    }
    if (!text.empty()) std::memmove(data_, text.data(), text.size());
    length_ = static_cast<int32_t>(text.size());
}

void VyString::Append(std::string_view text) {
    auto used = static_cast<size_t>(length_);
    if (fixed_) text = text.substr(0, capacity_ - used);
    if (text.empty()) return;
    if (text.size() > capacity_ - used) {
        // Appending a part of the string to itself: the part moves with the buffer.
        size_t offset = static_cast<size_t>(text.data() - data_);
        bool inside = data_ != nullptr && text.data() >= data_ && text.data() < data_ + capacity_;
        if (text.size() > kMaxCapacity) throw std::length_error("VyString");
        SetCapacity(used + text.size());
        if (inside) text = {data_ + offset, text.size()};
    }
    std::memmove(data_ + used, text.data(), text.size());
    length_ += static_cast<int32_t>(text.size());
}

VyString VyString::Concat(std::string_view a, std::string_view b) {
    VyString result;
    if (!a.empty() || !b.empty()) result.Reserve(a.size() + b.size());
    result.Append(a);
    result.Append(b);
    return result;
}

int32_t VyString::Pos(std::string_view text) const noexcept {
    return static_cast<int32_t>(FindInBuffer(View(), text));
}

std::string_view VyString::CopyView(int32_t start, int32_t count) const noexcept {
    if (start < 1 || start > length_ || count < 1) return {};
    return View().substr(static_cast<size_t>(start) - 1, static_cast<size_t>(count));
}

void VyString::Set(int32_t position, char c) noexcept {
    if (position >= 1 && position <= length_) data_[position - 1] = c;
}

void VyString::Trim() noexcept {
    std::string_view kept = TrimView(View());
    if (!kept.empty()) std::memmove(data_, kept.data(), kept.size());
    length_ = static_cast<int32_t>(kept.size());
}

void VyString::LowerCase() noexcept {
    for (int32_t i = 0; i < length_; ++i) data_[i] = LowerAscii(data_[i]);
}

void VyString::CollapseRuns(char c) noexcept {
    if (length_ == 0) return;
    char* end =
        std::unique(data_, data_ + length_, [c](char a, char b) { return a == c && b == c; });
    length_ = static_cast<int32_t>(end - data_);
}

VyString VyString::ReplaceAll(std::string_view from, std::string_view to,
                              bool caseSensitive) const {
    VyString result;
    std::string_view rest = View();
    auto find = caseSensitive ? FindInBuffer : FindInBufferNoCase;
    for (int64_t at; (at = find(rest, from, 1)) > 0;) {
        result.Append(rest.substr(0, static_cast<size_t>(at) - 1));
        result.Append(to);
        rest.remove_prefix(static_cast<size_t>(at) - 1 + from.size());
    }
    result.Append(rest);
    return result;
}

void VyString::CopyToBuffer(char* buffer, size_t size) const noexcept {
    if (size == 0) return;
    size_t n = std::min(size - 1, static_cast<size_t>(length_));
    if (n > 0) std::memcpy(buffer, data_, n);
    buffer[n] = '\0';
}

const char* VyString::Terminate() {
    auto used = static_cast<size_t>(length_);
    if (used == capacity_) SetCapacity(capacity_ + kGrowthStep);
    std::memset(data_ + used, 0, capacity_ - used);
    return data_;
}

int64_t FindInBuffer(std::string_view text, std::string_view pattern, int64_t start) noexcept {
    if (pattern.empty() || start < 1) return 0;
    return OneBased(text.find(pattern, static_cast<size_t>(start) - 1));
}

int64_t FindInBufferNoCase(std::string_view text, std::string_view pattern,
                           int64_t start) noexcept {
    if (pattern.empty() || start < 1 || static_cast<size_t>(start) > text.size()) return 0;
    auto from = text.begin() + (start - 1);
    auto found = std::search(from, text.end(), pattern.begin(), pattern.end(),
                             [](char a, char b) { return LowerAscii(a) == LowerAscii(b); });
    return found == text.end() ? 0 : found - text.begin() + 1;
}

std::string_view TrimView(std::string_view text) noexcept {
    while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
    return text;
}

std::string_view FieldOf(std::string_view text, int32_t n, char separator) noexcept {
    if (n < 1) return {};
    while (--n > 0) {
        size_t at = text.find(separator);
        if (at == std::string_view::npos) return {};
        text.remove_prefix(at + 1);
    }
    return text.substr(0, text.find(separator));
}

}  // namespace zot
