// Clears secrets. A plain memset of memory that is never read again may be optimised away.
#pragma once

#include <cstddef>
#include <cstring>

namespace zot {

inline void WipeMemory(void* memory, size_t size) {
    memset(memory, 0, size);
    // Tells the compiler that somebody looks at the zeros.
    __asm__ __volatile__("" : : "r"(memory) : "memory");
}

}  // namespace zot
