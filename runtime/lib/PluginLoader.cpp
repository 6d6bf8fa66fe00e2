#include <kv-runtime/PluginLoader.h>

#include <Commons/Exception.h>
#include <Logger.h>
#include <kv-layout/Layout.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <system_error>

namespace Kv {
namespace Runtime {

namespace fs = std::filesystem;
using WrtDeviceApis::Commons::PlatformException;

PluginLoader::~PluginLoader() { unloadAll(); }

std::vector<std::string> PluginLoader::pluginFilesIn(const std::string& folder) {
    std::error_code error;
    fs::directory_iterator entries(folder, error);
    if (error) {
        ThrowMsg(PlatformException,
                 "cannot read plug-in folder " << folder << ": " << error.message());
    }
    std::vector<std::string> files;
    for (const fs::directory_entry& entry : entries) {
        if (entry.path().extension() == ".so" && !entry.is_directory(error)) {
            files.push_back(entry.path().string());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<std::string> PluginLoader::defaultFolders() {
    const char* fromEnvironment = std::getenv("KV_PLUGIN_DIR");
    if (fromEnvironment && *fromEnvironment) {
        return {fromEnvironment};
    }
    static const int anchor = 0;
    const fs::path library = Layout::moduleFolder(&anchor);
    if (const std::optional<fs::path> folder =
            Layout::find(library, KV_LAYOUT_PLACE(KV_PLUGIN_FOLDER))) {
        return {folder->string()};
    }
    LoggerI("no plug-in folder beside " << library << "; running without plug-ins");
    return {};
}

void PluginLoader::loadFolder(const std::string& folder) { loadFiles(pluginFilesIn(folder)); }

void PluginLoader::loadFiles(const std::vector<std::string>& files) {
    for (const std::string& file : files) {
        load(file);
    }
}

void PluginLoader::load(const std::string& file) { m_plugins.push_back(Plugin::open(file)); }

void PluginLoader::installClasses(JSContextRef context) const {
    for (const auto& plugin : m_plugins) {
        installClassMap(context, plugin->classMap(), plugin->path());
    }
}

void PluginLoader::widgetStart(int widgetId) const {
    for (const auto& plugin : m_plugins) {
        plugin->widgetStart(widgetId);
    }
}

void PluginLoader::frameLoad(JSContextRef context) const {
    for (const auto& plugin : m_plugins) {
        plugin->frameLoad(context);
    }
}

void PluginLoader::frameUnload(JSContextRef context) const {
    std::for_each(m_plugins.rbegin(), m_plugins.rend(),
                  [context](const auto& plugin) { plugin->frameUnload(context); });
}

void PluginLoader::widgetStop(int widgetId) const {
    std::for_each(m_plugins.rbegin(), m_plugins.rend(),
                  [widgetId](const auto& plugin) { plugin->widgetStop(widgetId); });
}

void PluginLoader::unloadAll() {
    while (!m_plugins.empty()) {
        m_plugins.pop_back();
    }
}

}  // namespace Runtime
}  // namespace Kv
