// The client library's socket to its device's daemon: a non-blocking Unix
// stream socket with framed writes that wait for room up to a deadline and
// reads that take what has arrived.
#ifndef KVP_CLIENT_DAEMON_CONNECTION_H
#define KVP_CLIENT_DAEMON_CONNECTION_H

#include <kv-accessory/Codec.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace Kv {
namespace Accessory {

class DaemonConnection {
public:
    using Deadline = std::chrono::steady_clock::time_point;

    // Connects to the daemon's socket at `path`. Throws std::runtime_error
    // naming the path and the reason.
    explicit DaemonConnection(const std::string& path);
    ~DaemonConnection();
    DaemonConnection(const DaemonConnection&) = delete;
    DaemonConnection& operator=(const DaemonConnection&) = delete;

    int fd() const { return m_fd; }

    // Writes the whole frame before `deadline`, taking in what the daemon
    // sends meanwhile. Throws std::runtime_error when the daemon is gone or
    // the deadline passes.
    void write(const std::string& frame, Deadline deadline);

    // Waits until something can be read or `deadline` passes; true when
    // something can.
    bool waitReadable(Deadline deadline) const;

    // Takes in what has arrived without waiting, or at least `enough` bytes
    // of it. Throws std::runtime_error when the daemon has closed the socket
    // or reading failed.
    void readAvailable(std::size_t enough = SIZE_MAX);

    // The next whole message received. Throws ProtocolError when the daemon
    // broke the wire format.
    std::optional<wire::ServiceMessage> next();

private:
    int m_fd = -1;
    FrameDecoder m_decoder;
};

}  // namespace Accessory
}  // namespace Kv

#endif
