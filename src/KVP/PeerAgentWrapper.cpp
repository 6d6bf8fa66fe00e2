#include "PeerAgentWrapper.h"

#include <Logger.h>

#include <cstring>

namespace DeviceAPI {
namespace KVP {

namespace {

char* copyText(const char* text) {
    char* buffer = new char[PeerAgentWrapper::TEXT_BUFFER_SIZE];
    std::strncpy(buffer, text != nullptr ? text : "", PeerAgentWrapper::TEXT_BUFFER_SIZE - 1);
    buffer[PeerAgentWrapper::TEXT_BUFFER_SIZE - 1] = '\0';
    return buffer;
}

}  // namespace

PeerAgentWrapper::PeerAgentWrapper(const kvp_peer_agent_t* record, bool adopt) {
    if (record == nullptr) {
        LoggerE("Wrong param");
        return;
    }
    m_record = adopt ? const_cast<kvp_peer_agent_t*>(record) : duplicate(record);
}

PeerAgentWrapper::~PeerAgentWrapper() { release(m_record); }

kvp_peer_agent_t* PeerAgentWrapper::duplicate(const kvp_peer_agent_t* record) {
    if (record == nullptr) {
        LoggerE("Wrong param");
        return nullptr;
    }
    auto* copy = new kvp_peer_agent_t;
    copy->peerAgentId = record->peerAgentId;
    copy->accessoryId = record->accessoryId;
    copy->peerId = copyText(record->peerId);
    copy->appName = copyText(record->appName);
    copy->profileId = copyText(record->profileId);
    copy->profileVersion = copyText(record->profileVersion);
    copy->deviceName = copyText(record->deviceName);
    return copy;
}

void PeerAgentWrapper::release(kvp_peer_agent_t* record) {
    if (record == nullptr) {
        return;
    }
    for (char* text : {record->peerId, record->appName, record->profileId, record->profileVersion,
                       record->deviceName}) {
        delete[] text;
    }
    delete record;
}

}  // namespace KVP
}  // namespace DeviceAPI
