// Helpers of the device platform tests: a temporary device folder that is
// the process's device while it lives, app folders, and child processes.
#ifndef KV_TESTS_DEVICE_TEST_SUPPORT_H
#define KV_TESTS_DEVICE_TEST_SUPPORT_H

#include <optional>
#include <string>
#include <vector>

namespace KvTest {

// A fresh device folder under the test's temporary folder, selected through
// KV_DEVICE while the object lives; the previous KV_DEVICE comes back and
// the folder is removed at the end.
class TempDevice {
public:
    TempDevice();
    ~TempDevice();
    TempDevice(const TempDevice&) = delete;
    TempDevice& operator=(const TempDevice&) = delete;

    const std::string& path() const { return m_path; }

private:
    std::string m_base;
    std::string m_path;
    std::optional<std::string> m_previous;
};

// A temporary folder removed with the object.
class TempFolder {
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

// The config.xml of an app with this package and id, plus `extra` inside
// <widget> (privileges, metadata).
std::string appConfigXml(const std::string& package, const std::string& appId,
                         const std::string& extra = {});

// Writes `content` to `path`, creating its folders.
void writeTextFile(const std::string& path, const std::string& content);

// Makes an app folder `folder` with a config.xml and a main.js.
// Writes a service-profile file that declares no profile at `path`, so that
// an app whose metadata names it installs.
void writeEmptyProfile(const std::string& path);

void makeAppFolder(const std::string& folder, const std::string& package, const std::string& appId,
                   const std::string& extra = {});

// Makes `path` and its folders up to the test's temporary folder readable
// and searchable by any user.
void openToEveryone(const std::string& path);

struct ProcessResult {
    int exitCode;        // -1 when the process did not exit normally
    std::string output;  // stdout and stderr together
};

// Runs `argv` as a child process (searching PATH) and waits for it.
ProcessResult runProcess(const std::vector<std::string>& argv);

}  // namespace KvTest

#endif
