#include <RunOptions.h>

#include <kv-cli/UsageError.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace Kv {
namespace Runtime {

namespace {

using Cli::Option;
using Cli::UsageError;

constexpr int kFewestMilliseconds = 20;

double parseTimeout(const std::string& text) {
    char* end = nullptr;
    const double seconds = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !std::isfinite(seconds) || seconds <= 0) {
        throw UsageError("--timeout needs a positive number of seconds, not '" + text + "'");
    }
    return seconds;
}

int parseEvery(const std::string& text) {
    char* end = nullptr;
    const long milliseconds = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || milliseconds < kFewestMilliseconds ||
        milliseconds > 3600000) {
        throw UsageError("--every needs a number of milliseconds from " +
                         std::to_string(kFewestMilliseconds) + " to 3600000, not '" + text + "'");
    }
    return static_cast<int>(milliseconds);
}

// A whole number of pixels that is all of `text`, or -1.
int pixels(const std::string& text) {
    int value = -1;
    const char* end = text.c_str() + text.size();
    const auto [stop, error] = std::from_chars(text.c_str(), end, value);
    return error == std::errc() && stop == end && !text.empty() ? value : -1;
}

std::pair<int, int> parsePosition(const std::string& text) {
    const std::size_t comma = text.find(',');
    const int x = comma == std::string::npos ? -1 : pixels(text.substr(0, comma));
    const int y = comma == std::string::npos ? -1 : pixels(text.substr(comma + 1));
    if (x < 0 || y < 0) {
        throw UsageError("--position needs X,Y, two numbers of pixels, not '" + text + "'");
    }
    return {x, y};
}

PageOptions readPageOptions(const Cli::Arguments& arguments) {
    PageOptions page;
    page.inspect = arguments.has("inspect");
    page.screenshot = arguments.value("screenshot");
    page.screenshotsDir = arguments.value("screenshots");
    page.driverSocket = arguments.value("driver");
    if (const auto position = arguments.value("position")) {
        page.windowPosition = parsePosition(*position);
    }
    if (const auto every = arguments.value("every")) {
        if (!page.screenshotsDir) {
            throw UsageError("--every goes with --screenshots DIR");
        }
        page.everyMilliseconds = parseEvery(*every);
    }
    return page;
}

}  // namespace

std::string formatSeconds(double seconds) {
    std::ostringstream text;
    text << seconds;
    return text.str();
}

std::string timeLimitReached(const std::string& appId, const RunOptions& options) {
    return appId + " did not end within " + formatSeconds(options.timeoutSeconds.value_or(0)) +
           " seconds; stopped";
}

bool PageOptions::any() const {
    return inspect || screenshot || screenshotsDir || driverSocket || windowPosition;
}

std::vector<Cli::Option> runOptionList() {
    return {{"plugins", Option::WithValue},    {"plugin", Option::WithValue},
            {"timeout", Option::WithValue},    {"inspect", Option::Flag},
            {"screenshot", Option::WithValue}, {"screenshots", Option::WithValue},
            {"every", Option::WithValue},      {"driver", Option::WithValue},
            {"position", Option::WithValue}};
}

std::set<std::string> runOptionNames() {
    std::set<std::string> names;
    for (const Option& option : runOptionList()) {
        names.insert(option.name);
    }
    return names;
}

RunOptions readRunOptions(const Cli::Arguments& arguments) {
    RunOptions options;
    options.pluginFolders = arguments.values("plugins");
    options.pluginFiles = arguments.values("plugin");
    if (const auto timeout = arguments.value("timeout")) {
        options.timeoutSeconds = parseTimeout(*timeout);
    }
    options.page = readPageOptions(arguments);
    return options;
}

std::vector<std::string> runOptionWords(const RunOptions& options) {
    std::vector<std::string> words;
    for (const std::string& folder : options.pluginFolders) {
        words.insert(words.end(), {"--plugins", folder});
    }
    for (const std::string& file : options.pluginFiles) {
        words.insert(words.end(), {"--plugin", file});
    }
    if (options.timeoutSeconds) {
        words.insert(words.end(), {"--timeout", formatSeconds(*options.timeoutSeconds)});
    }
    const PageOptions& page = options.page;
    if (page.inspect) {
        words.emplace_back("--inspect");
    }
    if (page.screenshot) {
        words.insert(words.end(), {"--screenshot", *page.screenshot});
    }
    if (page.screenshotsDir) {
        words.insert(words.end(), {"--screenshots", *page.screenshotsDir, "--every",
                                   std::to_string(page.everyMilliseconds)});
    }
    if (page.driverSocket) {
        words.insert(words.end(), {"--driver", *page.driverSocket});
    }
    if (page.windowPosition) {
        words.insert(words.end(), {"--position", std::to_string(page.windowPosition->first) + "," +
                                                     std::to_string(page.windowPosition->second)});
    }
    return words;
}

}  // namespace Runtime
}  // namespace Kv
