// Users and passwords of the exporter's own port.
//
// A bcrypt hash takes a tenth of a second, which no other request waits for: a worker calculates
// it. A password that was right is remembered by a digest under a key of this process.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>

#include "exporter/http_exchange.h"
#include "exporter/worker.h"

namespace zot::exporter {

class BasicAuth {
  public:
    BasicAuth();

    // Names with bcrypt hashes; without any, everybody may come in.
    void SetUsers(std::map<std::string, std::string> users);
    // Calls `decide` exactly once: at once, or on the worker's thread.
    void Check(const HttpRequest& request, std::function<void(bool good)> decide);

  private:
    using Digest = std::array<uint8_t, 32>;
    Digest DigestOf(const std::string& hash, const HttpRequest& request) const;
    void Calculate(const std::string& hash, bool known, const HttpRequest& request,
                   const std::function<void(bool good)>& decide);

    std::array<uint8_t, 16> key_{};
    std::mutex usersMutex_;
    std::map<std::string, std::string> users_;
    std::set<Digest> proven_;
    Worker worker_;  // the last: it uses the others
};

}  // namespace zot::exporter
