// Helpers of the accessory service tests: two emulated devices with an app
// each, their daemons started as real processes and linked over loopback
// TCP, and scripted app sessions that speak the wire protocol.
#ifndef KV_TESTS_ACCESSORY_TEST_SUPPORT_H
#define KV_TESTS_ACCESSORY_TEST_SUPPORT_H

#include <kv-accessory/Codec.h>
#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Kv {
namespace Accessory {
class DaemonConnection;
}
}  // namespace Kv

namespace KvTest {

namespace wire = kv::accessory::wire;
using std::chrono::milliseconds;

inline constexpr char kConsumerApp[] = "consumer.Main";
inline constexpr char kProviderApp[] = "provider.Main";
inline constexpr char kSecondProviderApp[] = "providertwo.Main";

// Installs the test app `appId` ("<package>.<name>") on `device`, with the
// test profiles in `role` ("consumer" or "provider"), declaring the
// accessory privilege when `privileged`.
void installApp(const std::string& device, const std::string& appId, const std::string& role,
                bool privileged = true);

// Runs `action` with KV_DEVICE set to `device`, then restores it.
void onDevice(const std::string& device, const std::function<void()>& action);

// Two device folders, "alpha" with the consumer app and "beta" with both
// provider apps, and their daemons (alpha listens, beta connects).
class DevicePair {
public:
    DevicePair();
    ~DevicePair();
    DevicePair(const DevicePair&) = delete;
    DevicePair& operator=(const DevicePair&) = delete;

    // Pairs the devices, starts both daemons and waits until they are
    // linked. `extra` goes to both daemons (say, "--insecure").
    void start(const std::vector<std::string>& extra = {});
    // Alpha listens on a port of the system's choice; beta connects to
    // `port` (alpha's when 0).
    void startAlpha(const std::vector<std::string>& extra = {});
    void startBeta(unsigned short port = 0, const std::vector<std::string>& extra = {});
    unsigned short alphaPort() const { return m_port; }
    // Stops a daemon with SIGKILL (nothing is cleaned up by it).
    void killBeta() { killDaemon(m_beta); }
    void killAlpha() { killDaemon(m_alpha); }
    void setLink(const std::string& device, bool enabled);
    bool linked(const std::string& device);
    // Waits until the device's link is up (or down); false after the timeout.
    bool waitLinked(const std::string& device, bool up = true,
                    milliseconds timeout = milliseconds(8000));

    const std::string& alpha() const { return m_alpha; }
    const std::string& beta() const { return m_beta; }
    // The folder that holds both devices; it goes with them.
    const std::string& folder() const { return m_base; }

private:
    void killDaemon(const std::string& device);

    std::string m_base;
    std::string m_alpha;
    std::string m_beta;
    unsigned short m_port = 0;
};

// One app session with a daemon, spoken on the wire. Events are kept in
// arrival order until a test takes them.
class WireClient {
public:
    // Opens a session as the app `appId` of `device` (registered for this
    // process in the device's running table; empty for no app).
    WireClient(const std::string& device, const std::string& appId);
    ~WireClient();

    wire::Reply call(wire::Request request);
    // The first kept or arriving event that `match` accepts, removed from the
    // kept ones; nothing after the timeout.
    std::optional<wire::Event> waitEvent(const std::function<bool(const wire::Event&)>& match,
                                         milliseconds timeout = milliseconds(5000));
    // Whether the daemon closed the session within the timeout.
    bool waitClosed(milliseconds timeout = milliseconds(5000));

    // Registers the agent of `profileId` and returns its id (0 on failure).
    std::uint32_t registerAgent(const std::string& profileId);
    // Searches peers of `agentId`: the records found and the final status.
    std::vector<wire::PeerAgent> findPeers(std::uint32_t agentId, int* endStatus = nullptr);
    // Asks for a connection and returns its confirmation.
    std::optional<wire::CreateConfirm> connect(std::uint32_t agentId, const wire::PeerAgent& peer);
    int sendData(std::uint32_t connectionId, std::uint32_t channelId, const std::string& data);
    int answer(std::uint32_t agentId, std::uint32_t connectionId, bool accept);
    // Sends data without waiting for the daemon's answer (it sends none), as
    // the client library does on an open connection. False when the daemon
    // does not take it within the timeout.
    bool post(std::uint32_t connectionId, std::uint32_t channelId, std::string data,
              milliseconds timeout = milliseconds(60000));

private:
    bool readSome(std::chrono::steady_clock::time_point deadline);

    std::unique_ptr<Kv::Accessory::DaemonConnection> m_connection;
    std::vector<wire::Event> m_events;
    std::uint32_t m_serial = 1;
    bool m_closed = false;
};

// An app process forked from the test: it registers the agent of
// `profileId` as `appId` on `device` and keeps its session until the object
// goes (or kill() is called).
class AppProcess {
public:
    AppProcess(const std::string& device, const std::string& appId, const std::string& profileId);
    ~AppProcess();
    bool ready() const { return m_ready; }
    void kill();

private:
    pid_t m_pid = -1;
    int m_pipe = -1;
    bool m_ready = false;
};

// Registers the consumer's and the provider's agents of `profileId`, and has
// the consumer connect to the provider, which accepts. The connection's ids
// on the consumer's and on the provider's side.
std::pair<std::uint32_t, std::uint32_t> openConnection(WireClient& consumer, WireClient& provider,
                                                       const std::string& profileId);

// Matchers for WireClient::waitEvent.
std::function<bool(const wire::Event&)> isTerminated(std::uint32_t connectionId);
std::function<bool(const wire::Event&)> isDeviceStatus(int status);
std::function<bool(const wire::Event&)> isConnectionRequest();
std::function<bool(const wire::Event&)> isData(std::uint32_t connectionId);

}  // namespace KvTest

#endif
