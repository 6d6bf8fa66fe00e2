#include <kv-accessory/DeviceIdentity.h>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iomanip>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace Kv {
namespace Accessory {

namespace {

constexpr long kValiditySeconds = 20L * 365 * 24 * 3600;

template <typename T, void (*Free)(T*)>
struct Deleter {
    void operator()(T* object) const { Free(object); }
};
using Key = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY, EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Deleter<X509, X509_free>>;
using Bio = std::unique_ptr<BIO, Deleter<BIO, BIO_free_all>>;

[[noreturn]] void fail(const std::string& what) { throw std::runtime_error(what); }

std::string readText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        fail("cannot read " + path);
    }
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// Writes `text` to `path` with `mode`, through a temporary file renamed over
// it, so that a reader never sees half of it.
void writeText(const std::string& path, const std::string& text, mode_t mode) {
    const std::string temporary = path + ".new";
    const mode_t previous = ::umask(0077);
    std::ofstream file(temporary, std::ios::binary | std::ios::trunc);
    ::umask(previous);
    file << text;
    file.close();
    if (!file || ::chmod(temporary.c_str(), mode) != 0 ||
        std::rename(temporary.c_str(), path.c_str()) != 0) {
        std::remove(temporary.c_str());
        fail("cannot write " + path);
    }
}

Certificate parseCertificate(const std::string& pem) {
    Bio bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    Certificate certificate(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
    if (!certificate) {
        fail("not a PEM certificate");
    }
    return certificate;
}

std::string pemOf(EVP_PKEY* key) {
    Bio bio(BIO_new(BIO_s_mem()));
    if (PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr) != 1) {
        fail("cannot encode the private key");
    }
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &data);
    return std::string(data, static_cast<std::size_t>(size));
}

std::string pemOf(X509* certificate) {
    Bio bio(BIO_new(BIO_s_mem()));
    if (PEM_write_bio_X509(bio.get(), certificate) != 1) {
        fail("cannot encode the certificate");
    }
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &data);
    return std::string(data, static_cast<std::size_t>(size));
}

void setRandomSerial(X509* certificate) {
    unsigned char bytes[16];
    if (RAND_bytes(bytes, sizeof bytes) != 1) {
        fail("no randomness for a serial number");
    }
    bytes[0] &= 0x7f;  // a positive number
    BIGNUM* serial = BN_bin2bn(bytes, sizeof bytes, nullptr);
    BN_to_ASN1_INTEGER(serial, X509_get_serialNumber(certificate));
    BN_free(serial);
}

Certificate selfSigned(EVP_PKEY* key, const std::string& name) {
    Certificate certificate(X509_new());
    X509_set_version(certificate.get(), 2);
    setRandomSerial(certificate.get());
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), kValiditySeconds);
    X509_set_pubkey(certificate.get(), key);
    X509_NAME* subject = X509_get_subject_name(certificate.get());
    X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
    X509_NAME_add_entry_by_txt(subject, "O", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>("kv accessory device"), -1,
                               -1, 0);
    X509_set_issuer_name(certificate.get(), subject);
    if (X509_sign(certificate.get(), key, EVP_sha256()) == 0) {
        fail("cannot sign the certificate");
    }
    return certificate;
}

std::string hexPairs(const unsigned char* bytes, unsigned int length) {
    std::ostringstream text;
    text << std::hex << std::uppercase << std::setfill('0');
    for (unsigned int i = 0; i < length; ++i) {
        text << (i > 0 ? ":" : "") << std::setw(2) << static_cast<int>(bytes[i]);
    }
    return text.str();
}

}  // namespace

IdentityFiles IdentityFiles::of(const std::string& deviceRoot) {
    const std::string folder = deviceRoot + "/identity";
    return IdentityFiles{folder, folder + "/key.pem", folder + "/cert.pem", folder + "/peer.pem"};
}

void ensureIdentity(const std::string& deviceRoot, const std::string& deviceName) {
    const IdentityFiles files = IdentityFiles::of(deviceRoot);
    if (::access(files.key.c_str(), R_OK) == 0 && ::access(files.certificate.c_str(), R_OK) == 0) {
        return;
    }
    if (::mkdir(files.folder.c_str(), 0700) != 0 && errno != EEXIST) {
        fail("cannot make " + files.folder);
    }
    ::chmod(files.folder.c_str(), 0700);
    Key key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
    if (!key) {
        fail("cannot make a key for " + deviceName);
    }
    const Certificate certificate = selfSigned(key.get(), deviceName);
    writeText(files.key, pemOf(key.get()), 0600);
    writeText(files.certificate, pemOf(certificate.get()), 0644);
}

std::string ownCertificate(const std::string& deviceRoot) {
    return readText(IdentityFiles::of(deviceRoot).certificate);
}

std::optional<std::string> pinnedCertificate(const std::string& deviceRoot) {
    const std::string path = IdentityFiles::of(deviceRoot).peer;
    if (::access(path.c_str(), F_OK) != 0) {
        return std::nullopt;
    }
    return readText(path);
}

void pinPeer(const std::string& deviceRoot, const std::string& certificatePem) {
    const Certificate certificate = parseCertificate(certificatePem);
    writeText(IdentityFiles::of(deviceRoot).peer, pemOf(certificate.get()), 0644);
}

void forgetPeer(const std::string& deviceRoot) {
    std::remove(IdentityFiles::of(deviceRoot).peer.c_str());
}

std::string certificateFingerprint(const std::string& certificatePem) {
    const Certificate certificate = parseCertificate(certificatePem);
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (X509_digest(certificate.get(), EVP_sha256(), digest, &length) != 1) {
        fail("cannot digest the certificate");
    }
    return hexPairs(digest, length);
}

std::string pairingCode(const std::string& certificateA, const std::string& certificateB) {
    std::string first = certificateFingerprint(certificateA);
    std::string second = certificateFingerprint(certificateB);
    if (second < first) {
        std::swap(first, second);
    }
    const std::string both = first + "/" + second;
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(both.data(), both.size(), digest, &length, EVP_sha256(), nullptr);
    const unsigned long number = ((static_cast<unsigned long>(digest[0]) << 24) |
                                  (digest[1] << 16) | (digest[2] << 8) | digest[3]) %
                                 1000000;
    std::ostringstream code;
    code << std::setw(6) << std::setfill('0') << number;
    return code.str();
}

}  // namespace Accessory
}  // namespace Kv
