// Apps that are pages, run by kv-runtime on a temporary device: the plug-ins'
// hooks with real frames, the runtime's globals in a page, how a page app
// ends, its identity on the device, its confinement, its screen, and its
// inspector.
#include "PageDevice.h"
#include "PageDriver.h"

#include <PngPicture.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <regex>
#include <stdexcept>
#include <thread>

namespace KvTest {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

const std::string kAppsUrl = "file:///opt/usr/apps/";

std::string pageUrl(const std::string& package, const std::string& file) {
    return kAppsUrl + package + "/res/wgt/" + file;
}

std::vector<std::string> with(std::vector<std::string> options,
                              const std::vector<std::string>& more) {
    options.insert(options.end(), more.begin(), more.end());
    return options;
}

bool waitFor(const std::function<bool()>& done, milliseconds timeout = seconds(10)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!done() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(milliseconds(50));
    }
    return done();
}

class PageHost : public ::testing::Test {
protected:
    PageDevice device;
};

TEST_F(PageHost, CallsTheFrameHooksForEveryDocumentOfEveryFrame) {
    const std::string app = device.install("frames");
    auto page =
        device.start(app, with(PageDevice::hostTestPlugin(), {"--driver", device.driverSocket()}));
    ASSERT_TRUE(page->waitForOutput("frame: ready object function", seconds(20)));
    ASSERT_TRUE(page->waitForOutput("main: ready object function", seconds(5)));
    PageDriver driver(device.driverSocket());
    const std::string index = pageUrl("framespg1", "index.html");
    const std::string frame = pageUrl("framespg1", "frame.html");
    const std::string extra = pageUrl("framespg1", "extra.html");
    const std::string second = pageUrl("framespg1", "second.html");

    // A reload: every frame's document goes, and comes again.
    driver.value("reload");
    ASSERT_TRUE(waitFor(
        [&] { return logMessages(device.log(), "on_frame_load_callback " + index).size() == 2; }));
    // A frame added, then removed.
    driver.click("#add");
    ASSERT_TRUE(page->waitForOutput("extra: ready object true", seconds(10)));
    driver.click("#remove");
    EXPECT_TRUE(waitFor(
        [&] { return !logMessages(device.log(), "on_frame_unload_callback " + extra).empty(); }));
    // A navigation inside the app, then the end.
    driver.click("#leave");
    ASSERT_TRUE(page->waitForOutput("second: ready object", seconds(10)));
    driver.click("#exit");
    const ProcessResult result = page->finish(seconds(20));
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("main: a person clicked true"), std::string::npos) << result.out;

    const std::vector<std::string> hooks = logMessages(device.log(), "_callback");
    const std::vector<std::string> expected = {
        "on_widget_start_callback (",  // checked by prefix below
        "on_frame_load_callback " + index,   "on_frame_load_callback " + frame,
        "on_frame_unload_callback " + frame, "on_frame_unload_callback " + index,
        "on_frame_load_callback " + index,   "on_frame_load_callback " + frame,
        "on_frame_load_callback " + extra,   "on_frame_unload_callback " + extra,
        "on_frame_unload_callback " + frame, "on_frame_unload_callback " + index,
        "on_frame_load_callback " + second,  "on_frame_unload_callback " + second,
        "on_widget_stop_callback ("};
    ASSERT_EQ(hooks.size(), expected.size()) << ::testing::PrintToString(hooks);
    for (size_t i = 0; i < hooks.size(); ++i) {
        EXPECT_EQ(hooks[i].rfind(expected[i], 0), 0u) << "hook " << i << ": " << hooks[i];
    }
}

