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

struct Hosts {
    std::mutex mutex;
    std::map<JSGlobalContextRef, ScriptExceptionHost::Reporter> reporters;
};

// Never destroyed, so that a host that detaches while the process exits
// (from the destructor of a static object) still finds it.
Hosts& hosts() {
    static Hosts* instance = new Hosts();
    return *instance;
}

// The reporter of `context`, or an empty one. A copy, so that the reporter
// runs without the lock and may itself attach or detach.
ScriptExceptionHost::Reporter reporterOf(JSContextRef context) {
    if (context == nullptr) {
        return {};
    }
    Hosts& all = hosts();
    std::lock_guard<std::mutex> lock(all.mutex);
    const auto found = all.reporters.find(JSContextGetGlobalContext(context));
    return found != all.reporters.end() ? found->second : ScriptExceptionHost::Reporter();
}

}  // namespace

void ScriptExceptionHost::attach(JSGlobalContextRef context, Reporter reporter) {
    Hosts& all = hosts();
    std::lock_guard<std::mutex> lock(all.mutex);
    all.reporters[context] = std::move(reporter);
}

void ScriptExceptionHost::detach(JSGlobalContextRef context) {
    Hosts& all = hosts();
    std::lock_guard<std::mutex> lock(all.mutex);
    all.reporters.erase(context);
}

bool ScriptExceptionHost::reportUncaught(JSContextRef context, JSValueRef exception) {
    const Reporter reporter = reporterOf(context);
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

}  // namespace CommonsJavaScript
}  // namespace WrtDeviceApis
