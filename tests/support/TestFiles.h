// Temporary folders and small file helpers for the runtime's tests.
#ifndef KV_TESTS_RUNTIME_TEST_FILES_H
#define KV_TESTS_RUNTIME_TEST_FILES_H

#include <string>
#include <vector>

namespace KvTest {

// A fresh folder under the system's temporary folder, removed with its
// content when the object goes.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return m_path; }
    std::string file(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

void writeFile(const std::string& path, const std::string& content);
// The file's content; empty when it cannot be read.
std::string readFile(const std::string& path);
// The file's lines, without their newlines.
std::vector<std::string> readLines(const std::string& path);

}  // namespace KvTest

#endif
