#include "client/reply_receiver.h"

#include <algorithm>
#include <span>

#include "base/ascii.h"
#include "protocol/length_codec.h"

namespace zot::client {
namespace {

constexpr size_t kLengthSize = 4;
constexpr size_t kRegisterSize = 16;
constexpr size_t kCodeLine = 4;

std::span<const uint8_t> AsBytes(std::string_view text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

bool BeginsLikeAReply(std::string_view text) {
    return text.size() >= kCodeLine && std::all_of(text.begin(), text.begin() + 3, IsDigit) &&
           text[3] == '\n';
}

}  // namespace

ReplyReceiver::State ReplyReceiver::Fail(std::string error) {
    error_ = std::move(error);
    return State::kBad;
}

ReplyReceiver::State ReplyReceiver::TakeLength(std::string_view& bytes) {
    head_ += bytes.substr(0, wanted_);
    bytes.remove_prefix(std::min(bytes.size(), wanted_));
    wanted_ = kLengthSize - head_.size();
    if (wanted_ > 0) return State::kMore;
    size_t length = DecodeLength(reinterpret_cast<const uint8_t*>(head_.data()), kLengthSize);
    head_.clear();
    haveLength_ = true;
    if (length > maxSize_) {
        return Fail("not a reply: it announces " + std::to_string(length) + " bytes");
    }
    wanted_ = length;
    return length > 0 ? State::kMore
                      : Fail("not a reply: its text has no status code or no end mark");
}

void ReplyReceiver::Open(std::string_view bytes) {
    size_t have = text_.size();
    text_.resize(have + bytes.size());
    uint8_t* out = reinterpret_cast<uint8_t*>(text_.data() + have);
    if (before_.empty()) {
        cipher_.Decrypt(AsBytes(bytes), out);
    } else {
        cipher_.DecryptOn(AsBytes(before_).data(), AsBytes(bytes), out);
    }
    before_ += bytes.substr(bytes.size() - std::min(bytes.size(), kRegisterSize));
    before_.erase(0, before_.size() - std::min(before_.size(), kRegisterSize));
}

ReplyReceiver::State ReplyReceiver::Take(std::string_view bytes) {
    begun_ = begun_ || !bytes.empty();
    if (!haveLength_ && TakeLength(bytes) == State::kBad) return State::kBad;
    if (bytes.empty()) return State::kMore;
    bytes = bytes.substr(0, wanted_);
    wanted_ -= bytes.size();
    if (!before_.empty()) {
        Open(bytes);
    } else {
        head_ += bytes;
        if (head_.size() < kRegisterSize && wanted_ > 0) return State::kMore;
        Open(head_);
        head_.clear();
        if (!BeginsLikeAReply(text_)) {
            return Fail("not a reply: its text has no status code or no end mark");
        }
    }
    return wanted_ > 0 ? State::kMore : State::kComplete;
}

}  // namespace zot::client
