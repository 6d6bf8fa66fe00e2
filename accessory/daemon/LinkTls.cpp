#include "LinkTls.h"

#include <Logger.h>
#include <kv-accessory/DeviceIdentity.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <stdexcept>

namespace Kv {
namespace Accessory {

namespace {

// The PEM text of a certificate that OpenSSL holds.
std::string pemOf(X509* certificate) {
    BIO* bio = BIO_new(BIO_s_mem());
    PEM_write_bio_X509(bio, certificate);
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio, &data);
    std::string pem(data, static_cast<std::size_t>(size));
    BIO_free(bio);
    return pem;
}

}  // namespace

LinkTls::LinkTls(const std::string& deviceRoot)
    : m_deviceRoot(deviceRoot), m_context(asio::ssl::context::tls) {
    const IdentityFiles files = IdentityFiles::of(deviceRoot);
    SSL_CTX_set_min_proto_version(m_context.native_handle(), TLS1_3_VERSION);
    m_context.set_options(asio::ssl::context::no_compression);
    // Every link proves both identities anew (the pinned certificates); no
    // session is ever resumed, so none is kept and no tickets are issued:
    // work and memory that no link would use.
    SSL_CTX_set_session_cache_mode(m_context.native_handle(), SSL_SESS_CACHE_OFF);
    SSL_CTX_set_num_tickets(m_context.native_handle(), 0);
    asio::error_code error;
    m_context.use_certificate_file(files.certificate, asio::ssl::context::pem, error);
    if (!error) {
        m_context.use_private_key_file(files.key, asio::ssl::context::pem, error);
    }
    if (error) {
        throw std::runtime_error("cannot load the identity in " + files.folder + ": " +
                                 error.message());
    }
    m_context.set_verify_mode(asio::ssl::verify_peer | asio::ssl::verify_fail_if_no_peer_cert);
}

std::string LinkTls::pinnedFingerprint() const {
    const std::optional<std::string> pin = pinnedCertificate(m_deviceRoot);
    try {
        return pin ? certificateFingerprint(*pin) : std::string();
    } catch (const std::exception& error) {
        LoggerE("the pinned certificate can't be read: " << error.what());
        return {};
    }
}

void LinkTls::logSecretsTo(std::shared_ptr<KeyLog> keyLog) {
    m_keyLog = std::move(keyLog);
    m_keyLog->attachTo(m_context.native_handle());
}

namespace {

// What a session's certificate check needs: the pin as it was when the
// session began, and where to tell what the peer presented.
struct PeerCheck {
    std::string pin;
    std::shared_ptr<std::string> presented;
};

int peerCheckIndex() {
    static const int index = SSL_get_ex_new_index(
        0, nullptr, nullptr, nullptr, [](void*, void* check, CRYPTO_EX_DATA*, int, long, void*) {
            delete static_cast<PeerCheck*>(check);
        });
    return index;
}

// The certificates are self-signed, so OpenSSL's own chain check fails;
// what decides is whether the peer's own certificate is the pinned one.
int checkPeer(int, X509_STORE_CTX* store) {
    if (X509_STORE_CTX_get_error_depth(store) != 0) {
        return 1;
    }
    SSL* ssl =
        static_cast<SSL*>(X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
    const PeerCheck* check = static_cast<PeerCheck*>(SSL_get_ex_data(ssl, peerCheckIndex()));
    try {
        *check->presented = certificateFingerprint(pemOf(X509_STORE_CTX_get_current_cert(store)));
    } catch (const std::exception&) {
        return 0;
    }
    return !check->pin.empty() && *check->presented == check->pin ? 1 : 0;
}

}  // namespace

std::unique_ptr<TlsStream> LinkTls::wrap(asio::ip::tcp::socket socket,
                                         std::shared_ptr<std::string> presented) {
    SSL* ssl = SSL_new(m_context.native_handle());
    if (ssl == nullptr) {
        throw std::runtime_error("cannot make a TLS session");
    }
    SSL_set_ex_data(ssl, peerCheckIndex(),
                    new PeerCheck{pinnedFingerprint(), std::move(presented)});
    SSL_set_verify(ssl, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, checkPeer);
    return std::make_unique<TlsStream>(std::move(socket), ssl);
}

}  // namespace Accessory
}  // namespace Kv
