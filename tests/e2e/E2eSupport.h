// Helpers of the two-device tests: the shared two-device harness
// (TwoDevices.h), the test apps of tests/e2e/apps, and a work folder per test.
#ifndef KV_TESTS_E2E_SUPPORT_H
#define KV_TESTS_E2E_SUPPORT_H

#include <TwoDevices.h>

#include <string>

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

}  // namespace KvE2e

#endif
