// The packet decoder. The first byte says how the rest becomes a packet: unchanged, or as the
// fields of a packet with the right password and lengths, so that the decryption is reached too;
// further bits put in wrong lengths.
#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "base/twofish.h"
#include "client/request_packet.h"
#include "fuzz/scratch.h"
#include "protocol/packet.h"
#include "protocol/packet_intake.h"
#include "tests/support/decrypt.h"

namespace {

using namespace zot;

constexpr std::string_view kPassword = "fuzz";

std::string MakePacket(std::string_view input) {
    unsigned kind = fuzz::TakeByte(input);
    if ((kind & 1) == 0) return std::string(input);
    std::string_view key = input.substr(0, fuzz::TakeByte(input));
    client::RequestFields fields = client::MakeRequest(kPassword, key, input);
    auto word = [&] {
        unsigned low = fuzz::TakeByte(input);
        return low | static_cast<unsigned>(fuzz::TakeByte(input)) << 8;
    };
    if ((kind & 2) != 0) fields.packetLength = word() << (kind >> 4);
    if ((kind & 4) != 0) fields.keyLength = static_cast<uint16_t>(word());
    if ((kind & 8) != 0) fields.textLength = word() << (kind >> 4);
    if ((kind & 16) != 0) fields.digestLength = static_cast<uint16_t>(word());
    if ((kind & 32) != 0) fields.trailer = input.substr(0, fuzz::TakeByte(input));
    return client::Serialise(fields);
}

struct Receiver {
    Receiver() : log(store) {
        TwofishInitialise();
        store.Change(
            [](AgentSettings& settings) { return settings.debug = settings.verbose = true; });
    }
    SettingsStore store;
    Log log;
};

// However the bytes are cut, the front must make the same packet of them: byte by byte, and in two
// parts.
void TakeInParts(std::string_view bytes, size_t firstPart, const PasswordKey& password,
                 const RequestPacket* expected, Log& log) {
    PacketIntake intake;
    size_t taken = 0;
    while (taken < bytes.size()) {
        const size_t part = taken == 0 ? std::max<size_t>(firstPart, 1) : 1;
        const PacketState state = intake.Take(bytes.substr(taken, part), password);
        taken += part;
        fuzz::Require(state == CheckPacket(bytes.substr(0, taken)));
        if (firstPart > 0 && taken < bytes.size()) {
            intake.Take(bytes.substr(std::exchange(taken, bytes.size())), password);
        }
        fuzz::Require(!intake.IsStranger() || intake.Held() == 0);
    }
    RequestPacket request;
    const bool valid = intake.Open(password, 0x0100007f, log, request);
    fuzz::Require(valid == (expected != nullptr));
    fuzz::Require(!valid || (request.text == expected->text &&
                             request.sessionKey.View() == expected->sessionKey.View()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Receiver receiver;
    const std::string bytes = MakePacket({reinterpret_cast<const char*>(data), size});

    // An incomplete packet has no complete beginning.
    PacketState whole = CheckPacket(bytes);
    for (size_t part : {bytes.size() / 2, bytes.size() - (bytes.empty() ? 0 : 1)}) {
        PacketState before = CheckPacket(std::string_view(bytes).substr(0, part));
        if (whole == PacketState::kIncomplete) fuzz::Require(before != PacketState::kComplete);
    }

    static const PasswordKey password(kPassword);
    std::string packet(bytes);
    RequestPacket request;
    bool valid = DecodeRequest(packet, password, 0x0100007f, receiver.log, request);
    static size_t cut = 0;
    for (size_t part : {size_t{0}, bytes.empty() ? 0 : ++cut % bytes.size()}) {
        TakeInParts(bytes, part, password, valid ? &request : nullptr, receiver.log);
    }
    if (!valid) {
        fuzz::Require(request.sessionKey.Empty());
        return 0;
    }
    fuzz::Require(whole == PacketState::kComplete);
    Reply reply;
    reply.Start("200", request.text);
    std::string plain(reply.Text().View());
    VyString sealed = SealReply(std::move(reply), *request.cipher);
    fuzz::Require(test::Decrypt(request.sessionKey, sealed.View().substr(4)) == plain + "\r");
    return 0;
}
