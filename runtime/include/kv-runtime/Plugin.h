// One device-API plug-in: a shared object opened with RTLD_NOW | RTLD_LOCAL
// that exports up to five data symbols, read by name (see
// <wrt_plugin_export.h>). A missing hook is allowed and skipped; a missing
// class_map is an error. Closing the plug-in (dlclose) happens when the
// Plugin is destroyed: do it only after every script context that holds the
// plug-in's objects has been released.
#ifndef KV_RUNTIME_PLUGIN_H
#define KV_RUNTIME_PLUGIN_H

#include <wrt_plugin_export.h>

#include <memory>
#include <string>

namespace Kv {
namespace Runtime {

class Plugin {
public:
    // Opens the plug-in at `path`. Throws
    // WrtDeviceApis::Commons::PlatformException naming the file and the
    // loader's error when it cannot be opened or has no class_map.
    static std::unique_ptr<Plugin> open(const std::string& path);
    ~Plugin();
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    const std::string& path() const { return m_path; }
    // The rows of the class map, ended by an all-null row.
    class_map_t classMap() const { return m_classMap; }

    bool hasWidgetStart() const { return m_widgetStart != nullptr; }
    bool hasWidgetStop() const { return m_widgetStop != nullptr; }
    bool hasFrameLoad() const { return m_frameLoad != nullptr; }
    bool hasFrameUnload() const { return m_frameUnload != nullptr; }

    // Call the hooks the plug-in exports; a missing hook does nothing.
    void widgetStart(int widgetId) const;
    void widgetStop(int widgetId) const;
    void frameLoad(JSContextRef context) const;
    void frameUnload(JSContextRef context) const;

private:
    Plugin(std::string path, void* handle);
    void readSymbols();

    std::string m_path;
    void* m_handle;
    start_function_cb m_widgetStart = nullptr;
    stop_function_cb m_widgetStop = nullptr;
    frame_load_cb m_frameLoad = nullptr;
    frame_unload_cb m_frameUnload = nullptr;
    class_map_t m_classMap = nullptr;
};

// Installs the script objects of one class map in `context`: for each row up
// to the all-null terminator, an object of the row's class, made with
// JSObjectMake(context, class, nullptr), becomes the read-only, undeletable
// property `object_name` of the global object named `parent_name`, which is
// made as a plain object (also read-only and undeletable) when missing. A row
// with a constructor callback still gets a plain instance of its class; the
// callback is not used. Throws WrtDeviceApis::Commons::PlatformException,
// naming `owner`, for a row that lacks a name or a class getter, or whose
// getter returns no class.
void installClassMap(JSContextRef context, class_map_t classMap, const std::string& owner);

}  // namespace Runtime
}  // namespace Kv

#endif
