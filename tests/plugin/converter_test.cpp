// KvConverter: the script spelling of every enumeration, peer agents back
// from script, the agent list as a script array, and records that must not
// be null.
#include "PluginTestSupport.h"
#include "ScriptTestContext.h"

#include <JSKvAgent.h>
#include <JSKvPeerAccessory.h>
#include <JSKvPeerAgent.h>
#include <KvAgent.h>
#include <KvAgentInit.h>
#include <KvConverter.h>
#include <KvFileTransfer.h>
#include <KvSocket.h>
#include <dlog-capture.h>

#include <Commons/Exception.h>
#include <gtest/gtest.h>

#include <functional>
#include <vector>

using namespace DeviceAPI::KVP;
using PluginTest::makeAccessory;
using PluginTest::makePeer;
using WrtDeviceApis::Commons::ConversionException;

namespace {

class KvConverterTest : public ::testing::Test {
protected:
    typedef JSValueRef (KvConverter::*Conversion)(int);

    std::string text(Conversion conversion, int value) {
        return script.text((converter.*conversion)(value));
    }

    // The texts of 0 .. count-1, then of `count` (the first value out of range).
    std::vector<std::string> texts(Conversion conversion, int count) {
        std::vector<std::string> result;
        for (int value = 0; value <= count; ++value) {
            result.push_back(text(conversion, value));
        }
        return result;
    }

    // The message of the ConversionException that `body` throws.
    std::string conversionMessage(const std::function<void()>& body) {
        try {
            body();
        } catch (const ConversionException& error) {
            return error.GetMessage();
        }
        return "<no exception>";
    }

