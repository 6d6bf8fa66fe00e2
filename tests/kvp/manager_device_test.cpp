// KvManager answering agent requests from the service profile of the app that
// this process runs, inside a device of the test's own.
#include "KvpTestDevice.h"
#include "KvpTestSupport.h"
#include "fake_appfw.h"

#include <KvManager.h>
#include <KvServiceProfileLoader.h>

#include <filesystem>

using namespace KvpTest;

namespace {

const char* const kExampleProfile = KvpTestDevice::exampleProfile();

const char* const kInstalledProfile = "/opt/usr/apps/kvmgr01/res/wgt/res/xml/accessoryservices.xml";

class ManagerDeviceTest : public KvpFixture {
protected:
    void SetUp() override {
        KvpFixture::SetUp();
        FakeAppfw::reset();
        FakeAppfw::useRealLibrary(true);
        AppIdCacheSingleton::RenewForTests();
        scratch = testing::TempDir() + "kv-manager-app-" + std::to_string(getpid());
        manager = std::make_shared<KvManager>();
    }

    void TearDown() override {
        Kv::Device::unregisterRunningApp(getpid());
        std::filesystem::remove_all(scratch);
        FakeAppfw::reset();
        AppIdCacheSingleton::RenewForTests();
        KvpFixture::TearDown();
    }

    void install(const std::string& profile) {
        KvpTestDevice::installAndRun(scratch, "kvmgr01.Manager", "kvmgr01",
                                     KvpTestDevice::profileLocationMetadata(), profile);
    }

    DPL::SharedPtr<EventKvManagerRequestKvAgent> requestAgents() {
        return request(*manager, std::make_shared<EventKvManagerRequestKvAgent>());
    }

    std::string scratch;
    KvManagerPtr manager;
};

}  // namespace

TEST_F(ManagerDeviceTest, ExampleProfileYieldsItsTwoAgents) {
    install(kExampleProfile);
    const auto answer = requestAgents();
    ASSERT_EQ(answer->error, nullptr);
    ASSERT_EQ(answer->agents->size(), 2u);
    const KvAgentInitPtr& first = answer->agents->at(0)->getAgentInit();
    EXPECT_EQ(first->id, "/kvtest/hello");
    EXPECT_EQ(first->name, "HelloAccessory");
    EXPECT_EQ(first->role, KV_ROLE_PROVIDER);
    EXPECT_EQ(first->serviceLimit, KV_SERVICE_LIMIT_ONE_ACCESSORY);
    EXPECT_EQ(first->serviceTimeout, 10);
    ASSERT_EQ(first->channels.size(), 1u);
    EXPECT_EQ(first->channels[0].id, 104);
    EXPECT_EQ(first->channels[0].dataRate, KV_DATA_RATE_LOW);
    EXPECT_EQ(first->channels[0].priority, KV_PRIORITY_LOW);
    EXPECT_EQ(first->transportTypes, std::vector<KvTransportType>{KV_TRANSPORT_BT});
    const KvAgentInitPtr& second = answer->agents->at(1)->getAgentInit();
    EXPECT_EQ(second->id, "");
    EXPECT_EQ(second->role, KV_ROLE_CONSUMER);
    EXPECT_EQ(second->serviceLimit, KV_SERVICE_LIMIT_ANY);
    EXPECT_EQ(second->serviceTimeout, 30);
    EXPECT_TRUE(second->channels.empty());
    EXPECT_EQ(proxy().getManager(), manager) << "the manager registered itself with the bridge";
}

TEST_F(ManagerDeviceTest, EmptyProfileIsServiceNotAvailableAndTheNextRequestReadsItAgain) {
    install(R"(<?xml version="1.0"?><resources/>)");
    const auto first = requestAgents();
    ASSERT_NE(first->error, nullptr);
    EXPECT_EQ(first->error->getCode(), 2);
    EXPECT_EQ(first->error->getMessage(), "Failed to register KvAgent.");
    EXPECT_EQ(first->agents, nullptr);
    KvpTestDevice::writeFile(kInstalledProfile, kExampleProfile);
    const auto second = requestAgents();
    ASSERT_EQ(second->error, nullptr);
    EXPECT_EQ(second->agents->size(), 2u);
}

TEST_F(ManagerDeviceTest, SuccessfulRequestsAnswerTheSameAgentsInProfileOrder) {
    install(kExampleProfile);
    const auto first = requestAgents();
    KvpTestDevice::writeFile(kInstalledProfile, R"(<?xml version="1.0"?><resources/>)");
    const auto second = requestAgents();
    ASSERT_EQ(second->error, nullptr);
    EXPECT_EQ(first->agents, second->agents) << "the same shared list, agents made once";
    EXPECT_EQ(second->agents->at(0)->getId(), "/kvtest/hello");
}

TEST_F(ManagerDeviceTest, AgentListIsHandedToTheBridgeForAttach) {
    install(kExampleProfile);
    const auto answer = requestAgents();
    proxy().onDisconnected();
    KvpDouble::reset();
    proxy().onConnected();
    EXPECT_EQ(KvpDouble::count("getRegisteredServiceAgent"), 1u)
        << "every agent asks to register on attach; the queue sends one at a time";
    EXPECT_EQ(answer->agents->at(1)->getState(), KvAgent::STATE_REGISTERING);
}

int main(int argc, char** argv) { return KvpTestDevice::runTestsInOwnDevice(argc, argv); }
