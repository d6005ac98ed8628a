#include "exporter/basic_auth.h"

#include <unistd.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "base/sha2.h"
#include "client/request_packet.h"

namespace zot::exporter {
namespace {

// Of users times passwords; whoever has more proves himself again.
constexpr size_t kMaxProven = 1000;

bool SameText(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    unsigned difference = 0;
    for (size_t i = 0; i < a.size(); ++i) difference |= static_cast<uint8_t>(a[i] ^ b[i]);
    return difference == 0;
}

}  // namespace

BasicAuth::BasicAuth() {
    const std::string random = client::RandomSessionKey();
    std::copy_n(random.begin(), std::min(random.size(), key_.size()), key_.begin());
}

void BasicAuth::SetUsers(std::map<std::string, std::string> users) {
    std::lock_guard lock(usersMutex_);
    users_ = std::move(users);
}

BasicAuth::Digest BasicAuth::DigestOf(const std::string& hash, const HttpRequest& request) const {
    Digest digest;
    Sha256 sha;
    sha.Update(key_);
    for (const std::string* text : {&hash, &request.user, &request.password}) {
        // With its end, so that what moves from one to the next makes a difference.
        sha.Update({reinterpret_cast<const uint8_t*>(text->c_str()), text->size() + 1});
    }
    sha.Final(digest.data());
    return digest;
}

void BasicAuth::Check(const HttpRequest& request, std::function<void(bool good)> decide) {
    std::string hash;
    bool known = false;
    bool open = false, proven = false;
    {
        std::lock_guard lock(usersMutex_);
        auto user = users_.find(request.user);
        known = user != users_.end();
        open = users_.empty();
        // An unknown user takes as long as a wrong password.
        if (!open) hash = known ? user->second : users_.begin()->second;
        proven = known && proven_.count(DigestOf(hash, request)) != 0;
    }
    if (open || proven) return decide(true);
    if (request.user.empty()) return decide(false);
    worker_.Do([this, hash, known, request, decide = std::move(decide)] {
        Calculate(hash, known, request, decide);
    });
}

void BasicAuth::Calculate(const std::string& hash, bool known, const HttpRequest& request,
                          const std::function<void(bool good)>& decide) {
    // Its result lies in memory of the library's; only the worker calls it.
    const char* result = crypt(request.password.c_str(), hash.c_str());
    bool good = known && result && SameText(result, hash);
    if (good) {
        std::lock_guard lock(usersMutex_);
        if (proven_.size() >= kMaxProven) proven_.clear();
        proven_.insert(DigestOf(hash, request));
    }
    decide(good);
}

}  // namespace zot::exporter
