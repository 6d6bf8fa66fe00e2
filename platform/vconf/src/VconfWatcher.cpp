#include "VconfWatcher.h"

#include "Keynode.h"

#include <kv-device/FileUtil.h>

#include <Logger.h>

#include <sys/inotify.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <stdexcept>

namespace Kv {
namespace Vconf {

namespace {

constexpr size_t kEventBufferSize = size_t{64} * 1024;
constexpr uint32_t kWatchedEvents = IN_MOVED_TO | IN_CLOSE_WRITE;

}  // namespace

VconfWatcher& VconfWatcher::instance() {
    // Never destroyed: ecore may be gone when static destructors run.
    static VconfWatcher* watcher = new VconfWatcher;
    return *watcher;
}

void VconfWatcher::add(const std::string& key, vconf_callback_fn callback, void* userData) {
    fileNameOf(key);  // rejects keys that can't be stored
    const std::string folder = storeFolder();
    if (m_fd >= 0 && folder != m_folder) {
        if (!m_registrations.empty()) {
            throw std::runtime_error("the process changed devices while watching " + m_folder);
        }
        stop();
    }
    if (m_fd < 0) {
        start(folder);
    }
    m_registrations.push_back(
        std::make_shared<Registration>(Registration{key, callback, userData, true}));
}

bool VconfWatcher::remove(const std::string& key, vconf_callback_fn callback) {
    const auto found = std::find_if(
        m_registrations.begin(), m_registrations.end(),
        [&](const auto& entry) { return entry->key == key && entry->callback == callback; });
    if (found == m_registrations.end()) {
        return false;
    }
    (*found)->active = false;
    m_registrations.erase(found);
    // While dispatching, the handler stops the watch itself when it returns.
    if (m_registrations.empty() && !m_dispatching) {
        stop();
    }
    return true;
}

void VconfWatcher::start(const std::string& folder) {
    const int fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (fd < 0) {
        throw std::runtime_error("inotify_init1 failed: " + Device::errorText(errno));
    }
    if (inotify_add_watch(fd, folder.c_str(), kWatchedEvents) < 0) {
        const int error = errno;
        close(fd);
        throw std::runtime_error("cannot watch " + folder + ": " + Device::errorText(error));
    }
    m_handler = ecore_main_fd_handler_add(fd, ECORE_FD_READ, onReadable, this, nullptr, nullptr);
    if (m_handler == nullptr) {
        close(fd);
        throw std::runtime_error("cannot add the watch of " + folder + " to the main loop");
    }
    m_fd = fd;
    m_folder = folder;
}

void VconfWatcher::stop() {
    if (m_handler != nullptr) {
        ecore_main_fd_handler_del(m_handler);
        m_handler = nullptr;
    }
    if (m_fd >= 0) {
        close(m_fd);
        m_fd = -1;
    }
    m_folder.clear();
}

std::vector<std::string> VconfWatcher::readChangedKeys() {
    std::vector<std::string> keys;
    alignas(inotify_event) char buffer[kEventBufferSize];
    ssize_t length;
    while ((length = read(m_fd, buffer, sizeof buffer)) > 0 || (length < 0 && errno == EINTR)) {
        for (ssize_t offset = 0; offset < length;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + offset);
            offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            if (event->mask & IN_Q_OVERFLOW) {
                LoggerW("vconf notifications were lost: the event queue overflowed");
            }
            if (event->len == 0 || (event->mask & kWatchedEvents) == 0) {
                continue;
            }
            if (std::optional<std::string> key = keyOfFileName(event->name)) {
                keys.push_back(std::move(*key));
            }
        }
    }
    return keys;
}

void VconfWatcher::dispatch(const std::string& key) {
    const std::optional<Value> value = load(key);
    if (!value) {
        return;  // unset again, or not a store file
    }
    keynode_t node{key, *value};
    // A copy: callbacks may add or remove registrations while it is walked.
    const std::vector<std::shared_ptr<Registration>> registrations = m_registrations;
    for (const std::shared_ptr<Registration>& entry : registrations) {
        if (entry->active && entry->key == key) {
            entry->callback(&node, entry->userData);
        }
    }
}

Eina_Bool VconfWatcher::onReadable(void* data, Ecore_Fd_Handler* /*handler*/) {
    return static_cast<VconfWatcher*>(data)->handleReadable();
}

Eina_Bool VconfWatcher::handleReadable() {
    m_dispatching = true;
    try {
        for (const std::string& key : readChangedKeys()) {
            dispatch(key);
        }
    } catch (const std::exception& error) {
        LoggerE("vconf notification failed: " << error.what());
    }
    m_dispatching = false;
    if (!m_registrations.empty()) {
        return ECORE_CALLBACK_RENEW;
    }
    // The last callback was removed during the dispatch: ecore deletes the
    // handler when this returns ECORE_CALLBACK_CANCEL.
    m_handler = nullptr;
    stop();
    return ECORE_CALLBACK_CANCEL;
}

}  // namespace Vconf
}  // namespace Kv
