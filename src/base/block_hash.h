// What MD5 and the SHA-2 family share: cutting a stream of bytes into whole blocks and padding its
// end. Whole blocks go to the compression function straight from the caller's memory; only a
// started block is kept.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

#include "base/byte_order.h"

namespace zot {

// blockSize: bytes in a block, 64 or 128. The padding ends with the message length in bits, in a
// field of an eighth of a block and in the byte order `order`.
template <size_t blockSize, std::endian order>
class BlockStream {
  public:
    void Reset() { total_ = 0; }

    // Calls compress(firstBlock, blockCount) for the blocks that `data` completes.
    template <typename Compress>
    void Update(const uint8_t* data, size_t size, Compress compress) {
        if (size == 0) return;
        size_t held = static_cast<size_t>(total_ % blockSize);
        total_ += size;
        if (held != 0) {
            size_t taken = std::min(size, blockSize - held);
            memcpy(partial_ + held, data, taken);
            if (held + taken < blockSize) return;
            compress(static_cast<const uint8_t*>(partial_), size_t{1});
            data += taken;
            size -= taken;
        }
        size_t whole = size / blockSize;
        if (whole != 0) compress(data, whole);
        size_t rest = size % blockSize;
        if (rest != 0) memcpy(partial_, data + size - rest, rest);
    }

    // Calls compress for the one or two blocks that hold the end of the message and the padding.
    template <typename Compress>
    void Finish(Compress compress) {
        constexpr size_t kLengthField = blockSize / 8;
        size_t held = static_cast<size_t>(total_ % blockSize);
        partial_[held++] = 0x80;
        if (held > blockSize - kLengthField) {
            memset(partial_ + held, 0, blockSize - held);
            compress(static_cast<const uint8_t*>(partial_), size_t{1});
            held = 0;
        }
        memset(partial_ + held, 0, blockSize - held);
        // The count of bytes has 64 bits, so the upper half of a 128-bit length holds at most the
        // three bits that the multiplication by eight pushes out.
        if constexpr (order == std::endian::little) {
            StoreLe64(partial_ + blockSize - kLengthField, total_ << 3);
        } else {
            if constexpr (kLengthField == 16) StoreBe64(partial_ + blockSize - 16, total_ >> 61);
            StoreBe64(partial_ + blockSize - 8, total_ << 3);
        }
        compress(static_cast<const uint8_t*>(partial_), size_t{1});
    }

  private:
    uint64_t total_ = 0;
    uint8_t partial_[blockSize];
};

}  // namespace zot
