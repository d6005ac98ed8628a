#include "exporter/http_server.h"

#include <microhttpd.h>

#include <atomic>
#include <mutex>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "client/local_file.h"
#include "exporter/tls_keys.h"

namespace zot::exporter {
namespace {

// Idle connections stay for longer than Prometheus keeps them, which is five minutes.
constexpr unsigned kIdleSeconds = 360;
constexpr size_t kMaxTrust = size_t{1} << 20;
constexpr size_t kMemoryPerConnection = size_t{16} << 10;

// One request on its way.
class Exchange {
  public:
    explicit Exchange(MHD_Connection* connection) : connection_(connection) {}

    void Answer(HttpReply reply) {
        std::lock_guard lock(exchangeMutex_);
        if (answered_) return;
        reply_ = std::move(reply);
        answered_ = true;
        if (suspended_) MHD_resume_connection(connection_);
        suspended_ = false;
    }
    // For one that goes on after a wait: without the mutex, which whoever let it may still hold.
    bool Answered() const { return answered_; }
    // True when the reply is there; otherwise the connection waits for it.
    bool AnsweredElseSuspend() {
        std::lock_guard lock(exchangeMutex_);
        if (answered_) return true;
        MHD_suspend_connection(connection_);
        suspended_ = true;
        return false;
    }
    // REQUIRES that it was answered: then it changes no more.
    const HttpReply& Reply() const { return reply_; }

    bool begun = false;  // of the server's thread alone

  private:
    MHD_Connection* connection_;
    std::mutex exchangeMutex_;
    std::atomic<bool> answered_ = false;
    bool suspended_ = false;
    HttpReply reply_;
};

using ExchangePtr = std::shared_ptr<Exchange>;

std::string Header(MHD_Connection* connection, const char* name) {
    const char* value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
    return value ? value : "";
}

struct FreeText {
    void operator()(char* text) const noexcept { MHD_free(text); }
};

void ReadLogin(MHD_Connection* connection, HttpRequest& request) {
    char* password = nullptr;
    std::unique_ptr<char, FreeText> user(
        MHD_basic_auth_get_username_password(connection, &password));
    std::unique_ptr<char, FreeText> owner(password);
    if (user) request.user = user.get();
    if (user && password) request.password = password;
}

MHD_Result TakeArgument(void* query, MHD_ValueKind, const char* key, size_t keySize,
                        const char* value, size_t valueSize) {
    static_cast<Pairs*>(query)->emplace_back(std::string(key, keySize),
                                             value ? std::string(value, valueSize) : "");
    return MHD_YES;
}

class MicroServer : public HttpServer {
  public:
    explicit MicroServer(Settings settings) : settings_(std::move(settings)) {}
    ~MicroServer() override { MicroServer::Stop(); }

    bool Start(std::string& error);
    bool AddTls(std::vector<MHD_OptionItem>& options, std::string& error);
    unsigned OpenConnections() const override;
    void Stop() override;

  private:
    static MHD_Result Access(void* self, MHD_Connection* connection, const char* url,
                             const char* method, const char* version, const char* upload,
                             size_t* uploadSize, void** state);
    static void Completed(void* self, MHD_Connection* connection, void** state,
                          MHD_RequestTerminationCode code);
    MHD_Result Take(MHD_Connection* connection, const char* url, const char* method,
                    const ExchangePtr& exchange);
    MHD_Result Send(MHD_Connection* connection, const HttpReply& reply) const;

