// Every situation that the accessory service reports reaches the apps on both
// devices under the error name that says what happened, as a two-device run
// shows it: the phone app does what the situation asks, the watch app answers
// as told, and the test makes the faults (a detach, an app that goes).
#include <gtest/gtest.h>
#include <signal.h>

#include <fstream>
#include <string>
#include <thread>

#include "E2eSupport.h"

using namespace KvE2e;

namespace {

void writeBytes(const std::string& path, std::size_t size) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    const std::string block(std::size_t{64} * 1024, 'k');
    for (std::size_t written = 0; written < size; written += block.size()) {
        file.write(block.data(), static_cast<std::streamsize>(block.size()));
    }
}

class SituationsTest : public testing::Test {
protected:
    explicit SituationsTest(bool insecure = false)
        : devices(work, insecure),
          watchApp(devices.install(devices.watch(), testApp("watch-situations"))),
          phoneApp(devices.install(devices.phone(), testApp("phone-situations"))) {
        std::ofstream(documents() + "/report.txt") << "heart rate 72\n";
    }

    std::string documents() const { return devices.phone() + "/fs/opt/usr/media/Documents"; }

    // Starts the watch answering as `mode` says, then the phone in `situation`.
    void start(const std::string& mode, const std::string& situation) {
        apps.start(watchApp, {mode}, phoneApp, {situation});
    }

    std::string both() const { return apps.both(); }
    void expectPhone(const std::string& line) { apps.expectPhone(line); }
    void expectWatch(const std::string& line) { apps.expectWatch(line); }

    const WorkFolder work;
    DevicePair devices;
    const std::string watchApp;
    const std::string phoneApp;
    AppsOnPair apps{devices};
};

TEST_F(SituationsTest, NoDevice) {
    start("accept", "no-device");
    ASSERT_TRUE(apps.phone->waitForOutput("phone: waiting for the detach")) << both();
    devices.setLink(devices.phone(), false);
    expectPhone("phone: connection error DEVICE_UNREACHABLE");
}

TEST_F(SituationsTest, UnknownPeer) {
    start("accept", "unknown-peer");
    ASSERT_TRUE(apps.phone->waitForOutput("phone: waiting for the watch to go")) << both();
    apps.watch->kill(SIGTERM);
    apps.watch->finish();
    expectPhone("phone: connection error INVALID_PEERAGENT");
}

TEST_F(SituationsTest, PeerOfAnotherProfile) {
    start("accept", "wrong-profile");
    expectPhone("phone: connection error INVALID_PEERAGENT");
}

TEST_F(SituationsTest, Rejected) {
    start("reject", "rejected");
    expectPhone("phone: connection error PEERAGENT_REJECTED");
    expectWatch("watch: request");
}

TEST_F(SituationsTest, NoResponse) {
    start("ignore", "rejected");
    expectPhone("phone: connection error PEERAGENT_NO_RESPONSE");
}

TEST_F(SituationsTest, AlreadyConnected) {
    start("accept", "already-connected");
    expectPhone("phone: connected");
    expectPhone("phone: connection error ALREADY_EXIST");
}

TEST_F(SituationsTest, ClosingTwiceIsNoError) {
    start("accept", "close-twice");
    expectPhone("phone: closed twice");
    expectWatch("watch: connection ended PEER_DISCONNECTED");
}

TEST_F(SituationsTest, LinkLostIsToldOnceOnBothSides) {
    start("accept", "link-lost");
    expectPhone("phone: connected");
    expectWatch("watch: connected");
    devices.setLink(devices.phone(), false);
    expectPhone("phone: device DETACHED");
    expectWatch("watch: device DETACHED");
    expectPhone("phone: connection ended DEVICE_DETACHED");
    expectWatch("watch: connection ended DEVICE_DETACHED");
    std::this_thread::sleep_for(milliseconds(500));
    const std::string out = both();
    EXPECT_EQ(countLines(out, "phone: connection ended DEVICE_DETACHED"), 1) << out;
    EXPECT_EQ(countLines(out, "watch: connection ended DEVICE_DETACHED"), 1) << out;
}

// A connection that the peer closed, then a new one that the link takes:
// each end is told, the second one as a detach.
TEST_F(SituationsTest, PeerCloseThenLinkLoss) {
    start("close-first", "reconnect");
    expectPhone("phone: connection 1 ended PEER_DISCONNECTED");
    ASSERT_TRUE(apps.phone->waitForOutput(
        "phone: connection 1 ended PEER_DISCONNECTED\nphone: connected\n"))
        << both();
    devices.setLink(devices.phone(), false);
    expectPhone("phone: connection 2 ended DEVICE_DETACHED");
    expectWatch("watch: connection ended DEVICE_DETACHED");
    EXPECT_EQ(countLines(both(), "phone: connection 1 ended PEER_DISCONNECTED"), 1) << both();
    EXPECT_EQ(countLines(both(), "phone: connection 2 ended DEVICE_DETACHED"), 1) << both();
}

