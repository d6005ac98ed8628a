// Opens a reply packet piece by piece as it arrives, so that its first bytes show what is not a
// reply, and nobody waits for the rest of it to be decrypted.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "protocol/packet_cipher.h"

namespace zot::client {

class ReplyReceiver {
  public:
    enum class State { kMore, kComplete, kBad };

    // Takes the key of the request, and how many bytes a reply may have.
    ReplyReceiver(std::string_view sessionKey, size_t maxSize)
        : cipher_(sessionKey), maxSize_(maxSize) {}

    // Takes what has arrived, and leaves what follows the reply. With kBad, Error() says what is
    // wrong.
    State Take(std::string_view bytes);

    // Whether the first byte has arrived.
    bool Begun() const { return begun_; }
    const std::string& Text() const { return text_; }
    const std::string& Error() const { return error_; }

  private:
    State TakeLength(std::string_view& bytes);
    void Open(std::string_view bytes);
    State Fail(std::string error);

    PacketCipher cipher_;
    size_t maxSize_;
    size_t wanted_ = 4;
    bool begun_ = false;
    bool haveLength_ = false;
    std::string head_;    // too few bytes to be opened
    std::string before_;  // the last encrypted bytes that were opened
    std::string text_;
    std::string error_;
};

}  // namespace zot::client
