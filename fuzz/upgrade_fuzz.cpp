// The upgrade receiver: the first line is the size that the request announces; then each receive is
// a length byte and its bytes. Length 0 means the right trailer for what was sent so far.
#include <cstdint>
#include <string>

#include "agent/upgrade.h"
#include "base/twofish.h"
#include "client/request_packet.h"
#include "fuzz/scratch.h"

namespace {

using namespace zot;

constexpr char kKey[] = "key";

std::string Trailer(const std::string& data) {
    auto digest = Md5Digest(data.data(), data.size());
    return client::Encrypt(kKey, {reinterpret_cast<const char*>(digest.data()), digest.size()});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool ready = (TwofishInitialise(), true);
    fuzz::Require(ready);
    static const fuzz::Scratch scratch;
    std::string_view input(reinterpret_cast<const char*>(data), size);
    AgentSettings settings;
    settings.tmpDir = scratch.Path();
    settings.agentPath = scratch / "zot";
    PacketCipher cipher(kKey);
    UpgradeGate gate;
    {
        UpgradeTransfer transfer(gate);
        Reply reply;
        std::string params(fuzz::TakeLine(input));
        transfer.Begin(params + "\n\r", settings, reply);
        std::string sent;
        VyString errorText;
        while (transfer.InProgress() && !input.empty()) {
            size_t length = fuzz::TakeByte(input);
            std::string part(input.substr(0, length));
            input.remove_prefix(part.size());
            if (length == 0) part = Trailer(sent);
            transfer.Receive(part, cipher, settings, errorText);
            if (transfer.InProgress()) fuzz::Require(errorText.Empty());
            sent += part;
        }
        if (transfer.HasOrder()) {
            fuzz::Require(!transfer.InProgress() && errorText.Empty());
            std::string module = fuzz::Scratch::Read(scratch / "zot__.upd");
            fuzz::Require(sent == module + Trailer(module));
        }
        // After a failure the gate is open again; an order keeps it shut until it is carried out.
        if (!transfer.InProgress()) fuzz::Require(gate.Enter() != transfer.HasOrder());
    }
    std::filesystem::remove(scratch / "zot__.upd");
    std::filesystem::remove(scratch / "zotupd__.sh");
    return 0;
}
