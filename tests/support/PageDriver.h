// The test side of a page host's driver socket (kv-runtime run APP --driver
// SOCKET): commands a page as a person would use it and reads what it
// shows. See runtime/README.md, "Driving a page", for the commands.
#ifndef KV_TESTS_SUPPORT_PAGE_DRIVER_H
#define KV_TESTS_SUPPORT_PAGE_DRIVER_H

#include <chrono>
#include <string>

namespace KvTest {

class PageDriver {
public:
    // Talks to the host listening on `socketPath` (connecting on first use,
    // waiting for the host to listen).
    explicit PageDriver(std::string socketPath);
    ~PageDriver();
    PageDriver(const PageDriver&) = delete;
    PageDriver& operator=(const PageDriver&) = delete;

    // Sends one command line and returns the answer line ("ok ...", "error
    // ..."); "error no answer" when there was none within `timeout`.
    std::string command(const std::string& line,
                        std::chrono::milliseconds timeout = std::chrono::seconds(10));

    // The value of "ok VALUE" answers (empty for a bare "ok"); throws
    // std::runtime_error with the answer otherwise.
    std::string value(const std::string& line);

    void click(const std::string& selector) { value("click " + selector); }
    // The element's text content (the JSON string decoded for plain text).
    std::string text(const std::string& selector);
    // The JSON of an expression's value in the page.
    std::string eval(const std::string& expression) { return value("eval " + expression); }

    // Waits until the element's text contains `expected`; false after
    // `timeout`, or when the element never shows up.
    bool waitForText(const std::string& selector, const std::string& expected,
                     std::chrono::milliseconds timeout = std::chrono::seconds(15));

private:
    bool connect(std::chrono::milliseconds timeout);

    std::string m_path;
    int m_fd = -1;
    std::string m_buffer;
};

// The text of a JSON string literal, with its escapes undone (for the
// answers of text and eval); other JSON comes back as it is.
std::string jsonText(const std::string& json);

}  // namespace KvTest

#endif
