#include "exporter/tls_keys.h"

#include <gnutls/abstract.h>
#include <gnutls/gnutls.h>
#include <gnutls/x509.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <vector>

#include "client/local_file.h"
#include "client/text.h"

namespace zot::exporter {
namespace {

constexpr size_t kMaxFileSize = size_t{1} << 20;
constexpr unsigned kMaxChain = 16;

struct TlsKeys {
    gnutls_pcert_st chain[kMaxChain] = {};
    unsigned chainSize = 0;
    gnutls_privkey_t key = nullptr;
    ~TlsKeys() {
        for (unsigned i = 0; i < chainSize; ++i) gnutls_pcert_deinit(&chain[i]);
        if (key) gnutls_privkey_deinit(key);
    }
};

// The library's callback knows nothing of ours, so what is in force must be found without it.
std::atomic<TlsKeys*> keysInForce{nullptr};

// Of one thread at a time. Handshakes under way may still use the ones before: all stay to the end.
std::vector<std::unique_ptr<TlsKeys>> loadedKeys;

int GiveKeys(gnutls_session_t, const gnutls_datum_t*, int, const gnutls_pk_algorithm_t*, int,
             gnutls_pcert_st** chain, unsigned* chainSize, gnutls_privkey_t* key) {
    TlsKeys* keys = keysInForce;
    if (!keys) return -1;
    *chain = keys->chain;
    *chainSize = keys->chainSize;
    *key = keys->key;
    return 0;
}

gnutls_datum_t Datum(std::string& text) {
    return {reinterpret_cast<unsigned char*>(text.data()), static_cast<unsigned>(text.size())};
}

bool Read(const TlsConfig& tls, TlsKeys& keys, std::string& error) {
    std::string certificate, key;
    if (!client::ReadWholeFile(tls.certFile, kMaxFileSize, certificate, error) ||
        !client::ReadWholeFile(tls.keyFile, kMaxFileSize, key, error)) {
        return false;
    }
    gnutls_datum_t certificateData = Datum(certificate), keyData = Datum(key);
    unsigned count = kMaxChain;
    int result = gnutls_pcert_list_import_x509_raw(keys.chain, &count, &certificateData,
                                                   GNUTLS_X509_FMT_PEM, 0);
    if (result < 0) {
        error = client::Concat({tls.certFile, " is no certificate: ", gnutls_strerror(result)});
        return false;
    }
    keys.chainSize = count;
    gnutls_privkey_init(&keys.key);
    result = gnutls_privkey_import_x509_raw(keys.key, &keyData, GNUTLS_X509_FMT_PEM, nullptr, 0);
    if (result < 0) {
        error = client::Concat({tls.keyFile, " is no key: ", gnutls_strerror(result)});
        return false;
    }
    return true;
}

bool Belong(const TlsKeys& keys) {
    gnutls_pubkey_t ofKey = nullptr;
    unsigned char a[64], b[64];
    size_t sizeA = sizeof a, sizeB = sizeof b;
    gnutls_pubkey_init(&ofKey);
    bool same =
        gnutls_pubkey_import_privkey(ofKey, keys.key, 0, 0) >= 0 &&
        gnutls_pubkey_get_key_id(ofKey, GNUTLS_KEYID_USE_SHA256, a, &sizeA) >= 0 &&
        gnutls_pubkey_get_key_id(keys.chain[0].pubkey, GNUTLS_KEYID_USE_SHA256, b, &sizeB) >= 0 &&
        sizeA == sizeB && std::equal(a, a + sizeA, b);
    gnutls_pubkey_deinit(ofKey);
    return same;
}

}  // namespace

bool LoadTlsKeys(const TlsConfig& tls, std::string& error) {
    auto keys = std::make_unique<TlsKeys>();
    if (!Read(tls, *keys, error)) return false;
    if (!Belong(*keys)) {
        error = client::Concat({tls.keyFile, " is not the key of ", tls.certFile});
        return false;
    }
    loadedKeys.push_back(std::move(keys));
    return true;
}

void UseTlsKeys() { keysInForce = loadedKeys.back().get(); }

void* TlsKeysCallback() { return reinterpret_cast<void*>(&GiveKeys); }

const char* TlsPriorities(const TlsConfig& tls) {
    return tls.only13 ? "NORMAL:-VERS-ALL:+VERS-TLS1.3"
                      : "NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2";
}

bool ClientIsWelcome(MHD_Connection* connection, ClientCertificate wanted) {
    if (wanted == ClientCertificate::kIgnored) return true;
    const MHD_ConnectionInfo* info =
        MHD_get_connection_info(connection, MHD_CONNECTION_INFO_GNUTLS_SESSION);
    if (!info) return false;
    auto session = static_cast<gnutls_session_t>(info->tls_session);
    unsigned count = 0, faults = 0;
    if (!gnutls_certificate_get_peers(session, &count) || count == 0) {
        return wanted == ClientCertificate::kVerifiedIfGiven;
    }
    char purpose[] = GNUTLS_KP_TLS_WWW_CLIENT;
    gnutls_typed_vdata_st client = {GNUTLS_DT_KEY_PURPOSE_OID,
                                    reinterpret_cast<unsigned char*>(purpose), 0};
    return gnutls_certificate_verify_peers(session, &client, 1, &faults) == 0 && faults == 0;
}

}  // namespace zot::exporter
