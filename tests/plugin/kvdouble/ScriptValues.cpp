#include "ScriptValues.h"

#include <cmath>
#include <cstring>
#include <stdexcept>

namespace KvDoublePlugin {

namespace {

struct JSString {
    explicit JSString(const std::string& text) : ref(JSStringCreateWithUTF8CString(text.c_str())) {}
    ~JSString() { JSStringRelease(ref); }
    JSString(const JSString&) = delete;
    JSString& operator=(const JSString&) = delete;
    JSStringRef ref;
};

std::string textOf(JSContextRef context, JSValueRef value) {
    JSStringRef string = JSValueToStringCopy(context, value, nullptr);
    if (string == nullptr) {
        throw std::invalid_argument("a value cannot be read as text");
    }
    std::vector<char> buffer(JSStringGetMaximumUTF8CStringSize(string));
    JSStringGetUTF8CString(string, buffer.data(), buffer.size());
    JSStringRelease(string);
    return buffer.data();
}

JSValueRef property(JSContextRef context, JSObjectRef object, const char* name) {
    JSString key(name);
    return JSObjectGetProperty(context, object, key.ref, nullptr);
}

bool present(JSContextRef context, JSValueRef value) {
    return value != nullptr && !JSValueIsUndefined(context, value) &&
           !JSValueIsNull(context, value);
}

std::string textProperty(JSContextRef context, JSObjectRef object, const char* name) {
    JSValueRef value = property(context, object, name);
    return present(context, value) ? textOf(context, value) : std::string();
}

double numberProperty(JSContextRef context, JSObjectRef object, const char* name) {
    JSValueRef value = property(context, object, name);
    return present(context, value) ? JSValueToNumber(context, value, nullptr) : 0.0;
}

void copyText(char (&target)[KVP_PATH_BUFFER_SIZE], const std::string& text) {
    std::strncpy(target, text.c_str(), KVP_PATH_BUFFER_SIZE - 1);
    target[KVP_PATH_BUFFER_SIZE - 1] = '\0';
}

void setProperty(JSContextRef context, JSObjectRef object, const char* name, JSValueRef value) {
    JSString key(name);
    JSObjectSetProperty(context, object, key.ref, value, kJSPropertyAttributeNone, nullptr);
}

}  // namespace

JSValueRef Arguments::at(size_t index) const {
    if (index >= m_count) {
        throw std::invalid_argument("argument " + std::to_string(index + 1) + " is missing");
    }
    return m_values[index];
}

JSObjectRef Arguments::object(size_t index) const {
    JSValueRef value = at(index);
    if (!JSValueIsObject(m_context, value)) {
        throw std::invalid_argument("argument " + std::to_string(index + 1) + " must be an object");
    }
    return JSValueToObject(m_context, value, nullptr);
}

double Arguments::number(size_t index) const {
    const double value = JSValueToNumber(m_context, at(index), nullptr);
    if (std::isnan(value)) {
        throw std::invalid_argument("argument " + std::to_string(index + 1) + " must be a number");
    }
    return value;
}

std::string Arguments::text(size_t index) const { return textOf(m_context, at(index)); }

bool Arguments::isNull(size_t index) const { return JSValueIsNull(m_context, at(index)); }

KvpDouble::Peer Arguments::peer(size_t index) const {
    JSObjectRef peer = object(index);
    return KvpDouble::Peer(
        static_cast<unsigned>(numberProperty(m_context, peer, "peerAgentId")),
        textProperty(m_context, peer, "peerId"), textProperty(m_context, peer, "profileId"),
        textProperty(m_context, peer, "appName"), textProperty(m_context, peer, "profileVersion"),
        textProperty(m_context, peer, "deviceName"),
        static_cast<unsigned>(numberProperty(m_context, peer, "accessoryId")));
}

kvp_peer_accessory_t Arguments::accessory(size_t index) const {
    JSObjectRef source = object(index);
    kvp_peer_accessory_t accessory{};
    accessory.transportType = static_cast<int>(numberProperty(m_context, source, "transportType"));
    accessory.maxAllowedDataSize =
        static_cast<unsigned>(numberProperty(m_context, source, "maxAllowedDataSize"));
    copyText(accessory.deviceAddress, textProperty(m_context, source, "deviceAddress"));
    copyText(accessory.productId, textProperty(m_context, source, "productId"));
    copyText(accessory.vendorId, textProperty(m_context, source, "vendorId"));
    return accessory;
}

JSValueRef makeString(JSContextRef context, const std::string& text) {
    JSString string(text);
    return JSValueMakeString(context, string.ref);
}

// Values are put into their arrays as soon as they are made: the collector
// sees the stack and script objects, not a native vector of values.
JSValueRef makeCallList(JSContextRef context, const std::vector<KvpDouble::Call>& calls) {
    JSObjectRef list = JSObjectMakeArray(context, 0, nullptr, nullptr);
    for (unsigned index = 0; index < calls.size(); ++index) {
        const KvpDouble::Call& call = calls[index];
        JSObjectRef element = JSObjectMake(context, nullptr, nullptr);
        JSObjectSetPropertyAtIndex(context, list, index, element, nullptr);
        setProperty(context, element, "function", makeString(context, call.function));
        JSObjectRef args = JSObjectMakeArray(context, 0, nullptr, nullptr);
        setProperty(context, element, "args", args);
        for (unsigned arg = 0; arg < call.args.size(); ++arg) {
            JSObjectSetPropertyAtIndex(context, args, arg, makeString(context, call.args[arg]),
                                       nullptr);
        }
    }
    return list;
}

JSValueRef makeError(JSContextRef context, const std::string& message) {
    JSValueRef argument = makeString(context, message);
    return JSObjectMakeError(context, 1, &argument, nullptr);
}

}  // namespace KvDoublePlugin
