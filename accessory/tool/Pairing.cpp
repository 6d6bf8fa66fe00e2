#include <kv-accessory/DeviceControl.h>
#include <kv-accessory/DeviceIdentity.h>
#include <kv-accessory/Pairing.h>

#include <sys/socket.h>
#include <sys/time.h>
#include <asio.hpp>
#include <cstdint>
#include <optional>
#include <stdexcept>

namespace Kv {
namespace Accessory {

namespace {

// What each side sends first, so that a stranger's bytes are not taken for a
// certificate.
constexpr char kGreeting[] = "kv-accessory pairing 2\n";
constexpr std::uint32_t kLongestCertificate = 64 * 1024;
// How long the other side has to send its certificate once connected.
constexpr int kExchangeSeconds = 30;
// How long the other side's user has to answer once the code is shown.
constexpr int kAnswerSeconds = 300;
constexpr char kConfirmed = 'y';
constexpr char kDeclined = 'n';

std::string folderName(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

void sendCertificate(asio::ip::tcp::socket& socket, const std::string& certificate) {
    const auto length = static_cast<std::uint32_t>(certificate.size());
    const unsigned char header[4] = {
        static_cast<unsigned char>(length >> 24), static_cast<unsigned char>(length >> 16),
        static_cast<unsigned char>(length >> 8), static_cast<unsigned char>(length)};
    asio::write(socket, asio::buffer(std::string(kGreeting)));
    asio::write(socket, asio::buffer(header));
    asio::write(socket, asio::buffer(certificate));
}

std::string receiveCertificate(asio::ip::tcp::socket& socket) {
    std::string greeting(sizeof(kGreeting) - 1, '\0');
    asio::read(socket, asio::buffer(greeting));
    if (greeting != kGreeting) {
        throw std::runtime_error("the other side does not speak the pairing protocol");
    }
    unsigned char header[4];
    asio::read(socket, asio::buffer(header));
    const std::uint32_t length = (static_cast<std::uint32_t>(header[0]) << 24) | (header[1] << 16) |
                                 (header[2] << 8) | header[3];
    if (length == 0 || length > kLongestCertificate) {
        throw std::runtime_error("the other side sent no usable certificate");
    }
    std::string certificate(length, '\0');
    asio::read(socket, asio::buffer(certificate));
    certificateFingerprint(certificate);  // throws for a text that is not one
    return certificate;
}

void setTimeouts(asio::ip::tcp::socket& socket, int seconds) {
    const timeval limit{seconds, 0};
    ::setsockopt(socket.native_handle(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    ::setsockopt(socket.native_handle(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

// Tells the other side this side's answer and, when it is yes, learns the
// other's. A side pins only when both confirmed, so that no side is left
// pinned to a device that will never link with it.
PairingOutcome tradeAnswers(asio::ip::tcp::socket& socket, bool confirmed) {
    try {
        const char answer = confirmed ? kConfirmed : kDeclined;
        asio::write(socket, asio::buffer(&answer, 1));
        if (!confirmed) {
            return PairingOutcome::DeclinedHere;
        }
        setTimeouts(socket, kAnswerSeconds);
        char other = 0;
        asio::read(socket, asio::buffer(&other, 1));
        if (other == kConfirmed) {
            return PairingOutcome::Paired;
        }
        if (other == kDeclined) {
            return PairingOutcome::DeclinedThere;
        }
        throw std::runtime_error("the other side answered neither yes nor no");
    } catch (const std::system_error& error) {
        throw std::runtime_error("the other device's answer could not be learnt (" +
                                 std::string(error.what()) + "); nothing was pinned");
    }
}

asio::ip::tcp::socket openExchange(asio::io_context& io, bool listen, const std::string& hostPort,
                                   const std::function<void(unsigned short)>& listening) {
    const std::size_t colon = hostPort.rfind(':');
    if (colon == std::string::npos) {
        throw std::runtime_error("expected HOST:PORT, got \"" + hostPort + "\"");
    }
    const std::string host = hostPort.substr(0, colon);
    const std::string port = hostPort.substr(colon + 1);
    asio::ip::tcp::socket socket(io);
    if (listen) {
        asio::ip::tcp::acceptor acceptor(io);
        const asio::ip::tcp::endpoint endpoint(asio::ip::make_address(host),
                                               static_cast<unsigned short>(std::stoul(port)));
        acceptor.open(endpoint.protocol());
        acceptor.set_option(asio::ip::tcp::acceptor::reuse_address(true));
        acceptor.bind(endpoint);
        acceptor.listen(1);
        if (listening) {
            listening(acceptor.local_endpoint().port());
        }
        acceptor.accept(socket);
    } else {
        asio::ip::tcp::resolver resolver(io);
        asio::connect(socket, resolver.resolve(host, port));
    }
    // A peer that goes silent ends the exchange instead of holding it.
    setTimeouts(socket, kExchangeSeconds);
    return socket;
}

}  // namespace

void pairFolders(const std::string& deviceA, const std::string& deviceB) {
    ensureIdentity(deviceA, folderName(deviceA));
    ensureIdentity(deviceB, folderName(deviceB));
    pinPeer(deviceA, ownCertificate(deviceB));
    pinPeer(deviceB, ownCertificate(deviceA));
}

PairingOutcome pairOverNetwork(
    const std::string& device, bool listen, const std::string& hostPort,
    const std::function<bool(const std::string& code, const std::string& peerFingerprint)>& confirm,
    const std::function<void(unsigned short port)>& listening) {
    ensureIdentity(device, folderName(device));
    const std::string own = ownCertificate(device);
    asio::io_context io;
    std::optional<asio::ip::tcp::socket> socket;
    std::string other;
    try {
        socket.emplace(openExchange(io, listen, hostPort, listening));
        sendCertificate(*socket, own);
        other = receiveCertificate(*socket);
    } catch (const std::system_error& error) {
        throw std::runtime_error("the certificates could not be exchanged: " +
                                 std::string(error.what()));
    }
    const bool confirmed = confirm(pairingCode(own, other), certificateFingerprint(other));
    const PairingOutcome outcome = tradeAnswers(*socket, confirmed);
    if (outcome == PairingOutcome::Paired) {
        pinPeer(device, other);
    }
    return outcome;
}

void unpair(const std::string& device) {
    forgetPeer(device);
    try {
        wire::Request request;
        request.mutable_set_link()->set_enabled(false);
        control(device, request);
        request.mutable_set_link()->set_enabled(true);
        control(device, request);
    } catch (const std::runtime_error&) {
        return;  // no daemon runs: nothing is linked
    }
}

}  // namespace Accessory
}  // namespace Kv
