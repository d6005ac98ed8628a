#include "base/crc32.h"

#include <gtest/gtest.h>

#include <random>
#include <span>
#include <vector>

#include "base/platform/hash.h"

namespace zot {
namespace {

uint32_t Chosen(uint32_t state, const uint8_t* data, size_t size) {
    return Crc32Update(state, {data, size});
}

class Crc32 : public testing::Test {
  protected:
    // The code chosen at start, the portable code and, where there is any, the accelerated.
    std::vector<Crc32Function> Functions() {
        std::vector<Crc32Function> functions = {Chosen, Crc32Portable};
        if (AcceleratedHashes().crc32 != nullptr) functions.push_back(AcceleratedHashes().crc32);
        return functions;
    }
};

TEST_F(Crc32, IsTheComplementOfTheCheckValue) {
    const auto* digits = reinterpret_cast<const uint8_t*>("123456789");
    for (Crc32Function crc32 : Functions()) {
        EXPECT_EQ(~crc32(kCrc32Start, digits, 9), 0xcbf43926);
        EXPECT_EQ(crc32(kCrc32Start, nullptr, 0), kCrc32Start);
    }
}

// Bit by bit, as the polynomial is defined.
uint32_t ByDefinition(uint32_t state, std::span<const uint8_t> data) {
    for (uint8_t byte : data) {
        state ^= byte;
        for (int bit = 0; bit < 8; ++bit) state = (state >> 1) ^ ((state & 1) * 0xedb88320);
    }
    return state;
}

TEST_F(Crc32, FollowsTheDefinitionForEveryLengthAlignmentAndState) {
    std::mt19937 random(20240229);
    std::vector<uint8_t> bytes(1100);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
    for (size_t size = 0; size <= 1000; ++size) {
        auto data = std::span(bytes).subspan(random() % 64, size);
        uint32_t state = static_cast<uint32_t>(random());
        uint32_t expected = ByDefinition(state, data);
        size_t cut = random() % (size + 1);
        for (Crc32Function crc32 : Functions()) {
            ASSERT_EQ(crc32(state, data.data(), size), expected) << size;
            uint32_t part = crc32(state, data.data(), cut);
            ASSERT_EQ(crc32(part, data.data() + cut, size - cut), expected) << size << " " << cut;
        }
    }
}

}  // namespace
}  // namespace zot
