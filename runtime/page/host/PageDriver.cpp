#include "PageDriver.h"

#include "PageSession.h"
#include "PointerClick.h"
#include "ScreenCapture.h"

#include <Logger.h>

#include <unistd.h>
#include <functional>
#include <memory>
#include <stdexcept>

namespace Kv {
namespace Page {

namespace {

// The world the driver's own scripts run in: the page's document, but none
// of the page's script globals.
const char kDriverWorld[] = "kv-driver";

using Answer = std::function<void(const std::string& line)>;

std::string jsonOf(JSCValue* value) {
    if (!value || jsc_value_is_undefined(value)) {
        return "null";
    }
    char* json = jsc_value_to_json(value, 0);
    std::string text = json ? json : "null";
    g_free(json);
    return text;
}

// A JSON string literal of `text`, for building driver scripts.
std::string quoted(const std::string& text) {
    JSCContext* context = jsc_context_new();
    JSCValue* value = jsc_value_new_string(context, text.c_str());
    std::string json = jsonOf(value);
    g_object_unref(value);
    g_object_unref(context);
    return json;
}

struct Evaluation {
    std::function<void(JSCValue* value, const std::string& error)> then;
};

void evaluated(GObject* view, GAsyncResult* result, gpointer data) {
    std::unique_ptr<Evaluation> evaluation(static_cast<Evaluation*>(data));
    GError* error = nullptr;
    JSCValue* value =
        webkit_web_view_evaluate_javascript_finish(WEBKIT_WEB_VIEW(view), result, &error);
    if (!value) {
        const std::string why = error ? error->message : "no value";
        g_clear_error(&error);
        evaluation->then(nullptr, why);
        return;
    }
    evaluation->then(value, "");
    g_object_unref(value);
}

void evaluate(WebKitWebView* view, const std::string& script, const char* world,
              std::function<void(JSCValue*, const std::string&)> then) {
    webkit_web_view_evaluate_javascript(view, script.c_str(), -1, world, nullptr, nullptr,
                                        evaluated, new Evaluation{std::move(then)});
}

std::string elementScript(const std::string& selector, const std::string& body) {
    return "(function () { var element = document.querySelector(" + quoted(selector) +
           "); if (!element) { throw new Error('no element matches ' + " + quoted(selector) +
           "); } " + body + " })()";
}

void clickCommand(PageSession& session, const std::string& selector, const Answer& answer) {
    const std::string script =
        elementScript(selector,
                      "element.scrollIntoView({block: 'center', inline: 'center'});"
                      "var box = element.getBoundingClientRect();"
                      "return [box.left + box.width / 2, box.top + box.height / 2];");
    WebKitWebView* view = session.view();
    evaluate(view, script, kDriverWorld, [view, answer](JSCValue* value, const std::string& error) {
        if (!error.empty()) {
            answer("error " + error);
            return;
        }
        JSCValue* x = jsc_value_object_get_property_at_index(value, 0);
        JSCValue* y = jsc_value_object_get_property_at_index(value, 1);
        clickAt(view, jsc_value_to_double(x), jsc_value_to_double(y));
        g_object_unref(x);
        g_object_unref(y);
        answer("ok");
    });
}

void valueCommand(WebKitWebView* view, const std::string& script, const char* world,
                  const Answer& answer) {
    evaluate(view, script, world, [answer](JSCValue* value, const std::string& error) {
        answer(error.empty() ? "ok " + jsonOf(value) : "error " + error);
    });
}

void dispatchCommand(PageSession& session, const std::string& line, const Answer& answer) {
    const auto blank = line.find(' ');
    const std::string verb = line.substr(0, blank);
    const std::string rest = blank == std::string::npos ? "" : line.substr(blank + 1);
    if (verb == "click" && !rest.empty()) {
        clickCommand(session, rest, answer);
    } else if (verb == "text" && !rest.empty()) {
        valueCommand(session.view(), elementScript(rest, "return element.textContent;"),
                     kDriverWorld, answer);
    } else if (verb == "eval" && !rest.empty()) {
        valueCommand(session.view(), rest, nullptr, answer);
    } else if (verb == "screenshot" && !rest.empty()) {
        captureScreen(session.view(), session.screen(), rest, [answer](const std::string& error) {
            answer(error.empty() ? "ok" : "error " + error);
        });
    } else if (verb == "reload" && rest.empty()) {
        webkit_web_view_reload(session.view());
        answer("ok");
    } else if (verb == "collect-garbage" && rest.empty()) {
        session.collectGarbage([answer] { answer("ok"); });
    } else if (verb == "close" && rest.empty()) {
        session.closeWindow();
        answer("ok");
    } else if (verb == "pid" && rest.empty()) {
        answer("ok " + std::to_string(session.pagePid()));
    } else {
        answer("error unknown command: " + line);
    }
}

// One client: reads a line, answers it, reads the next.
struct Client {
    PageSession& session;
    GSocketConnection* connection;
    GDataInputStream* input;
    GOutputStream* output;

