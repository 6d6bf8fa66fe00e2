#include <dlog-capture.h>
#include <dlog.h>

#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>
#include <vector>

namespace {

// Maps a level name or its first letter to a priority; INFO when unknown.
int parseLevel(const char* text) {
    if (text == nullptr || *text == '\0') {
        return DLOG_INFO;
    }
    static const struct {
        char letter;
        int priority;
    } levels[] = {{'V', DLOG_VERBOSE}, {'D', DLOG_DEBUG}, {'I', DLOG_INFO},  {'W', DLOG_WARN},
                  {'E', DLOG_ERROR},   {'F', DLOG_FATAL}, {'S', DLOG_SILENT}};
    const char first = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    for (const auto& level : levels) {
        if (level.letter == first) {
            return level.priority;
        }
    }
    return DLOG_INFO;
}

char priorityLetter(int priority) {
    static const char letters[] = "??VDIWEFS";
    return priority >= 0 && priority < DLOG_PRIO_MAX ? letters[priority] : '?';
}

// The process-wide sink: the level filter, the output stream and the live
// captures. Built on first use from the environment and never destroyed, so
// that code running in static destructors can still log.
class Sink {
public:
    static Sink& instance() {
        static Sink* sink = new Sink;
        return *sink;
    }

    void write(int priority, const char* tag, const std::string& message) {
        std::lock_guard<std::mutex> lock(m_mutex);
        const DlogLine line{priority, tag, message};
        for (DlogCapture* capture : m_captures) {
            capture->record(line);
        }
        if (priority < m_minimum) {
            return;
        }
        // One write per line: the stream gathers it, the flush writes it.
        std::fprintf(m_out, "%s %c/%s(%5d): %s\n", timestamp().c_str(), priorityLetter(priority),
                     tag, static_cast<int>(processId()), message.c_str());
        std::fflush(m_out);
    }

    // Lines at or above this priority are written or captured.
    bool enabled(int priority) const { return priority >= m_threshold.load(); }

    void attach(DlogCapture* capture) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_captures.push_back(capture);
        updateThreshold();
    }

    void detach(DlogCapture* capture) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_captures.erase(std::remove(m_captures.begin(), m_captures.end(), capture),
                         m_captures.end());
        updateThreshold();
    }

private:
    Sink() : m_minimum(parseLevel(std::getenv("KV_LOG_LEVEL"))), m_threshold(m_minimum) {
        // The process id is asked once, and again in a child after a fork.
        pthread_atfork(nullptr, nullptr, [] { cachedPid = 0; });
        const char* path = std::getenv("KV_LOG_FILE");
        if (path != nullptr && *path != '\0') {
            m_file = std::fopen(path, "ae");
            if (m_file == nullptr) {
                std::fprintf(stderr, "dlog: cannot open KV_LOG_FILE %s: %s\n", path,
                             std::strerror(errno));
            }
        }
        m_out = m_file != nullptr ? m_file : stderr;
    }

    // Captures see every line, whatever the level.
    void updateThreshold() { m_threshold = m_captures.empty() ? m_minimum : DLOG_VERBOSE; }

    static pid_t processId() {
        if (cachedPid == 0) {
            cachedPid = getpid();
        }
        return cachedPid;
    }

    static std::string timestamp() {
        timeval now{};
        gettimeofday(&now, nullptr);
        tm local{};
        localtime_r(&now.tv_sec, &local);
        char text[32];
        const size_t length = std::strftime(text, sizeof text, "%H:%M:%S", &local);
        std::snprintf(text + length, sizeof text - length, ".%03ld",
                      static_cast<long>(now.tv_usec / 1000));
        return text;
    }

    static inline pid_t cachedPid = 0;
    std::mutex m_mutex;
    int m_minimum;
    std::atomic<int> m_threshold;
    FILE* m_file = nullptr;
    FILE* m_out = stderr;
    std::vector<DlogCapture*> m_captures;
};

std::string formatMessage(const char* fmt, va_list args) {
    va_list measure;
    va_copy(measure, args);
    const int length = std::vsnprintf(nullptr, 0, fmt, measure);
    va_end(measure);
    if (length <= 0) {
        return {};
    }
    std::string message(static_cast<size_t>(length) + 1, '\0');
    std::vsnprintf(message.data(), message.size(), fmt, args);
    message.resize(static_cast<size_t>(length));
    return message;
}

}  // namespace

extern "C" int dlog_is_enabled(int prio) { return Sink::instance().enabled(prio) ? 1 : 0; }

extern "C" int __dlog_print(log_id_t log_id, int prio, const char* tag, const char* fmt, ...) {
    if (fmt == nullptr || log_id < LOG_ID_MAIN || log_id >= LOG_ID_MAX || prio <= DLOG_DEFAULT ||
        prio >= DLOG_SILENT) {
        return DLOG_ERROR_INVALID_PARAMETER;
    }
    va_list args;
    va_start(args, fmt);
    const std::string message = formatMessage(fmt, args);
    va_end(args);
    Sink::instance().write(prio, tag != nullptr ? tag : "", message);
    return static_cast<int>(message.size());
}

DlogCapture::DlogCapture() { Sink::instance().attach(this); }

DlogCapture::~DlogCapture() { Sink::instance().detach(this); }

std::vector<DlogLine> DlogCapture::lines() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

bool DlogCapture::contains(int priority, const std::string& text) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return std::any_of(m_lines.begin(), m_lines.end(), [&](const DlogLine& line) {
        return line.priority == priority && line.message.find(text) != std::string::npos;
    });
}

size_t DlogCapture::count(const std::string& text) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<size_t>(std::count_if(
        m_lines.begin(), m_lines.end(),
        [&](const DlogLine& line) { return line.message.find(text) != std::string::npos; }));
}

void DlogCapture::clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
}

void DlogCapture::record(const DlogLine& line) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.push_back(line);
}
