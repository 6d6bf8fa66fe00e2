// Writes log lines for the log's tests, which run it with different
// environments: "levels" writes one line at each priority; "threads N M" writes
// M lines from each of N threads; "lazy" prints how often the arguments of a
// filtered and of a written line were evaluated; "fork" logs in a child.
#include <Logger.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

namespace {

void writeLevels() {
    LOGD("debug line");
    LOGI("info line");
    LOGW("warn line");
    LOGE("error line");
}

void writeFromThreads(int threads, int lines) {
    std::vector<std::thread> writers;
    writers.reserve(threads);
    for (int t = 0; t < threads; ++t) {
        writers.emplace_back([t, lines] {
            for (int i = 0; i < lines; ++i) {
                LoggerI("thread " << t << " line " << i << " " << std::string(200, 'x'));
            }
        });
    }
    for (auto& writer : writers) {
        writer.join();
    }
}

int evaluations = 0;

int counted() { return ++evaluations; }

void writeLazily() {
    LoggerD("debug " << counted());
    LOGD("debug %d", counted());
    const int filtered = evaluations;
    LoggerW("warn " << counted());
    std::printf("filtered %d written %d\n", filtered, evaluations - filtered);
    std::fflush(stdout);
}

void writeFromAChild() {
    LOGI("parent line");
    const pid_t child = fork();
    if (child == 0) {
        LOGI("child line %d", static_cast<int>(getpid()));
        _exit(0);
    }
    waitpid(child, nullptr, 0);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc >= 2 && std::strcmp(argv[1], "lazy") == 0) {
        writeLazily();
        return 0;
    }
    if (argc >= 2 && std::strcmp(argv[1], "fork") == 0) {
        writeFromAChild();
        return 0;
    }
    if (argc >= 2 && std::strcmp(argv[1], "levels") == 0) {
        writeLevels();
        return 0;
    }
    if (argc >= 4 && std::strcmp(argv[1], "threads") == 0) {
        writeFromThreads(std::stoi(argv[2]), std::stoi(argv[3]));
        return 0;
    }
    return 2;
}
