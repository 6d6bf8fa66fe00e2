// The app inside the engine's web process: one per process. It starts the
// plug-ins when the process starts (widget start), gives every frame's new
// document its FrameScripts, and ends the app once, whatever asks first:
// runtime.exit, an uncaught exception, or the page host (a time limit, a
// signal, the window closed). Ending unloads every frame (last loaded first),
// stops the plug-ins (widget stop), takes the process out of the device's
// table of running apps and tells the host, which then closes the page.
//
// The daemon of the device trusts an app's session by its process, so this
// process registers itself as the app's running process while the app runs.
//
// Everything here runs on the web process's main thread.
#ifndef KV_PAGE_PAGE_APP_H
#define KV_PAGE_PAGE_APP_H

#include "FrameScripts.h"

#include <PageSettings.h>
#include <kv-runtime/ExitControl.h>
#include <kv-runtime/PluginLoader.h>

#include <webkit2/webkit-web-extension.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Kv {
namespace Page {

class PageApp {
public:
    // Starts the app in this process: ecore on the GLib loop, the running-app
    // entry, the plug-ins loaded and their widget start hooks called. Throws
    // std::exception (a plug-in that can't be loaded, a device table that
    // can't be written).
    static void start(WebKitWebExtension* extension, PageSettings settings);
    // The app started in this process; start() must have been called.
    static PageApp& instance();

    const PageSettings& settings() const { return m_settings; }
    Runtime::PluginLoader& plugins() { return m_plugins; }

    // True once the app is ending: plug-ins call none of its callbacks.
    bool ending() const { return m_ending; }

    // The frame whose document owns `context`, or null.
    FrameScripts* frameOf(JSContextRef context) const;

    // Ends the app with `code` for `reason`; the first call wins. The work is
    // done from the loop, never inside the script call that asked.
    void end(Runtime::ExitReason reason, int code);

    // The script that called runtime.exit has unwound to the engine (its
    // finally blocks have run): from here on nothing of the app may run,
    // though the engine may still fire timers due in the same turn.
    void exitUnwound();

    // Prints an uncaught exception's report on stderr and in the log, and
    // ends the app with 1.
    void reportUncaught(const std::string& report);

    // A script's URL as the app's own file name ("main.js" for
    // file:///opt/usr/apps/<package>/res/wgt/main.js); other text unchanged.
    std::string appRelativeName(const std::string& url) const;

    // The engine's signals, connected by the extension's entry point.
    void pageCreated(WebKitWebPage* page);
    void windowObjectCleared(WebKitFrame* frame, JSGlobalContextRef context);
    bool messageReceived(WebKitUserMessage* message);

private:
    explicit PageApp(PageSettings settings);

    static void frameFinalized(gpointer data, GObject* frame);
    void frameGone(guint64 frameId);
    void unloadFrames(bool keepMainFrame);
    void stopScripts();
    void finish();
    void sendToView(WebKitUserMessage* message);
    void collectGarbage(WebKitUserMessage* message);

    PageSettings m_settings;
    Runtime::PluginLoader m_plugins;
    WebKitWebPage* m_page = nullptr;
    // The frames' current documents, in the order they were loaded.
    std::vector<std::pair<guint64, std::unique_ptr<FrameScripts>>> m_frames;
    std::vector<guint64> m_watchedFrames;
    bool m_ending = false;
    bool m_ended = false;
    Runtime::ExitReason m_reason = Runtime::ExitReason::None;
    int m_code = 0;
    // The host's stop requests, answered once the app has ended.
    std::vector<WebKitUserMessage*> m_stopRequests;
};

}  // namespace Page
}  // namespace Kv

#endif
