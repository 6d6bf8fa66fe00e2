// Two emulated devices (a watch and a phone) with their accessory services
// paired and linked, web apps run on them by the runtime host with the real
// plug-in and client library, faults on the devices' daemons, and a bounded
// CPU load. Shared by the two-device tests and the benchmarks; it needs the
// programs' paths as KV_ACCESSORY_TOOL, KV_RUNTIME_PATH and KV_PLUGIN_DIR.
#ifndef KV_TESTS_SUPPORT_TWO_DEVICES_H
#define KV_TESTS_SUPPORT_TWO_DEVICES_H

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace KvE2e {

using std::chrono::milliseconds;
using std::chrono::seconds;

// Two device folders, "watch" and "phone", under `work` (made afresh),
// paired, with their daemons started and linked (over TLS, or plain TCP when
// `insecure`) on the link of `linkProfile` (one of kv-accessory's; unshaped
// when empty): the watch listens, the phone connects. The daemons are
// stopped when the object goes.
class DevicePair {
public:
    explicit DevicePair(const std::string& work, bool insecure = false,
                        const std::string& linkProfile = "");
    ~DevicePair();
    DevicePair(const DevicePair&) = delete;
    DevicePair& operator=(const DevicePair&) = delete;

    const std::string& watch() const { return m_watch; }
    const std::string& phone() const { return m_phone; }
    const std::string& work() const { return m_work; }

    // Installs the app in `folder` on `device`; returns its id.
    std::string install(const std::string& device, const std::string& folder) const;

    // Kills the device's daemon with SIGKILL: it cleans nothing up.
    void killDaemon(const std::string& device) const;
    // Starts the device's daemon again with the link it had.
    void startDaemon(const std::string& device) const;
    // Drops the device's link and keeps it down, or allows it again.
    void setLink(const std::string& device, bool up) const;
    // Runs kv-accessory with `arguments` (a fault, a storage limit); throws
    // with its error output when it fails.
    void tool(const std::vector<std::string>& arguments) const;
    // Gives `device` a screen (kv-device screen WORDS...: "watch", "phone").
    void setScreen(const std::string& device, const std::string& screen) const;
    // Waits until both daemons report the link up; false after `timeout`.
    bool waitLinked(milliseconds timeout = seconds(10)) const;
    // The fingerprint of the device's certificate.
    std::string fingerprint(const std::string& device) const;

private:
    std::string m_work;
    std::string m_watch;
    std::string m_phone;
};

// One run of an installed app under kv-runtime, its standard output and
// error going to files in the work folder (so that a long run never blocks
// on a full pipe), its platform log to <work>/<label>.log. `runOptions` go
// to kv-runtime run (a page's --driver, say); a page app gets a virtual
// display of its own.
class AppRun {
public:
    AppRun(const std::string& device, const std::string& appId, const std::string& label,
           const std::string& work, const std::vector<std::string>& arguments = {},
           seconds timeout = seconds(120), const std::vector<std::string>& runOptions = {});
    // Kills the app if it still runs.
    ~AppRun();
    AppRun(const AppRun&) = delete;
    AppRun& operator=(const AppRun&) = delete;

    // Waits until the app's standard output holds `text`; false when the app
    // ended or `timeout` passed first.
    bool waitForOutput(const std::string& text, milliseconds timeout = seconds(20));
    // Waits for the app's end (killing it after `timeout`); its exit code, or
    // -1 when a signal ended it.
    int finish(milliseconds timeout = seconds(120));
    void kill(int signal) const;
    pid_t pid() const { return m_pid; }

    // What the app printed so far: standard output, then standard error.
    std::string output() const;

private:
    bool ended();

    std::string m_label;
    std::string m_out;
    std::string m_err;
    pid_t m_pid = -1;
    int m_exitCode = -1;
};

// Keeps `workers` processes spinning on the CPU until the object goes, or
// at most `limit`: each worker also ends itself when the limit passes, so
// that no load outlives a crashed test.
class CpuLoad {
public:
    explicit CpuLoad(int workers = 2, seconds limit = seconds(600));
    ~CpuLoad();
    CpuLoad(const CpuLoad&) = delete;
    CpuLoad& operator=(const CpuLoad&) = delete;

private:
    std::vector<pid_t> m_workers;
};

// The content of a file; empty when it can't be read.
std::string readText(const std::string& path);

}  // namespace KvE2e

#endif
