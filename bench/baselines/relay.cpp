// kv-bench-relay: the raw limits of the accessory path's process topology,
// for the benchmarks to compare against. The same hops as an app's message
// (app -> Unix socket -> daemon -> TCP -> daemon -> Unix socket -> app) with
// nothing but framing: each relay forwards whole frames (4-byte big-endian
// length, then the payload), store and forward, as the daemons do;
// optionally over TLS 1.3 between the relays.
//
// Written to move bytes as fast as this machine allows, so that it is a
// limit and not a straw man:
//   - one poll loop per relay runs both directions; each direction reads as
//     much as its socket has into a 4 MiB buffer (no per-frame reads) and
//     writes every whole frame it holds with one write;
//   - the Unix sockets have 4 MiB buffers; TCP keeps its autotuning and no
//     Nagle delay;
//   - TLS 1.3 uses the suite that is fastest here (ChaCha20-Poly1305, about
//     3.9 GB/s a core against 2.8 for AES-128-GCM) with full 16 KiB records;
//     OpenSSL reads from the socket directly (read-ahead measured slower).
// (splice through a pipe was tried for the plain relay: a pipe can't be
// relied on to hold a whole 1 MiB frame, since every fragment of the
// socket's buffer takes one of its slots, so store and forward of whole
// frames deadlocks; only cut-through forwarding would work.)
//
//   kv-bench-relay relay --unix PATH (--listen PORT | --connect PORT) [--tls CERT KEY]
//   kv-bench-relay echo --unix PATH
//       the far app: echoes every ping frame ('p' first); counts others, and
//       answers an empty frame with the number of frames and bytes it got
//   kv-bench-relay throughput --unix PATH --size BYTES --count N
//   kv-bench-relay roundtrip --unix PATH --size BYTES --count N
//   kv-bench-relay rate --unix PATH --size BYTES --seconds S
//       the near app; prints "result NAME VALUE UNIT" lines
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kBuffer = 4u << 20;
constexpr std::size_t kRefillRoom = 2u << 20;
constexpr int kUnixBuffer = 4 << 20;

struct Options {
    std::string role;
    std::string unix;
    int listen = 0;
    int connect = 0;
    std::string certificate;
    std::string key;
    std::size_t size = 64;
    std::size_t count = 1000;
    double seconds = 2.0;
};

Options parse(int argc, char** argv) {
    Options options;
    options.role = argc > 1 ? argv[1] : "";
    for (int i = 2; i < argc; ++i) {
        const std::string option = argv[i];
        const auto value = [&] { return std::string(i + 1 < argc ? argv[++i] : ""); };
        if (option == "--unix") {
            options.unix = value();
        } else if (option == "--listen") {
            options.listen = std::stoi(value());
        } else if (option == "--connect") {
            options.connect = std::stoi(value());
        } else if (option == "--tls") {
            options.certificate = value();
            options.key = value();
        } else if (option == "--size") {
            options.size = std::stoul(value());
        } else if (option == "--count") {
            options.count = std::stoul(value());
        } else if (option == "--seconds") {
            options.seconds = std::stod(value());
        }
    }
    return options;
}

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

std::size_t frameLength(const unsigned char* header) {
    return (std::size_t(header[0]) << 24) | (std::size_t(header[1]) << 16) |
           (std::size_t(header[2]) << 8) | header[3];
}

void putLength(unsigned char* header, std::size_t length) {
    header[0] = static_cast<unsigned char>(length >> 24);
    header[1] = static_cast<unsigned char>(length >> 16);
    header[2] = static_cast<unsigned char>(length >> 8);
    header[3] = static_cast<unsigned char>(length);
}

// ---- Sockets -------------------------------------------------------------

void bigUnixBuffers(int fd) {
    ::setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &kUnixBuffer, sizeof(kUnixBuffer));
    ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &kUnixBuffer, sizeof(kUnixBuffer));
}

int acceptUnix(const std::string& path) {
    ::unlink(path.c_str());
    const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    if (::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        ::listen(listener, 1) != 0) {
        fail("cannot listen on " + path);
    }
    const int fd = ::accept(listener, nullptr, nullptr);
    ::close(listener);
    bigUnixBuffers(fd);
    return fd;
}

int connectUnix(const std::string& path) {
    for (int attempt = 0; attempt < 500; ++attempt) {
        const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0) {
            bigUnixBuffers(fd);
            return fd;
        }
        ::close(fd);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    fail("cannot connect to " + path);
}

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

