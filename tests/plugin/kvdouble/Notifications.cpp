#include "Notifications.h"

#include <functional>
#include <map>
#include <optional>
#include <stdexcept>

namespace KvDoublePlugin {

namespace {

// The arguments of one notification, counted from its first.
class Parameters {
public:
    Parameters(const Arguments& arguments, size_t first) : m_arguments(arguments), m_first(first) {}

    int integer(size_t index) const { return m_arguments.integer(m_first + index); }
    unsigned int id(size_t index) const { return m_arguments.unsignedInteger(m_first + index); }
    std::string text(size_t index) const { return m_arguments.text(m_first + index); }
    // The peer record at `index`, or nothing for script null.
    std::optional<KvpDouble::Peer> peer(size_t index) const {
        if (m_arguments.isNull(m_first + index)) {
            return std::nullopt;
        }
        return m_arguments.peer(m_first + index);
    }

private:
    const Arguments& m_arguments;
    size_t m_first;
};

const kvp_peer_agent_t* recordOf(const std::optional<KvpDouble::Peer>& peer) {
    return peer ? peer->get() : nullptr;
}

template <class Callback>
Callback registered(Callback callback, const std::string& name) {
    if (callback == nullptr) {
        throw std::invalid_argument(name + " is not registered");
    }
    return callback;
}

typedef std::function<void(const Parameters&)> Delivery;

#define KV_SERVICE(name) registered(KvpDouble::notifications().name, #name)
#define KV_FILE_TRANSFER(name) registered(KvpDouble::ftNotifications().name, #name)

const std::map<std::string, Delivery>& deliveries() {
    static const std::map<std::string, Delivery> table = {
        {"onRegisterServiceAgentConfirm",
         [](const Parameters& p) {
             KV_SERVICE(onRegisterServiceAgentConfirm)(p.integer(0), p.id(1));
         }},
        {"onDataIndication",
         [](const Parameters& p) {
             const std::string data = p.text(2);
             KV_SERVICE(onDataIndication)
             (p.id(0), static_cast<unsigned short>(p.id(1)), static_cast<unsigned>(data.size()),
              data.data());
         }},
        {"onServiceConnectionIndication",
         [](const Parameters& p) {
             const auto peer = p.peer(2);
             KV_SERVICE(onServiceConnectionIndication)(p.id(0), p.id(1), recordOf(peer));
         }},
        {"onServiceTerminationIndication",
         [](const Parameters& p) {
             KV_SERVICE(onServiceTerminationIndication)(p.id(0), p.integer(1));
         }},
        {"onServiceCreateConfirm",
         [](const Parameters& p) {
             const auto peer = p.peer(2);
             KV_SERVICE(onServiceCreateConfirm)(p.id(0), p.id(1), recordOf(peer), p.integer(3));
         }},
        {"onPeerAgent",
         [](const Parameters& p) {
             const auto peer = p.peer(1);
             KV_SERVICE(onPeerAgent)(p.id(0), recordOf(peer), p.integer(2));
         }},
        {"onSpaceAvailable",
         [](const Parameters& p) {
             KV_SERVICE(onSpaceAvailable)(p.id(0), static_cast<unsigned short>(p.id(1)));
         }},
        {"onError",
         [](const Parameters& p) {
             KV_SERVICE(onError)
             (p.id(0), p.integer(1));
         }},
        {"onDeregisterServiceAgentConfirm",
         [](const Parameters& p) {
             KV_SERVICE(onDeregisterServiceAgentConfirm)(p.integer(0), p.id(1));
         }},
        {"onDeviceStatus",
         [](const Parameters& p) {
             KV_SERVICE(onDeviceStatus)
             (p.integer(0), p.integer(1));
         }},
        {"onPeerAgentIndication",
         [](const Parameters& p) {
             const auto peer = p.peer(1);
             KV_SERVICE(onPeerAgentIndication)(p.id(0), recordOf(peer), p.integer(2));
         }},
        {"onAuthenticateIndication",
         [](const Parameters& p) {
             const auto peer = p.peer(1);
             const std::string token = p.text(2);
             KV_SERVICE(onAuthenticateIndication)
             (p.id(0), recordOf(peer), token.c_str(), p.integer(3));
         }},
        {"onSendFile",
         [](const Parameters& p) {
             const std::string fileName = p.text(1);
             KV_FILE_TRANSFER(onSendFile)(p.integer(0), fileName.c_str(), p.id(2));
         }},
        {"onSendComplete",
         [](const Parameters& p) {
             const std::string path = p.text(1);
             KV_FILE_TRANSFER(onSendComplete)(p.integer(0), path.c_str(), p.integer(2));
         }},
        {"onReceiveComplete",
         [](const Parameters& p) {
             const std::string path = p.text(1);
             KV_FILE_TRANSFER(onReceiveComplete)(p.integer(0), path.c_str(), p.integer(2));
         }},
        {"onFileProgress",
         [](const Parameters& p) {
             KV_FILE_TRANSFER(onFileProgress)
             (p.integer(0), p.integer(1));
         }},
    };
    return table;
}

#undef KV_SERVICE
#undef KV_FILE_TRANSFER

}  // namespace

void deliver(const std::string& name, const Arguments& arguments, size_t first) {
    const auto found = deliveries().find(name);
    if (found == deliveries().end()) {
        throw std::invalid_argument("no notification named " + name);
    }
    found->second(Parameters(arguments, first));
}

}  // namespace KvDoublePlugin
