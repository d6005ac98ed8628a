// HTTP requests and replies as the pages see them, without a server.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zot::exporter {

using Pairs = std::vector<std::pair<std::string, std::string>>;

struct HttpRequest {
    std::string method;
    std::string path;  // decoded, as the query is
    Pairs query;       // in their order, also names that come twice
    std::string user;  // empty when none was given, as is the password
    std::string password;
    std::string scrapeTimeout;  // X-Prometheus-Scrape-Timeout-Seconds
};

inline constexpr const char* kTextType = "text/plain; charset=utf-8";

struct HttpReply {
    unsigned status = 200;
    std::string body;
    std::string type = kTextType;
    Pairs headers{};
};

// Takes the reply. May be called from any thread, now or later, once; later calls do nothing.
using Answerer = std::function<void(HttpReply reply)>;
using HttpHandler = std::function<void(const HttpRequest& request, const Answerer& answer)>;

}  // namespace zot::exporter
