// Pairing through the kv-accessory tool: two folders of one machine, and two
// devices that pair over the network, confirming a code that both show.
#include <gtest/gtest.h>
#include <kv-accessory/DeviceIdentity.h>
#include <kv-accessory/Pairing.h>
#include <kv-device/Device.h>

#include <sys/wait.h>

#include <cstdio>
#include <regex>

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
    Listener listener(watch, "y");
    ASSERT_FALSE(listener.address().empty());
    const ProcessResult connecting =
        tool("pair " + phone + " --connect " + listener.address(), "y");
    const ProcessResult listened = listener.finish();
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
    Listener listener(watch, "n");
    ASSERT_FALSE(listener.address().empty());
    const ProcessResult connecting =
        tool("pair " + phone + " --connect " + listener.address(), "y");
    const ProcessResult listened = listener.finish();
    EXPECT_NE(listened.exitCode, 0);
    EXPECT_NE(listened.output.find("not paired"), std::string::npos) << listened.output;
    EXPECT_FALSE(pinnedCertificate(watch).has_value());
    EXPECT_EQ(pinnedCertificate(phone), ownCertificate(watch));
}

}  // namespace
}  // namespace KvTest
