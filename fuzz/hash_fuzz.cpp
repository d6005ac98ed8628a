// The hashes as files are read, in pieces and with the processor's own instructions, against the
// portable code on the whole message. The first byte is the size of the first piece, and each
// further one is longer by that.
#include <algorithm>
#include <cstdint>
#include <span>
#include <string_view>

#include "base/crc32.h"
#include "base/sha2.h"
#include "fuzz/scratch.h"

namespace {

using namespace zot;
using Data = std::span<const uint8_t>;

template <typename Take>
void InPieces(Data data, size_t step, Take take) {
    for (size_t size = step; !data.empty(); size += step) {
        take(data.first(std::min(size, data.size())));
        data = data.subspan(std::min(size, data.size()));
    }
}

template <typename Hash>
void RequireSameDigest(typename Hash::Compress portable, Data data, size_t step) {
    Hash whole(portable);
    whole.Update(data);
    uint8_t expected[Hash::kDigestSize];
    whole.Final(expected);

    Hash chosen;
    InPieces(data, step, [&](Data piece) { chosen.Update(piece); });
    uint8_t actual[Hash::kDigestSize];
    chosen.Final(actual);
    fuzz::Require(std::equal(actual, actual + sizeof actual, expected));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    std::string_view input(reinterpret_cast<const char*>(bytes), size);
    const size_t step = fuzz::TakeByte(input) + size_t{1};
    Data data(reinterpret_cast<const uint8_t*>(input.data()), input.size());

    RequireSameDigest<Sha256>(Sha256Portable, data, step);
    RequireSameDigest<Sha512>(Sha512Portable, data, step);
    uint32_t crc = kCrc32Start;
    InPieces(data, step, [&](Data piece) { crc = Crc32Update(crc, piece); });
    fuzz::Require(crc == Crc32Portable(kCrc32Start, data.data(), data.size()));
    return 0;
}
