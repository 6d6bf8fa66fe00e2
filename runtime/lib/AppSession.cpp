#include <kv-runtime/AppSession.h>

#include <kv-runtime/PluginLoader.h>
#include <kv-runtime/ScriptEngine.h>
#include <kv-runtime/ScriptEnvironment.h>

#include <Commons/Exception.h>
#include <Logger.h>

#include <fstream>
#include <sstream>

namespace Kv {
namespace Runtime {

using WrtDeviceApis::Commons::NotFoundException;

namespace {

std::string readScript(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    if (!file || !(text << file.rdbuf())) {
        ThrowMsg(NotFoundException, "cannot read the script " << path);
    }
    return text.str();
}

void loadPlugins(PluginLoader& loader, const AppRunOptions& options) {
    for (const std::string& folder : options.pluginFolders) {
        loader.loadFolder(folder);
    }
    loader.loadFiles(options.pluginFiles);
}

// From the plug-ins' start hooks to their stop hooks, with one context.
AppRunResult runWithPlugins(const PluginLoader& loader, const std::string& source,
                            const AppRunOptions& options) {
    ScriptEnvironment environment;
    if (options.timeoutSeconds) {
        environment.setTimeLimit(*options.timeoutSeconds);
    }
    environment.setArguments(options.arguments);
    JSGlobalContextRef context = environment.context();
    loader.installClasses(context);
    loader.widgetStart(options.widgetId);
    loader.frameLoad(context);
    const std::string name = options.scriptName.empty() ? options.scriptPath : options.scriptName;
    environment.evaluate(source, name);
    environment.run();
    loader.frameUnload(context);
    loader.widgetStop(options.widgetId);
    const ExitControl& exit = environment.exitControl();
    return AppRunResult{exit.exitCode(), exit.reason()};
}

}  // namespace

AppRunResult runApp(const AppRunOptions& options) {
    prepareScriptEngine();
    const std::string source = readScript(options.scriptPath);
    PluginLoader loader;
    loadPlugins(loader, options);
    const AppRunResult result = runWithPlugins(loader, source, options);
    loader.unloadAll();  // after the context, and with it the plug-ins' objects, is gone
    LoggerI("app ended with exit code " << result.exitCode);
    return result;
}

}  // namespace Runtime
}  // namespace Kv
