// The file that protects the exporter's own port, in the form that Prometheus' programs share: TLS,
// client certificates, users with bcrypt passwords, further headers.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "exporter/http_exchange.h"

namespace zot::exporter {

enum class ClientCertificate { kIgnored, kVerifiedIfGiven, kNeeded };

struct TlsConfig {
    std::string certFile;
    std::string keyFile;
    std::string clientCaFile;  // empty: none is asked for
    ClientCertificate client = ClientCertificate::kIgnored;
    bool only13 = false;  // else TLS 1.2 too
};

struct WebConfig {
    std::optional<TlsConfig> tls;
    Pairs headers;
    std::map<std::string, std::string> users;  // with their bcrypt hashes
};

// Relative paths count from the file's folder. False with all that is wrong, as ReadConfig tells
// it.
bool ReadWebConfig(const std::string& path, WebConfig& config, std::vector<std::string>& mistakes);

}  // namespace zot::exporter
