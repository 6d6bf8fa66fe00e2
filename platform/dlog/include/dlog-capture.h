// A test hook of the platform log: while a DlogCapture lives, every line
// logged is also recorded in it, whatever the level filter lets through, so
// tests can assert the log lines a component writes. Captures nest; each sees the lines written
// during its own lifetime.
#ifndef KV_PLATFORM_DLOG_CAPTURE_H
#define KV_PLATFORM_DLOG_CAPTURE_H

#include <dlog.h>

#include <mutex>
#include <string>
#include <vector>

struct DlogLine {
    int priority;
    std::string tag;
    std::string message;  // the formatted message, prefix included
};

class DlogCapture {
public:
    DlogCapture();
    ~DlogCapture();
    DlogCapture(const DlogCapture&) = delete;
    DlogCapture& operator=(const DlogCapture&) = delete;

    std::vector<DlogLine> lines() const;
    // True when a recorded line has this priority and its message contains `text`.
    bool contains(int priority, const std::string& text) const;
    // Number of recorded lines whose message contains `text`, at any priority.
    size_t count(const std::string& text) const;
    void clear();

    // Called by the log for every written line.
    void record(const DlogLine& line);

private:
    mutable std::mutex m_mutex;
    std::vector<DlogLine> m_lines;
};

#endif
