// Limits against a misbehaving local process: too many sessions of one user,
// or too much held in frames that sessions only partly sent, close the
// offending session (logged), and the device's apps go on working.
#include <gtest/gtest.h>
#include <kv-device/Device.h>
#include <kv-device/FileUtil.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <vector>

#include "AccessoryTestSupport.h"
#include "Limits.h"

namespace KvTest {
namespace {

using Kv::Accessory::kMaxPartialFrameBytes;
using Kv::Accessory::kMaxSessionsPerUser;

// A raw session with the daemon's socket.
class RawSession {
public:
    explicit RawSession(const std::string& device) {
        m_fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = device + "/" + Kv::Device::kAccessorySocket;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        if (::connect(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            throw std::runtime_error("cannot reach the daemon");
        }
    }
    ~RawSession() { ::close(m_fd); }
    RawSession(const RawSession&) = delete;
    RawSession& operator=(const RawSession&) = delete;

    bool write(const std::string& bytes) {
        return ::send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(bytes.size());
    }

    // Whether the daemon closed the session within `timeout`.
    bool closed(milliseconds timeout) {
        timeval wait{0, static_cast<suseconds_t>(timeout.count() * 1000)};
        ::setsockopt(m_fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
        char buffer[4096];
        for (;;) {
            const ssize_t count = ::recv(m_fd, buffer, sizeof buffer, 0);
            if (count == 0 || (count < 0 && errno == ECONNRESET)) {
                return true;
            }
            if (count < 0) {
                return false;
            }
        }
    }

private:
    int m_fd = -1;
};

std::string daemonLog(const std::string& device) {
    return Kv::Device::readFile(device + "/accessoryd.log").value_or("");
}

class DaemonLimitsTest : public testing::Test {
protected:
    void SetUp() override {
        devices.start();
        consumer = std::make_unique<WireClient>(devices.alpha(), kConsumerApp);
    }

    DevicePair devices;
    std::unique_ptr<WireClient> consumer;
};

TEST_F(DaemonLimitsTest, SessionsBeyondTheBoundOfAUserAreRefused) {
    std::vector<std::unique_ptr<RawSession>> sessions;
    // The consumer holds one session already.
    for (std::size_t i = 1; i < kMaxSessionsPerUser; ++i) {
        sessions.push_back(std::make_unique<RawSession>(devices.alpha()));
    }
    RawSession beyond(devices.alpha());
    EXPECT_TRUE(beyond.closed(milliseconds(2000)));
    EXPECT_FALSE(sessions.back()->closed(milliseconds(100)));
    EXPECT_NE(daemonLog(devices.alpha()).find("sessions already"), std::string::npos);
    EXPECT_NE(consumer->registerAgent("/test/echo"), 0u);
    sessions.pop_back();
    RawSession again(devices.alpha());
    EXPECT_FALSE(again.closed(milliseconds(300)));
}

TEST_F(DaemonLimitsTest, PartlySentFramesBeyondTheBudgetCloseTheOffender) {
    const std::size_t announced = 4u * 1024u * 1024u - 8;
    const std::string header{static_cast<char>(announced >> 24), static_cast<char>(announced >> 16),
                             static_cast<char>(announced >> 8), static_cast<char>(announced)};
    const std::string part(announced - 1024, 'p');
    std::vector<std::unique_ptr<RawSession>> holders;
    for (std::size_t held = 0; held + announced <= kMaxPartialFrameBytes; held += part.size()) {
        holders.push_back(std::make_unique<RawSession>(devices.alpha()));
        ASSERT_TRUE(holders.back()->write(header + part));
    }
    RawSession offender(devices.alpha());
    offender.write(header + part);
    EXPECT_TRUE(offender.closed(milliseconds(3000)));
    EXPECT_FALSE(holders.front()->closed(milliseconds(100)));
    EXPECT_NE(daemonLog(devices.alpha()).find("partly sent frames"), std::string::npos);
    EXPECT_NE(consumer->registerAgent("/test/echo"), 0u);
}

}  // namespace
}  // namespace KvTest
