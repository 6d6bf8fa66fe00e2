// Pairing two devices: each pins the other's certificate, so that their
// daemons link with each other and with no one else.
#ifndef KV_ACCESSORY_TOOL_PAIRING_H
#define KV_ACCESSORY_TOOL_PAIRING_H

#include <functional>
#include <string>

namespace Kv {
namespace Accessory {

// Pairs two device folders of this machine: both get their identity when
// they lack one, and each pins the other's certificate.
void pairFolders(const std::string& deviceA, const std::string& deviceB);

// How a pairing over the network ended.
enum class PairingOutcome {
    Paired,         // both users confirmed: each side pinned the other
    DeclinedHere,   // this side's user did not confirm: nothing pinned
    DeclinedThere,  // the other side's user did not confirm: nothing pinned
};

// Pairs the device `device` with one on another host: one side listens on
// `hostPort`, the other connects to it; they trade certificates, and each
// side shows a six-digit code made from both. `confirm` is shown the code
// and the other device's fingerprint and answers whether the user saw the
// same code on the other device. The two sides then trade their answers, and
// the other certificate is pinned only when both confirmed. Throws
// std::runtime_error, pinning nothing, when the exchange fails (the other
// side must send its certificate within 30 s of connecting) or when this
// side confirmed and the other's answer does not come (within 5 minutes).
// `listening`, when given, is told the port the listening side waits on (the
// system's choice for port 0).
PairingOutcome pairOverNetwork(
    const std::string& device, bool listen, const std::string& hostPort,
    const std::function<bool(const std::string& code, const std::string& peerFingerprint)>& confirm,
    const std::function<void(unsigned short port)>& listening = nullptr);

// Forgets the device's pin: its daemon links with nobody until it is paired
// again (a link that is up is dropped when the daemon runs).
void unpair(const std::string& device);

}  // namespace Accessory
}  // namespace Kv

#endif
