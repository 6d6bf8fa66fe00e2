#include "PageApp.h"

#include "EcoreGlibSource.h"

#include <PageProtocol.h>
#include <kv-device/AppRegistry.h>
#include <kv-device/Memory.h>
#include <kv-runtime/Console.h>
#include <kv-runtime/ScriptEngine.h>

#include <Logger.h>

#include <unistd.h>
#include <algorithm>
#include <cstdio>
#include <exception>

extern "C" {
// The engine's full, synchronous collection (exported, declared in its
// private headers).
void JSSynchronousGarbageCollectForDebugging(JSContextRef context);
}

namespace Kv {
namespace Page {

namespace {

PageApp* theApp = nullptr;

}  // namespace

void PageApp::start(WebKitWebExtension* /*extension*/, PageSettings settings) {
    // The plug-ins' messages of a megabyte and more come from the C heap, as
    // in every program of a device (the engine has allocators of its own).
    Device::keepLargeAllocationsInTheHeap();
    EcoreGlibSource::attach();
    theApp = new PageApp(std::move(settings));  // lives as long as the process
}

PageApp& PageApp::instance() { return *theApp; }

PageApp::PageApp(PageSettings settings) : m_settings(std::move(settings)) {
    Device::registerRunningApp(getpid(), m_settings.appId);
    m_plugins.loadFiles(m_settings.pluginFiles);
    LoggerI("page of " << m_settings.appId << " runs in process " << getpid() << " with "
                       << m_plugins.plugins().size() << " plug-in(s)");
    m_plugins.widgetStart(m_settings.widgetId);
}

FrameScripts* PageApp::frameOf(JSContextRef context) const {
    JSGlobalContextRef global = JSContextGetGlobalContext(context);
    for (const auto& [id, frame] : m_frames) {
        if (frame->context() == global) {
            return frame.get();
        }
    }
    return nullptr;
}

std::string PageApp::appRelativeName(const std::string& url) const {
    const std::string prefix = "file://" + m_settings.appRoot + "/";
    return url.rfind(prefix, 0) == 0 ? url.substr(prefix.size()) : url;
}

void PageApp::reportUncaught(const std::string& report) {
    std::fprintf(stderr, "%s\n", report.c_str());
    std::fflush(stderr);
    LoggerE(report);
    end(Runtime::ExitReason::Uncaught, 1);
}

void PageApp::end(Runtime::ExitReason reason, int code) {
    if (m_ending) {
        return;
    }
    m_ending = true;
    m_reason = reason;
    m_code = code;
    LoggerI("app ends with exit code " << code);
    g_idle_add_full(
        G_PRIORITY_HIGH,
        [](gpointer data) -> gboolean {
            static_cast<PageApp*>(data)->finish();
            return G_SOURCE_REMOVE;
        },
        this, nullptr);
}

void PageApp::exitUnwound() {
    if (!m_ending) {
        return;
    }
    // The engine runs every timer that is due in one go, so the app's next
    // tick may come before the loop gets to finish(): it must find the
    // scripts stopped and the console silent.
    stopScripts();
}

// No more of the app's script runs once it has ended: the page's own timers
// and handlers are stopped by the engine (an execution limit of nothing for
// the page's script engine, checked at the script's next function call or
// loop, which the engine's watchdog thread arms a moment later), the
// plug-ins' callbacks by ending(), and the console prints nothing from here
// on, even for a script that runs before the watchdog stops it. Called once
// the script that asked to end has unwound (its finally blocks have run).
void PageApp::stopScripts() {
    Runtime::stopConsoleOutput();
    if (m_frames.empty()) {
        return;
    }
    Runtime::stopAllScripts(m_frames.front().second->context());
}

void PageApp::finish() {
    stopScripts();
    unloadFrames(false);
    m_plugins.widgetStop(m_settings.widgetId);
    try {
        Device::unregisterRunningApp(getpid());
    } catch (const std::exception& error) {
        LoggerW("cannot remove the running app's entry: " << error.what());
    }
    m_ended = true;
    for (WebKitUserMessage* request : m_stopRequests) {
        webkit_user_message_send_reply(request, webkit_user_message_new(kEnded, nullptr));
        g_object_unref(request);
    }
    m_stopRequests.clear();
    sendToView(webkit_user_message_new(
        kEnded, g_variant_new(kEndedType, m_code, static_cast<guint32>(m_reason))));
}

void PageApp::pageCreated(WebKitWebPage* page) {
    m_page = page;
    sendToView(webkit_user_message_new(kStarted, g_variant_new(kStartedType, getpid())));
}

void PageApp::sendToView(WebKitUserMessage* message) {
    if (!m_page) {
        g_object_ref_sink(message);
        g_object_unref(message);
        return;
    }
    webkit_web_page_send_message_to_view(m_page, message, nullptr, nullptr, nullptr);
}

void PageApp::windowObjectCleared(WebKitFrame* frame, JSGlobalContextRef context) {
    if (m_ending) {
        return;
    }
    const guint64 id = webkit_frame_get_id(frame);
    const bool mainFrame = webkit_frame_is_main_frame(frame);
    if (mainFrame) {
        // A new document in the main frame: the documents of every other
        // frame went with the old one.
        unloadFrames(true);
    }
    frameGone(id);
    if (std::find(m_watchedFrames.begin(), m_watchedFrames.end(), id) == m_watchedFrames.end()) {
        m_watchedFrames.push_back(id);
        // The weak reference's data carries the frame's number itself, as
        // GLib's pointer-sized data is commonly used.
        g_object_weak_ref(G_OBJECT(frame), frameFinalized,
                          reinterpret_cast<gpointer>(id));  // NOLINT(performance-no-int-to-ptr)
    }
    LoggerD("frame " << id << " has a new document: " << webkit_frame_get_uri(frame));
    m_frames.emplace_back(id, std::make_unique<FrameScripts>(*this, context, mainFrame));
}

void PageApp::frameFinalized(gpointer data, GObject* /*frame*/) {
    const auto id = static_cast<guint64>(reinterpret_cast<uintptr_t>(data));
    PageApp& app = instance();
    app.m_watchedFrames.erase(
        std::remove(app.m_watchedFrames.begin(), app.m_watchedFrames.end(), id),
        app.m_watchedFrames.end());
    app.frameGone(id);
}

void PageApp::frameGone(guint64 frameId) {
    auto found = std::find_if(m_frames.begin(), m_frames.end(),
                              [frameId](const auto& entry) { return entry.first == frameId; });
    if (found != m_frames.end()) {
        std::unique_ptr<FrameScripts> gone = std::move(found->second);
        m_frames.erase(found);
        gone.reset();  // the unload hooks run here, after the table no longer names it
    }
}

void PageApp::unloadFrames(bool keepMainFrame) {
    for (auto entry = m_frames.rbegin(); entry != m_frames.rend();) {
        if (keepMainFrame && entry->second->mainFrame()) {
            ++entry;
            continue;
        }
        std::unique_ptr<FrameScripts> gone = std::move(entry->second);
        entry = decltype(entry)(m_frames.erase(std::next(entry).base()));
        gone.reset();
    }
}

bool PageApp::messageReceived(WebKitUserMessage* message) {
    const std::string name = webkit_user_message_get_name(message);
    if (name == kStop) {
        gint32 code = 0;
        guint32 reason = 0;
        GVariant* parameters = webkit_user_message_get_parameters(message);
        if (parameters && g_variant_is_of_type(parameters, G_VARIANT_TYPE(kStopType))) {
            g_variant_get(parameters, kStopType, &code, &reason);
        }
        if (m_ended) {
            webkit_user_message_send_reply(message, webkit_user_message_new(kEnded, nullptr));
            return true;
        }
        m_stopRequests.push_back(WEBKIT_USER_MESSAGE(g_object_ref(message)));
        end(static_cast<Runtime::ExitReason>(reason), code);
        return true;
    }
    if (name == kCollectGarbage) {
        collectGarbage(message);
        return true;
    }
    return false;
}

void PageApp::collectGarbage(WebKitUserMessage* message) {
    if (!m_frames.empty()) {
        JSSynchronousGarbageCollectForDebugging(m_frames.front().second->context());
    }
    webkit_user_message_send_reply(message, webkit_user_message_new(kCollectGarbage, nullptr));
}

}  // namespace Page
}  // namespace Kv
