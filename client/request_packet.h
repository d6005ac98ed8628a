// The server's half of the protocol as bytes and text, without sockets: request packets, and the
// texts of requests and replies.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zot::client {

// The request text: the command, one line for each parameter, and the carriage return that marks
// the end of the transmission. Line breaks inside command and parameters are escaped.
std::string ComposeRequest(std::string_view command, std::span<const std::string> params);

// A reply in parts: the three digits, and the value lines, still escaped.
struct Answer {
    std::string code;
    std::vector<std::string> lines;
};

// Splits a reply text; false when it does not begin with a line of three digits or does not end
// with a line feed and a carriage return. A text opened with the wrong key does neither.
bool ParseReply(std::string_view text, Answer& answer);

// 16 bytes from the system's random source; empty when it fails.
std::string RandomSessionKey();

// Packet encryption with a key string, without a length in front.
std::string Encrypt(std::string_view keyString, std::string_view data);

// A request packet field by field. MakeRequest fills it as a server does; change a field before
// Serialise to make a faulty packet.
struct RequestFields {
    uint8_t signature[2] = {0x03, 0x12};
    std::string digest;
    std::string encryptedKey;
    std::string encryptedText;
    std::string trailer;  // bytes after the last field, included in the packet length
    // Lengths to write instead of the true ones.
    std::optional<uint32_t> packetLength;
    std::optional<uint16_t> digestLength;
    std::optional<uint16_t> keyLength;
    std::optional<uint32_t> textLength;
};

// REQUIRES a session key of at most 65535 bytes. An empty password gives no digest.
RequestFields MakeRequest(std::string_view password, std::string_view sessionKey,
                          std::string_view text);
std::string Serialise(const RequestFields& fields);
// The two in one: the packet as it is sent.
std::string BuildRequest(std::string_view password, std::string_view sessionKey,
                         std::string_view text);

}  // namespace zot::client
