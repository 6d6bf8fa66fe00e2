// The one rule for a service's socket address, which the client library
// and the service both follow: a path that fits is taken whole, one that
// does not is refused with its name.
#include <gtest/gtest.h>
#include <kv-accessory/SocketAddress.h>
#include <sys/socket.h>

#include <cstring>
#include <stdexcept>
#include <string>

namespace KvTest {
namespace {

using Kv::Accessory::socketAddress;

constexpr std::size_t kRoom = sizeof(sockaddr_un::sun_path);

TEST(SocketAddressTest, APathThatFitsIsTheAddressWhole) {
    const std::string path = "/tmp/device/accessory.sock";
    const sockaddr_un address = socketAddress(path);
    EXPECT_EQ(address.sun_family, AF_UNIX);
    EXPECT_STREQ(address.sun_path, path.c_str());
}

TEST(SocketAddressTest, TheLongestPathThatFitsLeavesRoomForItsEnd) {
    const std::string path = "/" + std::string(kRoom - 2, 's');
    EXPECT_EQ(std::strlen(socketAddress(path).sun_path), kRoom - 1);
}

TEST(SocketAddressTest, ALongerPathIsRefusedByName) {
    const std::string path = "/" + std::string(kRoom - 1, 's');
    try {
        socketAddress(path);
        FAIL() << "a path of " << path.size() << " bytes was taken";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(std::string(error.what()), "socket path too long: " + path);
    }
}

}  // namespace
}  // namespace KvTest
