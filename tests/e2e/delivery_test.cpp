// Delivery under load: with both cores busy, the first message that either
// side sends from inside its onconnect must reach the listener that the other
// side sets in its own onconnect, on every one of many new connections.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "E2eSupport.h"
#include "TestEnvironment.h"

using namespace KvE2e;

TEST(Delivery, FirstMessagesOfEveryNewConnectionArriveWhileBothCoresAreBusy) {
    const WorkFolder work;
    DevicePair devices(work);
    const std::string watchApp = devices.install(devices.watch(), testApp("watch-stress"));
    const std::string phoneApp = devices.install(devices.phone(), testApp("phone-stress"));
    CpuLoad load;
    AppRun watch(devices.watch(), watchApp, "watch", work);
    ASSERT_TRUE(watch.waitForOutput("watch: ready")) << watch.output();
    AppRun phone(devices.phone(), phoneApp, "phone", work,
                 {std::to_string(KvTest::environmentNumber("KV_E2E_TRIALS", 200))}, seconds(3600));
    EXPECT_EQ(phone.finish(seconds(3600)), 0) << phone.output() << watch.output();
}

TEST(Delivery, EveryFirstRequestToAJustRegisteredPeerIsAnsweredWhileBothCoresAreBusy) {
    const WorkFolder work;
    DevicePair devices(work);
    const std::string watchApp = devices.install(devices.watch(), testApp("watch-fresh"));
    const std::string phoneApp = devices.install(devices.phone(), testApp("phone-fresh"));
    const int rounds = std::max(1, KvTest::environmentNumber("KV_E2E_FIRST_REQUESTS", 40) / 20);
    CpuLoad load;
    AppRun phone(devices.phone(), phoneApp, "phone", work, {std::to_string(rounds)}, seconds(3600));
    ASSERT_TRUE(phone.waitForOutput("phone: ready")) << phone.output();
    for (int round = 1; round <= rounds; ++round) {
        AppRun watch(devices.watch(), watchApp, "watch", work);
        ASSERT_EQ(watch.finish(seconds(60)), 0) << watch.output() << phone.output();
        ASSERT_TRUE(phone.waitForOutput("phone: round " + std::to_string(round) + " connected"))
            << phone.output();
    }
    EXPECT_EQ(phone.finish(), 0) << phone.output();
}
