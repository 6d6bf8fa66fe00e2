#include "ChildProcess.h"

#include <fcntl.h>
#include <kv-cli/ExecArguments.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

extern char** environ;

namespace KvTest {

namespace {

using Clock = std::chrono::steady_clock;

std::vector<std::string> mergedEnvironment(const std::map<std::string, std::string>& extra) {
    std::map<std::string, std::string> merged;
    for (char** entry = environ; *entry; ++entry) {
        const std::string text = *entry;
        const size_t equals = text.find('=');
        if (equals != std::string::npos) {
            merged[text.substr(0, equals)] = text.substr(equals + 1);
        }
    }
    for (const auto& [name, value] : extra) {
        merged[name] = value;
    }
    std::vector<std::string> result;
    result.reserve(merged.size());
    for (const auto& [name, value] : merged) {
        result.push_back(name + "=" + value);
    }
    return result;
}

// Reads what one pipe has; returns false and closes it at its end.
bool drain(int& fd, std::string& into) {
    char buffer[4096];
    const ssize_t count = read(fd, buffer, sizeof buffer);
    if (count > 0) {
        into.append(buffer, static_cast<size_t>(count));
        return true;
    }
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) {
        return true;
    }
    close(fd);
    fd = -1;
    return false;
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& arguments,
                           const std::map<std::string, std::string>& environment) {
    int out[2];
    int err[2];
    if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) {
        throw std::runtime_error(std::string("pipe: ") + std::strerror(errno));
    }
    std::vector<std::string> argumentCopy = arguments;
    std::vector<std::string> environmentCopy = mergedEnvironment(environment);
    std::vector<char*> argv = Kv::Cli::execArguments(argumentCopy);
    std::vector<char*> envp = Kv::Cli::execArguments(environmentCopy);
    m_pid = fork();
    if (m_pid == 0) {
        dup2(out[1], STDOUT_FILENO);
        dup2(err[1], STDERR_FILENO);
        execve(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    close(out[1]);
    close(err[1]);
    m_out = out[0];
    m_err = err[0];
}

ChildProcess::~ChildProcess() {
    if (m_pid > 0) {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
    for (int fd : {m_out, m_err}) {
        if (fd >= 0) {
            close(fd);
        }
    }
}

bool ChildProcess::readSome(std::chrono::milliseconds wait) {
    pollfd fds[2] = {{m_out, POLLIN, 0}, {m_err, POLLIN, 0}};
    if (m_out < 0 && m_err < 0) {
        return false;
    }
    if (poll(fds, 2, static_cast<int>(wait.count())) <= 0) {
        return true;
    }
    if (fds[0].revents) {
        drain(m_out, m_result.out);
    }
    if (fds[1].revents) {
        drain(m_err, m_result.err);
    }
    return m_out >= 0 || m_err >= 0;
}

bool ChildProcess::waitForOutput(const std::string& text, std::chrono::milliseconds timeout) {
    return waitFor(m_result.out, text, timeout);
}

bool ChildProcess::waitForError(const std::string& text, std::chrono::milliseconds timeout) {
    return waitFor(m_result.err, text, timeout);
}

bool ChildProcess::waitFor(const std::string& stream, const std::string& text,
                           std::chrono::milliseconds timeout) {
    const Clock::time_point deadline = Clock::now() + timeout;
    while (stream.find(text) == std::string::npos) {
        if (Clock::now() >= deadline || !readSome(std::chrono::milliseconds(50))) {
            return stream.find(text) != std::string::npos;
        }
    }
    return true;
}

void ChildProcess::sendSignal(int signal) { kill(m_pid, signal); }

ProcessResult ChildProcess::finish(std::chrono::milliseconds timeout) {
    const Clock::time_point deadline = Clock::now() + timeout;
    while (readSome(std::chrono::milliseconds(50))) {
        if (Clock::now() >= deadline) {
            kill(m_pid, SIGKILL);
        }
    }
    int status = 0;
    waitpid(m_pid, &status, 0);
    m_pid = -1;
    if (WIFEXITED(status)) {
        m_result.exitCode = WEXITSTATUS(status);
    } else if (WIFSIGNALED(status)) {
        m_result.signal = WTERMSIG(status);
    }
    return m_result;
}

ProcessResult runProcess(const std::vector<std::string>& arguments,
                         const std::map<std::string, std::string>& environment,
                         std::chrono::milliseconds timeout) {
    return ChildProcess(arguments, environment).finish(timeout);
}

}  // namespace KvTest
