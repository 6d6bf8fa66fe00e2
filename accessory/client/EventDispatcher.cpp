#include "EventDispatcher.h"

#include <Logger.h>

#include <cstring>

namespace Kv {
namespace Accessory {

namespace {

std::string text(const char* value) { return value != nullptr ? value : ""; }

}  // namespace

PeerRecordHolder::PeerRecordHolder(const wire::PeerAgent& peer) : m_peer(peer) {
    m_record.peerAgentId = m_peer.peer_agent_id();
    m_record.accessoryId = m_peer.accessory_id();
    m_record.peerId = m_peer.mutable_peer_id()->data();
    m_record.appName = m_peer.mutable_app_name()->data();
    m_record.profileId = m_peer.mutable_profile_id()->data();
    m_record.profileVersion = m_peer.mutable_profile_version()->data();
    m_record.deviceName = m_peer.mutable_device_name()->data();
}

wire::PeerAgent toWirePeer(const kvp_peer_agent_t& peer) {
    wire::PeerAgent record;
    record.set_peer_agent_id(peer.peerAgentId);
    record.set_accessory_id(peer.accessoryId);
    record.set_peer_id(text(peer.peerId));
    record.set_app_name(text(peer.appName));
    record.set_profile_id(text(peer.profileId));
    record.set_profile_version(text(peer.profileVersion));
    record.set_device_name(text(peer.deviceName));
    return record;
}

EventDispatcher::EventDispatcher() { clear(); }

void EventDispatcher::clear() {
    std::memset(&m_service, 0, sizeof(m_service));
    std::memset(&m_files, 0, sizeof(m_files));
}

void EventDispatcher::deliver(const wire::Event& event) const {
    using Body = wire::Event;
    switch (event.body_case()) {
        case Body::kRegisterConfirm:
            if (m_service.onRegisterServiceAgentConfirm != nullptr) {
                m_service.onRegisterServiceAgentConfirm(event.register_confirm().result(),
                                                        event.register_confirm().agent_id());
            }
            return;
        case Body::kDeregisterConfirm:
            if (m_service.onDeregisterServiceAgentConfirm != nullptr) {
                m_service.onDeregisterServiceAgentConfirm(event.deregister_confirm().result(),
                                                          event.deregister_confirm().agent_id());
            }
            return;
        case Body::kDeviceStatus:
            if (m_service.onDeviceStatus != nullptr) {
                m_service.onDeviceStatus(event.device_status().device_type(),
                                         event.device_status().status());
            }
            return;
        case Body::kPeerFound:
        case Body::kPeerChanged:
        case Body::kAuthenticated:
            return deliverPeer(event);
        case Body::kFileOffered:
        case Body::kFileDone:
        case Body::kFileProgress:
            return deliverFile(event);
        case Body::kChannelFull:
            return;  // the client's own business (canSendWithoutWaiting)
        case Body::kChannelRoom:
            if (event.channel_room().refused() && m_service.onSpaceAvailable != nullptr) {
                m_service.onSpaceAvailable(
                    event.channel_room().connection_id(),
                    static_cast<unsigned short>(event.channel_room().channel_id()));
            }
            return;
        case Body::kServiceError:
            LoggerW("the accessory service reports error "
                    << event.service_error().code() << " for " << event.service_error().value());
            if (m_service.onError != nullptr) {
                m_service.onError(event.service_error().value(), event.service_error().code());
            }
            return;
        default:
            return deliverConnection(event);
    }
}

void EventDispatcher::deliverConnection(const wire::Event& event) const {
    if (event.has_connection_requested() && m_service.onServiceConnectionIndication != nullptr) {
        const auto& indication = event.connection_requested();
        PeerRecordHolder peer(indication.peer());
        m_service.onServiceConnectionIndication(indication.agent_id(), indication.connection_id(),
                                                peer.get());
    } else if (event.has_create_confirm() && m_service.onServiceCreateConfirm != nullptr) {
        const auto& confirm = event.create_confirm();
        PeerRecordHolder peer(confirm.peer());
        m_service.onServiceCreateConfirm(confirm.agent_id(), confirm.connection_id(), peer.get(),
                                         confirm.status());
    } else if (event.has_terminated() && m_service.onServiceTerminationIndication != nullptr) {
        m_service.onServiceTerminationIndication(event.terminated().connection_id(),
                                                 event.terminated().reason());
    } else if (event.has_data() && m_service.onDataIndication != nullptr) {
        const auto& data = event.data();
        m_service.onDataIndication(
            data.connection_id(), static_cast<unsigned short>(data.channel_id()),
            static_cast<unsigned int>(data.data().size()), data.data().data());
    }
}

void EventDispatcher::deliverPeer(const wire::Event& event) const {
    if (event.has_peer_found() && m_service.onPeerAgent != nullptr) {
        const auto& found = event.peer_found();
        // A search's end and its failures carry no record.
        PeerRecordHolder peer(found.peer());
        m_service.onPeerAgent(found.agent_id(), found.has_peer() ? peer.get() : nullptr,
                              found.status());
    } else if (event.has_peer_changed() && m_service.onPeerAgentIndication != nullptr) {
        const auto& changed = event.peer_changed();
        PeerRecordHolder peer(changed.peer());
        m_service.onPeerAgentIndication(changed.agent_id(), peer.get(), changed.status());
    } else if (event.has_authenticated() && m_service.onAuthenticateIndication != nullptr) {
        const auto& answer = event.authenticated();
        PeerRecordHolder peer(answer.peer());
        m_service.onAuthenticateIndication(answer.agent_id(), peer.get(),
                                           answer.has_token() ? answer.token().c_str() : nullptr,
                                           answer.status());
    }
}

void EventDispatcher::deliverFile(const wire::Event& event) const {
    if (event.has_file_offered() && m_files.onSendFile != nullptr) {
        const auto& offer = event.file_offered();
        m_files.onSendFile(offer.transaction_id(), offer.file_name().c_str(), offer.agent_id());
    } else if (event.has_file_progress() && m_files.onFileProgress != nullptr) {
        m_files.onFileProgress(event.file_progress().transaction_id(),
                               event.file_progress().progress());
    } else if (event.has_file_done()) {
        const auto& done = event.file_done();
        const auto callback = done.sending() ? m_files.onSendComplete : m_files.onReceiveComplete;
        if (callback != nullptr) {
            callback(done.transaction_id(), done.path().c_str(), done.status());
        }
    }
}

}  // namespace Accessory
}  // namespace Kv
