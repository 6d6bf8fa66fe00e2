// A TLS stream over the link's TCP socket that moves ciphertext in bulk.
// OpenSSL reads records from, and writes them to, buffers of this object (a
// BIO of its own), not the socket: a send of a 1 MiB frame becomes its 64
// records in one buffer and one write, and a read takes all the socket has
// at once, where a stream that hands OpenSSL the socket record by record
// makes a system call and a wait for each 16 KiB.
//
// It is an Asio stream for FramedChannel and asio::async_write: one read and
// one write may be under way at a time, both on the socket's one thread. Its
// handlers run through the socket's executor, never inside the call that
// started them. The handshake runs the same way before either.
#ifndef KV_ACCESSORYD_BULK_TLS_STREAM_H
#define KV_ACCESSORYD_BULK_TLS_STREAM_H

#include <openssl/ssl.h>

#include <asio.hpp>
#include <functional>
#include <memory>
#include <string>

namespace Kv {
namespace Accessory {

class BulkTlsStream {
public:
    using executor_type = asio::ip::tcp::socket::executor_type;
    using lowest_layer_type = asio::ip::tcp::socket;

    // A completion handler that need not be copyable (Asio's composed
    // operations are not), called once.
    class Completion {
    public:
        Completion() = default;
        template <typename Handler>
        explicit Completion(Handler handler)
            : m_call(std::make_unique<Holder<Handler>>(std::move(handler))) {}
        explicit operator bool() const { return m_call != nullptr; }
        void operator()(const asio::error_code& error, std::size_t size) {
            std::unique_ptr<Base> call = std::move(m_call);
            call->invoke(error, size);
        }

    private:
        struct Base {
            virtual ~Base() = default;
            virtual void invoke(const asio::error_code& error, std::size_t size) = 0;
        };
        template <typename Handler>
        struct Holder : Base {
            explicit Holder(Handler handler) : handler(std::move(handler)) {}
            void invoke(const asio::error_code& error, std::size_t size) override {
                handler(error, size);
            }
            Handler handler;
        };
        std::unique_ptr<Base> m_call;
    };

    // The buffers and the progress of a stream, apart from the object.
    struct State;

    // Takes over `ssl` (a new session of the link's context).
    BulkTlsStream(asio::ip::tcp::socket socket, SSL* ssl);
    ~BulkTlsStream();
    // Moved only while no operation is under way (after the handshake).
    BulkTlsStream(BulkTlsStream&& other) noexcept;
    BulkTlsStream& operator=(BulkTlsStream&&) = delete;
    BulkTlsStream(const BulkTlsStream&) = delete;
    BulkTlsStream& operator=(const BulkTlsStream&) = delete;

    executor_type get_executor();
    asio::ip::tcp::socket& lowest_layer();
    SSL* native_handle();

    void async_handshake(bool server, std::function<void(const asio::error_code&)> handler);

    // Cancel or close the socket. As with Asio's own streams, the handlers
    // of the operations under way are then called with operation_aborted:
    // they leave the stream for the executor's queue at once, so a handler
    // that owns whatever owns the stream does not keep both alive when the
    // queue is dropped without running.
    void cancel(asio::error_code& error);
    void close(asio::error_code& error);

    template <typename Buffers, typename Token>
    void async_read_some(const Buffers& buffers, Token&& token) {
        const asio::mutable_buffer first = *asio::buffer_sequence_begin(buffers);
        readSome(first, Completion(std::forward<Token>(token)));
    }

    template <typename Buffers, typename Token>
    void async_write_some(const Buffers& buffers, Token&& token) {
        const asio::const_buffer first = *asio::buffer_sequence_begin(buffers);
        writeSome(first, Completion(std::forward<Token>(token)));
    }

private:
    void readSome(asio::mutable_buffer into, Completion handler);
    void writeSome(asio::const_buffer from, Completion handler);

    // Kept apart from the object, which Asio's operations refer to by it, so
    // that the object can move and its BIO keep finding its buffers.
    std::shared_ptr<State> m_state;
};

}  // namespace Accessory
}  // namespace Kv

#endif