int openTcp(const Options& options) {
    int fd = -1;
    if (options.listen != 0) {
        const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
        const int yes = 1;
        ::setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
        sockaddr_in address = loopback(options.listen);
        if (::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
            ::listen(listener, 1) != 0) {
            fail("cannot listen on port " + std::to_string(options.listen));
        }
        fd = ::accept(listener, nullptr, nullptr);
        ::close(listener);
    } else {
        for (int attempt = 0; fd < 0 && attempt < 500; ++attempt) {
            fd = ::socket(AF_INET, SOCK_STREAM, 0);
            sockaddr_in address = loopback(options.connect);
            if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
                ::close(fd);
                fd = -1;
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
        }
    }
    if (fd < 0) {
        fail("no TCP link");
    }
    const int yes = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof(yes));
    return fd;
}

// ---- Streams: a socket, plain or under TLS -------------------------------

// Non-blocking reads and writes; 0 when the call would block, -1 at the end.
class Stream {
public:
    virtual ~Stream() = default;
    virtual long read(char* into, std::size_t room) = 0;
    virtual long write(const char* from, std::size_t size) = 0;
    virtual int fd() const = 0;
    // Whether the last call that returned 0 waits for the socket to become
    // writable (TLS may need to write to read, and the reverse).
    virtual bool wantsWrite() const { return false; }
    virtual bool wantsRead() const { return false; }
};

class PlainStream : public Stream {
public:
    explicit PlainStream(int fd) : m_fd(fd) { ::fcntl(fd, F_SETFL, O_NONBLOCK); }
    long read(char* into, std::size_t room) override { return settle(::read(m_fd, into, room)); }
    long write(const char* from, std::size_t size) override {
        return settle(::send(m_fd, from, size, MSG_NOSIGNAL));
    }
    int fd() const override { return m_fd; }

private:
    static long settle(ssize_t result) {
        if (result > 0) {
            return result;
        }
        return result < 0 && (errno == EAGAIN || errno == EINTR) ? 0 : -1;
    }
    int m_fd;
};

class TlsStream : public Stream {
public:
    TlsStream(int fd, const Options& options) : m_fd(fd) {
        m_context = SSL_CTX_new(TLS_method());
        SSL_CTX_set_min_proto_version(m_context, TLS1_3_VERSION);
        SSL_CTX_set_ciphersuites(m_context, "TLS_CHACHA20_POLY1305_SHA256");
        SSL_CTX_use_certificate_file(m_context, options.certificate.c_str(), SSL_FILETYPE_PEM);
        SSL_CTX_use_PrivateKey_file(m_context, options.key.c_str(), SSL_FILETYPE_PEM);
        SSL_CTX_set_verify(m_context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT,
                           [](int, X509_STORE_CTX*) { return 1; });
        SSL_CTX_set_mode(m_context,
                         SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
        m_ssl = SSL_new(m_context);
        SSL_set_fd(m_ssl, fd);
        if ((options.listen != 0 ? SSL_accept(m_ssl) : SSL_connect(m_ssl)) != 1) {
            throw std::runtime_error("TLS handshake failed");
        }
        ::fcntl(fd, F_SETFL, O_NONBLOCK);
    }
    ~TlsStream() override {
        SSL_free(m_ssl);
        SSL_CTX_free(m_context);
    }
    long read(char* into, std::size_t room) override {
        return settle(
            SSL_read(m_ssl, into, static_cast<int>(std::min<std::size_t>(room, 1 << 30))));
    }
    long write(const char* from, std::size_t size) override {
        return settle(
            SSL_write(m_ssl, from, static_cast<int>(std::min<std::size_t>(size, 1 << 30))));
    }
    int fd() const override { return m_fd; }
    bool wantsWrite() const override { return m_wants == SSL_ERROR_WANT_WRITE; }
    bool wantsRead() const override { return m_wants == SSL_ERROR_WANT_READ; }

private:
    long settle(int result) {
        m_wants = 0;
        if (result > 0) {
            return result;
        }
        const int error = SSL_get_error(m_ssl, result);
        if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE) {
            m_wants = error;
            return 0;
        }
        return -1;
    }
    int m_fd;
    SSL_CTX* m_context = nullptr;
    SSL* m_ssl = nullptr;
    int m_wants = 0;
};

// ---- The relay -------------------------------------------------------------

// One direction: what `from` sends is kept until whole frames are there,
// and every whole frame held goes to `to` in one write.
class Direction {
public:
    Direction(Stream& from, Stream& to) : m_from(from), m_to(to), m_buffer(new char[kBuffer]) {}

