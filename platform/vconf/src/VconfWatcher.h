// The change notifications of one process: the callbacks registered per key
// and one inotify watch of the device's store folder, read on the ecore main
// loop. Every finished write of a key file (a rename into the folder, or a
// direct write that is closed) calls the key's callbacks. The watch starts
// with the first registration and stops when the last one is removed.
// Used only on the main loop's thread.
#ifndef KV_PLATFORM_VCONF_WATCHER_H
#define KV_PLATFORM_VCONF_WATCHER_H

#include <vconf.h>

#include <Ecore.h>

#include <memory>
#include <string>
#include <vector>

namespace Kv {
namespace Vconf {

class VconfWatcher {
public:
    // The process's watcher; never destroyed.
    static VconfWatcher& instance();

    // Throws std::runtime_error when the watch can't be made, or when the
    // process has changed devices while callbacks are still registered.
    void add(const std::string& key, vconf_callback_fn callback, void* userData);
    // False when no registration of `callback` for `key` exists.
    bool remove(const std::string& key, vconf_callback_fn callback);

private:
    struct Registration {
        std::string key;
        vconf_callback_fn callback;
        void* userData;
        bool active;
    };

    VconfWatcher() = default;

    void start(const std::string& folder);
    void stop();
    std::vector<std::string> readChangedKeys();
    void dispatch(const std::string& key);
    static Eina_Bool onReadable(void* data, Ecore_Fd_Handler* handler);
    Eina_Bool handleReadable();

    std::string m_folder;
    int m_fd = -1;
    Ecore_Fd_Handler* m_handler = nullptr;
    bool m_dispatching = false;
    std::vector<std::shared_ptr<Registration>> m_registrations;
};

}  // namespace Vconf
}  // namespace Kv

#endif