    ScriptTestContext script;
    KvConverter converter{script.get()};
};

TEST_F(KvConverterTest, TransportTypesKeepTheLibraryOrderAndFourIsEmpty) {
    EXPECT_EQ(texts(&KvConverter::toJSValueRefTransportType, 4),
              (std::vector<std::string>{"TRANSPORT_BT", "TRANSPORT_BLE", "TRANSPORT_USB",
                                        "TRANSPORT_WIFI", ""}));
    EXPECT_EQ(text(&KvConverter::toJSValueRefTransportType, -1), "");
}

TEST_F(KvConverterTest, DeviceAndPeerAgentStatuses) {
    EXPECT_EQ(texts(&KvConverter::toJSValueRefDeviceStatus, 2),
              (std::vector<std::string>{"ATTACHED", "DETACHED", ""}));
    EXPECT_EQ(texts(&KvConverter::toJSValueRefPeerAgentStatus, 2),
              (std::vector<std::string>{"AVAILABLE", "UNAVAILABLE", ""}));
}

TEST_F(KvConverterTest, SearchAndConnectionErrorCodes) {
    EXPECT_EQ(texts(&KvConverter::toJSValueRefPeerAgentFindErrorCode, 3),
              (std::vector<std::string>{"PEER_NOT_FOUND", "DUPLICATE_REQUEST",
                                        "DEVICE_NOT_CONNECTED", ""}));
    EXPECT_EQ(texts(&KvConverter::toJSValueRefServiceConnectionErrorCode, 7),
              (std::vector<std::string>{"ALREADY_EXIST", "NETWORK_ERROR", "DEVICE_UNREACHABLE",
                                        "INVALID_PEERAGENT", "PEERAGENT_NO_RESPONSE",
                                        "PEERAGENT_REJECTED", "ERROR_REFLECTION_EXCEPTION", ""}));
}

TEST_F(KvConverterTest, FileSendAndReceiveCodesAreDistinctEnumerations) {
    EXPECT_EQ(texts(&KvConverter::toJSValueRefFileSendErrorCode, 9),
              (std::vector<std::string>{"FILE_IO", "PEER_BUSY", "PEER_CHANNEL_IO", "PEER_CONN_LOST",
                                        "PEER_NO_RESPONSE", "PEER_REJECTED", "REQUEST_NOT_QUEUED",
                                        "SPACE_NOT_AVAILABLE", "UNKNOWN_ERROR", ""}));
    EXPECT_EQ(texts(&KvConverter::toJSValueRefFileReceiveErrorCode, 7),
              (std::vector<std::string>{"FILE_IO", "PEER_CHANNEL_IO", "PEER_CONN_LOST",
                                        "PEER_NO_RESPONSE", "PEER_REJECTED", "SPACE_NOT_AVAILABLE",
                                        "UNKNOWN_ERROR", ""}));
}

TEST_F(KvConverterTest, SocketStatusThreeIsEmpty) {
    EXPECT_EQ(
        texts(&KvConverter::toJSValueRefSocketStatusErrorCode, 3),
        (std::vector<std::string>{"PEER_DISCONNECTED", "DEVICE_DETACHED", "UNKNOWN_REASON", ""}));
}

TEST_F(KvConverterTest, TokenTypeFallsBackToUnknownError) {
    EXPECT_EQ(texts(&KvConverter::toJSValueRefAuthenticationTokenType, 2),
              (std::vector<std::string>{"AUTHENTICATION_TYPE_NONE",
                                        "AUTHENTICATION_TYPE_CERTIFICATE_X509", "UNKNOWN_ERROR"}));
    EXPECT_EQ(text(&KvConverter::toJSValueRefAuthenticationTokenType, -3), "UNKNOWN_ERROR");
}

TEST_F(KvConverterTest, RoleIsProviderOnlyForZero) {
    EXPECT_EQ(text(&KvConverter::toJSValueRefRole, 0), "PROVIDER");
    EXPECT_EQ(text(&KvConverter::toJSValueRefRole, 1), "CONSUMER");
    EXPECT_EQ(text(&KvConverter::toJSValueRefRole, 7), "CONSUMER");
    EXPECT_EQ(text(&KvConverter::toJSValueRefRole, -1), "CONSUMER");
}

TEST_F(KvConverterTest, EnumerationTextsAreScriptStrings) {
    EXPECT_TRUE(JSValueIsString(script.get(), converter.toJSValueRefTransportType(9)));
    EXPECT_TRUE(JSValueIsString(script.get(), converter.toJSValueRefRole(0)));
}

TEST_F(KvConverterTest, PeerAgentObjectConvertsBackToItsRecord) {
    const KvPeerAgentPtr peer = makePeer("peer-1");
    JSValueRef object = converter.toJSValueRef(peer);
    EXPECT_EQ(converter.toKvPeerAgent(object), peer);
}

KvSocketPtr socketTo(const KvPeerAgentPtr& peer) {
    auto socket = std::make_shared<KvSocket>();
    socket->setPeerAgent(peer);
    socket->setConnectionId(300);
    return socket;
}

TEST_F(KvConverterTest, AnythingButAPeerAgentIsRejected) {
    const std::vector<JSValueRef> values = {
        JSValueMakeNumber(script.get(), 5), JSValueMakeNull(script.get()),
        JSValueMakeUndefined(script.get()), script.evaluate("({peerId: 'peer-1'})"),
        converter.toJSValueRef(makeAccessory()),
        // A socket carries a peer agent but is none.
        converter.toJSValueRef(socketTo(makePeer("peer-1")))};
    for (JSValueRef value : values) {
        EXPECT_EQ(conversionMessage([&] { converter.toKvPeerAgent(value); }),
                  "Not a KvPeerAgent object")
            << script.text(value);
    }
    EXPECT_EQ(conversionMessage([&] { converter.toKvPeerAgent(nullptr); }),
              "Not a KvPeerAgent object");
}

TEST_F(KvConverterTest, EmptyAgentListIsAnEmptyArray) {
    script.setGlobal("agents", converter.toJSValueRef(std::make_shared<KvAgentList>()));
    EXPECT_EQ(script.text(script.evaluate("Array.isArray(agents) && agents.length === 0")), "true");
    script.setGlobal("none", converter.toJSValueRef(KvAgentListPtr()));
    EXPECT_EQ(script.text(script.evaluate("Array.isArray(none) && none.length === 0")), "true");
}

TEST_F(KvConverterTest, AgentListBecomesKvAgentObjectsInOrder) {
    auto list = std::make_shared<KvAgentList>();
    for (const char* id : {"/kvtest/one", "/kvtest/two"}) {
        auto init = std::make_shared<KvAgentInit>();
        init->id = id;
        init->name = std::string(id) + " name";
        list->push_back(std::make_shared<KvAgent>(init));
    }
    JSValueRef array = converter.toJSValueRef(list);
    JSObjectRef object = JSValueToObject(script.get(), array, nullptr);
    for (unsigned index = 0; index < list->size(); ++index) {
        JSValueRef element = JSObjectGetPropertyAtIndex(script.get(), object, index, nullptr);
        EXPECT_TRUE(JSValueIsObjectOfClass(script.get(), element, JSKvAgent::getClassRef()));
    }
    script.setGlobal("agents", array);
    EXPECT_EQ(script.text(script.evaluate("agents.length + ':' + agents[1].id")), "2:/kvtest/two");
}

// The private data of a script object must hold a record: making one for a
// null record is a broken contract, which aborts.
TEST_F(KvConverterTest, ANullRecordIsABrokenContract) {
    EXPECT_DEATH(converter.toJSValueRef(KvPeerAgentPtr()), "Object is NULL");
    EXPECT_DEATH(converter.toJSValueRef(KvPeerAccessoryPtr()), "Object is NULL");
    EXPECT_DEATH(converter.toJSValueRef(KvAuthenticationTokenPtr()), "Object is NULL");
    EXPECT_DEATH(converter.toJSValueRef(KvSocketPtr()), "Object is NULL");
    EXPECT_DEATH(converter.toJSValueRef(KvFileTransferPtr()), "Object is NULL");
}

// So a getter whose linked record may be missing checks first, and answers
// undefined like any other read that fails.
TEST_F(KvConverterTest, AGetterOfAMissingLinkedRecordAnswersUndefined) {
    const KvpDouble::Peer record(11, "peer-1", "/kvtest/hello", "Peer app", "2.0", "Watch", 1);
    auto peer = std::make_shared<KvPeerAgent>(
        std::make_shared<PeerAgentWrapper>(record.get(), false), nullptr, 4096);
    script.setGlobal("peer", converter.toJSValueRef(peer));
    script.setGlobal("socket", converter.toJSValueRef(std::make_shared<KvSocket>()));
    DlogCapture capture;
    EXPECT_EQ(script.text(script.evaluate("[typeof peer.peerAccessory, typeof socket.peerAgent, "
                                          "peer.peerId].join()")),
              "undefined,undefined,peer-1");
    EXPECT_EQ(capture.count("trying to get incorrect value"), 2u);
}

}  // namespace
