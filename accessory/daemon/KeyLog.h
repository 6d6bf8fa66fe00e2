// The key log of the device link (kv-accessoryd --keylog FILE): the secrets
// of every TLS session of the link, one line each, in the key-log format that
// packet analysers read to decrypt a capture ("LABEL CLIENT_RANDOM SECRET",
// with the TLS 1.3 labels CLIENT_HANDSHAKE_TRAFFIC_SECRET,
// SERVER_HANDSHAKE_TRAFFIC_SECRET, CLIENT_TRAFFIC_SECRET_0,
// SERVER_TRAFFIC_SECRET_0 and EXPORTER_SECRET).
//
// Whoever reads the file can decrypt everything that crossed the link while
// it was written, secure data included: it is for debugging a pair, never
// for a device in use (see SECURITY.md). The file is opened for appending,
// made with mode 0600 when missing, and kept open while the daemon runs.
#ifndef KV_ACCESSORYD_KEY_LOG_H
#define KV_ACCESSORYD_KEY_LOG_H

#include <openssl/ssl.h>

#include <string>

namespace Kv {
namespace Accessory {

class KeyLog {
public:
    // Opens (or makes) `path` for appending. Throws std::runtime_error,
    // naming the file and the reason, when it can't be opened.
    explicit KeyLog(std::string path);
    ~KeyLog();
    KeyLog(const KeyLog&) = delete;
    KeyLog& operator=(const KeyLog&) = delete;

    const std::string& path() const { return m_path; }

    // Has every TLS session made with `context` write its secrets here. The
    // key log must outlive the context's sessions.
    void attachTo(SSL_CTX* context);

    // Appends one line (without its end of line).
    void write(const char* line);

private:
    std::string m_path;
    int m_fd = -1;
    bool m_failed = false;  // a write failed: told once in the log
};

}  // namespace Accessory
}  // namespace Kv

#endif
