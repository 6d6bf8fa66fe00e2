#include "PageSession.h"

#include "HostSignals.h"
#include "LoadConfinement.h"
#include "PageDriver.h"
#include "PageWindow.h"
#include "ScreenCapture.h"

#include <PageProtocol.h>
#include <kv-device/Paths.h>
#include <kv-device/Process.h>

#include <Logger.h>

#include <csignal>
#include <cstdio>
#include <exception>

namespace Kv {
namespace Page {

using Runtime::ExitReason;

namespace {

// How long the page's process may take to end the app once asked, before
// the host closes the page all the same.
constexpr guint kStopGraceMs = 5000;
// How long the page's process may take to end once the page is closed.
constexpr gint64 kPageExitGraceMs = 2000;
// An app's time limit counts from its start: for a page, from when the
// engine's page process runs the plug-ins, as the script host counts from
// when its engine is ready. Until then the engine may take this much more,
// so that a page whose process never starts is still stopped.
constexpr guint kPageStartAllowanceMs = 30000;

void say(const std::string& text) {
    std::fprintf(stderr, "kv-runtime: %s\n", text.c_str());
    std::fflush(stderr);
}

std::string packageData(const Device::AppInfo& app, const char* part) {
    return Device::packageRoot(app.package) + Device::kPackageDataDir + part;
}

}  // namespace

PageSession::PageSession(HostSettings settings)
    : m_settings(std::move(settings)),
      m_appUrl("file://" + m_settings.app.deviceRoot + "/"),
      m_loop(g_main_loop_new(nullptr, FALSE)) {}

PageSession::~PageSession() {
    m_driver.reset();
    for (const guint source : {m_timeoutSource, m_captureSource, m_stopGuardSource}) {
        if (source) {
            g_source_remove(source);
        }
    }
    if (m_window) {
        gtk_widget_destroy(m_window);
    }
    if (m_context) {
        g_object_unref(m_context);
    }
    g_main_loop_unref(m_loop);
}

int PageSession::run() {
    m_startTime = g_get_monotonic_time();
    makeView();
    connectSignals();
    if (m_settings.run.page.driverSocket) {
        m_driver = std::make_unique<PageDriver>(*m_settings.run.page.driverSocket, *this);
    }
    watchStopSignals([this](ExitReason reason) { stop(reason); });
    startTimers();
    confineLoads(m_view, m_appUrl, packageData(m_settings.app, "/web/content-rules"),
                 [this](const std::string& error) {
                     if (!error.empty()) {
                         say(error);
                         ended(ExitReason::Uncaught, 1);
                         return;
                     }
                     loadPage();
                 });
    g_main_loop_run(m_loop);
    if (m_reason == ExitReason::Timeout) {
        say(Runtime::timeLimitReached(m_settings.app.appId, m_settings.run));
    }
    closePage();
    LoggerI("app ended with exit code " << m_code);
    return m_code;
}

// The page goes with its window; its process ends when it sees the host go.
// One that is stuck in a script of the page never looks, and is killed.
void PageSession::closePage() {
    m_driver.reset();
    gtk_widget_destroy(m_window);
    m_window = nullptr;
    if (m_pagePid <= 0) {
        return;
    }
    const gint64 deadline = g_get_monotonic_time() + kPageExitGraceMs * 1000;
    while (Device::processRunning(m_pagePid) && g_get_monotonic_time() < deadline) {
        g_main_context_iteration(nullptr, FALSE);
        g_usleep(10000);
    }
    if (Device::processRunning(m_pagePid)) {
        LoggerW("the page's process " << m_pagePid << " did not end; killed");
        kill(m_pagePid, SIGKILL);
    }
    Device::unregisterRunningApp(m_pagePid);  // gone with a crash, or never removed
}

void PageSession::makeView() {
    WebKitWebsiteDataManager* data = webkit_website_data_manager_new(
        "base-data-directory", packageData(m_settings.app, "/web").c_str(), "base-cache-directory",
        (Device::packageRoot(m_settings.app.package) + Device::kPackageTmpDir + "/web-cache")
            .c_str(),
        nullptr);
    m_context = webkit_web_context_new_with_website_data_manager(data);
    g_object_unref(data);
    webkit_web_context_set_cache_model(m_context, WEBKIT_CACHE_MODEL_DOCUMENT_VIEWER);
    // The page's process is the app's as the device sees it (its process id
    // in the running-app table, its device folder): the engine's sandbox
    // would give it a process id of its own namespace.
    webkit_web_context_set_sandbox_enabled(m_context, FALSE);
    webkit_web_context_set_web_extensions_directory(m_context, m_settings.extensionDir.c_str());
    webkit_web_context_set_web_extensions_initialization_user_data(m_context,
                                                                   m_settings.page.toVariant());
    m_view = WEBKIT_WEB_VIEW(g_object_new(WEBKIT_TYPE_WEB_VIEW, "web-context", m_context, nullptr));
    WebKitSettings* settings = webkit_web_view_get_settings(m_view);
    webkit_settings_set_enable_developer_extras(settings, m_settings.run.page.inspect);
    webkit_settings_set_hardware_acceleration_policy(settings,
                                                     WEBKIT_HARDWARE_ACCELERATION_POLICY_NEVER);
    webkit_settings_set_enable_page_cache(settings, FALSE);
    webkit_settings_set_javascript_can_open_windows_automatically(settings, FALSE);
    // The app's own files are one origin, so that it can read them and see
    // its own scripts' errors; nothing outside the app's folder is reachable
    // (LoadConfinement, and the extension's own check).
    webkit_settings_set_allow_file_access_from_file_urls(settings, TRUE);
    webkit_settings_set_allow_universal_access_from_file_urls(settings, FALSE);
    confineNavigation(m_view, m_appUrl);
    m_window =
        makePageWindow(m_view, m_settings.screen,
                       m_settings.app.name.empty() ? m_settings.app.appId : m_settings.app.name,
                       m_settings.windowPosition);
}

void PageSession::connectSignals() {
    g_signal_connect(m_view, "user-message-received", G_CALLBACK(onMessage), this);
    g_signal_connect(m_context, "user-message-received", G_CALLBACK(onContextMessage), this);
    g_signal_connect(m_view, "web-process-terminated", G_CALLBACK(onTerminated), this);
    g_signal_connect(m_view, "load-changed", G_CALLBACK(onLoadChanged), this);
    g_signal_connect(m_view, "load-failed", G_CALLBACK(onLoadFailed), this);
    g_signal_connect(m_window, "delete-event", G_CALLBACK(onDelete), this);
}

void PageSession::loadPage() {
    if (m_finishing) {
        return;
    }
    const std::string uri = m_appUrl + m_settings.app.startScript;
    LoggerI("loading " << uri);
    webkit_web_view_load_uri(m_view, uri.c_str());
}

void PageSession::startTimers() {
    startTimeLimit(kPageStartAllowanceMs);
    if (m_settings.run.page.screenshotsDir) {
        m_captureSource = g_timeout_add(
            static_cast<guint>(m_settings.run.page.everyMilliseconds),
            [](gpointer data) -> gboolean {
                static_cast<PageSession*>(data)->captureEvery();
                return G_SOURCE_CONTINUE;
            },
            this);
    }
}

// The app's time limit, from now, plus `allowanceMs`; a limit running
// already is replaced.
void PageSession::startTimeLimit(guint allowanceMs) {
    if (!m_settings.run.timeoutSeconds) {
        return;
    }
    if (m_timeoutSource != 0) {
        g_source_remove(m_timeoutSource);
    }
    m_timeoutSource = g_timeout_add(
        static_cast<guint>(*m_settings.run.timeoutSeconds * 1000) + allowanceMs,
        [](gpointer data) -> gboolean {
            auto* session = static_cast<PageSession*>(data);
            session->m_timeoutSource = 0;
            session->stop(ExitReason::Timeout);
            return G_SOURCE_REMOVE;
        },
        this);
}

void PageSession::captureEvery() {
    if (m_capturing || m_finishing || !m_started) {
        return;
    }
    char name[32];
    std::snprintf(name, sizeof name, "/%06lld.png",
                  static_cast<long long>((g_get_monotonic_time() - m_startTime) / 1000));
    m_capturing = true;
    captureScreen(m_view, m_settings.screen,
                  m_settings.run.page.screenshotsDir.value_or(".") + name,
                  [this](const std::string& error) {
                      m_capturing = false;
                      if (!error.empty()) {
                          LoggerW(error);
                      }
                  });
}

void PageSession::pageStarted(pid_t pid) {
    if (m_pagePid > 0 && m_pagePid != pid) {
        // The engine replaced the page's process: the old one is no app any
        // more.
        Device::unregisterRunningApp(m_pagePid);
    }
    if (!m_started && !m_stopping && !m_finishing) {
        startTimeLimit(0);
    }
    m_pagePid = pid;
    m_started = true;
    LoggerI("the page runs in process " << pid);
}

// The host asks the page to end the app; the page answers once it has.
void PageSession::stop(ExitReason reason) {
    if (m_stopping || m_finishing) {
        return;
    }
    m_stopping = true;
    m_reason = reason;
    m_code = Runtime::exitCodeFor(reason);
    if (!m_started) {
        finish();
        return;
    }
    webkit_web_view_send_message_to_page(
        m_view,
        webkit_user_message_new(kStop,
                                g_variant_new(kStopType, m_code, static_cast<guint32>(reason))),
        nullptr,
        [](GObject*, GAsyncResult*, gpointer data) { static_cast<PageSession*>(data)->finish(); },
        this);
    m_stopGuardSource = g_timeout_add(
        kStopGraceMs,
        [](gpointer data) -> gboolean {
            auto* session = static_cast<PageSession*>(data);
            session->m_stopGuardSource = 0;
            LoggerW("the page did not end the app within " << kStopGraceMs << " ms");
            session->finish();
            return G_SOURCE_REMOVE;
        },
        this);
}

// The page has ended the app.
void PageSession::ended(ExitReason reason, int code) {
    if (!m_stopping) {
        m_reason = reason;
        m_code = code;
    }
    finish();
}

void PageSession::crashed(const std::string& why) {
    if (m_finishing) {
        return;
    }
    say("the page of " + m_settings.app.appId + " " + why + "; stopped");
    if (!m_stopping) {
        m_reason = ExitReason::Uncaught;
        m_code = 1;
    }
    finish();
}

// The last picture, if one was asked for, then the loop ends.
void PageSession::finish() {
    if (m_finishing) {
        return;
    }
    m_finishing = true;
    if (!m_settings.run.page.screenshot || !m_started) {
        quit();
        return;
    }
    captureScreen(m_view, m_settings.screen, *m_settings.run.page.screenshot,
                  [this](const std::string& error) {
                      if (!error.empty()) {
                          say(error);
                      }
                      quit();
                  });
}

void PageSession::quit() { g_main_loop_quit(m_loop); }

void PageSession::closeWindow() {
    if (m_window) {
        gtk_window_close(GTK_WINDOW(m_window));
    }
}

void PageSession::collectGarbage(std::function<void()> done) {
    auto* callback = new std::function<void()>(std::move(done));
    webkit_web_view_send_message_to_page(
        m_view, webkit_user_message_new(kCollectGarbage, nullptr), nullptr,
        [](GObject*, GAsyncResult*, gpointer data) {
            std::unique_ptr<std::function<void()>> then(static_cast<std::function<void()>*>(data));
            (*then)();
        },
        callback);
}

bool PageSession::handleMessage(WebKitUserMessage* message) {
    const std::string name = webkit_user_message_get_name(message);
    GVariant* parameters = webkit_user_message_get_parameters(message);
    if (name == kStarted && parameters &&
        g_variant_is_of_type(parameters, G_VARIANT_TYPE(kStartedType))) {
        gint32 pid = 0;
        g_variant_get(parameters, kStartedType, &pid);
        pageStarted(pid);
        return true;
    }
    if (name == kEnded && parameters &&
        g_variant_is_of_type(parameters, G_VARIANT_TYPE(kEndedType))) {
        gint32 code = 0;
        guint32 reason = 0;
        g_variant_get(parameters, kEndedType, &code, &reason);
        ended(static_cast<ExitReason>(reason), code);
        return true;
    }
    return false;
}

gboolean PageSession::onMessage(WebKitWebView*, WebKitUserMessage* message, gpointer data) {
    return static_cast<PageSession*>(data)->handleMessage(message);
}

gboolean PageSession::onContextMessage(WebKitWebContext*, WebKitUserMessage* message,
                                       gpointer data) {
    return static_cast<PageSession*>(data)->handleMessage(message);
}

void PageSession::onTerminated(WebKitWebView*, WebKitWebProcessTerminationReason reason,
                               gpointer data) {
    auto* session = static_cast<PageSession*>(data);
    switch (reason) {
        case WEBKIT_WEB_PROCESS_CRASHED:
            session->crashed("crashed (its web process ended unexpectedly)");
            break;
        case WEBKIT_WEB_PROCESS_EXCEEDED_MEMORY_LIMIT:
            session->crashed("used more memory than allowed (its web process was ended)");
            break;
        default:
            session->crashed("lost its web process");
            break;
    }
}

void PageSession::onLoadChanged(WebKitWebView* view, WebKitLoadEvent event, gpointer data) {
    auto* session = static_cast<PageSession*>(data);
    if (event == WEBKIT_LOAD_FINISHED) {
        LoggerI("page loaded: " << webkit_web_view_get_uri(view));
        if (!session->m_started && !session->m_finishing) {
            say("the page of " + session->m_settings.app.appId +
                " loaded without the runtime's extension (none in " +
                session->m_settings.extensionDir + ")");
            session->ended(ExitReason::Uncaught, 1);
        }
    }
}

gboolean PageSession::onLoadFailed(WebKitWebView*, WebKitLoadEvent, gchar* uri, GError* error,
                                   gpointer data) {
    auto* session = static_cast<PageSession*>(data);
    const bool interrupted =
        g_error_matches(error, WEBKIT_NETWORK_ERROR, WEBKIT_NETWORK_ERROR_CANCELLED) ||
        g_error_matches(error, WEBKIT_POLICY_ERROR,
                        WEBKIT_POLICY_ERROR_FRAME_LOAD_INTERRUPTED_BY_POLICY_CHANGE);
    if (!interrupted && !session->m_finishing) {
        say(std::string("cannot load the page ") + uri + ": " + error->message);
        session->ended(ExitReason::Uncaught, 1);
    }
    return TRUE;
}

gboolean PageSession::onDelete(GtkWidget*, GdkEvent*, gpointer data) {
    static_cast<PageSession*>(data)->stop(ExitReason::Closed);
    return TRUE;  // the window stays until the app has ended
}

}  // namespace Page
}  // namespace Kv
