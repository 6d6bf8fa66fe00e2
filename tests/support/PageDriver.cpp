#include "PageDriver.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace KvTest {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

int connectTo(const std::string& path) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
        return fd;
    }
    ::close(fd);
    return -1;
}

}  // namespace

PageDriver::PageDriver(std::string socketPath) : m_path(std::move(socketPath)) {}

PageDriver::~PageDriver() {
    if (m_fd >= 0) {
        ::close(m_fd);
    }
}

bool PageDriver::connect(milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    while (m_fd < 0 && Clock::now() < deadline) {
        m_fd = connectTo(m_path);
        if (m_fd < 0) {
            std::this_thread::sleep_for(milliseconds(50));
        }
    }
    return m_fd >= 0;
}

std::string PageDriver::command(const std::string& line, milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    if (!connect(timeout)) {
        return "error no driver at " + m_path;
    }
    const std::string text = line + "\n";
    if (::send(m_fd, text.data(), text.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(text.size())) {
        return "error cannot send";
    }
    while (m_buffer.find('\n') == std::string::npos) {
        const auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now());
        pollfd entry{m_fd, POLLIN, 0};
        if (left.count() <= 0 || ::poll(&entry, 1, static_cast<int>(left.count())) <= 0) {
            return "error no answer";
        }
        char chunk[4096];
        const ssize_t got = ::read(m_fd, chunk, sizeof chunk);
        if (got <= 0) {
            return "error the host closed the driver";
        }
        m_buffer.append(chunk, static_cast<size_t>(got));
    }
    std::string answer = m_buffer.substr(0, m_buffer.find('\n'));
    m_buffer.erase(0, answer.size() + 1);
    return answer;
}

std::string PageDriver::value(const std::string& line) {
    const std::string answer = command(line);
    if (answer == "ok") {
        return {};
    }
    if (answer.rfind("ok ", 0) == 0) {
        return answer.substr(3);
    }
    throw std::runtime_error("\"" + line + "\" answered: " + answer);
}

std::string PageDriver::text(const std::string& selector) {
    return jsonText(value("text " + selector));
}

bool PageDriver::waitForText(const std::string& selector, const std::string& expected,
                             milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    while (Clock::now() < deadline) {
        const std::string answer = command("text " + selector);
        if (answer.rfind("ok ", 0) == 0 &&
            jsonText(answer.substr(3)).find(expected) != std::string::npos) {
            return true;
        }
        std::this_thread::sleep_for(milliseconds(50));
    }
    return false;
}

std::string jsonText(const std::string& json) {
    if (json.size() < 2 || json.front() != '"' || json.back() != '"') {
        return json;
    }
    std::string text;
    for (size_t i = 1; i + 1 < json.size(); ++i) {
        if (json[i] != '\\' || i + 2 >= json.size()) {
            text += json[i];
            continue;
        }
        const char escaped = json[++i];
        switch (escaped) {
            case 'n':
                text += '\n';
                break;
            case 't':
                text += '\t';
                break;
            case 'u':  // the tests' pages say nothing beyond ASCII in escapes
                text += static_cast<char>(std::stoi(json.substr(i + 1, 4), nullptr, 16));
                i += 4;
                break;
            default:
                text += escaped;
        }
    }
    return text;
}

}  // namespace KvTest
