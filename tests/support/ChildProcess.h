// Runs a program as a child process for the tests, with its stdout and
// stderr captured, and lets a test wait for output and send signals.
#ifndef KV_TESTS_RUNTIME_CHILD_PROCESS_H
#define KV_TESTS_RUNTIME_CHILD_PROCESS_H

#include <sys/types.h>
#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace KvTest {

struct ProcessResult {
    int exitCode = -1;  // -1 when the process was killed by a signal
    int signal = 0;     // the killing signal, if any
    std::string out;
    std::string err;
};

class ChildProcess {
public:
    // Starts `arguments[0]` with the given arguments; `environment` entries
    // are added to (or replace those of) the test's own environment.
    ChildProcess(const std::vector<std::string>& arguments,
                 const std::map<std::string, std::string>& environment = {});
    // Kills the process if it still runs.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Reads output until stdout contains `text`; false when the process ended
    // or `timeout` passed first.
    bool waitForOutput(const std::string& text, std::chrono::milliseconds timeout);
    // The same for stderr.
    bool waitForError(const std::string& text, std::chrono::milliseconds timeout);
    void sendSignal(int signal);
    // Waits for the process to end (killing it after `timeout`) and returns
    // what it did.
    ProcessResult finish(std::chrono::milliseconds timeout = std::chrono::seconds(30));

private:
    // Reads what is available within `wait`; false once both pipes are closed.
    bool readSome(std::chrono::milliseconds wait);
    // Reads output until `stream` (m_result.out or .err) contains `text`.
    bool waitFor(const std::string& stream, const std::string& text,
                 std::chrono::milliseconds timeout);

    pid_t m_pid = -1;
    int m_out = -1;
    int m_err = -1;
    ProcessResult m_result;
};

// Starts the program and waits for its end.
ProcessResult runProcess(const std::vector<std::string>& arguments,
                         const std::map<std::string, std::string>& environment = {},
                         std::chrono::milliseconds timeout = std::chrono::seconds(30));

}  // namespace KvTest

#endif
