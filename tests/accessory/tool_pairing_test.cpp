// Pairing through the kv-accessory tool: two folders of one machine, and two
// devices that pair over the network, confirming a code that both show.
#include <gtest/gtest.h>
#include <kv-accessory/DeviceIdentity.h>
#include <kv-accessory/Pairing.h>
#include <kv-device/Device.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <future>
#include <regex>

#include "AccessoryTestSupport.h"
#include "DeviceTestSupport.h"

namespace KvTest {
namespace {

using Kv::Accessory::certificateFingerprint;
using Kv::Accessory::ownCertificate;
using Kv::Accessory::pinnedCertificate;

// A loopback port that was free a moment ago.
unsigned short freePort() {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ::bind(fd, reinterpret_cast<sockaddr*>(&address), length);
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    ::close(fd);
    return ntohs(address.sin_port);
}

// Runs the tool with `answer` on its standard input.
ProcessResult tool(const std::string& arguments, const std::string& answer) {
    return runProcess(
        {"/bin/sh", "-c", "echo " + answer + " | " + KV_ACCESSORY_TOOL_PATH + " " + arguments});
}

std::string codeIn(const std::string& output) {
    std::smatch match;
    return std::regex_search(output, match, std::regex("pairing code: ([0-9]{3} [0-9]{3})"))
               ? match[1].str()
               : std::string();
}

class ToolPairingTest : public testing::Test {
protected:
    std::string device(const std::string& name) {
        const std::string path = folder.path() + "/" + name;
        Kv::Device::ensureLayout(path);
        return path;
    }

    TempFolder folder;
};

TEST_F(ToolPairingTest, TwoLocalFoldersPinEachOther) {
    const std::string watch = device("watch");
    const std::string phone = device("phone");
    const ProcessResult created = tool("create " + watch + " " + phone, "");
    ASSERT_EQ(created.exitCode, 0);
    EXPECT_FALSE(pinnedCertificate(watch).has_value());
    Kv::Accessory::pairFolders(watch, phone);
    EXPECT_EQ(pinnedCertificate(watch), ownCertificate(phone));
    EXPECT_EQ(pinnedCertificate(phone), ownCertificate(watch));
    const ProcessResult identity = tool("identity " + watch, "");
    EXPECT_NE(identity.output.find(certificateFingerprint(ownCertificate(watch))),
              std::string::npos);
    EXPECT_NE(identity.output.find("paired with: " + certificateFingerprint(ownCertificate(phone))),
              std::string::npos);
    ASSERT_EQ(tool("unpair " + watch, "").exitCode, 0);
    EXPECT_FALSE(pinnedCertificate(watch).has_value());
}

TEST_F(ToolPairingTest, DevicesOfTwoHostsShowOneCodeAndPinOnlyWhenConfirmed) {
    const std::string watch = device("watch");
    const std::string phone = device("phone");
    const std::string address = "127.0.0.1:" + std::to_string(freePort());
    auto listening = std::async(
        std::launch::async, [&] { return tool("pair " + watch + " --listen " + address, "y"); });
    ProcessResult connecting;
    for (int attempt = 0; attempt < 50; ++attempt) {
        connecting = tool("pair " + phone + " --connect " + address, "y");
        if (connecting.exitCode == 0 || !codeIn(connecting.output).empty()) {
            break;
        }
        std::this_thread::sleep_for(milliseconds(50));  // the listener is not up yet
    }
    const ProcessResult listened = listening.get();
    ASSERT_EQ(listened.exitCode, 0) << listened.output;
    ASSERT_EQ(connecting.exitCode, 0) << connecting.output;
    EXPECT_FALSE(codeIn(listened.output).empty()) << listened.output;
    EXPECT_EQ(codeIn(listened.output), codeIn(connecting.output));
    EXPECT_EQ(pinnedCertificate(watch), ownCertificate(phone));
    EXPECT_EQ(pinnedCertificate(phone), ownCertificate(watch));
}

TEST_F(ToolPairingTest, ACodeThatIsNotConfirmedPinsNothing) {
    const std::string watch = device("watch");
    const std::string phone = device("phone");
    const std::string address = "127.0.0.1:" + std::to_string(freePort());
    auto listening = std::async(
        std::launch::async, [&] { return tool("pair " + watch + " --listen " + address, "n"); });
    ProcessResult connecting;
    for (int attempt = 0; attempt < 50; ++attempt) {
        connecting = tool("pair " + phone + " --connect " + address, "y");
        if (!codeIn(connecting.output).empty()) {
            break;
        }
        std::this_thread::sleep_for(milliseconds(50));
    }
    const ProcessResult listened = listening.get();
    EXPECT_NE(listened.exitCode, 0);
    EXPECT_NE(listened.output.find("not paired"), std::string::npos) << listened.output;
    EXPECT_FALSE(pinnedCertificate(watch).has_value());
    EXPECT_EQ(pinnedCertificate(phone), ownCertificate(watch));
}

}  // namespace
}  // namespace KvTest
