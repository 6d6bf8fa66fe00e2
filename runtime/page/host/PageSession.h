// One run of an app that is a page, in the host's process: the engine's web
// context with the runtime's extension, the web view in a window the size of
// the device's screen, the page loaded from the app's folder and kept in it,
// and the app's end, whoever asks first:
//   the page (runtime.exit, an uncaught exception)  its code
//   --timeout SECONDS                               124
//   SIGINT, SIGTERM, SIGQUIT                        130, 143, 131
//   the window closed                               0
//   the page's process crashed                      1
// Except after a crash, the page's process ends the app itself (frames
// unloaded, plug-ins stopped) before the host closes the page.
#ifndef KV_PAGE_PAGE_SESSION_H
#define KV_PAGE_PAGE_SESSION_H

#include <RunOptions.h>

#include <PageSettings.h>
#include <kv-device/AppRegistry.h>
#include <kv-device/Screen.h>
#include <kv-runtime/ExitControl.h>

#include <webkit2/webkit2.h>

#include <sys/types.h>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace Kv {
namespace Page {

class PageDriver;

struct HostSettings {
    Device::AppInfo app;
    Device::Screen screen;
    PageSettings page;  // what the web process is told
    Runtime::RunOptions run;
    std::string extensionDir;  // where the runtime's web extension is
    std::optional<std::pair<int, int>> windowPosition;
};

class PageSession {
public:
    explicit PageSession(HostSettings settings);
    ~PageSession();
    PageSession(const PageSession&) = delete;
    PageSession& operator=(const PageSession&) = delete;

    // Shows the page and runs until the app has ended; the exit code.
    int run();

    WebKitWebView* view() const { return m_view; }
    const Device::Screen& screen() const { return m_settings.screen; }
    // The page's process, or 0 before it has started.
    pid_t pagePid() const { return m_pagePid; }
    // Closes the window as a person would (its close button): the app ends.
    void closeWindow();
    // A full collection in the page's process; `done` runs when it is over.
    void collectGarbage(std::function<void()> done);

private:
    void makeView();
    void connectSignals();
    void loadPage();
    void startTimers();
    void startTimeLimit(guint allowanceMs);
    void pageStarted(pid_t pid);
    void stop(Runtime::ExitReason reason);
    void ended(Runtime::ExitReason reason, int code);
    void crashed(const std::string& why);
    void finish();
    void quit();
    void closePage();
    void captureEvery();

    static gboolean onMessage(WebKitWebView* view, WebKitUserMessage* message, gpointer data);
    static gboolean onContextMessage(WebKitWebContext* context, WebKitUserMessage* message,
                                     gpointer data);
    static void onTerminated(WebKitWebView* view, WebKitWebProcessTerminationReason reason,
                             gpointer data);
    static void onLoadChanged(WebKitWebView* view, WebKitLoadEvent event, gpointer data);
    static gboolean onLoadFailed(WebKitWebView* view, WebKitLoadEvent event, gchar* uri,
                                 GError* error, gpointer data);
    static gboolean onDelete(GtkWidget* window, GdkEvent* event, gpointer data);
    bool handleMessage(WebKitUserMessage* message);

    HostSettings m_settings;
    std::string m_appUrl;  // file:///opt/usr/apps/<package>/res/wgt/
    WebKitWebContext* m_context = nullptr;
    WebKitWebView* m_view = nullptr;
    GtkWidget* m_window = nullptr;
    GMainLoop* m_loop = nullptr;
    std::unique_ptr<PageDriver> m_driver;
    pid_t m_pagePid = 0;
    bool m_started = false;
    bool m_stopping = false;
    bool m_finishing = false;
    Runtime::ExitReason m_reason = Runtime::ExitReason::None;
    int m_code = 0;
    gint64 m_startTime = 0;
    bool m_capturing = false;
    guint m_timeoutSource = 0;
    guint m_captureSource = 0;
    guint m_stopGuardSource = 0;
};

}  // namespace Page
}  // namespace Kv

#endif
