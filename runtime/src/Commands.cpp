#include "Commands.h"

#include <kv-runtime/AppSession.h>
#include <kv-runtime/PluginLoader.h>
#include <kv-runtime/WidgetId.h>

#include <kv-cli/ExecArguments.h>
#include <kv-device/AppRegistry.h>
#include <kv-device/Device.h>
#include <kv-layout/Layout.h>

#include <Commons/Exception.h>
#include <Logger.h>

#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

namespace Kv {
namespace Runtime {

namespace {

void printError(const std::string& message) {
    std::fprintf(stderr, "kv-runtime: %s\n", message.c_str());
    std::fflush(stderr);
}

// The app's entry in the device's table of running apps, for the run's
// lifetime.
class RunningAppEntry {
public:
    explicit RunningAppEntry(const std::string& appId) {
        Device::registerRunningApp(getpid(), appId);
    }
    ~RunningAppEntry() {
        try {
            Device::unregisterRunningApp(getpid());
        } catch (const std::exception& error) {
            LoggerW("cannot remove the running app's entry: " << error.what());
        }
    }
    RunningAppEntry(const RunningAppEntry&) = delete;
    RunningAppEntry& operator=(const RunningAppEntry&) = delete;
};

// The plug-ins of a run: those named on the command line, else the default
// folders.
void choosePlugins(const CommandLine& line, AppRunOptions& options) {
    options.pluginFolders = line.run.pluginFolders;
    options.pluginFiles = line.run.pluginFiles;
    if (options.pluginFolders.empty() && options.pluginFiles.empty()) {
        options.pluginFolders = PluginLoader::defaultFolders();
    }
}

AppRunOptions optionsFor(const CommandLine& line, const Device::AppInfo& app) {
    AppRunOptions options;
    options.scriptPath = app.deviceRoot + "/" + app.startScript;
    options.scriptName = app.startScript;
    options.widgetId = widgetIdFor(app.appId);
    options.timeoutSeconds = line.run.timeoutSeconds;
    options.arguments = line.appArguments;
    choosePlugins(line, options);
    return options;
}

int runInstalledApp(const CommandLine& line, const Device::AppInfo& app) {
    const AppRunOptions options = optionsFor(line, app);
    RunningAppEntry entry(app.appId);
    LoggerI("running " << app.appId << " as widget " << options.widgetId);
    const AppRunResult result = runApp(options);
    if (result.reason == ExitReason::Timeout) {
        printError(timeLimitReached(app.appId, line.run));
    }
    return result.exitCode;
}

// The page host's program: $KV_PAGE_HOST, else kv-page-host beside this
// program.
std::string pageHostProgram() {
    const char* fromEnvironment = std::getenv("KV_PAGE_HOST");
    if (fromEnvironment && *fromEnvironment) {
        return fromEnvironment;
    }
    return (Layout::programFolder() / "kv-page-host").string();
}

// An app that is a page runs in the page host, which takes this process's
// place (and its process id) with the same device, app, options and
// arguments.
int runPageHost(const CommandLine& line) {
    std::vector<std::string> words = {"kv-page-host", "--device", Device::root(), line.appId};
    const std::vector<std::string> options = runOptionWords(line.run);
    words.insert(words.end(), options.begin(), options.end());
    words.emplace_back("--");
    words.insert(words.end(), line.appArguments.begin(), line.appArguments.end());
    std::vector<char*> argv = Kv::Cli::execArguments(words);
    const std::string program = pageHostProgram();
    std::fflush(stdout);
    execv(program.c_str(), argv.data());
    printError("cannot start the page host " + program + ": " + std::strerror(errno));
    return kExitFailure;
}

}  // namespace

int installCommand(const CommandLine& line) {
    try {
        const Device::AppInfo app = Device::installApp(line.appFolder);
        std::printf("%s\n", app.appId.c_str());
        return 0;
    } catch (const std::exception& error) {
        printError("cannot install " + line.appFolder + ": " + error.what());
        return kExitFailure;
    }
}

int listCommand() {
    try {
        for (const Device::AppInfo& app : Device::listApps()) {
            std::printf("%s\t%s\t%s\n", app.appId.c_str(), app.package.c_str(), app.name.c_str());
        }
        return 0;
    } catch (const std::exception& error) {
        printError(std::string("cannot list the apps: ") + error.what());
        return kExitFailure;
    }
}

int runCommand(const CommandLine& line) {
    try {
        const std::optional<Device::AppInfo> app = Device::findApp(line.appId);
        if (!app) {
            printError("unknown app '" + line.appId + "': it is not installed on this device");
            return kExitUnknownApp;
        }
        if (Device::contentIsPage(*app)) {
            return runPageHost(line);
        }
        if (line.run.page.any()) {
            const std::string hint = programCommandLine().hint(
                "the options --inspect, --screenshot(s), --driver and --position are for apps "
                "that are pages; the content of " +
                app->appId + " is " + app->startScript);
            std::fprintf(stderr, "%s\n", hint.c_str());
            return Cli::kUsageExitCode;
        }
        return runInstalledApp(line, *app);
    } catch (const WrtDeviceApis::Commons::PlatformException& error) {
        printError(error.GetMessage());
        return kExitPluginError;
    } catch (const std::exception& error) {
        printError(std::string("cannot run ") + line.appId + ": " + error.what());
        return kExitFailure;
    }
}

}  // namespace Runtime
}  // namespace Kv