TEST_F(SituationsTest, FileRejected) {
    start("reject-file", "file");
    expectWatch("watch: file offered report.txt");
    expectPhone("phone: file error PEER_REJECTED");
}

// The receiving agent takes four files at once; a fifth offer is refused.
// The error names have no "busy" for a sender, so the refusal is told as one.
TEST_F(SituationsTest, PeerBusy) {
    start("ignore-file", "busy");
    expectPhone("phone: file error PEER_REJECTED");
    std::this_thread::sleep_for(milliseconds(500));
    EXPECT_EQ(countLines(both(), "phone: file error PEER_REJECTED"), 1) << both();
    EXPECT_EQ(countLines(both(), "watch: file offered report.txt"), 4) << both();
}

TEST_F(SituationsTest, FileIoAtTheReceiver) {
    start("bad-folder", "file");
    expectWatch("watch: file error FILE_IO");
    expectPhone("phone: file error PEER_CHANNEL_IO");
}

// An app names only files of the shared media folders and of its own
// package; anything else is refused before any transfer starts.
TEST_F(SituationsTest, FilesOutsideTheAppsFoldersAreRefused) {
    start("accept", "outside-file");
    const std::string refused =
        "phone: sendFile threw InvalidValuesError File scheme is not valid.";
    ASSERT_TRUE(apps.phone->waitForOutput(refused + "\n" + refused + "\n")) << both();
}

TEST_F(SituationsTest, AFileCanNotBeTakenOutsideTheReceiversFolders) {
    start("outside-folder", "two-files");
    const std::string refused =
        "watch: file offered report.txt\n"
        "watch: receiveFile threw InvalidValuesError File path is not valid.\n";
    ASSERT_TRUE(apps.watch->waitForOutput(refused + refused)) << both();
}

TEST_F(SituationsTest, FileIoAtTheSender) {
    start("accept", "missing-file");
    expectPhone("phone: file error FILE_IO");
}

TEST_F(SituationsTest, NoSpace) {
    std::ofstream(devices.watch() + "/storage.free") << "5\n";
    start("accept", "file");
    expectWatch("watch: file error SPACE_NOT_AVAILABLE");
    expectPhone("phone: file error SPACE_NOT_AVAILABLE");
}

TEST_F(SituationsTest, FileDelivered) {
    start("accept", "file");
    expectPhone("phone: file sent");
    expectWatch("watch: file received file:///opt/usr/media/Downloads/report.txt");
}

// A cancel has no error name of its own: the side that cancels, and the
// receiver of a cancelled file, hear UNKNOWN_ERROR; a sender whose file the
// receiver cancels hears that the peer refused the rest.
TEST_F(SituationsTest, CancelledBySender) {
    writeBytes(documents() + "/big.bin", 64u << 20);
    start("accept", "cancel-file");
    expectPhone("phone: file error UNKNOWN_ERROR");
    expectWatch("watch: file error UNKNOWN_ERROR");
}

TEST_F(SituationsTest, CancelledByReceiver) {
    writeBytes(documents() + "/big.bin", 64u << 20);
    start("cancel-file", "big-file");
    expectWatch("watch: file error UNKNOWN_ERROR");
    expectPhone("phone: file error PEER_REJECTED");
}

TEST_F(SituationsTest, SecureDataAndAuthenticationOverThePairedLink) {
    start("accept", "secure-data");
    expectPhone("phone: sendData sent");
    expectPhone("phone: sendSecureData sent");
    expectWatch("watch: received secret hello");
    expectPhone("phone: authenticated AUTHENTICATION_TYPE_CERTIFICATE_X509 " +
                devices.fingerprint(devices.watch()));
}

class InsecureSituationsTest : public SituationsTest {
protected:
    InsecureSituationsTest() : SituationsTest(true) {}
};

// Over a link started insecure, plain data goes, secure data is refused as a
// send the service refuses, authentication fails, and the app's log says why.
TEST_F(InsecureSituationsTest, SecureDataAndAuthenticationAreRefused) {
    start("accept", "secure-data");
    expectPhone("phone: sendData sent");
    expectPhone("phone: sendSecureData threw IOError Problem on I/O connection.");
    expectPhone("phone: authentication error TokenNotGeneratedError");
    expectWatch("watch: received plain hello");
    EXPECT_NE(readText(work.path() + "/phone.log").find("the accessory link is not secure"),
              std::string::npos);
}

}  // namespace
