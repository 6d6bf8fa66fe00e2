#include <kv-runtime/Plugin.h>

#include <Commons/Exception.h>
#include <Logger.h>

#include <dlfcn.h>

#include <exception>

namespace Kv {
namespace Runtime {

using WrtDeviceApis::Commons::PlatformException;

namespace {

std::string lastLoaderError() {
    const char* error = dlerror();
    return error ? error : "unknown error";
}

// Reads the data symbol `name` as a value of type T (a hook pointer or the
// class map); null when the plug-in does not export it.
template <typename T>
T readSymbol(void* handle, const char* name) {
    dlerror();
    void* address = dlsym(handle, name);
    if (!address || dlerror()) {
        return nullptr;
    }
    return *static_cast<T*>(address);
}

// Runs a plug-in's hook; the hook is foreign code, so whatever it throws is
// logged and stops here.
template <typename Hook, typename Argument>
void callHook(const std::string& path, const char* name, Hook hook, Argument argument) {
    if (!hook) {
        return;
    }
    LoggerD("calling " << name << " of " << path);
    try {
        hook(argument);
    } catch (const std::exception& error) {
        LoggerE(name << " of " << path << " threw: " << error.what());
    } catch (...) {
        LoggerE(name << " of " << path << " threw an unknown exception");
    }
}

}  // namespace

std::unique_ptr<Plugin> Plugin::open(const std::string& path) {
    // A name without a slash would be searched for in the library path.
    const std::string file = path.find('/') == std::string::npos ? "./" + path : path;
    dlerror();
    void* handle = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        ThrowMsg(PlatformException, "cannot load plug-in " << path << ": " << lastLoaderError());
    }
    std::unique_ptr<Plugin> plugin(new Plugin(path, handle));
    plugin->readSymbols();
    if (!plugin->m_classMap) {
        ThrowMsg(PlatformException, "cannot load plug-in " << path << ": it exports no class_map");
    }
    LoggerI("loaded plug-in " << path);
    return plugin;
}

Plugin::Plugin(std::string path, void* handle) : m_path(std::move(path)), m_handle(handle) {}

Plugin::~Plugin() {
    if (dlclose(m_handle) != 0) {
        LoggerE("cannot unload plug-in " << m_path << ": " << lastLoaderError());
    }
}

void Plugin::readSymbols() {
    m_widgetStart = readSymbol<start_function_cb>(m_handle, "on_widget_start");
    m_widgetStop = readSymbol<stop_function_cb>(m_handle, "on_widget_stop");
    m_frameLoad = readSymbol<frame_load_cb>(m_handle, "on_frame_load");
    m_frameUnload = readSymbol<frame_unload_cb>(m_handle, "on_frame_unload");
    m_classMap = readSymbol<class_map_t>(m_handle, "class_map");
}

void Plugin::widgetStart(int widgetId) const {
    callHook(m_path, "on_widget_start", m_widgetStart, widgetId);
}

void Plugin::widgetStop(int widgetId) const {
    callHook(m_path, "on_widget_stop", m_widgetStop, widgetId);
}

void Plugin::frameLoad(JSContextRef context) const {
    callHook(m_path, "on_frame_load", m_frameLoad, context);
}

void Plugin::frameUnload(JSContextRef context) const {
    callHook(m_path, "on_frame_unload", m_frameUnload, context);
}

}  // namespace Runtime
}  // namespace Kv