    ~Client() {
        g_object_unref(input);
        g_object_unref(connection);
    }
    void readNext();
    static void lineRead(GObject* source, GAsyncResult* result, gpointer data);
};

void Client::readNext() {
    g_data_input_stream_read_line_async(input, G_PRIORITY_DEFAULT, nullptr, lineRead, this);
}

void Client::lineRead(GObject* source, GAsyncResult* result, gpointer data) {
    auto* client = static_cast<Client*>(data);
    char* line =
        g_data_input_stream_read_line_finish(G_DATA_INPUT_STREAM(source), result, nullptr, nullptr);
    if (!line) {
        delete client;  // the other end closed
        return;
    }
    const std::string command = line;
    g_free(line);
    dispatchCommand(client->session, command, [client](const std::string& answer) {
        const std::string text = answer + "\n";
        g_output_stream_write_all(client->output, text.data(), text.size(), nullptr, nullptr,
                                  nullptr);
        client->readNext();
    });
}

}  // namespace

PageDriver::PageDriver(const std::string& socketPath, PageSession& session)
    : m_path(socketPath), m_session(session) {
    unlink(m_path.c_str());
    m_service = g_socket_service_new();
    GSocketAddress* address = g_unix_socket_address_new(m_path.c_str());
    GError* error = nullptr;
    const gboolean added =
        g_socket_listener_add_address(G_SOCKET_LISTENER(m_service), address, G_SOCKET_TYPE_STREAM,
                                      G_SOCKET_PROTOCOL_DEFAULT, nullptr, nullptr, &error);
    g_object_unref(address);
    if (!added) {
        const std::string why = error ? error->message : "unknown error";
        g_clear_error(&error);
        g_object_unref(m_service);
        throw std::runtime_error("cannot listen on the driver socket " + m_path + ": " + why);
    }
    g_signal_connect(m_service, "incoming", G_CALLBACK(onIncoming), this);
    g_socket_service_start(m_service);
}

PageDriver::~PageDriver() {
    g_socket_service_stop(m_service);
    g_socket_listener_close(G_SOCKET_LISTENER(m_service));
    g_object_unref(m_service);
    unlink(m_path.c_str());
}

gboolean PageDriver::onIncoming(GSocketService* /*service*/, GSocketConnection* connection,
                                GObject* /*source*/, gpointer data) {
    auto* driver = static_cast<PageDriver*>(data);
    GInputStream* input = g_io_stream_get_input_stream(G_IO_STREAM(connection));
    auto* client = new Client{driver->m_session, G_SOCKET_CONNECTION(g_object_ref(connection)),
                              g_data_input_stream_new(input),
                              g_io_stream_get_output_stream(G_IO_STREAM(connection))};
    client->readNext();
    return TRUE;
}

}  // namespace Page
}  // namespace Kv
