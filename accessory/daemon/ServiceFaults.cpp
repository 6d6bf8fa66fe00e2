// Faults of the link made on demand (kv-accessory drop, stall, detach): at
// once, or when a trigger fires, so that a failure can be reproduced at an
// exact point of a transfer or a conversation. A trigger counts what passes
// through this daemon either way: the bytes of the next file transfer, or
// the messages on one channel.
#include <Logger.h>

#include <algorithm>

#include "Service.h"

namespace Kv {
namespace Accessory {

namespace {

const char* actionName(wire::LinkFault::Action action) {
    switch (action) {
        case wire::LinkFault::DROP:
            return "drop";
        case wire::LinkFault::STALL:
            return "stall";
        case wire::LinkFault::DETACH:
            return "detach";
        case wire::LinkFault::DISARM:
            return "disarm";
        default:
            return "unknown fault";
    }
}

}  // namespace

wire::Reply Service::linkFault(const wire::LinkFault& fault) {
    if (m_link == nullptr || !wire::LinkFault::Action_IsValid(fault.action())) {
        return resultReply(wire::RESULT_INVALID);
    }
    if (fault.action() == wire::LinkFault::DISARM) {
        LoggerI("fault: " << m_pendingFaults.size() << " armed faults forgotten");
        m_pendingFaults.clear();
        return resultReply(wire::RESULT_SUCCESS);
    }
    switch (fault.trigger_case()) {
        case wire::LinkFault::kAfterFileBytes:
            m_pendingFaults.push_back({fault, fault.after_file_bytes(), 0});
            LoggerI("fault: " << actionName(fault.action()) << " after " << fault.after_file_bytes()
                              << " bytes of the next file transfer");
            break;
        case wire::LinkFault::kAfterMessages:
            m_pendingFaults.push_back(
                {fault, std::max<std::uint64_t>(fault.after_messages(), 1), 0});
            LoggerI("fault: " << actionName(fault.action()) << " after " << fault.after_messages()
                              << " messages on channel " << fault.channel_id());
            break;
        default:
            applyFault(fault);
            break;
    }
    return resultReply(wire::RESULT_SUCCESS);
}

void Service::applyFault(const wire::LinkFault& fault) {
    LoggerI("fault: " << actionName(fault.action()) << " now");
    if (m_trace.active()) {
        traceLink(wire::TraceEvent::LINK_FAULT, actionName(fault.action()), fault.stall_ms());
    }
    switch (fault.action()) {
        case wire::LinkFault::DROP:
            m_link->drop("a drop was asked for");
            break;
        case wire::LinkFault::STALL:
            m_link->stall(std::chrono::milliseconds(fault.stall_ms()));
            break;
        case wire::LinkFault::DETACH:
            m_link->setEnabled(false);
            break;
        default:
            break;
    }
}

bool Service::countFileBytes(int transactionId, std::uint64_t bytes) {
    for (std::size_t i = 0; i < m_pendingFaults.size(); ++i) {
        PendingFault& pending = m_pendingFaults[i];
        if (!pending.fault.has_after_file_bytes()) {
            continue;
        }
        if (pending.transfer == 0) {
            pending.transfer = transactionId;
        }
        if (pending.transfer != transactionId) {
            continue;
        }
        if (bytes >= pending.remaining) {
            fireFault(i);
            return true;
        }
        pending.remaining -= bytes;
    }
    return false;
}

void Service::countMessage(std::uint32_t channelId) {
    for (std::size_t i = 0; i < m_pendingFaults.size(); ++i) {
        PendingFault& pending = m_pendingFaults[i];
        if (!pending.fault.has_after_messages() || pending.fault.channel_id() != channelId) {
            continue;
        }
        if (--pending.remaining == 0) {
            fireFault(i);
            return;
        }
    }
}

// The fault runs after the handler that counted it, which may still be
// walking the transfers or connections that the fault ends.
void Service::fireFault(std::size_t index) {
    const wire::LinkFault fault = m_pendingFaults[index].fault;
    m_pendingFaults.erase(m_pendingFaults.begin() + static_cast<std::ptrdiff_t>(index));
    asio::post(m_io, [this, fault] { applyFault(fault); });
}

}  // namespace Accessory
}  // namespace Kv
