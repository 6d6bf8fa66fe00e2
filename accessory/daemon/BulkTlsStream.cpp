#include "BulkTlsStream.h"

#include <openssl/err.h>

#include <algorithm>
#include <asio/ssl/error.hpp>
#include <cstring>
#include <vector>

namespace Kv {
namespace Accessory {

namespace {

// How much ciphertext one read of the socket may take: enough for a whole
// 1 MiB frame's records.
constexpr std::size_t kReadRoom = std::size_t{2} * 1024 * 1024;

asio::error_code sslError() {
    const unsigned long code = ERR_get_error();
    ERR_clear_error();
    return {static_cast<int>(code != 0 ? code : 1), asio::error::get_ssl_category()};
}

}  // namespace

using Completion = BulkTlsStream::Completion;

struct BulkTlsStream::State : std::enable_shared_from_this<State> {
    State(asio::ip::tcp::socket socket, SSL* ssl) : socket(std::move(socket)), ssl(ssl) {}
    ~State() { SSL_free(ssl); }

    // The BIO's side: OpenSSL's records go to `pendingOut` and come from `in`.
    int take(char* into, int size);
    void give(const char* from, int size) {
        pendingOut.append(from, static_cast<std::size_t>(size));
    }

    void tryHandshake();
    void tryRead();
    void readSocket();
    void flush();
    void finishRead(const asio::error_code& error, std::size_t size);
    void finishWrite(const asio::error_code& error);
    void abort();
    void post(Completion handler, const asio::error_code& error, std::size_t size);

