// The TLS key log: session keys for whoever debugs a recorded connection, written
// to the file that the preference TLSKeyLogPath names.
#pragma once

#include <openssl/ssl.h>

namespace zarn {

/// Has `context` write the keys of its connections to the key log, which is opened
/// once per process; without the preference this does nothing.
void installTlsKeyLog(SSL_CTX* context);

}  // namespace zarn
