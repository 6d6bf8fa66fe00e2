// Holds a peer-agent record of the client library: either one it adopts (made
// by duplicate(), released with it) or its own copy. Wrappers key the
// bridge's map of known peer agents.
#ifndef KVP_PEER_AGENT_WRAPPER_H
#define KVP_PEER_AGENT_WRAPPER_H

#include <dpl/shared_ptr.h>
#include <kvp-client-stub-api.h>

namespace DeviceAPI {
namespace KVP {

class PeerAgentWrapper {
public:
    // Size of each text buffer of a duplicated record, terminator included.
    static const unsigned TEXT_BUFFER_SIZE = 256;

    // A null record logs "Wrong param" and leaves the wrapper empty. With
    // `adopt` the wrapper takes the record, which must come from duplicate();
    // otherwise it keeps a duplicate of it.
    PeerAgentWrapper(const kvp_peer_agent_t* record, bool adopt);
    ~PeerAgentWrapper();
    PeerAgentWrapper(const PeerAgentWrapper&) = delete;
    PeerAgentWrapper& operator=(const PeerAgentWrapper&) = delete;

    // The record, or null for an empty wrapper.
    const kvp_peer_agent_t* getPeerAgent() const { return m_record; }

    // A new record of the same shape: both numbers copied, each text copied
    // into a fresh buffer of TEXT_BUFFER_SIZE bytes (at most 255 characters,
    // always terminated; a null text becomes ""). Null in: "Wrong param", null out.
    static kvp_peer_agent_t* duplicate(const kvp_peer_agent_t* record);
    // Frees a record made by duplicate().
    static void release(kvp_peer_agent_t* record);

private:
    kvp_peer_agent_t* m_record = nullptr;
};

typedef DPL::SharedPtr<PeerAgentWrapper> PeerAgentWrapperPtr;

}  // namespace KVP
}  // namespace DeviceAPI

#endif
