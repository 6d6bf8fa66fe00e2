// A temporary device for the page host's tests: installs the apps of
// tests/page/apps with kv-runtime, and runs them with kv-runtime run (which
// hands pages to kv-page-host) on a virtual display of their own, their
// platform log in one file.
#ifndef KV_TESTS_PAGE_PAGE_DEVICE_H
#define KV_TESTS_PAGE_PAGE_DEVICE_H

#include "ChildProcess.h"
#include "TestFiles.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace KvTest {

class PageDevice {
public:
    PageDevice();

    // Installs apps/<appFolder>; returns the app id.
    std::string install(const std::string& appFolder) const;
    // Sets the device's screen (kv-device screen WORDS...).
    void setScreen(const std::vector<std::string>& words) const;

    // The options that load the host test plug-in, or the kv plug-in with
    // the client library double and the kvdouble plug-in.
    static std::vector<std::string> hostTestPlugin();
    static std::vector<std::string> kvWithDouble();

    // Starts kv-runtime run APP_ID OPTIONS... -- ARGUMENTS... (with a time
    // limit of 30 s unless the options give one).
    std::unique_ptr<ChildProcess> start(const std::string& appId,
                                        const std::vector<std::string>& options,
                                        const std::vector<std::string>& arguments = {}) const;
    // The same, to its end, with `environment` added to the device's.
    ProcessResult run(const std::string& appId, const std::vector<std::string>& options,
                      const std::vector<std::string>& arguments = {},
                      const std::map<std::string, std::string>& environment = {}) const;

    std::string dir() const { return m_dir.file("device"); }
    // A path in the test's folder (outside the device).
    std::string file(const std::string& name) const { return m_dir.file(name); }
    // The driver socket's path for --driver.
    std::string driverSocket() const { return m_dir.file("driver.sock"); }
    // The platform log of every process of the device.
    std::string log() const;

private:
    std::vector<std::string> command(const std::string& appId,
                                     const std::vector<std::string>& options,
                                     const std::vector<std::string>& arguments) const;

    TempDir m_dir;
};

// The lines of `log` that contain `text`, in order, without the log's prefix
// (time, level, tag, process, place).
std::vector<std::string> logMessages(const std::string& log, const std::string& text);

}  // namespace KvTest

#endif
