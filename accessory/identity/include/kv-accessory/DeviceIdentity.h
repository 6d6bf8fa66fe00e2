// The identity of an emulated device's accessory service: a private key and a
// self-signed X.509 certificate, made when the device is, and the certificate
// of the one device it is paired with (its "pin"). Two daemons link only when
// each presents the certificate that the other has pinned.
//
// The files, under <device>/identity/ (a folder only its owner may enter):
//   key.pem    the private key (EC P-256), readable by its owner only
//   cert.pem   the device's certificate
//   peer.pem   the pinned certificate of the paired device, when paired
#ifndef KV_ACCESSORY_DEVICE_IDENTITY_H
#define KV_ACCESSORY_DEVICE_IDENTITY_H

#include <optional>
#include <string>

namespace Kv {
namespace Accessory {

struct IdentityFiles {
    std::string folder;
    std::string key;
    std::string certificate;
    std::string peer;

    static IdentityFiles of(const std::string& deviceRoot);
};

// Makes the device's key and certificate (subject CN = `deviceName`) when
// they are missing; an existing identity is kept. Throws std::runtime_error
// naming what failed.
void ensureIdentity(const std::string& deviceRoot, const std::string& deviceName);

// The device's own certificate (PEM). Throws std::runtime_error when there is
// none.
std::string ownCertificate(const std::string& deviceRoot);

// The certificate the device has pinned for its paired device, if any.
std::optional<std::string> pinnedCertificate(const std::string& deviceRoot);

// Pins `certificatePem` as the paired device's certificate (replacing an
// earlier pin), or forgets the pin. Throws std::runtime_error when the text
// is not a certificate or the file can't be written.
void pinPeer(const std::string& deviceRoot, const std::string& certificatePem);
void forgetPeer(const std::string& deviceRoot);

// The SHA-256 fingerprint of a certificate (PEM): 32 bytes as upper-case
// hexadecimal pairs joined by ':'. Throws std::runtime_error for a text that
// is not a certificate.
std::string certificateFingerprint(const std::string& certificatePem);

// The six-digit code that two devices about to pair both show, made from
// both certificates; the same whichever side computes it, and different
// when either side saw another certificate than the one sent.
std::string pairingCode(const std::string& certificateA, const std::string& certificateB);

}  // namespace Accessory
}  // namespace Kv

#endif
