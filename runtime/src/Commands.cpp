#include "Commands.h"

#include <kv-runtime/AppSession.h>
#include <kv-runtime/WidgetId.h>

#include <kv-device/AppRegistry.h>

#include <Commons/Exception.h>
#include <Logger.h>

#include <unistd.h>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>

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

// The plug-ins of a run: those named on the command line; without any,
// $KV_PLUGIN_DIR, or else the build's plugins/ folder when it exists.
void choosePlugins(const CommandLine& line, AppRunOptions& options) {
    options.pluginFolders = line.pluginFolders;
    options.pluginFiles = line.pluginFiles;
    if (!line.pluginFolders.empty() || !line.pluginFiles.empty()) {
        return;
    }
    const char* fromEnvironment = std::getenv("KV_PLUGIN_DIR");
    if (fromEnvironment && *fromEnvironment) {
        options.pluginFolders.push_back(fromEnvironment);
    } else if (std::filesystem::is_directory(KV_DEFAULT_PLUGIN_DIR)) {
        options.pluginFolders.push_back(KV_DEFAULT_PLUGIN_DIR);
    } else {
        LoggerI("no plug-in folder at " << KV_DEFAULT_PLUGIN_DIR << "; running without plug-ins");
    }
}

AppRunOptions optionsFor(const CommandLine& line, const Device::AppInfo& app) {
    AppRunOptions options;
    options.scriptPath = app.deviceRoot + "/" + app.startScript;
    options.scriptName = app.startScript;
    options.widgetId = widgetIdFor(app.appId);
    options.timeoutSeconds = line.timeoutSeconds;
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
        printError(app.appId + " did not end within " + std::to_string(*line.timeoutSeconds) +
                   " seconds; stopped");
    }
    return result.exitCode;
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
