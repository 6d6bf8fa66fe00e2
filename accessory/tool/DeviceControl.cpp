#include <kv-accessory/DeviceControl.h>

#include <fcntl.h>
#include <kv-cli/ExecArguments.h>
#include <kv-device/Device.h>
#include <kv-device/FileUtil.h>
#include <kv-device/Process.h>
#include <kv-layout/Layout.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include "DaemonConnection.h"

namespace Kv {
namespace Accessory {

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kPollPause = std::chrono::milliseconds(20);

// $KV_ACCESSORYD when set, else the daemon where the build or an install
// puts it (found from this library's folder), else kv-accessoryd on PATH.
std::string daemonProgram() {
    if (const char* program = std::getenv("KV_ACCESSORYD")) {
        return program;
    }
    static const int anchor = 0;
    const std::optional<std::filesystem::path> found =
        Layout::find(Layout::moduleFolder(&anchor), KV_LAYOUT_PLACE(KV_ACCESSORYD));
    return found ? found->string() : KV_ACCESSORYD_NAME;
}

std::string daemonLog(const std::string& device) { return device + "/accessoryd.log"; }

// Replaces this process with the device's daemon, given `arguments`
// besides its device. Returns only when the daemon cannot be started, with
// the reason.
std::string execDaemon(const std::string& device, const std::vector<std::string>& arguments) {
    const std::string program = daemonProgram();
    std::vector<std::string> all{program, "--device", device};
    all.insert(all.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv = Kv::Cli::execArguments(all);
    ::execvp(argv[0], argv.data());
    return "cannot run " + program + ": " + std::strerror(errno);
}

// The child of a start in the background: a session of its own, its output
// into the device's daemon log.
[[noreturn]] void execDaemonInBackground(const std::string& device,
                                         const std::vector<std::string>& arguments) {
    ::setsid();
    const int log =
        ::open(daemonLog(device).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (log >= 0) {
        ::dup2(log, STDOUT_FILENO);
        ::dup2(log, STDERR_FILENO);
    }
    execDaemon(device, arguments);
    ::_exit(127);
}

std::optional<pid_t> daemonPid(const std::string& device) {
    const std::optional<std::string> text = Device::readFile(device + "/accessoryd.pid");
    if (!text) {
        return std::nullopt;
    }
    try {
        const pid_t pid = static_cast<pid_t>(std::stol(*text));
        return Device::processRunning(pid) ? std::optional<pid_t>(pid) : std::nullopt;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

// The size of the device's daemon log now: where the lines of a daemon
// started next begin.
std::size_t daemonLogSize(const std::string& device) {
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(daemonLog(device), error);
    return error ? 0 : static_cast<std::size_t>(size);
}

// Why the device's daemon ended at its start: the last failure line
// ("kv-accessoryd: <reason>") it wrote to its log past `logStart`, or
// nothing when there is none.
std::string startFailure(const std::string& device, std::size_t logStart) {
    const std::string written = Device::readFile(daemonLog(device)).value_or("");
    const std::string log = "\n" + written.substr(std::min(logStart, written.size()));
    const std::string prefix = "\n" + std::string(KV_ACCESSORYD_NAME) + ": ";
    const std::size_t at = log.rfind(prefix);
    if (at == std::string::npos) {
        return "";
    }
    const std::size_t start = at + prefix.size();
    return log.substr(start, log.find('\n', start) - start);
}

// The link options a device's daemon was last started with, one per line,
// kept so that a plain "start" brings the daemon back as it was.
std::string linkFile(const std::string& device) { return device + "/accessoryd.link"; }

std::vector<std::string> rememberedArguments(const std::string& device) {
    std::vector<std::string> arguments;
    if (const std::optional<std::string> text = Device::readFile(linkFile(device))) {
        std::size_t start = 0;
        for (std::size_t end; (end = text->find('\n', start)) != std::string::npos;
             start = end + 1) {
            arguments.push_back(text->substr(start, end - start));
        }
    }
    return arguments;
}

// Keeps `arguments`, with a listening port chosen by the system replaced by
// the port it chose, so that the paired device finds the daemon again.
void rememberArguments(const std::string& device, std::vector<std::string> arguments) {
    for (std::size_t i = 0; i + 1 < arguments.size(); ++i) {
        if (arguments[i] == "--listen" && arguments[i + 1].size() > 2 &&
            arguments[i + 1].compare(arguments[i + 1].size() - 2, 2, ":0") == 0) {
            arguments[i + 1].replace(arguments[i + 1].size() - 1, 1,
                                     std::to_string(listeningPort(device)));
        }
    }
    std::string text;
    for (const std::string& argument : arguments) {
        text += argument + "\n";
    }
    Device::writeFileAtomically(linkFile(device), text);
}

// The arguments of a start: those given, else those the device's daemon was
// last started with. Throws when the daemon runs already.
std::vector<std::string> startArguments(const std::string& device,
                                        const std::vector<std::string>& given) {
    Device::ensureLayout(device);
    if (daemonPid(device)) {
        throw std::runtime_error("the service of " + device + " already runs");
    }
    return given.empty() ? rememberedArguments(device) : given;
}

}  // namespace

void startDaemon(const std::string& device, const std::vector<std::string>& given) {
    const std::vector<std::string> arguments = startArguments(device, given);
    ::unlink((device + "/accessoryd.pid").c_str());
    const std::size_t logStart = daemonLogSize(device);
    const pid_t child = ::fork();
    if (child < 0) {
        throw std::runtime_error("cannot start the service: fork failed");
    }
    if (child == 0) {
        execDaemonInBackground(device, arguments);
    }
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    while (Clock::now() < deadline) {
        int status = 0;
        if (::waitpid(child, &status, WNOHANG) == child) {
            const std::string reason = startFailure(device, logStart);
            std::string message = "the service of " + device + " failed";
            if (!reason.empty()) {
                message += ": " + reason;
            }
            throw std::runtime_error(message + " (see " + device + "/accessoryd.log)");
        }
        if (daemonPid(device)) {
            rememberArguments(device, arguments);
            return;
        }
        std::this_thread::sleep_for(kPollPause);
    }
    throw std::runtime_error("the service of " + device + " did not start in time");
}

void runDaemonInForeground(const std::string& device, const std::vector<std::string>& given) {
    const std::vector<std::string> arguments = startArguments(device, given);
    std::fflush(stdout);
    throw std::runtime_error(execDaemon(device, arguments));
}

unsigned short listeningPort(const std::string& device) {
    const std::optional<std::string> text = Device::readFile(device + "/accessoryd.port");
    if (!text) {
        throw std::runtime_error("the service of " + device + " does not listen for a link");
    }
    return static_cast<unsigned short>(std::stoul(*text));
}

namespace {

// Opens a tool's session with the device's daemon, sends it `request` and
// returns its reply; the session stays open in `connection`.
wire::Reply controlRequest(const std::string& device, DaemonConnection& connection,
                           wire::Request request) {
    const auto deadline = Clock::now() + std::chrono::seconds(5);
    wire::ClientMessage message;
    message.mutable_request()->mutable_hello()->set_version(kProtocolVersion);
    message.mutable_request()->mutable_hello()->set_control(true);
    message.mutable_request()->set_serial(1);
    connection.write(encodeFrame(message), deadline);
    request.set_serial(2);
    *message.mutable_request() = std::move(request);
    connection.write(encodeFrame(message), deadline);
    for (;;) {
        while (std::optional<wire::ServiceMessage> received = connection.next()) {
            if (received->has_reply() && received->reply().serial() == 2) {
                return received->reply();
            }
        }
        if (!connection.waitReadable(deadline)) {
            throw std::runtime_error("the service of " + device + " does not answer");
        }
        connection.readAvailable();
    }
}

}  // namespace

wire::Reply control(const std::string& device, wire::Request request) {
    DaemonConnection connection(device + "/" + Device::kAccessorySocket);
    return controlRequest(device, connection, std::move(request));
}

void followTrace(const std::string& device,
                 const std::function<bool(const wire::TraceEvent&)>& onEvent) {
    DaemonConnection connection(device + "/" + Device::kAccessorySocket);
    wire::Request request;
    request.mutable_trace();
    if (controlRequest(device, connection, std::move(request)).result() != wire::RESULT_SUCCESS) {
        throw std::runtime_error("the service of " + device + " refused to be traced");
    }
    for (;;) {
        while (std::optional<wire::ServiceMessage> received = connection.next()) {
            if (received->has_event() && received->event().has_trace() &&
                !onEvent(received->event().trace())) {
                return;
            }
        }
        connection.waitReadable(Clock::now() + std::chrono::hours(24));
        try {
            connection.readAvailable();
        } catch (const std::runtime_error&) {
            return;  // the service closed the session
        }
    }
}

bool stopDaemon(const std::string& device) {
    const std::optional<pid_t> pid = daemonPid(device);
    if (!pid) {
        return false;
    }
    ::kill(*pid, SIGTERM);
    const auto deadline = Clock::now() + std::chrono::seconds(5);
    while (Device::processRunning(*pid) && Clock::now() < deadline) {
        ::waitpid(*pid, nullptr, WNOHANG);
        std::this_thread::sleep_for(kPollPause);
    }
    if (Device::processRunning(*pid)) {
        ::kill(*pid, SIGKILL);
    }
    return true;
}

bool waitLinked(const std::string& device, int timeoutMilliseconds) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMilliseconds);
    while (Clock::now() < deadline) {
        wire::Request request;
        request.mutable_status();
        if (control(device, request).attached()) {
            return true;
        }
        std::this_thread::sleep_for(kPollPause);
    }
    return false;
}

}  // namespace Accessory
}  // namespace Kv
