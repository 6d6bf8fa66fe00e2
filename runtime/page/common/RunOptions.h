// The options of one app run, alike for kv-runtime run and kv-page-host,
// which read them with the same code:
//   --plugins DIR        load every *.so of DIR, in name order (repeatable)
//   --plugin FILE        load this plug-in (repeatable)
//   --timeout SECONDS    stop the app after SECONDS (exit code 124)
// and, for an app that is a page only:
//   --inspect            the engine's developer tools, and its inspector
//                        served on a loopback port that is printed at start
//   --screenshot FILE    a PNG of the screen when the app ends
//   --screenshots DIR    a PNG of the screen every --every MS milliseconds
//   --every MS           (default 1000) as DIR/<milliseconds since start>.png
//   --driver SOCKET      a Unix socket on which a test drives the page
//                        (runtime/README.md: "Driving a page")
//   --position X,Y       where the window goes on the display
#ifndef KV_RUNTIME_RUN_OPTIONS_H
#define KV_RUNTIME_RUN_OPTIONS_H

#include <kv-cli/Arguments.h>
#include <kv-cli/Option.h>

#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Kv {
namespace Runtime {

struct PageOptions {
    bool inspect = false;
    std::optional<std::string> screenshot;
    std::optional<std::string> screenshotsDir;
    int everyMilliseconds = 1000;
    std::optional<std::string> driverSocket;
    std::optional<std::pair<int, int>> windowPosition;

    // Whether any option was given that only a page can use.
    bool any() const;
};

struct RunOptions {
    std::vector<std::string> pluginFolders;
    std::vector<std::string> pluginFiles;
    std::optional<double> timeoutSeconds;
    PageOptions page;
};

// The options above, for the program's option list.
std::vector<Cli::Option> runOptionList();
// Their names, for Arguments::allowOnly.
std::set<std::string> runOptionNames();

// Reads them. Throws Cli::UsageError for a bad value.
RunOptions readRunOptions(const Cli::Arguments& arguments);

// Seconds as a person writes them: "20", "0.5".
std::string formatSeconds(double seconds);

// What a host says of the app `appId` that it stopped at the time limit of
// `options`.
std::string timeLimitReached(const std::string& appId, const RunOptions& options);

// The same options as words of a command line.
std::vector<std::string> runOptionWords(const RunOptions& options);

}  // namespace Runtime
}  // namespace Kv

#endif
