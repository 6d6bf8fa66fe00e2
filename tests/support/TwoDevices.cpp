#include "TwoDevices.h"

#include <ChildProcess.h>
#include <fcntl.h>
#include <kv-cli/ExecArguments.h>
#include <kv-device/Process.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace KvE2e {

namespace {

using Clock = std::chrono::steady_clock;
constexpr milliseconds kPollPause(20);

// Runs the kv-accessory tool; throws with its output when it fails.
void accessoryTool(const std::vector<std::string>& arguments) {
    std::vector<std::string> command{KV_ACCESSORY_TOOL};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const KvTest::ProcessResult result = KvTest::runProcess(command);
    if (result.exitCode != 0) {
        throw std::runtime_error("kv-accessory " + arguments.front() + " failed: " + result.err);
    }
}

bool linked(const std::string& device) {
    const KvTest::ProcessResult result = KvTest::runProcess({KV_ACCESSORY_TOOL, "status", device});
    return result.exitCode == 0 && result.out.find("link: up") != std::string::npos;
}

[[noreturn]] void execApp(const std::vector<std::string>& command, const std::string& out,
                          const std::string& err, const std::string& log) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int outFd = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int errFd = ::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ::dup2(outFd, STDOUT_FILENO);
    ::dup2(errFd, STDERR_FILENO);
    ::setenv("KV_LOG_FILE", log.c_str(), 1);
    ::setenv("ECORE_NO_SYSTEM_MODULES", "1", 1);
    ::setenv("KV_PAGE_DISPLAY", "virtual", 1);
    std::vector<std::string> words = command;
    std::vector<char*> argv = Kv::Cli::execArguments(words);
    ::execv(argv[0], argv.data());
    ::_exit(127);
}

[[noreturn]] void spin(seconds limit) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::alarm(static_cast<unsigned>(limit.count()));
    volatile unsigned long counter = 0;
    for (;;) {
        counter = counter + 1;
    }
}

}  // namespace

std::string readText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

DevicePair::DevicePair(const std::string& work, bool insecure, const std::string& linkProfile)
    : m_work(work), m_watch(work + "/watch"), m_phone(work + "/phone") {
    accessoryTool({"create", m_watch, m_phone});
    std::vector<std::string> pair{"pair", m_watch, m_phone};
    if (insecure) {
        pair.push_back("--insecure");
    }
    if (!linkProfile.empty()) {
        pair.insert(pair.end(), {"--link-profile", linkProfile});
    }
    accessoryTool(pair);
}

void DevicePair::tool(const std::vector<std::string>& arguments) const { accessoryTool(arguments); }

void DevicePair::setScreen(const std::string& device, const std::string& screen) const {
    const KvTest::ProcessResult result =
        KvTest::runProcess({KV_DEVICE_TOOL, "--device", device, "screen", screen});
    if (result.exitCode != 0) {
        throw std::runtime_error("kv-device screen failed: " + result.err);
    }
}

std::string DevicePair::fingerprint(const std::string& device) const {
    const KvTest::ProcessResult result =
        KvTest::runProcess({KV_ACCESSORY_TOOL, "identity", device});
    const std::string prefix = "certificate: ";
    const std::size_t at = result.out.find(prefix);
    return at == std::string::npos
               ? std::string()
               : result.out.substr(at + prefix.size(),
                                   result.out.find('\n', at) - at - prefix.size());
}

DevicePair::~DevicePair() { KvTest::runProcess({KV_ACCESSORY_TOOL, "stop", m_watch, m_phone}); }

std::string DevicePair::install(const std::string& device, const std::string& folder) const {
    const KvTest::ProcessResult result =
        KvTest::runProcess({KV_RUNTIME_PATH, "--device", device, "install", folder});
    if (result.exitCode != 0) {
        throw std::runtime_error("cannot install " + folder + ": " + result.err);
    }
    return result.out.substr(0, result.out.find('\n'));
}

void DevicePair::killDaemon(const std::string& device) const {
    const pid_t pid = static_cast<pid_t>(std::stol(readText(device + "/accessoryd.pid")));
    ::kill(pid, SIGKILL);
    while (Kv::Device::processRunning(pid)) {
        std::this_thread::sleep_for(kPollPause);
    }
}

void DevicePair::startDaemon(const std::string& device) const { accessoryTool({"start", device}); }

void DevicePair::setLink(const std::string& device, bool up) const {
    accessoryTool({up ? "attach" : "detach", device});
}

bool DevicePair::waitLinked(milliseconds timeout) const {
    const auto deadline = Clock::now() + timeout;
    while (Clock::now() < deadline) {
        if (linked(m_watch) && linked(m_phone)) {
            return true;
        }
        std::this_thread::sleep_for(kPollPause);
    }
    return false;
}

AppRun::AppRun(const std::string& device, const std::string& appId, const std::string& label,
               const std::string& work, const std::vector<std::string>& arguments, seconds timeout,
               const std::vector<std::string>& runOptions)
    : m_label(label), m_out(work + "/" + label + ".out"), m_err(work + "/" + label + ".err") {
    std::vector<std::string> command{KV_RUNTIME_PATH, "--device",  device,
                                     "run",           appId,       "--plugins",
                                     KV_PLUGIN_DIR,   "--timeout", std::to_string(timeout.count())};
    command.insert(command.end(), runOptions.begin(), runOptions.end());
    if (!arguments.empty()) {
        command.push_back("--");
        command.insert(command.end(), arguments.begin(), arguments.end());
    }
    const std::string log = work + "/" + label + ".log";
    m_pid = ::fork();
    if (m_pid < 0) {
        throw std::runtime_error("fork failed");
    }
    if (m_pid == 0) {
        execApp(command, m_out, m_err, log);
    }
}

AppRun::~AppRun() {
    if (m_pid > 0) {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }
}

bool AppRun::ended() {
    if (m_pid <= 0) {
        return true;
    }
    int status = 0;
    if (::waitpid(m_pid, &status, WNOHANG) != m_pid) {
        return false;
    }
    m_pid = -1;
    m_exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return true;
}

bool AppRun::waitForOutput(const std::string& text, milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    for (;;) {
        if (readText(m_out).find(text) != std::string::npos) {
            return true;
        }
        if (ended() || Clock::now() >= deadline) {
            return readText(m_out).find(text) != std::string::npos;
        }
        std::this_thread::sleep_for(kPollPause);
    }
}

int AppRun::finish(milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    while (!ended()) {
        if (Clock::now() >= deadline) {
            ::kill(m_pid, SIGKILL);
        }
        std::this_thread::sleep_for(kPollPause);
    }
    return m_exitCode;
}

void AppRun::kill(int signal) const {
    if (m_pid > 0) {
        ::kill(m_pid, signal);
    }
}

std::string AppRun::output() const {
    return "--- " + m_label + " stdout:\n" + readText(m_out) + "--- " + m_label + " stderr:\n" +
           readText(m_err);
}

CpuLoad::CpuLoad(int workers, seconds limit) {
    for (int i = 0; i < workers; ++i) {
        const pid_t pid = ::fork();
        if (pid == 0) {
            spin(limit);
        }
        if (pid > 0) {
            m_workers.push_back(pid);
        }
    }
}

CpuLoad::~CpuLoad() {
    for (pid_t pid : m_workers) {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
    }
}

}  // namespace KvE2e
