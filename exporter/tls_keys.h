// The certificate and key that the exporter shows. They are read again with the configuration, so a
// renewed certificate needs no restart.
#pragma once

#include <microhttpd.h>

#include <string>

#include "exporter/web_config.h"

namespace zot::exporter {

// Reads the files' certificate and key, which count only with UseTlsKeys. False with the error
// text.
bool LoadTlsKeys(const TlsConfig& tls, std::string& error);
// Gives new connections what was loaded last. REQUIRES LoadTlsKeys to have succeeded.
void UseTlsKeys();

// For MHD_OPTION_HTTPS_CERT_CALLBACK.
void* TlsKeysCallback();

// The protocol versions, as GnuTLS wants them said.
const char* TlsPriorities(const TlsConfig& tls);

// Whether the connection's client has shown what is wanted of it.
bool ClientIsWelcome(MHD_Connection* connection, ClientCertificate wanted);

}  // namespace zot::exporter
