// Tracers that follow two linked daemons: each sees every step of a
// conversation on its device, with the app it concerns, sends pair with
// their deliveries across the devices, the link's loss and return show, and
// several tracers can follow at once while a tracer that does not read is
// dropped without holding up the apps.
#include <gtest/gtest.h>
#include <kv-accessory/Codec.h>
#include <kv-accessory/TraceClock.h>
#include <kv-device/Device.h>
#include <kv-device/FileUtil.h>
#include <sys/socket.h>

#include <fstream>
#include <thread>

#include "AccessoryTestSupport.h"
#include "DaemonConnection.h"

namespace KvTest {
namespace {

using Trace = wire::TraceEvent;

// A tool's session that follows a daemon.
class Tracer {
public:
    explicit Tracer(const std::string& device) : m_client(device, "") {
        wire::Request request;
        request.mutable_trace();
        EXPECT_EQ(m_client.call(request).result(), 0);
        auto first = next(Trace::TRACE_STARTED);
        EXPECT_TRUE(first.has_value());
        if (first) {
            started = *first;
        }
    }

    // The next trace event of `kind`, skipping others.
    std::optional<Trace> next(Trace::Kind kind, milliseconds timeout = milliseconds(5000)) {
        auto event = m_client.waitEvent(
            [kind](const wire::Event& e) { return e.has_trace() && e.trace().kind() == kind; },
            timeout);
        return event ? std::optional<Trace>(event->trace()) : std::nullopt;
    }

    Trace started;

private:
    WireClient m_client;
};

class DaemonTraceTest : public testing::Test {
protected:
    void SetUp() override {
        devices.start();
        alphaTrace = std::make_unique<Tracer>(devices.alpha());
        betaTrace = std::make_unique<Tracer>(devices.beta());
        consumer = std::make_unique<WireClient>(devices.alpha(), kConsumerApp);
        provider = std::make_unique<WireClient>(devices.beta(), kProviderApp);
    }

    std::string deviceName(const std::string& device) const {
        return device.substr(device.rfind('/') + 1);
    }

