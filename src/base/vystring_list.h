// VyStringList: a growing list of texts.
#pragma once

#include <cstdint>
#include <string_view>

#include "base/vystring.h"

namespace zot {

// A list of texts, 0-based. An item of length 0 or 1 lives in its slot, a longer one in a heap
// copy. An index outside the list is a broken rule of the program and stops it by assertion.
class VyStringList {
  public:
    VyStringList() noexcept = default;
    VyStringList(const VyStringList& other);
    VyStringList& operator=(const VyStringList&) = delete;
    ~VyStringList();

    int32_t Count() const noexcept { return count_; }
    bool Empty() const noexcept { return count_ == 0; }
    void Add(char c) { Add(std::string_view(&c, 1)); }
    void Add(std::string_view text);
    // REQUIRES 0 <= index < Count() ("operator[]").
    VyString operator[](int32_t index) const { return ItemView(index); }
    // The same without a copy; the view dies with the next change of the list.
    std::string_view ItemView(int32_t index) const;
    void Clear() noexcept;

  private:
    static uint64_t MakeSlot(std::string_view text);
    void FreeItem(int32_t index) noexcept;
    void Grow();

    int32_t count_ = 0;
    int32_t capacity_ = 0;
    int32_t* lengths_ = nullptr;
    uint64_t* slots_ = nullptr;
};

}  // namespace zot
