// Recovery: running apps survive a restart of either device's accessory
// service (killed, then started again): they register again, find each other
// and talk again by themselves, without being restarted.
#include <gtest/gtest.h>

#include <string>

#include "E2eSupport.h"

using namespace KvE2e;

TEST(Recovery, RunningAppsTalkAgainAfterEitherDaemonIsKilledAndRestarted) {
    const WorkFolder work;
    DevicePair devices(work);
    const std::string watchApp = devices.install(devices.watch(), testApp("watch-recover"));
    const std::string phoneApp = devices.install(devices.phone(), testApp("phone-recover"));
    AppRun watch(devices.watch(), watchApp, "watch", work);
    ASSERT_TRUE(watch.waitForOutput("watch: ready")) << watch.output();
    AppRun phone(devices.phone(), phoneApp, "phone", work);
    ASSERT_TRUE(phone.waitForOutput("phone: exchanged 1")) << phone.output() << watch.output();

    int expected = 1;
    for (const std::string& device : {devices.watch(), devices.phone(), devices.watch()}) {
        devices.killDaemon(device);
        devices.startDaemon(device);
        ++expected;
        ASSERT_TRUE(phone.waitForOutput("phone: exchanged " + std::to_string(expected)))
            << "after restarting " << device << "\n"
            << phone.output() << watch.output();
    }
}
