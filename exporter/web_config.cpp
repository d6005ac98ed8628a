#include "exporter/web_config.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <string_view>
#include <utility>

#include "base/ascii.h"
#include "client/text.h"
#include "exporter/yaml_reader.h"

namespace zot::exporter {
namespace {

using client::Concat;

constexpr std::string_view kHeaders[] = {"Strict-Transport-Security", "X-Content-Type-Options",
                                         "X-Frame-Options", "X-XSS-Protection",
                                         "Content-Security-Policy"};

// "$2y$10$" and 53 characters.
bool IsBcrypt(std::string_view hash) {
    return hash.size() == 60 && hash.starts_with("$2") && hash[3] == '$' && IsDigit(hash[4]) &&
           IsDigit(hash[5]) && hash[6] == '$';
}

class WebConfigReader {
  public:
    WebConfigReader(const std::string& path, WebConfig& config, Mistakes& mistakes)
        : folder_(std::filesystem::path(path).parent_path()),
          config_(config),
          mistakes_(mistakes) {}

    void Read(const YAML::Node& document);

  private:
    std::string File(YamlMap& map, std::string_view key, bool needed);
    void ReadTls(const YAML::Node& node);
    void ReadClientType(YamlMap& map, TlsConfig& tls);
    void ReadHttp(const YAML::Node& node);
    void ReadUsers(const YAML::Node& node);

    std::filesystem::path folder_;
    WebConfig& config_;
    Mistakes& mistakes_;
};

void WebConfigReader::Read(const YAML::Node& document) {
    YamlMap map(document, "the web configuration", mistakes_);
    if (const YAML::Node* tls = map.Take("tls_server_config")) ReadTls(*tls);
    if (const YAML::Node* http = map.Take("http_server_config")) ReadHttp(*http);
    if (const YAML::Node* users = map.Take("basic_auth_users")) ReadUsers(*users);
}

std::string WebConfigReader::File(YamlMap& map, std::string_view key, bool needed) {
    auto path = map.Text(key, needed);
    return path ? (folder_ / *path).string() : "";
}

void WebConfigReader::ReadTls(const YAML::Node& node) {
    YamlMap map(node, "tls_server_config", mistakes_);
    TlsConfig tls;
    tls.certFile = File(map, "cert_file", true);
    tls.keyFile = File(map, "key_file", true);
    tls.clientCaFile = File(map, "client_ca_file", false);
    ReadClientType(map, tls);
    auto version = map.Text("min_version");
    tls.only13 = version == "TLS13";
    if (version && version != "TLS12" && version != "TLS13") {
        map.Wrong("min_version", "min_version must be TLS12 or TLS13");
    }
    config_.tls = std::move(tls);
}

void WebConfigReader::ReadClientType(YamlMap& map, TlsConfig& tls) {
    auto type = map.Text("client_auth_type");
    if (type == "RequireAndVerifyClientCert") {
        tls.client = ClientCertificate::kNeeded;
    } else if (type == "VerifyClientCertIfGiven") {
        tls.client = ClientCertificate::kVerifiedIfGiven;
    } else if (type && type != "NoClientCert") {
        map.Wrong("client_auth_type",
                  "client_auth_type must be NoClientCert, VerifyClientCertIfGiven or "
                  "RequireAndVerifyClientCert");
    }
    if ((tls.client == ClientCertificate::kIgnored) != tls.clientCaFile.empty()) {
        map.Wrong("client_auth_type", "client_auth_type and client_ca_file need each other");
    }
}

void WebConfigReader::ReadHttp(const YAML::Node& node) {
    YamlMap map(node, "http_server_config", mistakes_);
    map.Flag("http2");  // there is only HTTP/1.1, which every client speaks
    const YAML::Node* headers = map.Take("headers");
    if (!headers) return;
    YamlMap names(*headers, "headers", mistakes_);
    for (std::string_view name : kHeaders) {
        if (auto value = names.Text(name)) config_.headers.emplace_back(name, *value);
    }
}

void WebConfigReader::ReadUsers(const YAML::Node& node) {
    YamlMap map(node, "basic_auth_users", mistakes_);
    for (const auto& [name, value] : map.TakeAll()) {
        if (value.IsScalar() && IsBcrypt(value.Scalar()) && !name.empty()) {
            config_.users[name] = value.Scalar();
        } else {
            map.Wrong(name, Concat({"the password of ", name,
                                    " must be a bcrypt hash, as htpasswd -B "
                                    "makes it"}));
        }
    }
}

}  // namespace

bool ReadWebConfig(const std::string& path, WebConfig& config, std::vector<std::string>& mistakes) {
    Mistakes found(path);
    if (auto document = ReadYaml(path, found)) {
        WebConfigReader(path, config, found).Read(*document);
    }
    mistakes.insert(mistakes.end(), found.Lines().begin(), found.Lines().end());
    return found.None();
}

}  // namespace zot::exporter
