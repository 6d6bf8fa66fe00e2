#include "DeviceTestSupport.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace KvTest {

namespace {

std::string makeTempFolder() {
    std::string pattern = testing::TempDir() + "kv-device-test-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("mkdtemp failed for " + pattern);
    }
    return pattern;
}

std::string readAll(int fd) {
    std::string output;
    char buffer[4096];
    ssize_t length;
    while ((length = read(fd, buffer, sizeof buffer)) > 0 || (length < 0 && errno == EINTR)) {
        if (length > 0) {
            output.append(buffer, static_cast<size_t>(length));
        }
    }
    return output;
}

}  // namespace

TempDevice::TempDevice() : m_base(makeTempFolder()), m_path(m_base + "/device") {
    if (const char* previous = std::getenv("KV_DEVICE")) {
        m_previous = previous;
    }
    setenv("KV_DEVICE", m_path.c_str(), 1);
}

TempDevice::~TempDevice() {
    if (m_previous) {
        setenv("KV_DEVICE", m_previous->c_str(), 1);
    } else {
        unsetenv("KV_DEVICE");
    }
    std::error_code ignored;
    fs::remove_all(m_base, ignored);
}

TempFolder::TempFolder() : m_path(makeTempFolder()) {}

TempFolder::~TempFolder() {
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
}

std::string appConfigXml(const std::string& package, const std::string& appId,
                         const std::string& extra) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<widget id=\"http://example.org/" +
           package +
           "\" version=\"1.0\">\n"
           "  <name>App " +
           package + "</name>\n  <application id=\"" + appId + "\" package=\"" + package +
           "\"/>\n" + extra + "  <content src=\"main.js\"/>\n</widget>\n";
}

void writeTextFile(const std::string& path, const std::string& content) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
}

void writeEmptyProfile(const std::string& path) {
    writeTextFile(path, "<?xml version=\"1.0\"?>\n<resources/>\n");
}

void makeAppFolder(const std::string& folder, const std::string& package, const std::string& appId,
                   const std::string& extra) {
    writeTextFile(folder + "/config.xml", appConfigXml(package, appId, extra));
    writeTextFile(folder + "/main.js", "console.log('" + appId + "');\n");
}

void openToEveryone(const std::string& path) {
    const std::string top = testing::TempDir();
    for (fs::path part = path; part.string().size() > top.size(); part = part.parent_path()) {
        chmod(part.c_str(), 0755);
    }
}

ProcessResult runProcess(const std::vector<std::string>& argv) {
    std::vector<char*> arguments;
    arguments.reserve(argv.size() + 1);
    for (const std::string& argument : argv) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    int pipeFds[2];
    if (pipe(pipeFds) != 0) {
        return {-1, "pipe failed"};
    }
    const pid_t child = fork();
    if (child == 0) {
        dup2(pipeFds[1], STDOUT_FILENO);
        dup2(pipeFds[1], STDERR_FILENO);
        close(pipeFds[0]);
        close(pipeFds[1]);
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    close(pipeFds[1]);
    const std::string output = readAll(pipeFds[0]);
    close(pipeFds[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

}  // namespace KvTest
