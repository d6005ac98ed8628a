#include "protocol/request_guard.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <string_view>

#include "base/byte_order.h"
#include "base/sha2.h"
#include "base/vystring.h"

namespace zot {
namespace {

std::span<const uint8_t> Bytes(std::string_view text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

}  // namespace

bool RequestGuard::Admits(const RequestPacket& request, const AgentSettings& settings,
                          uint32_t peerAddress, Log& log, int64_t now) {
    if (request.sessionKey.Length() < settings.minRequestKey) {
        log.WriteLog(LogKind::kFailure, peerAddress,
                     "Request refused: key of %d bytes, minrequestkey is %d\n",
                     request.sessionKey.Length(), settings.minRequestKey);
        return false;
    }
    if (settings.replayWindow < 1) return true;
    switch (Remember(DigestOf(request), now, settings.replayWindow)) {
        case Memory::kNew:
            return true;
        case Memory::kSeen:
            log.WriteLogText(LogKind::kFailure, peerAddress, "Request refused: seen before\n");
            return false;
        case Memory::kFull:
            break;
    }
    log.WriteLogText(LogKind::kFailure, peerAddress,
                     "Request refused: too many requests within replaywindow\n");
    return false;
}

// Of key and text in clear, which show that requests are the same where their ciphertexts do not.
RequestGuard::Digest RequestGuard::DigestOf(const RequestPacket& request) {
    uint8_t keyLength[4];
    StoreLe32(keyLength, static_cast<uint32_t>(request.sessionKey.Length()));
    Sha256 hash;
    hash.Update(keyLength);
    hash.Update(Bytes(request.sessionKey));
    hash.Update(Bytes(request.text));
    uint8_t whole[Sha256::kDigestSize];
    hash.Final(whole);
    Digest digest;
    std::copy_n(whole, digest.size(), digest.begin());
    return digest;
}

RequestGuard::Memory RequestGuard::Remember(const Digest& digest, int64_t now, int64_t seconds) {
    std::lock_guard<std::mutex> lock(seenMutex_);
    while (!seen_.empty() && now - seen_.front().at > seconds) {
        digests_.erase(seen_.front().digest);
        seen_.pop_front();
    }
    if (digests_.count(digest) != 0) return Memory::kSeen;
    if (digests_.size() >= kMostRemembered) return Memory::kFull;
    seen_.push_back({digest, now});
    digests_.insert(digest);
    return Memory::kNew;
}

// Its first bytes are as good a hash as any.
size_t RequestGuard::Start::operator()(const Digest& digest) const noexcept {
    size_t start;
    std::memcpy(&start, digest.data(), sizeof start);
    return start;
}

}  // namespace zot
