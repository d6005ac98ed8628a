#include "base/vystring_list.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "base/platform/system.h"

namespace zot {
namespace {

constexpr int32_t kGrowthStep = 128;

void CheckIndex(int32_t index, int32_t count, const char* operation, int line) {
    if (index < 0 || index >= count) AssertionFailure(operation, "vystring", line, "0");
}

// A slot holds either a text of one character or the address of a longer one.
char* HeapText(uint64_t slot) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    return reinterpret_cast<char*>(static_cast<uintptr_t>(slot));
}

}  // namespace

VyStringList::VyStringList(const VyStringList& other) {
    for (int32_t i = 0; i < other.count_; ++i) Add(other.ItemView(i));
}

VyStringList::~VyStringList() {
    Clear();
    std::free(lengths_);
    std::free(slots_);
}

void VyStringList::Add(std::string_view text) {
    if (count_ == capacity_) Grow();
    slots_[count_] = MakeSlot(text);
    lengths_[count_] = static_cast<int32_t>(text.size());
    ++count_;
}

std::string_view VyStringList::ItemView(int32_t index) const {
    CheckIndex(index, count_, "operator[]", __LINE__);
    auto length = static_cast<size_t>(lengths_[index]);
    if (length > 1) return {HeapText(slots_[index]), length};
    return {reinterpret_cast<const char*>(&slots_[index]), length};
}

void VyStringList::Clear() noexcept {
    for (int32_t i = 0; i < count_; ++i) FreeItem(i);
    count_ = 0;
}

uint64_t VyStringList::MakeSlot(std::string_view text) {
    uint64_t slot = 0;
    if (text.size() > 1) {
        auto* copy = static_cast<char*>(std::malloc(text.size()));
        if (copy == nullptr) throw std::bad_alloc();
        std::memcpy(copy, text.data(), text.size());
        slot = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(copy));
    } else if (!text.empty()) {
        std::memcpy(&slot, text.data(), 1);
    }
    return slot;
}

void VyStringList::FreeItem(int32_t index) noexcept {
    if (lengths_[index] > 1) std::free(HeapText(slots_[index]));
}

void VyStringList::Grow() {
    // Half as much again, by the rule of steps: a long list is not moved once for every step.
    int32_t wanted = (capacity_ + capacity_ / 2) / kGrowthStep * kGrowthStep + kGrowthStep;
    auto items = static_cast<size_t>(wanted);
    auto* lengths = static_cast<int32_t*>(std::realloc(lengths_, items * sizeof *lengths_));
    if (lengths == nullptr) throw std::bad_alloc();
    lengths_ = lengths;
    auto* slots = static_cast<uint64_t*>(std::realloc(slots_, items * sizeof *slots_));
    if (slots == nullptr) throw std::bad_alloc();
    slots_ = slots;
    capacity_ = wanted;
}

}  // namespace zot