    // Reads all there is, as far as there is room; false once `from` has
    // ended.
    bool take() {
        while (m_filled < kBuffer) {
            const long got = m_from.read(m_buffer.get() + m_filled, kBuffer - m_filled);
            if (got < 0) {
                return false;
            }
            if (got == 0) {
                break;
            }
            m_filled += static_cast<std::size_t>(got);
        }
        while (m_whole + 4 <= m_filled) {
            const std::size_t frame =
                4 + frameLength(reinterpret_cast<unsigned char*>(m_buffer.get() + m_whole));
            if (m_whole + frame > m_filled) {
                break;
            }
            m_whole += frame;
        }
        return true;
    }

    // Writes whole frames; false once `to` has ended.
    bool give() {
        while (m_written < m_whole) {
            const long put = m_to.write(m_buffer.get() + m_written, m_whole - m_written);
            if (put < 0) {
                return false;
            }
            if (put == 0) {
                break;
            }
            m_written += static_cast<std::size_t>(put);
        }
        // What is written makes room only once the free end runs short: the
        // rest (at most a frame) then moves to the front, a copy per many
        // frames instead of one per write.
        if (m_written == m_whole && m_written > 0 && kBuffer - m_filled < kRefillRoom) {
            std::memmove(m_buffer.get(), m_buffer.get() + m_whole, m_filled - m_whole);
            m_filled -= m_whole;
            m_whole = m_written = 0;
        }
        return true;
    }

    bool hasRoom() const { return m_filled < kBuffer; }
    bool hasFrames() const { return m_written < m_whole; }

private:
    Stream& m_from;
    Stream& m_to;
    std::unique_ptr<char[]> m_buffer;
    std::size_t m_filled = 0;   // bytes in the buffer
    std::size_t m_whole = 0;    // of them, the whole frames at the front
    std::size_t m_written = 0;  // of those, written
};

// Both directions in one poll loop, until either end goes.
void relayLoop(Stream& app, Stream& link) {
    Direction out(app, link);
    Direction in(link, app);
    for (;;) {
        if (!out.take() || !in.take() || !out.give() || !in.give()) {
            return;
        }
        pollfd fds[2] = {{app.fd(), 0, 0}, {link.fd(), 0, 0}};
        fds[0].events =
            static_cast<short>((out.hasRoom() ? POLLIN : 0) | (in.hasFrames() ? POLLOUT : 0));
        fds[1].events = static_cast<short>((in.hasRoom() || link.wantsRead() ? POLLIN : 0) |
                                           (out.hasFrames() || link.wantsWrite() ? POLLOUT : 0));
        if (::poll(fds, 2, -1) < 0 && errno != EINTR) {
            fail("poll");
        }
    }
}

int relay(const Options& options) {
    const int app = acceptUnix(options.unix);
    const int tcp = openTcp(options);
    PlainStream appStream(app);
    std::unique_ptr<Stream> link;
    if (options.certificate.empty()) {
        link = std::make_unique<PlainStream>(tcp);
    } else {
        link = std::make_unique<TlsStream>(tcp, options);
    }
    relayLoop(appStream, *link);
    return 0;
}

// ---- The apps ----------------------------------------------------------------

std::string readFrame(int fd) {
    unsigned char header[4];
    if (::recv(fd, header, 4, MSG_WAITALL) != 4) {
        throw std::runtime_error("the relay went");
    }
    std::string payload(frameLength(header), '\0');
    if (!payload.empty() && ::recv(fd, payload.data(), payload.size(), MSG_WAITALL) !=
                                static_cast<ssize_t>(payload.size())) {
        throw std::runtime_error("the relay went");
    }
    return payload;
}

