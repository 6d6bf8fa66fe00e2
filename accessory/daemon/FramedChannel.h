// One framed session over an Asio stream socket: reads frames into payloads
// for a handler and writes queued frames in priority order. Used for the
// sessions with applications (Unix socket) and for the device link (TCP).
//
// A session ends once, through close(): the socket is closed, the reason is
// logged and the close handler runs. A frame that breaks the wire format
// ends only the session it arrived on.
//
// The device link's session can be shaped (LinkShaper): frames then leave at
// the pace of the emulated link instead of at once. It can also be stalled:
// nothing is written or taken in until the stall ends.
#ifndef KV_ACCESSORYD_FRAMED_CHANNEL_H
#define KV_ACCESSORYD_FRAMED_CHANNEL_H

#include <Logger.h>
#include <kv-accessory/Codec.h>

#include "LinkShaper.h"
#include "ReadBudget.h"

#include <algorithm>
#include <array>
#include <asio.hpp>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Kv {
namespace Accessory {

// Write priorities: control messages first, then data by channel priority.
enum Priority { kPriorityControl = 0, kPriorityHigh = 1, kPriorityMedium = 2, kPriorityLow = 3 };
inline constexpr int kPriorityLevels = 4;

// A framed session whatever its transport (plain or TLS), as the device link
// uses it.
class FrameSession {
public:
    // The payload is a view into the session's read buffer, valid while the
    // handler runs.
    using PayloadHandler = std::function<void(std::string_view payload)>;
    using CloseHandler = std::function<void(const std::string& reason)>;

    // Called with the tag of each tagged frame once it is written.
    using WrittenHandler = std::function<void(std::uint64_t tag)>;

