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

std::unique_ptr<TlsStream> LinkTls::wrap(asio::ip::tcp::socket socket,
                                         std::shared_ptr<std::string> presented) {
    auto stream = std::make_unique<TlsStream>(std::move(socket), m_context);
    const std::string pin = pinnedFingerprint();
    // The certificates are self-signed, so OpenSSL's own chain check fails;
    // what decides is whether the peer's own certificate is the pinned one.
    stream->set_verify_callback([pin, presented](bool, asio::ssl::verify_context& context) {
        X509_STORE_CTX* store = context.native_handle();
        if (X509_STORE_CTX_get_error_depth(store) != 0) {
            return true;
        }
        X509* certificate = X509_STORE_CTX_get_current_cert(store);
        try {
            *presented = certificateFingerprint(pemOf(certificate));
        } catch (const std::exception&) {
            return false;
        }
        return !pin.empty() && *presented == pin;
    });
    return stream;
}

}  // namespace Accessory
}  // namespace Kv
