// kv-bench-relay: the raw limits of the accessory path's process topology,
// for the benchmarks to compare against. The same hops as an app's message
// (app -> Unix socket -> daemon -> TCP -> daemon -> Unix socket -> app) with
// nothing but framing: each relay reads a whole frame (4-byte big-endian
// length, then the payload) and forwards it, store and forward, as the
// daemons do; optionally over TLS 1.3 between the relays.
//
//   kv-bench-relay relay --unix PATH (--listen PORT | --connect PORT) [--tls CERT KEY]
//   kv-bench-relay echo --unix PATH
//       the far app: echoes every frame; answers an empty frame with the
//       number of frames and bytes it got before it
//   kv-bench-relay throughput --unix PATH --size BYTES --count N
//   kv-bench-relay roundtrip --unix PATH --size BYTES --count N
//       the near app; prints "result NAME VALUE UNIT" lines
#include <openssl/ssl.h>
#include <unistd.h>
#include <asio.hpp>
#include <asio/ssl.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using Unix = asio::local::stream_protocol;
using Tcp = asio::ip::tcp;

struct Options {
    std::string role;
    std::string unix;
    int listen = 0;
    int connect = 0;
    std::string certificate;
    std::string key;
    std::size_t size = 64;
    std::size_t count = 1000;
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
        }
    }
    return options;
}

// Blocking frame reads and writes on any synchronous stream.
template <typename Stream>
std::string readFrame(Stream& stream) {
    unsigned char header[4];
    asio::read(stream, asio::buffer(header));
    const std::size_t length = (std::size_t(header[0]) << 24) | (std::size_t(header[1]) << 16) |
                               (std::size_t(header[2]) << 8) | header[3];
    std::string payload(length, '\0');
    asio::read(stream, asio::buffer(payload));
    return payload;
}

template <typename Stream>
void writeFrame(Stream& stream, const std::string& payload) {
    const std::size_t length = payload.size();
    const unsigned char header[4] = {
        static_cast<unsigned char>(length >> 24), static_cast<unsigned char>(length >> 16),
        static_cast<unsigned char>(length >> 8), static_cast<unsigned char>(length)};
    std::vector<asio::const_buffer> buffers{asio::buffer(header), asio::buffer(payload)};
    asio::write(stream, buffers);
}

// Forwards whole frames from one stream to the other until either closes:
// read a header, read the payload, write both, again. Both directions run at
// once on the one thread, as the daemon's sessions do.
template <typename From, typename To>
class Pump : public std::enable_shared_from_this<Pump<From, To>> {
public:
    Pump(From& from, To& to) : m_from(from), m_to(to) {}

    void start() { readHeader(); }

private:
    void readHeader() {
        auto self = this->shared_from_this();
        asio::async_read(m_from, asio::buffer(m_header),
                         [self](asio::error_code error, std::size_t) {
                             if (!error) {
                                 self->readPayload();
                             }
                         });
    }

    void readPayload() {
        const std::size_t length = (std::size_t(m_header[0]) << 24) |
                                   (std::size_t(m_header[1]) << 16) |
                                   (std::size_t(m_header[2]) << 8) | m_header[3];
        m_payload.resize(length);
        auto self = this->shared_from_this();
        asio::async_read(m_from, asio::buffer(m_payload),
                         [self](asio::error_code error, std::size_t) {
                             if (!error) {
                                 self->forward();
                             }
                         });
    }

    void forward() {
        std::vector<asio::const_buffer> frame{asio::buffer(m_header), asio::buffer(m_payload)};
        auto self = this->shared_from_this();
        asio::async_write(m_to, frame, [self](asio::error_code error, std::size_t) {
            if (!error) {
                self->readHeader();
            }
        });
    }

    From& m_from;
    To& m_to;
    unsigned char m_header[4] = {};
    std::string m_payload;
};