    DevicePair devices;
    std::unique_ptr<Tracer> alphaTrace;
    std::unique_ptr<Tracer> betaTrace;
    std::unique_ptr<WireClient> consumer;
    std::unique_ptr<WireClient> provider;
};

TEST_F(DaemonTraceTest, ATraceStartsWithTheDeviceItsLinkAndProfile) {
    EXPECT_EQ(alphaTrace->started.device(), deviceName(devices.alpha()));
    EXPECT_EQ(alphaTrace->started.profile(), "unlimited");
    EXPECT_TRUE(alphaTrace->started.up());
    EXPECT_EQ(alphaTrace->started.peer_device(), deviceName(devices.beta()));
    EXPECT_GT(alphaTrace->started.time_us(), 0u);
}

TEST_F(DaemonTraceTest, EachStepOfAConversationIsTracedWithItsApp) {
    auto opened = alphaTrace->next(Trace::SESSION_OPENED);
    ASSERT_TRUE(opened.has_value());
    EXPECT_EQ(opened->app(), kConsumerApp);
    const auto [consumerConnection, providerConnection] =
        openConnection(*consumer, *provider, "/test/echo");
    auto registered = alphaTrace->next(Trace::AGENT_REGISTERED);
    ASSERT_TRUE(registered.has_value());
    EXPECT_EQ(registered->text(), "/test/echo (consumer)");
    EXPECT_TRUE(alphaTrace->next(Trace::FIND_STARTED).has_value());
    auto found = alphaTrace->next(Trace::FIND_ANSWERED);
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(found->status(), wire::SEARCH_FOUND);
    EXPECT_EQ(found->peer_device(), deviceName(devices.beta()));
    EXPECT_TRUE(alphaTrace->next(Trace::CONNECTION_REQUESTED).has_value());
    auto made = alphaTrace->next(Trace::CONNECTION_MADE);
    ASSERT_TRUE(made.has_value());
    EXPECT_EQ(made->connection_id(), consumerConnection);
    EXPECT_EQ(made->peer_connection_id(), providerConnection);
    EXPECT_EQ(made->app(), kConsumerApp);
    auto indicated = betaTrace->next(Trace::CONNECTION_INDICATED);
    ASSERT_TRUE(indicated.has_value());
    EXPECT_EQ(indicated->app(), kProviderApp);
    auto accepted = betaTrace->next(Trace::CONNECTION_ACCEPTED);
    ASSERT_TRUE(accepted.has_value());
    EXPECT_EQ(accepted->peer_connection_id(), consumerConnection);

    wire::Request close;
    close.mutable_terminate_connection()->set_connection_id(consumerConnection);
    ASSERT_EQ(consumer->call(close).result(), 0);
    auto ended = betaTrace->next(Trace::CONNECTION_ENDED);
    ASSERT_TRUE(ended.has_value());
    EXPECT_EQ(ended->connection_id(), providerConnection);
    EXPECT_EQ(ended->status(), wire::TERMINATION_CLOSED);
}

// The sending device numbers each message; the receiving device's trace
// shows the same number with the delivery, and the time from the app's
// send.
TEST_F(DaemonTraceTest, EachDeliveryNamesItsSendOnTheOtherDevice) {
    const auto [consumerConnection, providerConnection] =
        openConnection(*consumer, *provider, "/test/echo");
    for (const std::string text : {"one", "two!"}) {
        wire::Request request;
        auto* send = request.mutable_send_data();
        send->set_connection_id(consumerConnection);
        send->set_channel_id(102);
        send->set_data(text);
        send->set_sent_at_us(Kv::Accessory::traceClockMicros());
        ASSERT_EQ(consumer->call(request).result(), 0);
        ASSERT_TRUE(provider->waitEvent(isData(providerConnection)).has_value());
        auto sent = alphaTrace->next(Trace::DATA_SENT);
        auto delivered = betaTrace->next(Trace::DATA_DELIVERED);
        ASSERT_TRUE(sent.has_value());
        ASSERT_TRUE(delivered.has_value());
        EXPECT_EQ(sent->size(), text.size());
        EXPECT_EQ(sent->channel_id(), 102u);
        EXPECT_EQ(sent->status(), wire::RESULT_SUCCESS);
        EXPECT_GT(sent->message_id(), 0u);
        EXPECT_EQ(delivered->message_id(), sent->message_id());
        EXPECT_EQ(delivered->peer_device(), deviceName(devices.alpha()));
        EXPECT_EQ(delivered->connection_id(), providerConnection);
        EXPECT_EQ(delivered->size(), text.size());
        EXPECT_EQ(delivered->sent_at_us(), request.send_data().sent_at_us());
        EXPECT_GE(delivered->time_us(), delivered->sent_at_us());
        EXPECT_EQ(delivered->app(), kProviderApp);
    }
}

TEST_F(DaemonTraceTest, AFileIsTracedFromItsOfferToItsEndOnBothDevices) {
    const std::uint32_t consumerAgent = consumer->registerAgent("/test/echo");
    provider->registerAgent("/test/echo");
    const auto peers = consumer->findPeers(consumerAgent);
    ASSERT_EQ(peers.size(), 1u);
    std::ofstream(devices.alpha() + "/fs/opt/usr/media/Documents/note.txt") << "a note";
    wire::Request push;
    push.mutable_push_file()->set_agent_id(consumerAgent);
    *push.mutable_push_file()->mutable_peer() = peers[0];
    push.mutable_push_file()->set_path("/opt/usr/media/Documents/note.txt");
    ASSERT_EQ(consumer->call(push).result(), 0);
    auto offered = provider->waitEvent([](const wire::Event& e) { return e.has_file_offered(); });
    ASSERT_TRUE(offered.has_value());
    wire::Request receive;
    receive.mutable_receive_file()->set_transaction_id(offered->file_offered().transaction_id());
    receive.mutable_receive_file()->set_path("/opt/usr/media/Downloads/note.txt");
    receive.mutable_receive_file()->set_accept(true);
    ASSERT_EQ(provider->call(receive).result(), 0);

    auto sending = alphaTrace->next(Trace::FILE_OFFERED);
    ASSERT_TRUE(sending.has_value());
    EXPECT_TRUE(sending->sending());
    EXPECT_EQ(sending->size(), 6u);
    auto receiving = betaTrace->next(Trace::FILE_OFFERED);
    ASSERT_TRUE(receiving.has_value());
    EXPECT_FALSE(receiving->sending());
    EXPECT_EQ(receiving->text(), "note.txt");
    EXPECT_EQ(receiving->peer_transaction_id(), sending->transaction_id());
    EXPECT_TRUE(betaTrace->next(Trace::FILE_ACCEPTED).has_value());
    EXPECT_TRUE(alphaTrace->next(Trace::FILE_ACCEPTED).has_value());
    for (Tracer* tracer : {alphaTrace.get(), betaTrace.get()}) {
        auto ended = tracer->next(Trace::FILE_ENDED);
        ASSERT_TRUE(ended.has_value());
        EXPECT_EQ(ended->status(), wire::FILE_DONE);
    }
}

TEST_F(DaemonTraceTest, TheLinksFaultLossAndReturnAreTraced) {
    WireClient tool(devices.alpha(), "");
    wire::Request drop;
    drop.mutable_fault()->set_action(wire::LinkFault::DROP);
    ASSERT_EQ(tool.call(drop).result(), 0);
    auto fault = alphaTrace->next(Trace::LINK_FAULT);
    ASSERT_TRUE(fault.has_value());
    EXPECT_EQ(fault->text(), "drop");
    EXPECT_TRUE(alphaTrace->next(Trace::LINK_DOWN).has_value());
    EXPECT_TRUE(betaTrace->next(Trace::LINK_DOWN).has_value());
    auto up = betaTrace->next(Trace::LINK_UP, milliseconds(8000));
    ASSERT_TRUE(up.has_value());
    EXPECT_EQ(up->peer_device(), deviceName(devices.alpha()));
    EXPECT_TRUE(up->secure());
}

TEST_F(DaemonTraceTest, SeveralTracersEachSeeEverything) {
    Tracer second(devices.alpha());
    const std::uint32_t agent = consumer->registerAgent("/test/echo");
    for (Tracer* tracer : {alphaTrace.get(), &second}) {
        auto registered = tracer->next(Trace::AGENT_REGISTERED);
        ASSERT_TRUE(registered.has_value());
        EXPECT_EQ(registered->agent_id(), agent);
    }
}

// A tracer that never reads fills its queue: it is dropped, and every
// message of the apps still arrives.
TEST_F(DaemonTraceTest, ATracerThatDoesNotReadIsDroppedAndTheAppsGoOn) {
    Kv::Accessory::DaemonConnection stuck(devices.alpha() + "/" + Kv::Device::kAccessorySocket);
    const int small = 4096;
    ::setsockopt(stuck.fd(), SOL_SOCKET, SO_RCVBUF, &small, sizeof(small));
    wire::ClientMessage message;
    message.mutable_request()->mutable_hello()->set_version(Kv::Accessory::kProtocolVersion);
    message.mutable_request()->mutable_hello()->set_control(true);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    stuck.write(Kv::Accessory::encodeFrame(message), deadline);
    message.mutable_request()->mutable_trace();
    message.mutable_request()->set_serial(2);
    stuck.write(Kv::Accessory::encodeFrame(message), deadline);

    const auto [consumerConnection, providerConnection] =
        openConnection(*consumer, *provider, "/test/echo");
    constexpr int kMessages = 80000;
    for (int i = 0; i < kMessages; ++i) {
        ASSERT_TRUE(consumer->post(consumerConnection, 101, "m" + std::to_string(i))) << i;
    }
    int arrived = 0;
    while (arrived < kMessages && provider->waitEvent(isData(providerConnection))) {
        ++arrived;
    }
    EXPECT_EQ(arrived, kMessages);
    EXPECT_NE(Kv::Device::readFile(devices.alpha() + "/accessoryd.log")
                  .value_or("")
                  .find("a tracer that does not keep up was dropped"),
              std::string::npos);
}

}  // namespace
}  // namespace KvTest