void writeFrame(int fd, const std::string& payload) {
    unsigned char header[4];
    putLength(header, payload.size());
    iovec parts[2] = {{header, 4}, {const_cast<char*>(payload.data()), payload.size()}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    std::size_t left = 4 + payload.size();
    while (left > 0) {
        const ssize_t sent = ::sendmsg(fd, &message, MSG_NOSIGNAL);
        if (sent <= 0) {
            throw std::runtime_error("the relay went");
        }
        left -= static_cast<std::size_t>(sent);
        // Past what went: skip the parts written, trim the one written in part.
        std::size_t skip = static_cast<std::size_t>(sent);
        while (message.msg_iovlen > 0 && skip >= message.msg_iov[0].iov_len) {
            skip -= message.msg_iov[0].iov_len;
            ++message.msg_iov;
            --message.msg_iovlen;
        }
        if (message.msg_iovlen > 0) {
            message.msg_iov[0].iov_base = static_cast<char*>(message.msg_iov[0].iov_base) + skip;
            message.msg_iov[0].iov_len -= skip;
        }
    }
}

// Reads into one buffer reused for every frame, as much as the socket has
// at a time, and calls `onFrame` with each whole frame.
template <typename OnFrame>
void readFrames(int fd, OnFrame onFrame) {
    std::vector<char> buffer(kBuffer);
    std::size_t filled = 0;
    for (;;) {
        const ssize_t got = ::read(fd, buffer.data() + filled, buffer.size() - filled);
        if (got <= 0) {
            return;
        }
        filled += static_cast<std::size_t>(got);
        std::size_t at = 0;
        while (at + 4 <= filled) {
            const std::size_t length =
                frameLength(reinterpret_cast<unsigned char*>(buffer.data() + at));
            if (at + 4 + length > filled) {
                break;
            }
            onFrame(std::string_view(buffer.data() + at + 4, length));
            at += 4 + length;
        }
        std::memmove(buffer.data(), buffer.data() + at, filled - at);
        filled -= at;
    }
}

int echo(const Options& options) {
    const int app = connectUnix(options.unix);
    std::size_t frames = 0;
    std::size_t bytes = 0;
    try {
        readFrames(app, [&](std::string_view payload) {
            if (payload.empty()) {
                writeFrame(app, std::to_string(frames) + " " + std::to_string(bytes));
                frames = bytes = 0;
            } else if (payload[0] == 'p') {
                writeFrame(app, std::string(payload));
            } else {
                ++frames;
                bytes += payload.size();
            }
        });
    } catch (const std::exception&) {
        return 0;  // the relay closed the stream: the run is over
    }
    return 0;
}

double seconds(Clock::duration duration) { return std::chrono::duration<double>(duration).count(); }

int throughput(const Options& options) {
    const int app = connectUnix(options.unix);
    const std::string payload(options.size, 'd');
    const auto started = Clock::now();
    for (std::size_t i = 0; i < options.count; ++i) {
        writeFrame(app, payload);
    }
    writeFrame(app, std::string());
    readFrame(app);
    const double elapsed = seconds(Clock::now() - started);
    std::printf("result throughput %.1f MB/s\n",
                static_cast<double>(options.size * options.count) / elapsed / 1e6);
    return 0;
}

int roundtrip(const Options& options) {
    const int app = connectUnix(options.unix);
    std::string payload(options.size, 'p');
    std::vector<double> times;
    for (std::size_t i = 0; i < options.count; ++i) {
        const auto started = Clock::now();
        writeFrame(app, payload);
        readFrame(app);
        times.push_back(seconds(Clock::now() - started) * 1e6);
    }
    std::sort(times.begin(), times.end());
    std::printf("result roundtrip-median %.1f us\n", times[times.size() / 2]);
    std::printf("result roundtrip-p99 %.1f us\n", times[times.size() * 99 / 100]);
    std::printf("result roundtrip-p999 %.1f us\n", times[times.size() * 999 / 1000]);
    return 0;
}

// Messages for a while, then the count the far app got.
int rate(const Options& options) {
    const int app = connectUnix(options.unix);
    const std::string payload(options.size, 'm');
    const auto started = Clock::now();
    std::size_t sent = 0;
    while (seconds(Clock::now() - started) < options.seconds) {
        for (int i = 0; i < 100; ++i) {
            writeFrame(app, payload);
        }
        sent += 100;
    }
    writeFrame(app, std::string());
    readFrame(app);
    std::printf("result message-rate %.1f msg/s\n",
                static_cast<double>(sent) / seconds(Clock::now() - started));
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const Options options = parse(argc, argv);
    try {
        if (options.role == "relay") {
            return relay(options);
        }
        if (options.role == "echo") {
            return echo(options);
        }
        if (options.role == "throughput") {
            return throughput(options);
        }
        if (options.role == "roundtrip") {
            return roundtrip(options);
        }
        if (options.role == "rate") {
            return rate(options);
        }
    } catch (const std::exception& error) {
        std::cerr << "kv-bench-relay: " << error.what() << "\n";
        return 1;
    }
    std::cerr << "usage: kv-bench-relay relay|echo|throughput|roundtrip|rate --unix PATH ...\n";
    return 2;
}
