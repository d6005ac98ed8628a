#include "client/request_packet.h"

#include <unistd.h>

#include <algorithm>

#include "base/ascii.h"
#include "base/md5.h"
#include "base/twofish.h"
#include "protocol/length_codec.h"
#include "protocol/packet_cipher.h"
#include "protocol/request_text.h"

namespace zot::client {
namespace {

constexpr size_t kLengthDigits = 4;
constexpr size_t kSignatureSize = 2;

void AppendLength(std::string& packet, uint32_t value, int digits) {
    uint8_t bytes[kLengthDigits];
    EncodeLength(value, digits, bytes);
    packet.append(reinterpret_cast<const char*>(bytes), static_cast<size_t>(digits));
}

std::span<const uint8_t> AsBytes(std::string_view text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

// The cipher refuses to work before its self-test, which a process needs only once.
PacketCipher MakeCipher(std::string_view keyString) {
    [[maybe_unused]] static const bool initialised = (TwofishInitialise(), true);
    return PacketCipher(keyString);
}

std::string PasswordDigest(std::string_view password) {
    if (password.empty()) return {};
    auto digest = Md5Digest(password.data(), password.size());
    return {digest.begin(), digest.end()};
}

}  // namespace

std::string ComposeRequest(std::string_view command, std::span<const std::string> params) {
    VyString text = Escape(command);
    text.Append('\n');
    for (const std::string& param : params) {
        AppendEscaped(text, param);
        text.Append('\n');
    }
    text.Append('\r');
    return std::string(text.View());
}

bool ParseReply(std::string_view text, Answer& answer) {
    answer = {};
    if (text.size() < 5 || !text.ends_with("\n\r") || text[3] != '\n') return false;
    std::string_view code = text.substr(0, 3);
    if (!std::all_of(code.begin(), code.end(), IsDigit)) return false;
    answer.code = code;
    text.remove_prefix(4);
    text.remove_suffix(1);
    while (!text.empty()) {
        size_t end = text.find('\n');
        answer.lines.emplace_back(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
    return true;
}

std::string RandomSessionKey() {
    std::string key(16, '\0');
    return getentropy(key.data(), key.size()) == 0 ? key : std::string();
}

std::string Encrypt(std::string_view keyString, std::string_view data) {
    std::string result(data.size(), '\0');
    MakeCipher(keyString).Encrypt(AsBytes(data), reinterpret_cast<uint8_t*>(result.data()));
    return result;
}

RequestFields MakeRequest(std::string_view password, std::string_view sessionKey,
                          std::string_view text) {
    RequestFields fields;
    fields.digest = PasswordDigest(password);
    fields.encryptedKey = Encrypt(password, sessionKey);
    fields.encryptedText = Encrypt(sessionKey, text);
    return fields;
}

std::string Serialise(const RequestFields& fields) {
    std::string body(fields.signature, fields.signature + kSignatureSize);
    auto appendField = [&body](const std::string& bytes, uint32_t length, int digits) {
        AppendLength(body, length, digits);
        body += bytes;
    };
    auto size16 = [](const std::string& bytes) { return static_cast<uint16_t>(bytes.size()); };
    auto size32 = [](const std::string& bytes) { return static_cast<uint32_t>(bytes.size()); };
    appendField(fields.digest, fields.digestLength.value_or(size16(fields.digest)), 2);
    appendField(fields.encryptedKey, fields.keyLength.value_or(size16(fields.encryptedKey)), 2);
    appendField(fields.encryptedText, fields.textLength.value_or(size32(fields.encryptedText)), 4);
    body += fields.trailer;

    std::string packet;
    AppendLength(packet, fields.packetLength.value_or(size32(body)), 4);
    return packet += body;
}

std::string BuildRequest(std::string_view password, std::string_view sessionKey,
                         std::string_view text) {
    return Serialise(MakeRequest(password, sessionKey, text));
}

}  // namespace zot::client
