// Apps that are pages on two linked devices: the demo used by a person
// (clicks, reloads, what the screens show), apps written for the script host
// run unchanged as pages, and a minute of traffic between two pages while
// their engines collect garbage again and again.
#include "E2eSupport.h"

#include <PageDriver.h>

#include <PngPicture.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <regex>
#include <thread>

namespace KvE2e {
namespace {

namespace fs = std::filesystem;
using KvTest::PageDriver;

std::string example(const std::string& name) { return std::string(KV_EXAMPLES) + "/" + name; }

// A copy of the script app `folder` in `work` whose content is a page that
// loads the app's script, and nothing else changed.
std::string asPage(const std::string& folder, const std::string& work) {
    const fs::path copy = fs::path(work) / (fs::path(folder).filename().string() + "-page");
    fs::copy(folder, copy, fs::copy_options::recursive);
    std::ifstream in(copy / "config.xml");
    std::string config((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    config = std::regex_replace(config, std::regex("<content src=\"main\\.js\"/>"),
                                "<content src=\"index.html\"/>");
    std::ofstream(copy / "config.xml") << config;
    std::ofstream(copy / "index.html")
        << "<!DOCTYPE html>\n<html><body><script src=\"main.js\"></script></body></html>\n";
    return copy.string();
}

// The numbers of a JSON object's fields named in `names`, in that order.
std::vector<double> numbersOf(const std::string& json, const std::vector<std::string>& names) {
    std::vector<double> numbers;
    for (const std::string& name : names) {
        std::smatch match;
        const std::regex field("\"" + name + "\":(-?[0-9.]+)");
        numbers.push_back(std::regex_search(json, match, field) ? std::stod(match[1]) : NAN);
    }
    return numbers;
}

// The fill colour of the phone's progress bar, #2e9e5b.
bool isBarFill(uint32_t pixel) {
    const auto red = static_cast<int>((pixel >> 16) & 0xff);
    const auto green = static_cast<int>((pixel >> 8) & 0xff);
    const auto blue = static_cast<int>(pixel & 0xff);
    return std::abs(red - 0x2e) < 8 && std::abs(green - 0x9e) < 8 && std::abs(blue - 0x5b) < 8;
}

TEST(PageDemo, APersonConnectsReloadsSendsTheReportAndLeaves) {
    WorkFolder work;
    DevicePair devices(work);
    devices.setScreen(devices.watch(), "watch");
    devices.setScreen(devices.phone(), "phone");
    const std::string watchApp = devices.install(devices.watch(), example("watch-sensor"));
    const std::string phoneApp = devices.install(devices.phone(), example("phone-monitor"));
    const fs::path report = fs::path(devices.phone()) / "fs/opt/usr/media/Documents/report.txt";
    std::ofstream(report) << "heart rate 72, steps 4211\n";
    ASSERT_TRUE(devices.waitLinked());

    const std::string watchShot = work.path() + "/watch.png";
    AppRun watch(devices.watch(), watchApp, "watch", work, {}, seconds(120),
                 {"--driver", work.path() + "/watch.sock", "--screenshot", watchShot});
    ASSERT_TRUE(watch.waitForOutput("watch: waiting for the phone")) << watch.output();
    AppRun phone(devices.phone(), phoneApp, "phone", work, {"--manual"}, seconds(120),
                 {"--driver", work.path() + "/phone.sock"});
    PageDriver screen(work.path() + "/phone.sock");
    PageDriver face(work.path() + "/watch.sock");

    ASSERT_TRUE(screen.waitForText("#status", "found Watch sensor on watch")) << phone.output();
    screen.click("#connect");
    ASSERT_TRUE(screen.waitForText("#status", "connected to Watch sensor")) << phone.output();
    ASSERT_TRUE(screen.waitForText("#reading-count", "readings from Watch sensor"));
    EXPECT_TRUE(screen.waitForText("#messages", "channel 105: echo hello on channel 105"));
    EXPECT_TRUE(face.waitForText("#status", "connected to Phone monitor"));
    const int heartRate = std::stoi(screen.text("#heart-rate"));
    EXPECT_GE(heartRate, 55);
    EXPECT_LE(heartRate, 110);

    // The person leaves and reloads the page: the plug-in serves the new
    // document as the first, and the watch takes the phone back.
    screen.click("#disconnect");
    ASSERT_TRUE(face.waitForText("#status", "phone left")) << watch.output();
    screen.value("reload");
    ASSERT_TRUE(screen.waitForText("#status", "found Watch sensor on watch")) << phone.output();
    screen.click("#connect");
    ASSERT_TRUE(screen.waitForText("#status", "connected to Watch sensor")) << phone.output();

    screen.click("#send");
    ASSERT_TRUE(screen.waitForText("#progress-label", "report.txt sent")) << phone.output();
    ASSERT_TRUE(face.waitForText("#file-label", "report.txt received")) << watch.output();
    const std::string phoneShot = work.path() + "/phone.png";
    screen.value("screenshot " + phoneShot);
    const std::vector<double> bar = numbersOf(
        KvTest::jsonText(screen.eval(
            "JSON.stringify(document.getElementById('progress').getBoundingClientRect())")),
        {"left", "top", "width", "height"});

    screen.click("#disconnect");
    EXPECT_EQ(watch.finish(seconds(20)), 0) << watch.output();
    screen.click("#exit");
    EXPECT_EQ(phone.finish(seconds(20)), 0) << phone.output();
    EXPECT_EQ(phone.output().find("Uncaught"), std::string::npos) << phone.output();
    EXPECT_EQ(countLines(phone.output(), "phone: agent SensorConsumer as CONSUMER"), 2);
    EXPECT_EQ(readText(devices.watch() + "/fs/opt/usr/media/Downloads/report.txt"),
              "heart rate 72, steps 4211\n");

    // The phone's screen: its whole size, and the progress bar full.
    const KvTest::PngPicture phonePicture = KvTest::readPng(phoneShot);
    ASSERT_EQ(phonePicture.width, 412);
    ASSERT_EQ(phonePicture.height, 892);
    ASSERT_FALSE(std::isnan(bar[0]));
    const int middle = static_cast<int>(bar[1] + bar[3] / 2);
    for (const double share : {0.03, 0.5, 0.97}) {
        const int x = static_cast<int>(bar[0] + bar[2] * share);
        EXPECT_TRUE(isBarFill(phonePicture.at(x, middle)))
            << "at " << x << "," << middle << ": " << std::hex << phonePicture.at(x, middle);
    }
    // The watch's screen as it ended: round, its reading in the middle.
    const KvTest::PngPicture watchPicture = KvTest::readPng(watchShot);
    ASSERT_EQ(watchPicture.width, 360);
    ASSERT_EQ(watchPicture.height, 360);
    EXPECT_EQ(watchPicture.alpha(4, 4), 0u);
    EXPECT_EQ(watchPicture.alpha(355, 355), 0u);
    EXPECT_EQ(watchPicture.alpha(180, 180), 255u);
}

// The watch and phone of the link tests, written for the script host, as
// pages that only load their scripts.
class ScriptAppsAsPages : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(devices.waitLinked());
        watchApp = devices.install(devices.watch(), asPage(testApp("watch-link"), work));
        phoneApp = devices.install(devices.phone(), asPage(testApp("phone-link"), work));
    }

    WorkFolder work;
    DevicePair devices{work};
    std::string watchApp;
    std::string phoneApp;
};

TEST_F(ScriptAppsAsPages, RunUnchanged) {
    AppRun watch(devices.watch(), watchApp, "watch", work);
    ASSERT_TRUE(watch.waitForOutput("watch: ready")) << watch.output();
    AppRun phone(devices.phone(), phoneApp, "phone", work, {"talk", "50"});
    EXPECT_TRUE(phone.waitForOutput("phone: all echoed 50", seconds(30))) << phone.output();
    EXPECT_EQ(phone.output().find("out of order"), std::string::npos) << phone.output();
}

TEST_F(ScriptAppsAsPages, TalkForAMinuteWhileTheirEnginesCollectGarbage) {
    // 3,000 messages 20 ms apart, every one echoed in order, while the test
    // asks both pages' engines for a full collection ten times a second.
    AppRun watch(devices.watch(), watchApp, "watch", work, {}, seconds(180),
                 {"--driver", work.path() + "/watch.sock"});
    ASSERT_TRUE(watch.waitForOutput("watch: ready")) << watch.output();
    AppRun phone(devices.phone(), phoneApp, "phone", work, {"talk", "3000"}, seconds(180),
                 {"--driver", work.path() + "/phone.sock"});
    PageDriver watchDriver(work.path() + "/watch.sock");
    PageDriver phoneDriver(work.path() + "/phone.sock");
    int collections = 0;
    const auto deadline = std::chrono::steady_clock::now() + seconds(120);
    while (!phone.waitForOutput("phone: all echoed 3000", milliseconds(100)) &&
           std::chrono::steady_clock::now() < deadline) {
        ASSERT_EQ(watchDriver.command("collect-garbage"), "ok") << watch.output();
        ASSERT_EQ(phoneDriver.command("collect-garbage"), "ok") << phone.output();
        ++collections;
    }
    EXPECT_TRUE(phone.waitForOutput("phone: all echoed 3000", milliseconds(0))) << phone.output();
    EXPECT_EQ(phone.output().find("out of order"), std::string::npos) << phone.output();
    EXPECT_GE(collections, 300);
}

}  // namespace
}  // namespace KvE2e
