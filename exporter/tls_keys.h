// The certificate and key that the exporter shows. They are read again with the configuration, so a
// renewed certificate needs no restart.
#pragma once

#include <microhttpd.h>

#include <string>

#include "exporter/web_config.h"

namespace zot::exporter {

// Puts the files' certificate and key in the place of those that connections got so far. False with
// the error text; then nothing has changed.
bool LoadTlsKeys(const TlsConfig& tls, std::string& error);

// For MHD_OPTION_HTTPS_CERT_CALLBACK.
void* TlsKeysCallback();

// The protocol versions, as GnuTLS wants them said.
const char* TlsPriorities(const TlsConfig& tls);

// Whether the connection's client has shown what is wanted of it.
bool ClientIsWelcome(MHD_Connection* connection, ClientCertificate wanted);

}  // namespace zot::exporter
