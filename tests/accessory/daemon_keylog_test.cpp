// The key log of the device link (kv-accessoryd --keylog FILE): both daemons
// of a linked pair append the secrets of their TLS 1.3 session in the
// key-log format, the file is made private, an earlier content stays, the
// daemon warns in its log and its status names the file; without the
// option no secret is kept anywhere, and with --insecure the option is
// refused.
#include <gtest/gtest.h>
#include <kv-accessory/DeviceControl.h>
#include <kv-accessory/Pairing.h>
#include <kv-device/FileUtil.h>
#include <sys/stat.h>

#include <filesystem>
#include <regex>
#include <set>
#include <sstream>

#include "AccessoryTestSupport.h"
#include "DeviceTestSupport.h"

namespace KvTest {
namespace {

const char* const kTls13Labels[] = {"CLIENT_HANDSHAKE_TRAFFIC_SECRET",
                                    "SERVER_HANDSHAKE_TRAFFIC_SECRET", "CLIENT_TRAFFIC_SECRET_0",
                                    "SERVER_TRAFFIC_SECRET_0", "EXPORTER_SECRET"};

std::string fileText(const std::string& path) { return Kv::Device::readFile(path).value_or(""); }

// The lines of a key log that carry a secret ("LABEL CLIENT_RANDOM SECRET",
// hex), each checked for that form.
std::set<std::string> secretLines(const std::string& text) {
    static const std::regex secret("([A-Z_0-9]+) [0-9a-f]{64} [0-9a-f]{64,96}");
    std::set<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        EXPECT_TRUE(std::regex_match(line, secret)) << "not a key-log line: " << line;
        lines.insert(line);
    }
    return lines;
}

std::set<std::string> labelsOf(const std::set<std::string>& lines) {
    std::set<std::string> labels;
    for (const std::string& line : lines) {
        labels.insert(line.substr(0, line.find(' ')));
    }
    return labels;
}

wire::Reply status(const std::string& device) {
    wire::Request request;
    request.mutable_status();
    return Kv::Accessory::control(device, request);
}

std::string daemonLog(const std::string& device) { return fileText(device + "/accessoryd.log"); }

// The line of the device's daemon log that holds `text`; empty when none does.
std::string logLine(const std::string& device, const std::string& text) {
    std::istringstream log(daemonLog(device));
    for (std::string line; std::getline(log, line);) {
        if (line.find(text) != std::string::npos) {
            return line;
        }
    }
    return "";
}

class DaemonKeyLogTest : public testing::Test {
protected:
    TempFolder folder;
    DevicePair devices;
    const std::string alphaLog = folder.path() + "/alpha.keys";
    const std::string betaLog = folder.path() + "/beta.keys";
};

TEST_F(DaemonKeyLogTest, BothEndsOfTheLinkLogTheSameTls13Secrets) {
    const std::string earlier = "# kept from an earlier run\n";
    writeTextFile(alphaLog, earlier);
    Kv::Accessory::pairFolders(devices.alpha(), devices.beta());
    devices.startAlpha({"--keylog", alphaLog});
    devices.startBeta(0, {"--keylog", betaLog});
    ASSERT_TRUE(devices.waitLinked(devices.alpha()));
    ASSERT_TRUE(devices.waitLinked(devices.beta()));

    const std::string alphaText = fileText(alphaLog);
    EXPECT_EQ(alphaText.substr(0, earlier.size()), earlier);
    const std::set<std::string> alphaLines = secretLines(alphaText);
    const std::set<std::string> betaLines = secretLines(fileText(betaLog));
    EXPECT_EQ(labelsOf(alphaLines),
              std::set<std::string>(std::begin(kTls13Labels), std::end(kTls13Labels)));
    EXPECT_EQ(alphaLines, betaLines);

    struct stat made {};
    ASSERT_EQ(::stat(betaLog.c_str(), &made), 0);
    EXPECT_EQ(made.st_mode & 07777, 0600u);
}

TEST_F(DaemonKeyLogTest, TheDaemonWarnsAndItsStatusNamesTheFile) {
    Kv::Accessory::pairFolders(devices.alpha(), devices.beta());
    devices.startAlpha({"--keylog", alphaLog});
    devices.startBeta();
    ASSERT_TRUE(devices.waitLinked(devices.alpha()));

    const std::string warning =
        logLine(devices.alpha(), "the TLS secrets of the link are written to " + alphaLog +
                                     " (--keylog): whoever reads that file can decrypt "
                                     "everything on the link");
    EXPECT_NE(warning.find(" W/KV_ACCESSORYD"), std::string::npos) << daemonLog(devices.alpha());
    const wire::Reply alpha = status(devices.alpha());
    EXPECT_EQ(alpha.status_report().link().keylog(), alphaLog);
    EXPECT_NE(alpha.status_text().find("key log: " + alphaLog + " (the link's TLS secrets"),
              std::string::npos)
        << alpha.status_text();
    const wire::Reply beta = status(devices.beta());
    EXPECT_EQ(beta.status_report().link().keylog(), "");
    EXPECT_EQ(beta.status_text().find("key log"), std::string::npos) << beta.status_text();
}

// Whether a file under `folder` holds a TLS secret line.
bool holdsASecret(const std::string& folder) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file() &&
            fileText(entry.path()).find("TRAFFIC_SECRET_0 ") != std::string::npos) {
            return true;
        }
    }
    return false;
}

TEST_F(DaemonKeyLogTest, WithoutTheOptionNoSecretIsKept) {
    devices.start();
    for (const std::string& device : {devices.alpha(), devices.beta()}) {
        EXPECT_EQ(status(device).status_report().link().keylog(), "");
        EXPECT_EQ(daemonLog(device).find("secrets"), std::string::npos) << daemonLog(device);
        EXPECT_FALSE(holdsASecret(device)) << device;
    }
    EXPECT_FALSE(holdsASecret(folder.path()));
}

TEST_F(DaemonKeyLogTest, AnInsecureLinkRefusesTheOption) {
    const ProcessResult result = runProcess(
        {KV_ACCESSORYD_PATH, "--device", devices.alpha(), "--insecure", "--keylog", alphaLog});
    EXPECT_EQ(result.exitCode, 2) << result.output;
    EXPECT_NE(result.output.find("kv-accessoryd: --keylog needs a TLS link: an insecure link has "
                                 "no secrets to log"),
              std::string::npos)
        << result.output;
    EXPECT_FALSE(std::filesystem::exists(alphaLog));
}

}  // namespace
}  // namespace KvTest
