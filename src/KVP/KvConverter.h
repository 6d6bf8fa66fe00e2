// Conversions between the accessory API's native values and script values
// for one script context: the script spelling of every enumeration, peer
// records to script objects and back, and the agent list to a script array.
// Made on the stack for each conversion site:
//   KvConverter converter(context);
//   return converter.toJSValueRefRole(agent->getRole());
//
// Every failure is a WrtDeviceApis::Commons::ConversionException. An
// enumeration value out of its range never fails: it gives the empty string
// (the token type gives "UNKNOWN_ERROR" instead).
#ifndef KVP_KV_CONVERTER_H
#define KVP_KV_CONVERTER_H

#include "KvAuthenticationToken.h"
#include "KvManagerEvents.h"
#include "KvPeerAccessory.h"
#include "KvPeerAgent.h"

#include <CommonsJavaScript/Converter.h>
#include <dpl/shared_ptr.h>

#include <JavaScriptCore/JavaScript.h>

namespace DeviceAPI {
namespace KVP {

class KvSocket;
typedef DPL::SharedPtr<KvSocket> KvSocketPtr;
class KvFileTransfer;
typedef DPL::SharedPtr<KvFileTransfer> KvFileTransferPtr;

class KvConverter : public WrtDeviceApis::CommonsJavaScript::Converter {
public:
    explicit KvConverter(JSContextRef context);
    ~KvConverter() override;

    using WrtDeviceApis::CommonsJavaScript::Converter::toJSValueRef;

    // One conversion per enumeration; each gives a script string.
    JSValueRef toJSValueRefTransportType(int value);
    JSValueRef toJSValueRefDeviceStatus(int value);
    JSValueRef toJSValueRefPeerAgentStatus(int value);
    JSValueRef toJSValueRefPeerAgentFindErrorCode(int value);
    JSValueRef toJSValueRefServiceConnectionErrorCode(int value);
    JSValueRef toJSValueRefFileSendErrorCode(int value);
    JSValueRef toJSValueRefFileReceiveErrorCode(int value);
    JSValueRef toJSValueRefSocketStatusErrorCode(int value);
    // Values other than 0 and 1 give "UNKNOWN_ERROR".
    JSValueRef toJSValueRefAuthenticationTokenType(int value);
    // 0 is "PROVIDER", every other value "CONSUMER".
    JSValueRef toJSValueRefRole(int value);

    // The native record behind a KvPeerAgent script object. Throws
    // ConversionException "Not a KvPeerAgent object" for any other value.
    KvPeerAgentPtr toKvPeerAgent(JSValueRef value);
    // As toKvPeerAgent, with `message` as the ConversionException's message
    // for a value that is no peer agent: the text a script method answers.
    KvPeerAgentPtr toKvPeerAgent(JSValueRef value, const std::string& message);
    // The peer agent of a script method's first argument: ConversionException
    // "Argument is needed." when there is none, else as above.
    KvPeerAgentPtr toKvPeerAgentArgument(size_t count, const JSValueRef arguments[],
                                         const std::string& message);

    // A script array of new KvAgent objects, one per agent, in list order
    // (a null list gives an empty array).
    JSValueRef toJSValueRef(const KvAgentListPtr& agents);

    // New script objects of the record classes. The record must not be null:
    // the object's private data asserts that it holds one, so a caller that
    // may have none checks first.
    JSValueRef toJSValueRef(const KvPeerAgentPtr& peerAgent);
    JSValueRef toJSValueRef(const KvPeerAccessoryPtr& peerAccessory);
    JSValueRef toJSValueRef(const KvAuthenticationTokenPtr& token);

    // A new KvSocket script object, for a socket that is not null; defined
    // in JSKvSocket.cpp.
    JSValueRef toJSValueRef(const KvSocketPtr& socket);
    // A new KvFileTransfer script object, for a file transfer that is not
    // null; defined in JSKvFileTransfer.cpp.
    JSValueRef toJSValueRef(const KvFileTransferPtr& fileTransfer);
};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
