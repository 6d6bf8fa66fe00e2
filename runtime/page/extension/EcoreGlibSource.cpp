#include "EcoreGlibSource.h"

#include <dpl/main_loop.h>

#include <Ecore.h>
#include <Logger.h>
#include <glib.h>

#include <sys/select.h>
#include <array>
#include <csignal>
#include <cstdlib>
#include <vector>

namespace Kv {
namespace Page {

namespace {

struct WatchedFd {
    int fd;
    GIOCondition events;
    gpointer tag;
};

// What ecore last asked to wait for, recorded by its replaced wait. The
// source lives on one thread, so this state needs no lock.
struct RecordedWait {
    std::vector<std::pair<int, GIOCondition>> fds;
    gint64 deadline = -1;  // GLib monotonic microseconds; -1 waits for ever
};

RecordedWait recorded;
std::vector<WatchedFd> watched;
// Set when other sources may be dispatched in this turn of the GLib loop:
// their code may have added work to ecore, so ecore runs once more after them.
bool othersMayHaveRun = false;
// The timeout our prepare asked for in this turn: -1 for none, or
// kNotPrepared when a more urgent source made GLib skip our prepare.
constexpr gint kNotPrepared = -2;
gint ownTimeout = kNotPrepared;
// GLib dispatches only the most urgent ready sources in a turn. Ours is more
// urgent than the engine's (its timers, messages and drawing run at default
// priority and below), so in a turn that dispatches ecore nothing of the
// engine's runs after it, and every turn that dispatches the engine is
// followed by one that runs ecore.
constexpr gint kEcorePriority = (G_PRIORITY_HIGH + G_PRIORITY_DEFAULT) / 2;
std::uint64_t iterationCount = 0;
GSource* theSource = nullptr;
GPollFunc enginePoll = nullptr;

GIOCondition conditionOf(int fd, const fd_set* read, const fd_set* write, const fd_set* error) {
    int events = 0;
    if (read && FD_ISSET(fd, read)) {
        events |= G_IO_IN | G_IO_HUP | G_IO_ERR;
    }
    if (write && FD_ISSET(fd, write)) {
        events |= G_IO_OUT | G_IO_ERR;
    }
    if (error && FD_ISSET(fd, error)) {
        events |= G_IO_PRI;
    }
    return static_cast<GIOCondition>(events);
}

// ecore's wait: records the descriptors and the timeout, then only polls.
int recordingSelect(int count, fd_set* read, fd_set* write, fd_set* error, timeval* timeout) {
    recorded.fds.clear();
    for (int fd = 0; fd < count; ++fd) {
        const GIOCondition events = conditionOf(fd, read, write, error);
        if (events != 0) {
            recorded.fds.emplace_back(fd, events);
        }
    }
    recorded.deadline =
        timeout ? g_get_monotonic_time() + timeout->tv_sec * G_USEC_PER_SEC + timeout->tv_usec : -1;
    timeval now{0, 0};
    return select(count, read, write, error, &now);
}

// Makes the source's poll set the descriptors ecore recorded last.
void watchRecordedFds(GSource* source) {
    std::vector<WatchedFd> kept;
    for (const WatchedFd& old : watched) {
        bool stillWanted = false;
        for (const auto& [fd, events] : recorded.fds) {
            stillWanted = stillWanted || (fd == old.fd && events == old.events);
        }
        if (stillWanted) {
            kept.push_back(old);
        } else {
            g_source_remove_unix_fd(source, old.tag);
        }
    }
    for (const auto& [fd, events] : recorded.fds) {
        bool present = false;
        for (const WatchedFd& old : kept) {
            present = present || (fd == old.fd && events == old.events);
        }
        if (!present) {
            kept.push_back(WatchedFd{fd, events, g_source_add_unix_fd(source, fd, events)});
        }
    }
    watched.swap(kept);
}

gboolean prepare(GSource* /*source*/, gint* timeout) {
    if (othersMayHaveRun) {
        othersMayHaveRun = false;
        *timeout = ownTimeout = 0;
        return TRUE;
    }
    if (recorded.deadline < 0) {
        *timeout = ownTimeout = -1;
        return FALSE;
    }
    const gint64 remaining = recorded.deadline - g_get_monotonic_time();
    *timeout = ownTimeout = remaining > 0 ? static_cast<gint>((remaining + 999) / 1000) : 0;
    return remaining <= 0;
}

gboolean check(GSource* source) {
    for (const WatchedFd& entry : watched) {
        if (g_source_query_unix_fd(source, entry.tag) != 0) {
            return TRUE;
        }
    }
    return recorded.deadline >= 0 && recorded.deadline <= g_get_monotonic_time();
}

gboolean dispatch(GSource* source, GSourceFunc /*callback*/, gpointer /*data*/) {
    ++iterationCount;
    // One full iteration, idlers included; the wait inside it only polls.
    const bool eventsQueued = ecore_main_loop_iterate_may_block(1) != 0;
    if (eventsQueued) {
        recorded.deadline = g_get_monotonic_time();
    }
    watchRecordedFds(source);
    return G_SOURCE_CONTINUE;
}

bool isOwnFd(int fd) {
    for (const WatchedFd& entry : watched) {
        if (entry.fd == fd) {
            return true;
        }
    }
    return false;
}

// The context's poll, which tells whether sources other than ecore's will be
// dispatched in this turn: a descriptor of theirs is ready, or the turn's
// timeout is theirs (one of them is ready, or its timer is due). ecore's
// clock is set to the wake-up, so that timers added in their dispatch count
// from now.
gint pollAndNote(GPollFD* fds, guint count, gint timeout) {
    const gint result = enginePoll(fds, count, timeout);
    bool othersReady =
        ownTimeout == kNotPrepared || (timeout >= 0 && (ownTimeout < 0 || timeout < ownTimeout));
    ownTimeout = kNotPrepared;
    for (guint i = 0; i < count && !othersReady && result > 0; ++i) {
        othersReady = fds[i].revents != 0 && !isOwnFd(fds[i].fd);
    }
    othersMayHaveRun = othersMayHaveRun || othersReady;
    ecore_loop_time_set(ecore_time_get());
    return result;
}

GSourceFuncs sourceFunctions = {prepare, check, dispatch, nullptr, nullptr, nullptr};

// ecore_init installs handlers for signals that belong to others here: the
// engine suspends threads for garbage collection with one of them, and the
// process's owner decides what the others do. They are put back as they were.
class SignalDispositions {
public:
    SignalDispositions() {
        for (int signal = 1; signal < NSIG; ++signal) {
            m_saved[signal].valid = sigaction(signal, nullptr, &m_saved[signal].action) == 0;
        }
    }
    void restore() const {
        for (int signal = 1; signal < NSIG; ++signal) {
            struct sigaction now {};
            if (!m_saved[signal].valid || sigaction(signal, nullptr, &now) != 0) {
                continue;
            }
            if (now.sa_handler != m_saved[signal].action.sa_handler) {
                sigaction(signal, &m_saved[signal].action, nullptr);
                LoggerD("signal " << signal << " handed back to its owner after ecore_init");
            }
        }
    }

private:
    struct Saved {
        bool valid = false;
        struct sigaction action {};
    };
    std::array<Saved, NSIG> m_saved{};
};

}  // namespace

void EcoreGlibSource::attach() {
    if (theSource) {
        return;
    }
    const SignalDispositions before;
    DPL::MainLoop::Instance();  // ecore_init, with the platform's wake-up descriptor
    before.restore();
    ecore_main_loop_select_func_set(recordingSelect);
    theSource = g_source_new(&sourceFunctions, sizeof(GSource));
    g_source_set_name(theSource, "ecore");
    g_source_set_can_recurse(theSource, TRUE);
    g_source_set_priority(theSource, kEcorePriority);
    recorded.deadline = 0;  // a first iteration at once
    g_source_attach(theSource, nullptr);
    enginePoll = g_main_context_get_poll_func(nullptr);
    g_main_context_set_poll_func(nullptr, pollAndNote);
}

bool EcoreGlibSource::attached() { return theSource != nullptr; }

std::uint64_t EcoreGlibSource::iterations() { return iterationCount; }

}  // namespace Page
}  // namespace Kv
