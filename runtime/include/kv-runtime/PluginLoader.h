// The set of plug-ins of one app, in load order, and the calls the runtime
// makes on all of them:
//   start:  installClasses(context), widgetStart(id), frameLoad(context)   in load order
//   stop:   frameUnload(context), widgetStop(id)                           in reverse order
#ifndef KV_RUNTIME_PLUGIN_LOADER_H
#define KV_RUNTIME_PLUGIN_LOADER_H

#include <kv-runtime/Plugin.h>

#include <memory>
#include <string>
#include <vector>

namespace Kv {
namespace Runtime {

class PluginLoader {
public:
    PluginLoader() = default;
    // Closes the plug-ins in reverse load order.
    ~PluginLoader();
    PluginLoader(const PluginLoader&) = delete;
    PluginLoader& operator=(const PluginLoader&) = delete;

    // The `*.so` files directly inside `folder`, sorted by name. Throws
    // WrtDeviceApis::Commons::PlatformException when the folder cannot be read.
    static std::vector<std::string> pluginFilesIn(const std::string& folder);

    // The plug-in folders of a run that names none: $KV_PLUGIN_DIR when set,
    // else the runtime's plug-in folder when it exists (the installed one, or
    // the build's plugins/, found from this library's folder), else none.
    static std::vector<std::string> defaultFolders();

    // Loads every `*.so` of `folder` in name order. Throws as Plugin::open
    // and pluginFilesIn do; plug-ins loaded before a failure stay loaded.
    void loadFolder(const std::string& folder);
    // Loads the given files in the given order.
    void loadFiles(const std::vector<std::string>& files);
    void load(const std::string& file);

    const std::vector<std::unique_ptr<Plugin>>& plugins() const { return m_plugins; }
    bool empty() const { return m_plugins.empty(); }

    void installClasses(JSContextRef context) const;
    void widgetStart(int widgetId) const;
    void frameLoad(JSContextRef context) const;
    void frameUnload(JSContextRef context) const;
    void widgetStop(int widgetId) const;

    // Closes every plug-in, last loaded first.
    void unloadAll();

private:
    std::vector<std::unique_ptr<Plugin>> m_plugins;
};

}  // namespace Runtime
}  // namespace Kv

#endif
