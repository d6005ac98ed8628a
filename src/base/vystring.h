// VyString: the byte string that the whole agent speaks.
//
// A VyString is a length, a capacity and a buffer of bytes; it is not a NUL-terminated text unless
// Terminate was called. Positions are 1-based. Out-of-range positions are not errors: such calls
// do nothing or give an empty text. A const string may be read by any number of threads.
//
// std::string_view is the cheap view of a VyString: functions that only read take one, and the
// ...View operations return one instead of a copy. A view dies with the next change of its string.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace zot {

class VyString {
  public:
    // An empty string that owns no memory and grows as needed.
    VyString() noexcept = default;
    VyString(std::string_view text);  // NOLINT: texts become strings without ceremony
    VyString(const char* text);       // NOLINT
    VyString(const VyString& other);
    VyString(VyString&& other) noexcept;
    // Assigning to a string of fixed capacity cuts the text to that capacity and keeps it fixed.
    VyString& operator=(const VyString& other);
    VyString& operator=(VyString&& other) noexcept;  // NOLINT(bugprone-exception-escape)
    VyString& operator=(std::string_view text);
    VyString& operator=(const char* text) { return *this = std::string_view(text); }
    ~VyString();

    // An empty string whose capacity is exactly `capacity` bytes (not 0): what does not fit is cut.
    static VyString Fixed(uint32_t capacity);

    int32_t Length() const noexcept { return length_; }
    bool Empty() const noexcept { return length_ == 0; }
    uint32_t Capacity() const noexcept { return capacity_; }
    const char* Data() const noexcept { return data_; }
    char* Data() noexcept { return data_; }
    std::string_view View() const noexcept { return {data_, static_cast<size_t>(length_)}; }
    operator std::string_view() const noexcept { return View(); }  // NOLINT: the cheap view
    // The character at a position, NUL when out of range.
    char At(int32_t position) const noexcept {
        return position >= 1 && position <= length_ ? data_[position - 1] : '\0';
    }

    // Changes the capacity for a request of n bytes: n rounded down to a multiple of 128, plus 128;
    // exactly n when fixed. 0 frees the buffer and makes the string growable. New bytes are zero;
    // a text longer than the new capacity is cut. Throws std::length_error past 2 GiB and
    // std::bad_alloc without memory.
    void SetCapacity(size_t n);
    // Makes room for n bytes in all, so that appending up to there allocates once.
    void Reserve(size_t n);
    void Clear() noexcept { length_ = 0; }
    // Empties the string after overwriting its buffer: for texts that are secrets.
    void Wipe() noexcept;
    // Shortens the text to at most n bytes.
    void Cut(int32_t n) noexcept;

    void Assign(std::string_view text);
    void Append(std::string_view text);
    void Append(char c) { Append(std::string_view(&c, 1)); }
    static VyString Concat(std::string_view a, std::string_view b);

    bool Equals(std::string_view text) const noexcept { return View() == text; }
    // 1-based position of the first occurrence; 0 if absent or if either side is empty.
    int32_t Pos(std::string_view text) const noexcept;
    // Up to `count` bytes from `start`, which is clipped to the text.
    std::string_view CopyView(int32_t start, int32_t count) const noexcept;
    // Replaces one character; out of range is ignored.
    void Set(int32_t position, char c) noexcept;
    // Removes all bytes with code 32 or below (as unsigned) from both ends.
    void Trim() noexcept;
    void LowerCase() noexcept;
    // Reduces every run of two or more `c` to one.
    void CollapseRuns(char c) noexcept;
    // A new string with every occurrence of `from` replaced by `to`; an empty `from` changes
    // nothing.
    VyString ReplaceAll(std::string_view from, std::string_view to, bool caseSensitive) const;
    // Copies at most size - 1 bytes and a NUL. Async-signal-safe.
    void CopyToBuffer(char* buffer, size_t size) const noexcept;
    // Makes the buffer NUL-terminated, zeroes what follows the text, and returns it.
    const char* Terminate();

  private:
    // Hidden friends: found only where one side is a VyString.
    friend bool operator==(const VyString& a, const VyString& b) noexcept {
        return a.View() == b.View();
    }
    friend bool operator==(const VyString& a, std::string_view b) noexcept { return a.Equals(b); }
    friend bool operator==(const VyString& a, const char* b) noexcept { return a.Equals(b); }

    int32_t length_ = 0;
    uint32_t capacity_ = 0;
    char* data_ = nullptr;
    bool fixed_ = false;
};

// 1-based position of `pattern` in `text` at or after the 1-based `start`; 0 if absent or empty.
// The second form ignores the case of ASCII letters.
int64_t FindInBuffer(std::string_view text, std::string_view pattern, int64_t start = 1) noexcept;
int64_t FindInBufferNoCase(std::string_view text, std::string_view pattern,
                           int64_t start = 1) noexcept;

// A view without the bytes of code 32 or below at both ends.
std::string_view TrimView(std::string_view text) noexcept;
// The n-th piece (from 1) of `text` between separators; empty beyond the last piece.
std::string_view FieldOf(std::string_view text, int32_t n, char separator) noexcept;

}  // namespace zot