TEST_F(PageHost, GivesAPageTheRuntimesGlobalsBesideItsOwn) {
    const std::string app = device.install("runtime-api");
    const ProcessResult result = device.run(app, PageDevice::hostTestPlugin(), {"7"});
    EXPECT_EQ(result.exitCode, 7) << result.err;
    EXPECT_NE(result.out.find("args [\"7\"]\n"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("info {\"a\":1} [1,2]\n"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("page globals object object function\n"), std::string::npos);
    EXPECT_NE(result.out.find("now advances true\n"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("bad code RangeError\n"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("finally runs\n"), std::string::npos) << result.out;
    EXPECT_EQ(result.out.find("after exit"), std::string::npos) << result.out;
    EXPECT_NE(result.err.find("warn line\n"), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("error line\n"), std::string::npos) << result.err;
    EXPECT_EQ(result.out.find("warn line"), std::string::npos);
    EXPECT_NE(device.log().find("console: args [\"7\"]"), std::string::npos);
}

TEST_F(PageHost, EndsTheAppWithOneOnAnExceptionAtTheTopOfItsScript) {
    const std::string app = device.install("uncaught");
    const ProcessResult result = device.run(app, PageDevice::hostTestPlugin(), {"top"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("Uncaught TypeError: top level threw at line 6 in main.js\n"),
              std::string::npos)
        << result.err;
    EXPECT_NE(device.log().find("on_widget_stop_callback"), std::string::npos);
}

TEST_F(PageHost, EndsTheAppWithOneOnAnExceptionInATimer) {
    const std::string app = device.install("uncaught");
    const ProcessResult result = device.run(app, PageDevice::hostTestPlugin(), {"timer"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(std::regex_search(result.err, std::regex("Uncaught TypeError: .* at line 11 in "
                                                         "main.js\n")))
        << result.err;
}

TEST_F(PageHost, EndsTheAppWithOneOnAnExceptionInAnEventHandler) {
    const std::string app = device.install("uncaught");
    auto page = device.start(
        app, with(PageDevice::hostTestPlugin(), {"--driver", device.driverSocket()}), {"click"});
    ASSERT_TRUE(page->waitForOutput("uncaught: ready click", seconds(20)));
    PageDriver(device.driverSocket()).click("#throw");
    const ProcessResult result = page->finish(seconds(20));
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("Uncaught RangeError: click handler threw at line 16 in main.js\n"),
              std::string::npos)
        << result.err;
}

TEST_F(PageHost, EndsTheAppWithItsCodeWhenAnEventHandlerExits) {
    const std::string app = device.install("uncaught");
    auto page =
        device.start(app, with(PageDevice::hostTestPlugin(), {"--driver", device.driverSocket()}),
                     {"exit-in-handler"});
    ASSERT_TRUE(page->waitForOutput("uncaught: ready exit-in-handler", seconds(20)));
    PageDriver(device.driverSocket()).click("#throw");
    const ProcessResult result = page->finish(seconds(20));
    EXPECT_EQ(result.exitCode, 3) << result.err;
    EXPECT_EQ(result.err.find("Uncaught"), std::string::npos) << result.err;
}

TEST_F(PageHost, RunsNothingOfTheAppAfterItExits) {
    const std::string app = device.install("after-exit");
    const ProcessResult result = device.run(app, PageDevice::hostTestPlugin());
    EXPECT_EQ(result.exitCode, 5) << result.err;
    const auto exiting = result.out.find("after-exit: exiting\n");
    ASSERT_NE(exiting, std::string::npos) << result.out;
    EXPECT_EQ(result.out.find("tick", exiting), std::string::npos) << result.out;
}

TEST_F(PageHost, EndsTheAppWithOneWhenAPluginCallbackThrows) {
    const std::string app = device.install("callback-throws");
    const ProcessResult result = device.run(app, PageDevice::kvWithDouble());
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("Uncaught TypeError: listener threw on TRANSPORT_BT ATTACHED at line "
                              "9 in index.html\n"),
              std::string::npos)
        << result.err;
}

TEST_F(PageHost, StopsTheAppWhenItsTimeIsUp) {
    const std::string app = device.install("idle");
    const ProcessResult result =
        device.run(app, with(PageDevice::hostTestPlugin(), {"--timeout", "2"}));
    EXPECT_EQ(result.exitCode, 124);
    EXPECT_NE(result.err.find("idlepage1.Idle did not end within 2 seconds; stopped\n"),
              std::string::npos)
        << result.err;
    const std::vector<std::string> hooks = logMessages(device.log(), "_callback");
    ASSERT_GE(hooks.size(), 2u);
    EXPECT_EQ(hooks[hooks.size() - 2].rfind("on_frame_unload_callback", 0), 0u);
    EXPECT_EQ(hooks.back().rfind("on_widget_stop_callback", 0), 0u);
}

// The time limit counts from the app's start, as the script host's does: a
// page whose process is slow to start (its plug-in's start hook holds it
// three seconds) still loads and has its whole two seconds.
TEST_F(PageHost, CountsTheTimeLimitFromThePagesStart) {
    const std::string app = device.install("idle");
    const auto started = std::chrono::steady_clock::now();
    const ProcessResult result =
        device.run(app, with(PageDevice::hostTestPlugin(), {"--timeout", "2"}), {},
                   {{"KV_HOST_TEST_START_DELAY_MS", "3000"}});
    EXPECT_GE(std::chrono::steady_clock::now() - started, seconds(5));
    EXPECT_EQ(result.exitCode, 124);
    EXPECT_NE(result.err.find("idlepage1.Idle did not end within 2 seconds; stopped\n"),
              std::string::npos)
        << result.err;
    EXPECT_EQ(logMessages(device.log(), "on_frame_load_callback").size(), 1u);
    const std::vector<std::string> hooks = logMessages(device.log(), "_callback");
    ASSERT_GE(hooks.size(), 2u);
    EXPECT_EQ(hooks[hooks.size() - 2].rfind("on_frame_unload_callback", 0), 0u);
    EXPECT_EQ(hooks.back().rfind("on_widget_stop_callback", 0), 0u);
}

TEST_F(PageHost, StopsAPageWhoseScriptNeverReturns) {
    const std::string app = device.install("runaway");
    auto page = device.start(app, with(PageDevice::hostTestPlugin(),
                                       {"--timeout", "2", "--driver", device.driverSocket()}));
    ASSERT_TRUE(page->waitForOutput("runaway: looping", seconds(20)));
    const std::string pid = PageDriver(device.driverSocket()).value("pid");
    const ProcessResult result = page->finish(seconds(30));
    EXPECT_EQ(result.exitCode, 124);
    EXPECT_NE(result.err.find("runaway01.Runaway did not end within 2 seconds; stopped"),
              std::string::npos)
        << result.err;
    EXPECT_FALSE(std::filesystem::exists("/proc/" + pid + "/status") &&
                 readFile("/proc/" + pid + "/status").find("State:\tZ") == std::string::npos)
        << "the page's process " << pid << " still runs";
}

TEST_F(PageHost, EndsTheAppWithZeroWhenItsWindowIsClosed) {
    const std::string app = device.install("idle");
    auto page =
        device.start(app, with(PageDevice::hostTestPlugin(), {"--driver", device.driverSocket()}));
    ASSERT_TRUE(page->waitForOutput("idle: ready object", seconds(20)));
    PageDriver(device.driverSocket()).value("close");
    const ProcessResult result = page->finish(seconds(20));
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const std::vector<std::string> hooks = logMessages(device.log(), "_callback");
    ASSERT_GE(hooks.size(), 2u);
    EXPECT_EQ(hooks[hooks.size() - 2].rfind("on_frame_unload_callback", 0), 0u);
    EXPECT_EQ(hooks.back().rfind("on_widget_stop_callback", 0), 0u);
}

class PageHostSignal : public PageHost,
                       public ::testing::WithParamInterface<std::pair<int, int>> {};

TEST_P(PageHostSignal, StopsTheAppAsTheScriptHostDoes) {
    const std::string app = device.install("idle");
    auto page = device.start(app, PageDevice::hostTestPlugin());
    ASSERT_TRUE(page->waitForOutput("idle: ready object", seconds(20)));
    page->sendSignal(GetParam().first);
    const ProcessResult result = page->finish(seconds(20));
    EXPECT_EQ(result.exitCode, GetParam().second);
    EXPECT_NE(device.log().find("on_widget_stop_callback"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(EachSignal, PageHostSignal,
                         ::testing::Values(std::make_pair(SIGINT, 130),
                                           std::make_pair(SIGTERM, 143),
                                           std::make_pair(SIGQUIT, 131)));

TEST_F(PageHost, RegistersThePagesProcessAsTheRunningApp) {
    const std::string app = device.install("idle");
    auto page =
        device.start(app, with(PageDevice::hostTestPlugin(), {"--driver", device.driverSocket()}));
    ASSERT_TRUE(page->waitForOutput("idle: ready object", seconds(20)));
    const std::string pid = PageDriver(device.driverSocket()).value("pid");
    const std::string entry = device.dir() + "/running/" + pid;
    EXPECT_NE(readFile(entry).find(app), std::string::npos) << entry;
    EXPECT_EQ(std::filesystem::directory_iterator(device.dir() + "/running") ==
                  std::filesystem::directory_iterator(),
              false);
    page->sendSignal(SIGTERM);
    page->finish(seconds(20));
    EXPECT_FALSE(std::filesystem::exists(entry));
}

TEST_F(PageHost, EndsTheAppWithOneWhenThePagesProcessCrashes) {
    const std::string app = device.install("idle");
    auto page =
        device.start(app, with(PageDevice::hostTestPlugin(), {"--driver", device.driverSocket()}));
    ASSERT_TRUE(page->waitForOutput("idle: ready object", seconds(20)));
    const std::string pid = PageDriver(device.driverSocket()).value("pid");
    ASSERT_EQ(::kill(std::stoi(pid), SIGABRT), 0);  // as abort() ends it
    const ProcessResult result = page->finish(seconds(20));
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("the page of idlepage1.Idle crashed"), std::string::npos)
        << result.err;
    EXPECT_FALSE(std::filesystem::exists(device.dir() + "/running/" + pid));
}

// Accepts connections on a loopback port and counts them.
class Listener {
public:
    Listener() {
        m_fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (::bind(m_fd, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
            ::getsockname(m_fd, reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
            ::listen(m_fd, 16) != 0) {
            throw std::runtime_error(std::string("the test's listener: ") + std::strerror(errno));
        }
        m_port = ntohs(address.sin_port);
        m_thread = std::thread([this] {
            while (!m_stop) {
                pollfd entry{m_fd, POLLIN, 0};
                if (::poll(&entry, 1, 50) > 0) {
                    const int client = ::accept(m_fd, nullptr, nullptr);
                    if (client >= 0) {
                        ++m_connections;
                        ::close(client);
                    }
                }
            }
        });
    }
    ~Listener() {
        m_stop = true;
        m_thread.join();
        ::close(m_fd);
    }
    int port() const { return m_port; }
    int connections() const { return m_connections; }

private:
    int m_fd = -1;
    int m_port = 0;
    std::atomic<bool> m_stop{false};
    std::atomic<int> m_connections{0};
    std::thread m_thread;
};

TEST_F(PageHost, KeepsAPageInsideItsAppAndOffTheNetwork) {
    device.install("neighbour");
    const std::string app = device.install("confined");
    Listener listener;
    const ProcessResult result =
        device.run(app, PageDevice::hostTestPlugin(), {std::to_string(listener.port())});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("confined: LOADED own file \"the app may read this\\n\""),
              std::string::npos)
        << result.out;
    for (const char* attempt :
         {"host file", "parent folder", "app config beside", "other app", "http", "https",
          "xhr host file", "xhr http", "image http", "image host file", "web socket"}) {
        EXPECT_NE(result.out.find(std::string("confined: blocked ") + attempt + "\n"),
                  std::string::npos)
            << attempt << "\n"
            << result.out;
    }
    EXPECT_NE(result.out.find("confined: frame host folder blocked"), std::string::npos);
    EXPECT_NE(result.out.find("confined: frame http blocked"), std::string::npos);
    EXPECT_NE(result.out.find("confined: still here file:"), std::string::npos) << result.out;
    EXPECT_EQ(result.out.find("LOADED", result.out.find("LOADED own file") + 1), std::string::npos)
        << result.out;
    EXPECT_EQ(listener.connections(), 0);
    EXPECT_NE(result.err.find("kv-runtime: blocked"), std::string::npos) << result.err;
}

TEST_F(PageHost, ShowsAWatchsPageOnARoundScreen) {
    device.setScreen({"watch"});
    const std::string app = device.install("idle");
    const std::string shot = device.file("shots/watch.png");
    auto page = device.start(app, with(PageDevice::hostTestPlugin(), {"--screenshot", shot}));
    ASSERT_TRUE(page->waitForOutput("idle: ready object", seconds(20)));
    page->sendSignal(SIGTERM);
    page->finish(seconds(20));
    const KvTest::PngPicture png = KvTest::readPng(shot);
    ASSERT_EQ(png.width, 360);
    ASSERT_EQ(png.height, 360);
    EXPECT_EQ(png.alpha(0, 0), 0u);
    EXPECT_EQ(png.alpha(359, 359), 0u);
    EXPECT_EQ(png.alpha(180, 180), 255u);
    EXPECT_EQ(png.alpha(180, 2), 255u);
    EXPECT_EQ(png.alpha(20, 20), 0u);
}

TEST_F(PageHost, ShowsAPhonesPageOnItsWholeScreenAndPicturesItAsAsked) {
    const std::string app = device.install("idle");
    const std::string shots = device.file("series");
    auto page = device.start(
        app, with(PageDevice::hostTestPlugin(), {"--screenshots", shots, "--every", "200"}));
    ASSERT_TRUE(page->waitForOutput("idle: ready object", seconds(20)));
    const auto pictures = [&shots] {
        std::error_code error;
        return std::distance(std::filesystem::directory_iterator(shots, error),
                             std::filesystem::directory_iterator());
    };
    ASSERT_TRUE(waitFor([&] { return pictures() >= 3; }));
    page->sendSignal(SIGTERM);
    page->finish(seconds(20));
    const auto first = *std::filesystem::directory_iterator(shots);
    EXPECT_TRUE(std::regex_match(first.path().filename().string(), std::regex("[0-9]{6}\\.png")));
    const KvTest::PngPicture png = KvTest::readPng(first.path());
    ASSERT_EQ(png.width, 412);
    ASSERT_EQ(png.height, 892);
    EXPECT_EQ(png.alpha(0, 0), 255u);
    EXPECT_EQ(png.alpha(411, 891), 255u);
}

// The body of a plain HTTP GET of `path` on the loopback `port`.
std::string httpGet(int port, const std::string& path) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::string answer;
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
        const std::string request = "GET " + path + " HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n";
        (void)!::write(fd, request.data(), request.size());
        char chunk[4096];
        ssize_t got;
        while ((got = ::read(fd, chunk, sizeof chunk)) > 0) {
            answer.append(chunk, static_cast<size_t>(got));
        }
    }
    ::close(fd);
    return answer;
}

TEST_F(PageHost, ServesThePagesInspectorOnLoopbackWhenAsked) {
    const std::string app = device.install("idle");
    auto page = device.start(app, with(PageDevice::hostTestPlugin(), {"--inspect"}));
    ASSERT_TRUE(page->waitForOutput("idle: ready object", seconds(20)));
    page->sendSignal(SIGTERM);
    const ProcessResult result = page->finish(seconds(20));
    std::smatch match;
    ASSERT_TRUE(std::regex_search(
        result.err, match,
        std::regex(
            "kv-runtime: the inspector of idlepage1\\.Idle: http://127\\.0\\.0\\.1:([0-9]+)/")))
        << result.err;
}

TEST_F(PageHost, ListsThePageAmongTheInspectorsTargets) {
    const std::string app = device.install("idle");
    auto page = device.start(app, with(PageDevice::hostTestPlugin(), {"--inspect"}));
    ASSERT_TRUE(page->waitForOutput("idle: ready object", seconds(20)));
    const std::string log = readFile(device.file("kv.log"));
    // The address is on stderr, which the child process keeps until the end;
    // the page host logs it too.
    std::smatch match;
    ASSERT_TRUE(
        std::regex_search(log, match, std::regex("inspector at http://127\\.0\\.0\\.1:([0-9]+)/")))
        << log;
    const std::string targets = httpGet(std::stoi(match[1]), "/");
    EXPECT_NE(targets.find("Inspectable targets"), std::string::npos) << targets;
    // The page is a target (the engine names it by the address it was made
    // with, which may still be about:blank).
    EXPECT_NE(targets.find("/socket/1/1/WebPage"), std::string::npos) << targets;
    page->sendSignal(SIGTERM);
    page->finish(seconds(20));
}

TEST_F(PageHost, RunsAPageWhenStartedOnItsOwn) {
    const std::string app = device.install("idle");
    const ProcessResult result =
        runProcess({KV_PAGE_HOST_PATH, "--device", device.dir(), app, "--plugin",
                    KV_HOST_TEST_PLUGIN, "--timeout", "2"},
                   {{"KV_PAGE_DISPLAY", "virtual"}, {"ECORE_NO_SYSTEM_MODULES", "1"}});
    EXPECT_EQ(result.exitCode, 124) << result.err;
    EXPECT_NE(result.out.find("idle: ready object"), std::string::npos) << result.out;
}

TEST_F(PageHost, RefusesPageOptionsForAScriptApp) {
    const std::string app = device.install("script-only");
    const ProcessResult result = device.run(app, with(PageDevice::hostTestPlugin(), {"--inspect"}));
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_NE(result.err.find("are for apps that are pages; the content of scriptpg1.ScriptOnly "
                              "is main.js"),
              std::string::npos)
        << result.err;
}

TEST_F(PageHost, EndsWithOneWhenThePageIsMissing) {
    const std::string app = device.install("missing-page");
    const ProcessResult result = device.run(app, PageDevice::hostTestPlugin());
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("kv-runtime: cannot load the page " +
                              pageUrl("missingp1", "not-there.html")),
              std::string::npos)
        << result.err;
}

TEST_F(PageHost, EndsWithFourWhenAPluginCannotBeLoaded) {
    const std::string app = device.install("idle");
    const ProcessResult result = device.run(app, {"--plugin", device.file("no-such-plugin.so")});
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_NE(result.err.find("no-such-plugin.so"), std::string::npos) << result.err;
}

}  // namespace
}  // namespace KvTest
