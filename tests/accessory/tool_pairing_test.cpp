// Pairing through the kv-accessory tool: two folders of one machine, and two
// devices that pair over the network, confirming a code that both show.
#include <gtest/gtest.h>
#include <kv-accessory/DeviceIdentity.h>
#include <kv-accessory/Pairing.h>
#include <kv-device/Device.h>

#include <sys/wait.h>

#include <asio.hpp>
#include <cstdint>
#include <cstdio>
#include <regex>
#include <thread>

#include "AccessoryTestSupport.h"
#include "DeviceTestSupport.h"

namespace KvTest {
namespace {

using Kv::Accessory::certificateFingerprint;
using Kv::Accessory::ownCertificate;
using Kv::Accessory::pinnedCertificate;

// The listening side of a network pairing, run with `answer` on its
// standard input; it tells the port the system chose for it.
class Listener {
public:
    Listener(const std::string& device, const std::string& answer) {
        const std::string command = "echo " + answer + " | " + KV_ACCESSORY_TOOL_PATH + " pair " +
                                    device + " --listen 127.0.0.1:0 2>&1";
        m_pipe = ::popen(command.c_str(), "r");
        char line[512];
        if (m_pipe != nullptr && std::fgets(line, sizeof line, m_pipe) != nullptr) {
            m_output = line;
        }
        std::smatch match;
        if (std::regex_search(m_output, match, std::regex("127\\.0\\.0\\.1:([0-9]+)"))) {
            m_address = "127.0.0.1:" + match[1].str();
        }
    }

    const std::string& address() const { return m_address; }

    // Waits for the end; its output and exit code.
    ProcessResult finish() {
        char buffer[512];
        while (std::fgets(buffer, sizeof buffer, m_pipe) != nullptr) {
            m_output += buffer;
        }
        const int status = ::pclose(m_pipe);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, m_output};
    }

private:
    FILE* m_pipe = nullptr;
    std::string m_output;
    std::string m_address;
};

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
        std::string path = folder.path() + "/" + name;
        Kv::Device::ensureLayout(path);
        return path;
    }

    struct Answers {
        ProcessResult listened;    // the watch's side, which listens
        ProcessResult connecting;  // the phone's side
    };

    // Pairs `watch` (listening) and `phone` (connecting) over loopback, each
    // user answering as given.
    static Answers pairOverLoopback(const std::string& watch, const std::string& phone,
                                    const std::string& watchAnswer,
                                    const std::string& phoneAnswer) {
        Listener listener(watch, watchAnswer);
        EXPECT_FALSE(listener.address().empty());
        ProcessResult connecting =
            tool("pair " + phone + " --connect " + listener.address(), phoneAnswer);
        return {listener.finish(), std::move(connecting)};
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
    const auto [listened, connecting] = pairOverLoopback(watch, phone, "y", "y");
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
    const auto [listened, connecting] = pairOverLoopback(watch, phone, "n", "y");
    EXPECT_NE(listened.exitCode, 0);
    EXPECT_NE(listened.output.find("not paired"), std::string::npos) << listened.output;
    EXPECT_NE(listened.output.find("the codes were not confirmed; nothing was pinned"),
              std::string::npos)
        << listened.output;
    EXPECT_FALSE(pinnedCertificate(watch).has_value());
    // The side whose user confirmed learns the other's answer and pins
    // nothing either: a pin on one side only is a link that never comes up.
    EXPECT_NE(connecting.exitCode, 0) << connecting.output;
    EXPECT_NE(connecting.output.find("not paired"), std::string::npos) << connecting.output;
    EXPECT_NE(connecting.output.find(
                  "the other device's user did not confirm the code; nothing was pinned"),
              std::string::npos)
        << connecting.output;
    EXPECT_EQ(connecting.output.find("now links only with"), std::string::npos);
    EXPECT_FALSE(pinnedCertificate(phone).has_value());
}

TEST_F(ToolPairingTest, TheListenersConfirmationAloneAlsoPinsNothing) {
    const std::string watch = device("watch");
    const std::string phone = device("phone");
    const auto [listened, connecting] = pairOverLoopback(watch, phone, "y", "n");
    EXPECT_NE(connecting.exitCode, 0);
    EXPECT_NE(listened.exitCode, 0);
    EXPECT_NE(listened.output.find("the other device's user did not confirm the code"),
              std::string::npos)
        << listened.output;
    EXPECT_FALSE(pinnedCertificate(watch).has_value());
    EXPECT_FALSE(pinnedCertificate(phone).has_value());
}

// A side that trades certificates and then goes away without an answer: the
// side that confirmed says it could not learn the answer and pins nothing.
TEST_F(ToolPairingTest, ASideThatCannotLearnTheOtherAnswerSaysSoAndPinsNothing) {
    const std::string phone = device("phone");
    const std::string stranger = device("stranger");
    Kv::Accessory::ensureIdentity(stranger, "stranger");
    asio::io_context io;
    asio::ip::tcp::acceptor acceptor(io, {asio::ip::make_address("127.0.0.1"), 0});
    const std::string address = "127.0.0.1:" + std::to_string(acceptor.local_endpoint().port());
    std::thread vanishing([&] {
        asio::ip::tcp::socket socket(io);
        acceptor.accept(socket);
        const std::string certificate = ownCertificate(stranger);
        const auto length = static_cast<std::uint32_t>(certificate.size());
        const unsigned char header[4] = {
            static_cast<unsigned char>(length >> 24), static_cast<unsigned char>(length >> 16),
            static_cast<unsigned char>(length >> 8), static_cast<unsigned char>(length)};
        asio::write(socket, asio::buffer(std::string("kv-accessory pairing 2\n")));
        asio::write(socket, asio::buffer(header));
        asio::write(socket, asio::buffer(certificate));
        std::string received(std::string("kv-accessory pairing 2\n").size() + 4, '\0');
        asio::read(socket, asio::buffer(received));  // the tool's greeting and length
        // ...and it closes without an answer.
    });
    const ProcessResult connecting = tool("pair " + phone + " --connect " + address, "y");
    vanishing.join();
    EXPECT_NE(connecting.exitCode, 0) << connecting.output;
    EXPECT_NE(connecting.output.find("the other device's answer could not be learnt"),
              std::string::npos)
        << connecting.output;
    EXPECT_NE(connecting.output.find("nothing was pinned"), std::string::npos) << connecting.output;
    EXPECT_EQ(connecting.output.find("now links only with"), std::string::npos);
    EXPECT_FALSE(pinnedCertificate(phone).has_value());
}

}  // namespace
}  // namespace KvTest