    virtual ~FrameSession() = default;
    virtual void start(PayloadHandler onPayload, CloseHandler onClose) = 0;
    // A frame's tag, when not 0, goes to the written handler once the frame
    // is written.
    virtual bool send(std::string frame, int priority, std::uint64_t tag) = 0;
    virtual bool sendMessage(const google::protobuf::MessageLite& message, int priority,
                             std::uint64_t tag) = 0;
    bool sendMessage(const google::protobuf::MessageLite& message, int priority) {
        return sendMessage(message, priority, 0);
    }
    virtual void onWritten(WrittenHandler handler) = 0;
    // Writes from now on at the pace of a link of this profile.
    virtual void shape(const LinkProfile& profile) = 0;
    // Writes and takes in nothing while stalled.
    virtual void stall(bool stalled) = 0;
    virtual void close(const std::string& reason) = 0;
    virtual bool closed() const = 0;
    virtual std::size_t queuedBytes() const = 0;
    // Calls `handler` once, when at most `bytes` are queued for writing (at
    // once when that is so already, or when the session closes).
    virtual void whenDrained(std::size_t bytes, std::function<void()> handler) = 0;
    // Stops taking in what the other end sends (its writes then wait), or
    // takes it in again. Pausing takes effect after what has arrived.
    virtual void pauseReading() = 0;
    virtual void resumeReading() = 0;
};

template <typename Socket>
class FramedChannel : public FrameSession,
                      public std::enable_shared_from_this<FramedChannel<Socket>> {
public:
    // `budget`, when given, bounds what all the sessions sharing it may hold
    // in partly received frames.
    FramedChannel(Socket socket, std::string name, std::size_t maxQueuedBytes,
                  std::shared_ptr<ReadBudget> budget = nullptr)
        : m_socket(std::move(socket)),
          m_name(std::move(name)),
          m_maxQueuedBytes(maxQueuedBytes),
          m_budget(std::move(budget)) {}

    // Starts reading; payloads and the end of the session go to the handlers.
    void start(PayloadHandler onPayload, CloseHandler onClose) override {
        m_onPayload = std::move(onPayload);
        m_onClose = std::move(onClose);
        readMore();
    }

    // Queues one frame. Returns false, queuing nothing, when the session is
    // closed or the queue already holds more than its bound.
    bool send(std::string frame, int priority = kPriorityControl, std::uint64_t tag = 0) override {
        if (m_closed || m_queuedBytes > m_maxQueuedBytes) {
            return false;
        }
        m_queuedBytes += frame.size();
        // Only a shaped link needs to know when a frame was handed over.
        const auto queuedAt = m_shaper ? LinkShaper::Clock::now() : LinkShaper::Clock::time_point{};
        m_queues[static_cast<std::size_t>(priority)].push_back({std::move(frame), tag, queuedAt});
        writeNext();
        return true;
    }

    // Encodes and queues a message; a message that can't be framed is logged
    // and dropped.
    bool sendMessage(const google::protobuf::MessageLite& message, int priority = kPriorityControl,
                     std::uint64_t tag = 0) override {
        try {
            return send(encodeFrame(message), priority, tag);
        } catch (const ProtocolError& error) {
            LoggerE(m_name << ": message not sent: " << error.what());
            return false;
        }
    }

    void onWritten(WrittenHandler handler) override { m_onWritten = std::move(handler); }

    void shape(const LinkProfile& profile) override {
        m_shaper = profile.shaped() ? std::make_unique<LinkShaper>(profile) : nullptr;
    }

    void stall(bool stalled) override {
        if (stalled == m_stalled || m_closed) {
            return;
        }
        m_stalled = stalled;
        if (stalled) {
            return;
        }
        m_resumedAt = LinkShaper::Clock::now();
        takePayloads();
        if (!m_closed && !m_paused && !m_reading) {
            readMore();
        }
        writeNext();
    }

    // Ends the session with a logged reason. Later calls do nothing.
    void close(const std::string& reason) override {
        if (m_closed) {
            return;
        }
        m_closed = true;
        LoggerI(m_name << ": session closed: " << reason);
        if (m_budget) {
            m_budget->update(m_held, 0);
            m_held = 0;
        }
        asio::error_code ignored;
        // The frame being written stays until the channel goes: the write may
        // still refer to it until its cancelled completion has run. A stalled
        // channel carries nothing, its end neither: its socket stays open
        // and silent until the channel goes, so that the other end finds the
        // silence itself, as it would over a link that went quiet.
        if (m_stalled) {
            m_socket.cancel(ignored);
        } else {
            m_socket.close(ignored);
        }
        m_shapeTimer.cancel();
        CloseHandler onClose = std::move(m_onClose);
        m_onClose = nullptr;
        m_onPayload = nullptr;
        if (onClose) {
            onClose(reason);
        }
        drained();
    }

    bool closed() const override { return m_closed; }
    std::size_t queuedBytes() const override { return m_queuedBytes; }

    void whenDrained(std::size_t bytes, std::function<void()> handler) override {
        if (m_closed || m_queuedBytes <= bytes) {
            handler();
            return;
        }
        m_drainWaiters.push_back({bytes, std::move(handler)});
    }

    void pauseReading() override { m_paused = true; }
    void resumeReading() override {
        m_paused = false;
        if (!m_reading && !m_closed && !m_stalled) {
            readMore();
        }
    }
    const std::string& name() const { return m_name; }
    Socket& socket() { return m_socket; }

private:
    // Reads straight into the decoder's buffer: a chunk, or the whole rest
    // of a large frame when the socket has it.
    void readMore() {
        m_reading = true;
        const std::size_t room = std::max(kReadChunk, m_decoder.missing());
        auto self = this->shared_from_this();
        m_socket.async_read_some(
            asio::buffer(m_decoder.prepare(room), room),
            [self](const asio::error_code& error, std::size_t size) { self->onRead(error, size); });
    }

    void onRead(const asio::error_code& error, std::size_t size) {
        m_reading = false;
        if (m_closed) {
            return;
        }
        if (error) {
            close(error == asio::error::eof ? "the other end closed" : error.message());
            return;
        }
        m_decoder.commit(size);
        if (m_stalled) {
            return;  // taken in when the stall ends
        }
        takePayloads();
        if (!m_closed && !m_paused) {
            readMore();
        }
    }

    // Hands the whole frames received to the payload handler.
    void takePayloads() {
        try {
            while (!m_closed) {
                std::optional<std::string_view> payload = m_decoder.next();
                if (!payload) {
                    break;
                }
                m_onPayload(*payload);
            }
            holdPartialFrame();
        } catch (const ProtocolError& protocolError) {
            close(std::string("protocol error: ") + protocolError.what());
        } catch (const std::exception& error) {
            close(std::string("internal error: ") + error.what());
        }
    }

    // Runs the drain handlers whose bound the queue is at or under now (all
    // of them once the session is closed).
    void drained() {
        std::vector<std::function<void()>> ready;
        for (auto waiter = m_drainWaiters.begin(); waiter != m_drainWaiters.end();) {
            if (m_closed || m_queuedBytes <= waiter->bytes) {
                ready.push_back(std::move(waiter->handler));
                waiter = m_drainWaiters.erase(waiter);
            } else {
                ++waiter;
            }
        }
        for (auto& handler : ready) {
            handler();
        }
    }

    // Accounts for the part of a frame that is still coming.
    void holdPartialFrame() {
        if (!m_budget || m_closed) {
            return;
        }
        const std::size_t held = m_decoder.buffered();
        if (!m_budget->update(m_held, held)) {
            close("it holds too much in partly sent frames (" + std::to_string(held) + " bytes, " +
                  std::to_string(m_budget->held()) + " held by all)");
            return;
        }
        m_held = held;
    }

    struct Frame {
        std::string bytes;
        std::uint64_t tag = 0;
        LinkShaper::Clock::time_point queuedAt{};
    };
    // A frame on the shaped link, with the time it reaches the other end.
    struct InFlight {
        Frame frame;
        LinkShaper::Clock::time_point arrival;
    };

    std::deque<Frame>* nextQueue() {
        for (auto& queue : m_queues) {
            if (!queue.empty()) {
                return &queue;
            }
        }
        return nullptr;
    }

    void writeNext() {
        if (m_writing || m_closed || m_stalled) {
            return;
        }
        if (m_shaper) {
            writeShaped();
            return;
        }
        std::deque<Frame>* queue = nextQueue();
        if (queue != nullptr) {
            write(std::move(queue->front()));
            queue->pop_front();
        }
    }

    // Frames go on the emulated link whenever it is free, and are written
    // out when they would reach the other end. A frame starts on the link as
    // soon as both it and the link were ready (not after a stall), however
    // late this writer runs: a busy processor delays the writes, not the
    // link's pace.
    void writeShaped() {
        const auto now = LinkShaper::Clock::now();
        while (m_shaper->freeAt() <= now) {
            std::deque<Frame>* queue = nextQueue();
            if (queue == nullptr) {
                break;
            }
            const auto ready = std::max(queue->front().queuedAt, m_resumedAt);
            const auto arrival = m_shaper->serialize(queue->front().bytes.size(), ready);
            m_inFlight.push_back({std::move(queue->front()), arrival});
            queue->pop_front();
        }
        if (!m_inFlight.empty() && m_inFlight.front().arrival <= now) {
            write(std::move(m_inFlight.front().frame));
            m_inFlight.pop_front();
            return;
        }
        std::optional<LinkShaper::Clock::time_point> wake;
        if (!m_inFlight.empty()) {
            wake = m_inFlight.front().arrival;
        }
        if (nextQueue() != nullptr && (!wake || m_shaper->freeAt() < *wake)) {
            wake = m_shaper->freeAt();
        }
        if (wake) {
            m_shapeTimer.expires_at(*wake);
            auto self = this->shared_from_this();
            m_shapeTimer.async_wait([self](const asio::error_code& error) {
                if (!error) {
                    self->writeNext();
                }
            });
        }
    }

    void write(Frame frame) {
        m_writing = true;
        m_current = std::move(frame);
        auto self = this->shared_from_this();
        asio::async_write(
            m_socket, asio::buffer(m_current.bytes),
            [self](const asio::error_code& error, std::size_t) { self->afterWrite(error); });
    }

    void afterWrite(const asio::error_code& error) {
        m_writing = false;
        if (m_closed) {
            return;
        }
        if (error) {
            close("write failed: " + error.message());
            return;
        }
        m_queuedBytes -= m_current.bytes.size();
        const std::uint64_t tag = m_current.tag;
        m_current.bytes.clear();
        writeNext();
        if (tag != 0 && m_onWritten) {
            m_onWritten(tag);
        }
        if (!m_drainWaiters.empty() && !m_closed) {
            drained();
        }
    }

    Socket m_socket;
    std::string m_name;
    std::size_t m_maxQueuedBytes;
    static constexpr std::size_t kReadChunk = std::size_t{64} * 1024;
    FrameDecoder m_decoder;
    std::array<std::deque<Frame>, kPriorityLevels> m_queues;
    Frame m_current;  // the frame being written
    std::unique_ptr<LinkShaper> m_shaper;
    std::deque<InFlight> m_inFlight;
    asio::steady_timer m_shapeTimer{m_socket.get_executor()};
    bool m_stalled = false;
    LinkShaper::Clock::time_point m_resumedAt{};  // when the last stall ended
    WrittenHandler m_onWritten;
    std::size_t m_queuedBytes = 0;
    std::shared_ptr<ReadBudget> m_budget;
    struct DrainWaiter {
        std::size_t bytes;
        std::function<void()> handler;
    };
    std::vector<DrainWaiter> m_drainWaiters;
    bool m_reading = false;
    bool m_paused = false;
    std::size_t m_held = 0;  // what this session holds of the budget
    bool m_writing = false;
    bool m_closed = false;
    PayloadHandler m_onPayload;
    CloseHandler m_onClose;
};

}  // namespace Accessory
}  // namespace Kv

#endif
