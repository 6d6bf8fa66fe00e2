// The display the page's window goes to: the one the environment names
// (DISPLAY, or WAYLAND_DISPLAY), or else an X server of the host's own, a
// virtual frame buffer (Xvfb) that lives as long as the host. With
// KV_PAGE_DISPLAY=virtual the host always makes its own, so that tests never
// open windows on a developer's screen.
#ifndef KV_PAGE_VIRTUAL_DISPLAY_H
#define KV_PAGE_VIRTUAL_DISPLAY_H

#include <sys/types.h>

#include <memory>
#include <string>

namespace Kv {
namespace Page {

class VirtualDisplay {
public:
    // Makes sure there is a display of at least `width` x `height`; returns
    // the server the host started for it (and sets DISPLAY), or null when
    // the environment names a display. Call before any thread is made.
    // Throws std::runtime_error when the server can't be started.
    static std::unique_ptr<VirtualDisplay> ensure(int width, int height);

    // Stops the server.
    ~VirtualDisplay();
    VirtualDisplay(const VirtualDisplay&) = delete;
    VirtualDisplay& operator=(const VirtualDisplay&) = delete;

    const std::string& name() const { return m_name; }

private:
    VirtualDisplay(pid_t pid, std::string name) : m_pid(pid), m_name(std::move(name)) {}

    pid_t m_pid;
    std::string m_name;
};

}  // namespace Page
}  // namespace Kv

#endif
