#include "PacketCapture.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <sstream>
#include <thread>

#include "ChildProcess.h"

namespace KvTest {

namespace {

using std::chrono::milliseconds;

// How long dumpcap may take to start capturing.
constexpr milliseconds kStartLimit(10000);
// How long packets sent just before a stop may take to reach the file:
// dumpcap reads the interface every quarter second.
constexpr milliseconds kLastPackets(600);

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

}  // namespace

std::string programOnPath(const std::string& program) {
    const char* path = std::getenv("PATH");
    std::istringstream folders(path != nullptr ? path : "/usr/bin:/bin");
    for (std::string folder; std::getline(folders, folder, ':');) {
        std::string candidate = folder + "/";
        candidate += program;
        if (!folder.empty() && ::access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
    }
    return "";
}

PacketCapture::PacketCapture(unsigned short port, std::string file) : m_file(std::move(file)) {
    const std::string dumpcap = programOnPath("dumpcap");
    if (dumpcap.empty()) {
        m_failure = "dumpcap is not installed (./kv setup installs tshark, which brings it)";
        return;
    }
    m_dumpcap = std::make_unique<ChildProcess>(std::vector<std::string>{
        dumpcap, "-i", "lo", "-f", "tcp port " + std::to_string(port), "-w", m_file});
    // dumpcap names the file once the interface is open and the file made.
    if (!m_dumpcap->waitForError("File: ", kStartLimit)) {
        m_dumpcap->sendSignal(SIGKILL);
        const ProcessResult result = m_dumpcap->finish();
        m_failure = "dumpcap did not start capturing: " + result.err;
        m_dumpcap.reset();
    }
}

PacketCapture::~PacketCapture() {
    if (m_dumpcap) {
        stop();
    }
}

bool PacketCapture::notPermitted() const {
    const std::string failure = lowered(m_failure);
    return failure.find("permission") != std::string::npos ||
           failure.find("not permitted") != std::string::npos;
}

bool PacketCapture::stop() {
    if (!m_dumpcap) {
        return false;
    }
    std::this_thread::sleep_for(kLastPackets);
    m_dumpcap->sendSignal(SIGINT);
    const ProcessResult result = m_dumpcap->finish(milliseconds(10000));
    m_dumpcap.reset();
    EXPECT_EQ(result.exitCode, 0) << "dumpcap: " << result.err;
    return result.exitCode == 0;
}

}  // namespace KvTest
