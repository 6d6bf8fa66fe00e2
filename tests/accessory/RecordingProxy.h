// A TCP relay for the tests: it listens on a port of the system's choice,
// connects each client it accepts to `upstream`, passes the bytes both ways
// and keeps a copy of everything that went through, so that a test can look
// at what travelled on a link.
#ifndef KV_TESTS_ACCESSORY_RECORDING_PROXY_H
#define KV_TESTS_ACCESSORY_RECORDING_PROXY_H

#include <atomic>
#include <mutex>
#include <string>
#include <thread>

namespace KvTest {

class RecordingProxy {
public:
    explicit RecordingProxy(unsigned short upstream);
    ~RecordingProxy();
    RecordingProxy(const RecordingProxy&) = delete;
    RecordingProxy& operator=(const RecordingProxy&) = delete;

    unsigned short port() const { return m_port; }
    // Everything that went through so far, both directions interleaved.
    std::string recorded() const;

private:
    void run();
    void relay(int client);

    unsigned short m_upstream;
    unsigned short m_port = 0;
    int m_listener = -1;
    int m_wake[2] = {-1, -1};
    std::atomic<bool> m_stopping{false};
    mutable std::mutex m_mutex;
    std::string m_recorded;
    std::thread m_thread;
};

}  // namespace KvTest

#endif
