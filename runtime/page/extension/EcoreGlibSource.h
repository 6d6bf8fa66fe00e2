// Runs ecore's main loop inside a GLib main loop that owns the thread (the
// web engine's process has one and never gives it up).
//
// GLib waits; ecore never does. ecore's wait is replaced by one that records
// which descriptors ecore would wait on and for how long, and only polls them
// without blocking. Those descriptors and that deadline become the poll set
// and timeout of one GLib source, whose dispatch runs exactly one full ecore
// iteration (timers, idlers, descriptor handlers, events). Code that runs in
// other sources' dispatches (the page's script, which may call into the
// plug-ins) can add ecore work without ecore knowing; so the context's poll
// notes every turn in which other sources are dispatched, and ecore runs once
// more after them, without waiting.
//
// No timer polls, no second thread: an idle process sleeps until one of
// ecore's descriptors is ready or its next timer is due.
#ifndef KV_PAGE_ECORE_GLIB_SOURCE_H
#define KV_PAGE_ECORE_GLIB_SOURCE_H

#include <cstdint>

namespace Kv {
namespace Page {

class EcoreGlibSource {
public:
    EcoreGlibSource() = delete;

    // Initialises ecore (through the platform's main loop), keeping every
    // signal disposition the process had before (ecore would take the
    // engine's thread-suspension signal, among others), and attaches the
    // source to the thread's default GLib context. Once per process, on the
    // thread that runs GLib's default context.
    static void attach();

    // Whether attach() was called.
    static bool attached();

    // How many ecore iterations the source has run (for tests and the
    // benchmark of idle wake-ups).
    static std::uint64_t iterations();
};

}  // namespace Page
}  // namespace Kv

#endif
