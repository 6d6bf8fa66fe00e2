// The client library's one session with its device's accessory service.
//
// Requests are synchronous: the request goes out and the call waits (up to a
// bound) for its reply. Events that arrive meanwhile, or later on the ecore
// fd handler of the socket, are queued and delivered one at a time on the
// main loop, never inside the request call that caused them.
//
// Some answers of the app take effect only once the main loop has run the idle
// work that the app posted while it handled an event: the plug-in confirms a
// registration to its agent, and hands an accepted connection to the script,
// from idle callbacks. So after it delivers a registration confirmation, and
// after the app accepts a connection, the library holds every further event
// until the main loop has gone idle twice: once to run the work the app
// posted, once more to be sure that all of it ran. A connection request to a
// just-registered agent, and data sent at once on a just-accepted connection,
// thus find the agent registered and the script's listeners set.
//
// A detach that the service reports is confirmed to it once the app has been
// told (the service writes the link key, which the app's plug-in also
// watches, only then: so the app hears the failures of its pending requests
// while it still knows its agents).
//
// When the daemon goes away, the device is reported detached (which ends
// every connection of the app); the library then reconnects with a growing
// pause and reports the device attached again when the service it finds is
// linked. A request made meanwhile tries to reach the service at once: an app
// that hears of a new service (through the link key) can use it before the
// next try is due.
#ifndef KVP_CLIENT_SERVICE_CLIENT_H
#define KVP_CLIENT_SERVICE_CLIENT_H

#include <Ecore.h>

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "DaemonConnection.h"
#include "EventDispatcher.h"

namespace Kv {
namespace Accessory {

class ServiceClient {
public:
    // The process's client, made on first use and kept until the process ends.
    static ServiceClient& instance();

    // Sends a request and returns its reply, or nothing when the service
    // can't be reached or does not answer in time.
    std::optional<wire::Reply> call(wire::Request request);

    // Takes in what the service sent since this last looked, without
    // waiting, once the sends posted since then come to a few kilobytes: an
    // app that sends in a burst, without going back to its loop, still
    // learns soon that a channel has filled up.
    void takeArrived();
    // Whether data of `length` bytes on this connection and channel will
    // surely be taken: the connection is open, the channel is one of its
    // agent's and its queue is not full, the data fits the link and, for
    // secure data, the link is secure. Such a send need not wait for the
    // service's answer.
    bool canSendWithoutWaiting(std::uint32_t connectionId, std::uint32_t channelId,
                               std::size_t length, bool secure) const;
    // Sends a request whose answer nobody waits for (the service sends none).
    // When the service's queue for the link is full, the service stops
    // reading and this waits for room. False when the service is lost.
    bool post(wire::Request request);
    // The same for a send_data request without its data, with `data` as it
    // (copied once, straight into the frame).
    bool post(wire::Request request, std::string_view data);

    // The app accepted the connection indicated to it: it is open now.
    void connectionAccepted(std::uint32_t connectionId);
    // The app ended the connection: its sends wait for the service's verdict.
    void connectionEnded(std::uint32_t connectionId);

    // Whether the service is reachable and linked with the paired device.
    bool attached();

    EventDispatcher& dispatcher() { return m_dispatcher; }

    // Holds the events not yet delivered until the idle work that the app
    // posts in this main-loop turn has run (see above).
    void holdUntilIdleWorkRan();

private:
    ServiceClient();

    bool ensureConnected();
    void connect(bool announce);
    void lose(const std::string& reason);
    void scheduleReconnect();
    // Takes in what has arrived, at least `enough` bytes of it when there
    // is that much.
    void takeMessages(std::size_t enough);
    // Queues the messages decoded already; throws ProtocolError.
    void takeDecoded();
    void accept(wire::ServiceMessage message, std::uint32_t awaited,
                std::optional<wire::Reply>& reply);
    void observe(const wire::Event& event);
    // Tells the app's log that the link it uses is not secure.
    static void warnInsecure();
    void queue(wire::Event event);
    static bool isDetach(const wire::Event& event);
    void confirmDetach();
    void scheduleDispatch();
    void dispatchPending();

    static Eina_Bool onReadable(void* data, Ecore_Fd_Handler* handler);
    static Eina_Bool onReconnect(void* data);
    static Eina_Bool onIdle(void* data);
    static Eina_Bool onHoldIdle(void* data);

    std::unique_ptr<DaemonConnection> m_connection;
    Ecore_Fd_Handler* m_fdHandler = nullptr;
    Ecore_Timer* m_reconnectTimer = nullptr;
    Ecore_Idler* m_idler = nullptr;
    Ecore_Idler* m_holdIdler = nullptr;
    // 0: events flow; 1: held, waiting for the first idle turn; 2: held,
    // waiting for the second.
    int m_holdStage = 0;
    double m_backoff;
    EventDispatcher m_dispatcher;
    std::deque<wire::Event> m_pending;
    // The open connections and those indicated to the app, with the channel
    // ids of each (what canSendWithoutWaiting knows).
    std::map<std::uint32_t, std::vector<std::uint32_t>> m_openConnections;
    std::map<std::uint32_t, std::vector<std::uint32_t>> m_indicatedConnections;
    // The channels whose queue the service reported full, until it reports
    // room (connection id, channel id).
    std::set<std::pair<std::uint32_t, std::uint32_t>> m_fullChannels;
    std::size_t m_maxDataSize = kMaxDataSize;
    bool m_secure = false;
    std::uint32_t m_nextSerial = 1;
    wire::DeviceType m_deviceType = wire::DEVICE_TYPE_WIFI;
    bool m_attached = false;
    bool m_dispatching = false;
    // The bytes of sends posted since the service's news were last taken in.
    std::size_t m_postedSinceLook = 0;
};

}  // namespace Accessory
}  // namespace Kv

#endif