    Settings settings_;
    std::string trust_;  // the certificates that clients' are signed with
    MHD_Daemon* daemon_ = nullptr;
    std::atomic<bool> stopping_{false};
    std::mutex exchangesMutex_;
    std::set<ExchangePtr> exchanges_;
};

bool MicroServer::Start(std::string& error) {
    unsigned flags = MHD_USE_AUTO | MHD_USE_INTERNAL_POLLING_THREAD | MHD_ALLOW_SUSPEND_RESUME;
    std::vector<MHD_OptionItem> options;
    if (settings_.tls) {
        flags |= MHD_USE_TLS;
        if (!AddTls(options, error)) return false;
    }
    options.push_back({MHD_OPTION_END, 0, nullptr});
    daemon_ = MHD_start_daemon(
        flags, 0, nullptr, nullptr, &MicroServer::Access, this,                           //
        MHD_OPTION_LISTEN_SOCKET, settings_.listener.Get(),                               //
        MHD_OPTION_NOTIFY_COMPLETED, &MicroServer::Completed, this,                       //
        MHD_OPTION_CONNECTION_LIMIT, settings_.maxConnections,                            //
        MHD_OPTION_CONNECTION_TIMEOUT, kIdleSeconds, MHD_OPTION_CONNECTION_MEMORY_LIMIT,  //
        kMemoryPerConnection, MHD_OPTION_ARRAY, options.data(), MHD_OPTION_END);
    if (!daemon_) {
        error = "cannot start the HTTP server";
        return false;
    }
    settings_.listener.Release();  // closed by the library
    return true;
}

bool MicroServer::AddTls(std::vector<MHD_OptionItem>& options, std::string& error) {
    const TlsConfig& tls = *settings_.tls;
    // Pointers stay with the library, and it takes no constant ones.
    options.push_back({MHD_OPTION_HTTPS_CERT_CALLBACK, 0, TlsKeysCallback()});
    options.push_back({MHD_OPTION_HTTPS_PRIORITIES, 0, const_cast<char*>(TlsPriorities(tls))});
    if (tls.client == ClientCertificate::kIgnored) return true;
    if (!client::ReadWholeFile(tls.clientCaFile, kMaxTrust, trust_, error)) return false;
    options.push_back({MHD_OPTION_HTTPS_MEM_TRUST, 0, trust_.data()});
    return true;
}

unsigned MicroServer::OpenConnections() const {
    const MHD_DaemonInfo* info = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_CURRENT_CONNECTIONS);
    return info ? info->num_connections : 0;
}

void MicroServer::Stop() {
    if (!daemon_) return;
    stopping_ = true;
    std::set<ExchangePtr> left;
    {
        std::lock_guard lock(exchangesMutex_);
        left = exchanges_;
    }
    for (const ExchangePtr& exchange : left) exchange->Answer({503, "the exporter stops\n"});
    MHD_stop_daemon(std::exchange(daemon_, nullptr));
}

// Called when the head of a request is there, for each part of its body, at its end, and again when
// a suspended connection goes on.
MHD_Result MicroServer::Access(void* self, MHD_Connection* connection, const char* url,
                               const char* method, const char*, const char*, size_t* uploadSize,
                               void** state) {
    auto& server = *static_cast<MicroServer*>(self);
    if (!*state) {
        auto exchange = std::make_unique<ExchangePtr>(std::make_shared<Exchange>(connection));
        std::lock_guard lock(server.exchangesMutex_);
        server.exchanges_.insert(*exchange);
        *state = exchange.release();  // until Completed
        return MHD_YES;
    }
    if (*uploadSize != 0) {
        *uploadSize = 0;  // nobody reads bodies
        return MHD_YES;
    }
    return server.Take(connection, url, method, *static_cast<ExchangePtr*>(*state));
}

void MicroServer::Completed(void* self, MHD_Connection*, void** state, MHD_RequestTerminationCode) {
    std::unique_ptr<ExchangePtr> exchange(static_cast<ExchangePtr*>(*state));
    *state = nullptr;
    if (!exchange) return;
    auto& server = *static_cast<MicroServer*>(self);
    std::lock_guard lock(server.exchangesMutex_);
    server.exchanges_.erase(*exchange);
}

MHD_Result MicroServer::Take(MHD_Connection* connection, const char* url, const char* method,
                             const ExchangePtr& exchange) {
    if (stopping_) return MHD_NO;
    const bool isNew = !std::exchange(exchange->begun, true);
    if (isNew && settings_.tls && !ClientIsWelcome(connection, settings_.tls->client)) {
        exchange->Answer({403, "a certificate of yours is needed, and must be good\n"});
    } else if (isNew) {
        HttpRequest request;
        request.method = method;
        request.path = url;
        MHD_get_connection_values_n(connection, MHD_GET_ARGUMENT_KIND, &TakeArgument,
                                    &request.query);
        ReadLogin(connection, request);
        request.scrapeTimeout = Header(connection, "X-Prometheus-Scrape-Timeout-Seconds");
        settings_.handler(request,
                          [exchange](HttpReply reply) { exchange->Answer(std::move(reply)); });
    }
    if (!exchange->Answered() && !exchange->AnsweredElseSuspend()) return MHD_YES;
    return Send(connection, exchange->Reply());
}

MHD_Result MicroServer::Send(MHD_Connection* connection, const HttpReply& reply) const {
    // The library takes a pointer to what it only copies.
    MHD_Response* response = MHD_create_response_from_buffer(
        reply.body.size(), const_cast<char*>(reply.body.data()), MHD_RESPMEM_MUST_COPY);
    if (!response) return MHD_NO;
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, reply.type.c_str());
    for (const Pairs* headers : {&settings_.headers, &reply.headers}) {
        for (const auto& [name, value] : *headers) {
            MHD_add_response_header(response, name.c_str(), value.c_str());
        }
    }
    MHD_Result result = MHD_queue_response(connection, reply.status, response);
    MHD_destroy_response(response);
    return result;
}

}  // namespace

std::unique_ptr<HttpServer> HttpServer::Start(Settings settings, std::string& error) {
    auto server = std::make_unique<MicroServer>(std::move(settings));
    if (!server->Start(error)) return nullptr;
    return server;
}

}  // namespace zot::exporter
