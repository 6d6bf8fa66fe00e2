// A programmable stand-in for the runtime's access control, as the plug-in
// uses it (WrtAccess::initialize, deinitialize and checkAccessControl). The
// test program that links fake_wrt_access.cpp gets these definitions instead
// of the platform library's, so access control answers what a test sets,
// any number included, without a device or an installed app.
//
// By default every check is granted (0), initialisation and
// de-initialisation succeed, and every call is recorded. Use from one
// thread at a time.
#ifndef KV_TESTS_PLUGIN_FAKE_WRT_ACCESS_H
#define KV_TESTS_PLUGIN_FAKE_WRT_ACCESS_H

#include <Commons/FunctionDefinition.h>

#include <string>
#include <vector>

namespace FakeWrtAccess {

// What initialize or deinitialize does when called.
enum class Outcome {
    Succeed,
    ThrowCommonsException,  // a WrtDeviceApis::Commons::PlatformException
    ThrowStdException,      // a std::runtime_error
};

// Back to the defaults; forgets the recorded calls.
void reset();

// The number every later checkAccessControl answers.
void setAnswer(int answer);

void setInitializeOutcome(Outcome outcome);
void setDeinitializeOutcome(Outcome outcome);

// The calls since reset(), in order: "initialize(<id>)", "deinitialize(<id>)"
// and "checkAccessControl(<function name>)".
std::vector<std::string> calls();

// The records handed to checkAccessControl since reset(), in order.
std::vector<WrtDeviceApis::Commons::AceFunction> checkedFunctions();

}  // namespace FakeWrtAccess

#endif
