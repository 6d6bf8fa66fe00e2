// The security of the device link: TLS 1.3 only, both ends present their
// device certificate, and each accepts only the certificate it has pinned
// for its paired device. A presented certificate that is not the pinned one
// (or any certificate, while the device is not paired) fails the handshake;
// its fingerprint is kept so that the refusal can name it.
#ifndef KV_ACCESSORYD_LINK_TLS_H
#define KV_ACCESSORYD_LINK_TLS_H

#include <asio.hpp>
#include <asio/ssl.hpp>
#include <memory>
#include <string>

#include "BulkTlsStream.h"
#include "KeyLog.h"

namespace Kv {
namespace Accessory {

using TlsStream = BulkTlsStream;

class LinkTls {
public:
    // Loads the device's key and certificate from `deviceRoot`. Throws
    // std::runtime_error when the device has no identity.
    explicit LinkTls(const std::string& deviceRoot);

    // A TLS stream over `socket` that checks the peer's certificate against
    // the pin as it is when the handshake runs; `presented` receives the
    // fingerprint of the certificate that the peer showed.
    std::unique_ptr<TlsStream> wrap(asio::ip::tcp::socket socket,
                                    std::shared_ptr<std::string> presented);

    // The fingerprint of the certificate pinned now, empty when not paired.
    std::string pinnedFingerprint() const;

    // Writes the secrets of every link session from now on to `keyLog`.
    void logSecretsTo(std::shared_ptr<KeyLog> keyLog);
    // The file the secrets go to; empty when they are not logged.
    std::string keyLogPath() const { return m_keyLog ? m_keyLog->path() : std::string(); }

private:
    std::string m_deviceRoot;
    std::shared_ptr<KeyLog> m_keyLog;  // before the context, so that it outlives it
    asio::ssl::context m_context;
};

}  // namespace Accessory
}  // namespace Kv

#endif
