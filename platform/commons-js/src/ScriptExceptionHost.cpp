#include <CommonsJavaScript/ScriptExceptionHost.h>

#include <CommonsJavaScript/JSUtils.h>
#include <Logger.h>

#include <exception>
#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace WrtDeviceApis {
namespace CommonsJavaScript {

namespace {

struct Host {
    ScriptExceptionHost::Reporter reporter;
    ScriptExceptionHost::Running running;
};

struct Hosts {
    std::mutex mutex;
    std::map<JSGlobalContextRef, Host> hosts;
};

// Never destroyed, so that a host that detaches while the process exits
// (from the destructor of a static object) still finds it.
Hosts& hosts() {
    static Hosts* instance = new Hosts();
    return *instance;
}

// The host of `context`, or an empty one. A copy, so that its functions run
// without the lock and may themselves attach or detach.
Host hostOf(JSContextRef context) {
    if (context == nullptr) {
        return {};
    }
    Hosts& all = hosts();
    std::lock_guard<std::mutex> lock(all.mutex);
    const auto found = all.hosts.find(JSContextGetGlobalContext(context));
    return found != all.hosts.end() ? found->second : Host();
}

}  // namespace

void ScriptExceptionHost::attach(JSGlobalContextRef context, Reporter reporter, Running running) {
    Hosts& all = hosts();
    std::lock_guard<std::mutex> lock(all.mutex);
    all.hosts[context] = Host{std::move(reporter), std::move(running)};
}

void ScriptExceptionHost::detach(JSGlobalContextRef context) {
    Hosts& all = hosts();
    std::lock_guard<std::mutex> lock(all.mutex);
    all.hosts.erase(context);
}

bool ScriptExceptionHost::reportUncaught(JSContextRef context, JSValueRef exception) {
    const Reporter reporter = hostOf(context).reporter;
    if (reporter) {
        try {
            reporter(exception);
            return true;
        } catch (const std::exception& error) {
            LoggerE("The host failed to report an exception: " << error.what());
        }
    }
    LoggerE("Uncaught exception in a script callback: "
            << (context != nullptr ? JSUtils::describeException(context, exception)
                                   : std::string("(no context)")));
    return false;
}

bool ScriptExceptionHost::scriptRuns(JSContextRef context) {
    const Running running = hostOf(context).running;
    try {
        return !running || running();
    } catch (const std::exception& error) {
        LoggerE("The host failed to tell whether its script runs: " << error.what());
        return true;
    }
}

}  // namespace CommonsJavaScript
}  // namespace WrtDeviceApis
