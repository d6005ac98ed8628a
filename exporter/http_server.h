// The HTTP server: connections, keep-alive and parsing are libmicrohttpd's, on one thread with an
// event queue; a request whose answer takes time is suspended meanwhile and costs no thread.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "base/owners.h"
#include "exporter/http_exchange.h"
#include "exporter/web_config.h"

namespace zot::exporter {

class HttpServer {
  public:
    struct Settings {
        UniqueFd listener;  // see ListenAt
        HttpHandler handler;
        unsigned maxConnections = 1024;
        Pairs headers{};                 // of every reply
        std::optional<TlsConfig> tls{};  // after LoadTlsKeys
    };

    // Nullptr with the error text when the server cannot start.
    static std::unique_ptr<HttpServer> Start(Settings settings, std::string& error);
    virtual ~HttpServer() = default;

    virtual unsigned OpenConnections() const = 0;
    // Answers what is under way with 503, closes all connections and ends. No handler is called
    // any more; Answerers that are still around do nothing.
    virtual void Stop() = 0;
};

}  // namespace zot::exporter
