#include "fake_wrt_access.h"

#include <Commons/Exception.h>
#include <Commons/WrtAccess/WrtAccess.h>

#include <stdexcept>

namespace {

struct State {
    int answer = 0;
    FakeWrtAccess::Outcome initialize = FakeWrtAccess::Outcome::Succeed;
    FakeWrtAccess::Outcome deinitialize = FakeWrtAccess::Outcome::Succeed;
    std::vector<std::string> calls;
    std::vector<WrtDeviceApis::Commons::AceFunction> checked;
};

// Never destroyed, so that calls made while the process exits still find it.
State& state() {
    static State* instance = new State();
    return *instance;
}

void perform(FakeWrtAccess::Outcome outcome, const std::string& call) {
    state().calls.push_back(call);
    switch (outcome) {
        case FakeWrtAccess::Outcome::Succeed:
            return;
        case FakeWrtAccess::Outcome::ThrowCommonsException:
            ThrowMsg(WrtDeviceApis::Commons::PlatformException, call << " failed");
        case FakeWrtAccess::Outcome::ThrowStdException:
            throw std::runtime_error(call + " failed");
    }
}

}  // namespace

namespace FakeWrtAccess {

void reset() { state() = State(); }

void setAnswer(int answer) { state().answer = answer; }

void setInitializeOutcome(Outcome outcome) { state().initialize = outcome; }

void setDeinitializeOutcome(Outcome outcome) { state().deinitialize = outcome; }

std::vector<std::string> calls() { return state().calls; }

std::vector<WrtDeviceApis::Commons::AceFunction> checkedFunctions() { return state().checked; }

}  // namespace FakeWrtAccess

namespace WrtDeviceApis {
namespace Commons {

void WrtAccess::initialize(int widgetId) {
    perform(state().initialize, "initialize(" + std::to_string(widgetId) + ")");
}

void WrtAccess::deinitialize(int widgetId) {
    perform(state().deinitialize, "deinitialize(" + std::to_string(widgetId) + ")");
}

WrtAccess::CheckAccessReturnType WrtAccess::checkAccessControl(const AceFunction& function) const {
    state().calls.push_back("checkAccessControl(" + function.name + ")");
    state().checked.push_back(function);
    return static_cast<CheckAccessReturnType>(state().answer);
}

}  // namespace Commons
}  // namespace WrtDeviceApis