template <typename Link>
void relayBetween(asio::io_context& io, Unix::socket& app, Link& link) {
    std::make_shared<Pump<Unix::socket, Link>>(app, link)->start();
    std::make_shared<Pump<Link, Unix::socket>>(link, app)->start();
    io.run();
}

Unix::socket acceptUnix(asio::io_context& io, const std::string& path) {
    ::unlink(path.c_str());
    Unix::acceptor acceptor(io, Unix::endpoint(path));
    Unix::socket socket(io);
    acceptor.accept(socket);
    return socket;
}

Tcp::socket openTcp(asio::io_context& io, const Options& options) {
    Tcp::socket socket(io);
    if (options.listen != 0) {
        Tcp::acceptor acceptor(io, Tcp::endpoint(asio::ip::make_address("127.0.0.1"),
                                                 static_cast<unsigned short>(options.listen)));
        acceptor.accept(socket);
    } else {
        for (int attempt = 0;; ++attempt) {
            asio::error_code error;
            socket.connect(Tcp::endpoint(asio::ip::make_address("127.0.0.1"),
                                         static_cast<unsigned short>(options.connect)),
                           error);
            if (!error || attempt > 200) {
                break;
            }
            socket = Tcp::socket(io);
            usleep(20000);
        }
    }
    socket.set_option(Tcp::no_delay(true));
    return socket;
}

int relay(const Options& options) {
    asio::io_context io;
    Unix::socket app = acceptUnix(io, options.unix);
    Tcp::socket tcp = openTcp(io, options);
    if (options.certificate.empty()) {
        relayBetween(io, app, tcp);
        return 0;
    }
    asio::ssl::context context(asio::ssl::context::tls);
    SSL_CTX_set_min_proto_version(context.native_handle(), TLS1_3_VERSION);
    context.use_certificate_file(options.certificate, asio::ssl::context::pem);
    context.use_private_key_file(options.key, asio::ssl::context::pem);
    context.set_verify_mode(asio::ssl::verify_peer | asio::ssl::verify_fail_if_no_peer_cert);
    context.set_verify_callback([](bool, asio::ssl::verify_context&) { return true; });
    asio::ssl::stream<Tcp::socket> tls(std::move(tcp), context);
    tls.handshake(options.listen != 0 ? asio::ssl::stream_base::server
                                      : asio::ssl::stream_base::client);
    relayBetween(io, app, tls);
    return 0;
}

Unix::socket connectUnix(asio::io_context& io, const std::string& path) {
    Unix::socket socket(io);
    for (int attempt = 0;; ++attempt) {
        asio::error_code error;
        socket.connect(Unix::endpoint(path), error);
        if (!error || attempt > 200) {
            return socket;
        }
        socket = Unix::socket(io);
        usleep(20000);
    }
}

int echo(const Options& options) {
    asio::io_context io;
    Unix::socket app = connectUnix(io, options.unix);
    std::size_t frames = 0;
    std::size_t bytes = 0;
    try {
        for (;;) {
            const std::string payload = readFrame(app);
            if (payload.empty()) {
                writeFrame(app, std::to_string(frames) + " " + std::to_string(bytes));
                frames = bytes = 0;
            } else if (payload[0] == 'p') {
                writeFrame(app, payload);
            } else {
                ++frames;
                bytes += payload.size();
            }
        }
    } catch (const std::exception&) {
    }
    return 0;
}

double seconds(Clock::duration duration) { return std::chrono::duration<double>(duration).count(); }

int throughput(const Options& options) {
    asio::io_context io;
    Unix::socket app = connectUnix(io, options.unix);
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
    asio::io_context io;
    Unix::socket app = connectUnix(io, options.unix);
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
    } catch (const std::exception& error) {
        std::cerr << "kv-bench-relay: " << error.what() << "\n";
        return 1;
    }
    std::cerr << "usage: kv-bench-relay relay|echo|throughput|roundtrip --unix PATH ...\n";
    return 2;
}
