// kv-page-host: runs an installed app whose content is an HTML page, in the
// web engine, in a window the size of the device's screen. kv-runtime run
// hands such apps to it; it takes the same run options.
#include "InspectorServer.h"
#include "PageSession.h"
#include "SanitizerRuntime.h"
#include "VirtualDisplay.h"

#include <RunOptions.h>
#include <kv-cli/CommandLine.h>
#include <kv-cli/ExecArguments.h>
#include <kv-device/AppRegistry.h>
#include <kv-device/Device.h>
#include <kv-device/Screen.h>
#include <kv-layout/Layout.h>
#include <kv-runtime/PluginLoader.h>
#include <kv-runtime/WidgetId.h>

#include <Commons/Exception.h>
#include <Logger.h>

#include <gtk/gtk.h>

#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <optional>
#include <set>
#include <stdexcept>

namespace {

using namespace Kv;
using Cli::UsageError;

constexpr int kExitFailure = 1;
constexpr int kExitUnknownApp = 3;
constexpr int kExitPluginError = 4;

const char kUsage[] =
    "usage: kv-page-host [--device DIR] APP_ID [--plugins DIR] [--plugin FILE]... "
    "[--timeout SECONDS]\n"
    "                    [--inspect] [--screenshot FILE] [--screenshots DIR [--every MS]]\n"
    "                    [--driver SOCKET] [--position X,Y] [-- ARGUMENT...]\n"
    "\n"
    "Runs the installed app APP_ID, whose content is an HTML page, in the web engine:\n"
    "one window the size of the device's screen (kv-device screen), the plug-ins in\n"
    "every frame of the page. kv-runtime run APP_ID does the same; see its --help for\n"
    "the options and runtime/README.md for the exit codes. Without a display (DISPLAY,\n"
    "WAYLAND_DISPLAY), or with KV_PAGE_DISPLAY=virtual, the window goes to a virtual\n"
    "display of its own (Xvfb).\n";

void fail(const std::string& text) {
    std::fprintf(stderr, "kv-runtime: %s\n", text.c_str());
    std::fflush(stderr);
}

// The folder of the web extension: $KV_PAGE_EXTENSION_DIR when set, else the
// installed one or the build's page-extension/, found from this program's
// folder.
std::string extensionDir() {
    const char* fromEnvironment = std::getenv("KV_PAGE_EXTENSION_DIR");
    if (fromEnvironment && *fromEnvironment) {
        return fromEnvironment;
    }
    const std::filesystem::path program = Layout::programFolder();
    const std::optional<std::filesystem::path> found =
        Layout::find(program, KV_LAYOUT_PLACE(KV_PAGE_EXTENSION_FOLDER));
    if (!found) {
        throw std::runtime_error(
            "the page extension is missing: it is neither installed nor built "
            "beside " +
            program.string() + " (or set KV_PAGE_EXTENSION_DIR)");
    }
    return found->string();
}

// The plug-in files of the run, in load order.
std::vector<std::string> pluginFiles(const Runtime::RunOptions& run) {
    std::vector<std::string> folders = run.pluginFolders;
    if (folders.empty() && run.pluginFiles.empty()) {
        folders = Runtime::PluginLoader::defaultFolders();
    }
    std::vector<std::string> files;
    for (const std::string& folder : folders) {
        for (const std::string& file : Runtime::PluginLoader::pluginFilesIn(folder)) {
            files.push_back(file);
        }
    }
    files.insert(files.end(), run.pluginFiles.begin(), run.pluginFiles.end());
    return files;
}

Page::HostSettings settingsFor(const Device::AppInfo& app, const Cli::Arguments& arguments) {
    Page::HostSettings settings;
    settings.app = app;
    settings.screen = Device::screen();
    settings.run = Runtime::readRunOptions(arguments);
    settings.windowPosition = settings.run.page.windowPosition;
    settings.extensionDir = extensionDir();
    settings.page.appId = app.appId;
    settings.page.widgetId = Runtime::widgetIdFor(app.appId);
    settings.page.appRoot = app.deviceRoot;
    settings.page.pluginFiles = pluginFiles(settings.run);
    settings.page.arguments = arguments.operandsAfterDashes();
    return settings;
}

// Quiet, self-contained GTK and engine processes: no accessibility bus, no
// desktop settings service, the web process's ecore without its system
// modules, and no GPU buffer sharing between the engine's processes (pages
// are drawn without acceleration; its renderer costs the host memory).
void prepareEnvironment() {
    setenv("NO_AT_BRIDGE", "1", 0);
    setenv("GSETTINGS_BACKEND", "memory", 0);
    setenv("ECORE_NO_SYSTEM_MODULES", "1", 0);
    setenv("WEBKIT_DISABLE_DMABUF_RENDERER", "1", 0);
}

int runPage(const Device::AppInfo& app, const Cli::Arguments& arguments) {
    Page::HostSettings settings = settingsFor(app, arguments);
    prepareEnvironment();
    if (settings.run.page.inspect) {
        const std::string address = Page::startInspectorServer();
        std::fprintf(stderr, "kv-runtime: the inspector of %s: %s\n", app.appId.c_str(),
                     address.c_str());
        std::fflush(stderr);
        LoggerI("inspector at " << address);
    }
    const auto display =
        Page::VirtualDisplay::ensure(settings.screen.width, settings.screen.height);
    Page::lendSanitizerToEngine();
    if (!gtk_init_check(nullptr, nullptr)) {
        fail("cannot open the display " + std::string(g_getenv("DISPLAY") ?: "(none)"));
        return kExitFailure;
    }
    Page::PageSession session(std::move(settings));
    return session.run();
}

// The program's own command line, for going round through kv-runtime.
std::vector<std::string> ownCommandLine;

// The engine's libraries start threads as soon as they are loaded, and a
// process with threads can't enter a device. Started outside its device,
// the page host goes through kv-runtime run (beside it), which enters the
// device first and comes back here, in the same process.
[[noreturn]] void enterThroughRuntime() {
    const std::string runtime = (Layout::programFolder() / "kv-runtime").string();
    std::vector<std::string> words = {"kv-runtime", "run"};
    words.insert(words.end(), ownCommandLine.begin() + 1, ownCommandLine.end());
    std::vector<char*> argv = Kv::Cli::execArguments(words);
    execv(runtime.c_str(), argv.data());
    throw std::runtime_error("cannot start " + runtime +
                             " to enter the device: " + std::strerror(errno));
}

int run(const Cli::Arguments& arguments) {
    std::set<std::string> allowed = Runtime::runOptionNames();
    allowed.insert("device");
    arguments.allowOnly("kv-page-host", allowed);
    const std::vector<std::string> operands = arguments.operandsBeforeDashes();
    if (operands.size() != 1) {
        throw UsageError(operands.empty() ? "an app id is needed"
                                          : "unexpected argument '" + operands[1] + "'");
    }
    if (const auto device = arguments.value("device")) {
        Device::select(*device);
    }
    if (!Device::entered()) {
        enterThroughRuntime();
    }
    const std::optional<Device::AppInfo> app = Device::findApp(operands[0]);
    if (!app) {
        fail("unknown app '" + operands[0] + "': it is not installed on this device");
        return kExitUnknownApp;
    }
    if (!Device::contentIsPage(*app)) {
        throw UsageError(app->appId + " is not a page (its content is " + app->startScript +
                         "): run it with kv-runtime run");
    }
    try {
        return runPage(*app, arguments);
    } catch (const WrtDeviceApis::Commons::PlatformException& error) {
        fail(error.GetMessage());
        return kExitPluginError;
    }
}

}  // namespace

int main(int argc, char* argv[]) {
    ownCommandLine.assign(argv, argv + argc);
    std::vector<Cli::Option> options = Runtime::runOptionList();
    options.push_back(Cli::kDeviceOption);
    const Cli::CommandLine commandLine("kv-page-host", kUsage, options);
    return commandLine.run(argc, argv, run);
}
