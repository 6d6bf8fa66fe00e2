// Helpers of the two-device tests: the shared two-device harness
// (TwoDevices.h), the test apps of tests/e2e/apps, and a work folder per test.
#ifndef KV_TESTS_E2E_SUPPORT_H
#define KV_TESTS_E2E_SUPPORT_H

#include <TwoDevices.h>

#include <memory>
#include <string>
#include <vector>

namespace KvE2e {

// The folder of the test app tests/e2e/apps/NAME.
std::string testApp(const std::string& name);

// A fresh work folder for one test under the system's temporary folder
// (short, since a device's socket path must fit a Unix address). It is
// removed when the object goes, unless the test has failed: then its path is
// printed and the devices' logs stay for a look.
class WorkFolder {
public:
    WorkFolder();
    ~WorkFolder();
    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;

    const std::string& path() const { return m_path; }
    operator const std::string&() const { return m_path; }

private:
    std::string m_path;
};

// Waits until the file at `path` holds `text` (an app's log, say); false
// after the timeout.
bool waitForText(const std::string& path, const std::string& text,
                 milliseconds timeout = seconds(10));

// How many times `line` stands in `text` as a whole line.
int countLines(const std::string& text, const std::string& line);

// A watch app and a phone app run on a pair of devices, their outputs
// labelled "watch" and "phone" in the work folder.
class AppsOnPair {
public:
    explicit AppsOnPair(const DevicePair& devices) : m_devices(devices) {}

    // Starts the watch app with `watchArguments` and waits until it says
    // "watch: ready", then the phone app, until it says `phoneReady`.
    void start(const std::string& watchApp, const std::vector<std::string>& watchArguments,
               const std::string& phoneApp, const std::vector<std::string>& phoneArguments,
               const std::string& phoneReady = "phone: found");

    // What both apps printed so far, the phone's first.
    std::string both() const;
    // Waits until the app printed `line` (and a line end); a test failure
    // with both outputs otherwise.
    void expectPhone(const std::string& line, milliseconds timeout = seconds(20));
    void expectWatch(const std::string& line, milliseconds timeout = seconds(20));

    std::unique_ptr<AppRun> watch;
    std::unique_ptr<AppRun> phone;

private:
    void expect(AppRun& app, const std::string& label, const std::string& line,
                milliseconds timeout) const;

    const DevicePair& m_devices;
};

}  // namespace KvE2e

#endif