    asio::ip::tcp::socket socket;
    SSL* ssl;
    std::vector<char> in = std::vector<char>(kReadRoom);
    std::size_t inBegin = 0;
    std::size_t inEnd = 0;
    bool socketReading = false;
    bool socketEnded = false;
    std::string pendingOut;
    std::string writing;
    bool socketWriting = false;
    std::function<void(const asio::error_code&)> handshakeHandler;
    Completion readHandler;
    asio::mutable_buffer readInto;
    Completion writeHandler;
    std::size_t writeSize = 0;
};

namespace {

BulkTlsStream::State* stateOf(BIO* bio) {
    return static_cast<BulkTlsStream::State*>(BIO_get_data(bio));
}

int bioWrite(BIO* bio, const char* data, int size) {
    stateOf(bio)->give(data, size);
    return size;
}

int bioRead(BIO* bio, char* into, int size) {
    BIO_clear_retry_flags(bio);
    const int taken = stateOf(bio)->take(into, size);
    if (taken < 0) {
        BIO_set_retry_read(bio);
    }
    return taken;
}

long bioControl(BIO*, int command, long, void*) { return command == BIO_CTRL_FLUSH ? 1 : 0; }

// The BIO type of every stream, made once.
BIO_METHOD* bulkMethod() {
    static BIO_METHOD* const method = [] {
        BIO_METHOD* made = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "kv bulk tls");
        BIO_meth_set_write(made, bioWrite);
        BIO_meth_set_read(made, bioRead);
        BIO_meth_set_ctrl(made, bioControl);
        return made;
    }();
    return method;
}

}  // namespace

// What the socket brought and OpenSSL has not taken; -1 (try again) when
// that is nothing yet, 0 once the socket has ended.
int BulkTlsStream::State::take(char* into, int size) {
    const std::size_t have = inEnd - inBegin;
    if (have == 0) {
        return socketEnded ? 0 : -1;
    }
    const std::size_t count = std::min(have, static_cast<std::size_t>(size));
    std::memcpy(into, in.data() + inBegin, count);
    inBegin += count;
    return static_cast<int>(count);
}

void BulkTlsStream::State::post(Completion handler, const asio::error_code& error,
                                std::size_t size) {
    asio::post(socket.get_executor(), [handler = std::make_shared<Completion>(std::move(handler)),
                                       error, size] { (*handler)(error, size); });
}

void BulkTlsStream::State::tryHandshake() {
    const int result = SSL_do_handshake(ssl);
    const int error = result == 1 ? SSL_ERROR_NONE : SSL_get_error(ssl, result);
    flush();
    if (error == SSL_ERROR_WANT_READ) {
        readSocket();
        return;
    }
    auto handler = std::move(handshakeHandler);
    handshakeHandler = nullptr;
    const asio::error_code outcome = error == SSL_ERROR_NONE ? asio::error_code() : sslError();
    asio::post(socket.get_executor(), [handler, outcome] { handler(outcome); });
}

void BulkTlsStream::State::tryRead() {
    std::size_t got = 0;
    const int result = SSL_read_ex(ssl, readInto.data(), readInto.size(), &got);
    const int error = result == 1 ? SSL_ERROR_NONE : SSL_get_error(ssl, result);
    flush();  // what reading made OpenSSL send (an alert, a key update)
    if (error == SSL_ERROR_NONE) {
        finishRead({}, got);
    } else if (error == SSL_ERROR_WANT_READ && !socketEnded) {
        readSocket();
    } else if (error == SSL_ERROR_ZERO_RETURN || error == SSL_ERROR_WANT_READ ||
               (error == SSL_ERROR_SYSCALL && socketEnded)) {
        finishRead(asio::error::eof, 0);
    } else {
        finishRead(sslError(), 0);
    }
}

// Reads as much as the socket has into the room left (what OpenSSL took
// makes room first), then goes on with what waited for it.
void BulkTlsStream::State::readSocket() {
    if (socketReading) {
        return;
    }
    if (inBegin == inEnd) {
        inBegin = inEnd = 0;
    } else if (inBegin > 0) {
        std::memmove(in.data(), in.data() + inBegin, inEnd - inBegin);
        inEnd -= inBegin;
        inBegin = 0;
    }
    socketReading = true;
    socket.async_read_some(
        asio::buffer(in.data() + inEnd, in.size() - inEnd),
        [self = shared_from_this()](const asio::error_code& error, std::size_t size) {
            self->socketReading = false;
            self->inEnd += size;
            if (error == asio::error::eof) {
                self->socketEnded = true;
            } else if (error) {
                if (self->handshakeHandler) {
                    auto handler = std::move(self->handshakeHandler);
                    self->handshakeHandler = nullptr;
                    handler(error);
                } else if (self->readHandler) {
                    self->finishRead(error, 0);
                }
                return;
            }
            if (self->handshakeHandler) {
                self->tryHandshake();
            } else if (self->readHandler) {
                self->tryRead();
            }
        });
}

// Writes all the records made meanwhile at once, then what came after;
// the waiting write is done once nothing is left.
void BulkTlsStream::State::flush() {
    if (socketWriting) {
        return;
    }
    if (pendingOut.empty()) {
        if (writeHandler) {
            finishWrite({});
        }
        return;
    }
    socketWriting = true;
    writing.swap(pendingOut);
    pendingOut.clear();
    asio::async_write(socket, asio::buffer(writing),
                      [self = shared_from_this()](const asio::error_code& error, std::size_t) {
                          self->socketWriting = false;
                          self->writing.clear();
                          if (error) {
                              self->finishWrite(error);
                              return;
                          }
                          self->flush();
                      });
}

void BulkTlsStream::State::finishRead(const asio::error_code& error, std::size_t size) {
    if (readHandler) {
        post(std::move(readHandler), error, size);
    }
}

void BulkTlsStream::State::finishWrite(const asio::error_code& error) {
    if (writeHandler) {
        post(std::move(writeHandler), error, error ? 0 : writeSize);
    }
}

void BulkTlsStream::State::abort() {
    const asio::error_code aborted = asio::error::operation_aborted;
    finishRead(aborted, 0);
    finishWrite(aborted);
    if (handshakeHandler) {
        auto handler = std::move(handshakeHandler);
        handshakeHandler = nullptr;
        asio::post(socket.get_executor(), [handler, aborted] { handler(aborted); });
    }
}

void BulkTlsStream::cancel(asio::error_code& error) {
    m_state->socket.cancel(error);
    m_state->abort();
}

void BulkTlsStream::close(asio::error_code& error) {
    m_state->socket.close(error);
    m_state->abort();
}

BulkTlsStream::BulkTlsStream(asio::ip::tcp::socket socket, SSL* ssl)
    : m_state(std::make_shared<State>(std::move(socket), ssl)) {
    BIO* bio = BIO_new(bulkMethod());
    BIO_set_data(bio, m_state.get());
    BIO_set_init(bio, 1);
    SSL_set_bio(ssl, bio, bio);
}

BulkTlsStream::~BulkTlsStream() = default;

BulkTlsStream::executor_type BulkTlsStream::get_executor() {
    return m_state->socket.get_executor();
}

asio::ip::tcp::socket& BulkTlsStream::lowest_layer() { return m_state->socket; }

SSL* BulkTlsStream::native_handle() { return m_state->ssl; }

BulkTlsStream::BulkTlsStream(BulkTlsStream&& other) noexcept = default;

void BulkTlsStream::async_handshake(bool server,
                                    std::function<void(const asio::error_code&)> handler) {
    if (server) {
        SSL_set_accept_state(m_state->ssl);
    } else {
        SSL_set_connect_state(m_state->ssl);
    }
    m_state->handshakeHandler = std::move(handler);
    m_state->tryHandshake();
}

void BulkTlsStream::readSome(asio::mutable_buffer into, Completion handler) {
    m_state->readHandler = std::move(handler);
    m_state->readInto = into;
    if (into.size() == 0) {
        m_state->finishRead({}, 0);
        return;
    }
    m_state->tryRead();
}

void BulkTlsStream::writeSome(asio::const_buffer from, Completion handler) {
    m_state->writeHandler = std::move(handler);
    std::size_t written = 0;
    if (from.size() > 0 && SSL_write_ex(m_state->ssl, from.data(), from.size(), &written) != 1) {
        m_state->finishWrite(sslError());
        return;
    }
    m_state->writeSize = written;
    m_state->flush();
}

}  // namespace Accessory
}  // namespace Kv
