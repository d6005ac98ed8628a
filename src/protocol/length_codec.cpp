#include "protocol/length_codec.h"

#include "base/byte_order.h"
#include "base/platform/system.h"

namespace zot {

void EncodeLength(uint32_t value, int digits, uint8_t* out) {
    if (digits < 0 || digits > 4) {
        AssertionFailure("EncodeLength", "zot_const", 145, "digits<=sizeof(len)");
    }
    for (int i = 0; i < digits; i++) out[i] = static_cast<uint8_t>(value >> (8 * i));
}

uint32_t DecodeLength(const uint8_t* bytes, int digits) {
    switch (digits) {
        case 4:
            return LoadLe32(bytes);
        case 2:
            return static_cast<uint32_t>(bytes[0] | bytes[1] << 8);
        case 1:
            return bytes[0];
        case 3:  // such fields can be written, but the protocol does not read them back
        case 0:
            return 0;
        default:
            AssertionFailure("DecodeLength", "zot_const", 160, "digits<=sizeof(int)");
    }
}

}  // namespace zot
