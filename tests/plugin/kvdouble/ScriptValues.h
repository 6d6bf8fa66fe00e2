// Reading and making the script values that the double's script object
// takes and answers. Every reader throws std::invalid_argument with a
// message naming the argument when the value is of the wrong kind.
#ifndef KV_TESTS_PLUGIN_SCRIPT_VALUES_H
#define KV_TESTS_PLUGIN_SCRIPT_VALUES_H

#include "KvpClientDouble.h"

#include <JavaScriptCore/JavaScript.h>

#include <string>
#include <vector>

namespace KvDoublePlugin {

// The arguments of one script call.
class Arguments {
public:
    Arguments(JSContextRef context, size_t count, const JSValueRef values[])
        : m_context(context), m_count(count), m_values(values) {}

    JSContextRef context() const { return m_context; }
    size_t count() const { return m_count; }
    double number(size_t index) const;
    int integer(size_t index) const { return static_cast<int>(number(index)); }
    unsigned int unsignedInteger(size_t index) const {
        return static_cast<unsigned int>(number(index));
    }
    std::string text(size_t index) const;
    // A peer record from {peerAgentId, accessoryId, peerId, appName, profileId,
    // profileVersion, deviceName}; missing texts are empty, missing numbers 0.
    KvpDouble::Peer peer(size_t index) const;
    // True when the argument is script null (a null peer).
    bool isNull(size_t index) const;
    // A peer accessory record from {transportType, maxAllowedDataSize,
    // deviceAddress, productId, vendorId}.
    kvp_peer_accessory_t accessory(size_t index) const;

private:
    JSValueRef at(size_t index) const;
    JSObjectRef object(size_t index) const;

    JSContextRef m_context;
    size_t m_count;
    const JSValueRef* m_values;
};

JSValueRef makeString(JSContextRef context, const std::string& text);
// A script array of {function, args} objects, one per recorded call.
JSValueRef makeCallList(JSContextRef context, const std::vector<KvpDouble::Call>& calls);
// A script Error whose message is `message`.
JSValueRef makeError(JSContextRef context, const std::string& message);

}  // namespace KvDoublePlugin

#endif
