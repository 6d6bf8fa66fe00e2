// The driver socket (--driver SOCKET): a Unix socket through which a test,
// or any other program, drives the page as a person would and reads what it
// shows. One command per line, one answer per line, in order:
//
//   click SELECTOR      ok              a real click (pointer events through the
//                                       window) in the middle of the first
//                                       element that matches, scrolled into view
//   text SELECTOR       ok JSON         the element's textContent, a JSON string
//   eval EXPRESSION     ok JSON         the value of the expression in the main
//                                       frame, as JSON (null for undefined)
//   screenshot FILE     ok              a PNG of the screen, as --screenshot
//   reload              ok              the page loaded anew
//   collect-garbage     ok              a full garbage collection in the page's
//                                       process, done
//   pid                 ok PID          the page's (the web engine's) process
//   close               ok              the window closed, as its close button
//                                       does (the app ends with 0)
//
// Anything else, or a command that fails, answers "error WHAT".
#ifndef KV_PAGE_PAGE_DRIVER_H
#define KV_PAGE_PAGE_DRIVER_H

#include <gio/gio.h>

#include <string>

namespace Kv {
namespace Page {

class PageSession;

class PageDriver {
public:
    // Listens on `socketPath` (replacing a stale socket file there). Throws
    // std::runtime_error when it can't.
    PageDriver(const std::string& socketPath, PageSession& session);
    // Stops listening and removes the socket file.
    ~PageDriver();
    PageDriver(const PageDriver&) = delete;
    PageDriver& operator=(const PageDriver&) = delete;

private:
    static gboolean onIncoming(GSocketService* service, GSocketConnection* connection,
                               GObject* source, gpointer data);

    std::string m_path;
    PageSession& m_session;
    GSocketService* m_service = nullptr;
};

}  // namespace Page
}  // namespace Kv

#endif
