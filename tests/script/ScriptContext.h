// A test fixture with a fresh JavaScriptCore global context per test and
// helpers to evaluate scripts in it.
#ifndef KV_TESTS_SCRIPT_SCRIPT_CONTEXT_H
#define KV_TESTS_SCRIPT_SCRIPT_CONTEXT_H

#include <JavaScriptCore/JavaScript.h>

#include <gtest/gtest.h>

#include <string>

namespace KvTest {

class ScriptTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Evaluates `script`; a script exception fails the test (and gives
    // undefined).
    JSValueRef eval(const std::string& script);
    // Evaluates `script`, which must throw; returns what it threw.
    JSValueRef evalThrowing(const std::string& script);
    JSObjectRef evalObject(const std::string& script);

    // The script's string form of `value`.
    std::string text(JSValueRef value);
    void setGlobal(const std::string& name, JSValueRef value);
    JSValueRef global(const std::string& name);

    // Runs a full, synchronous collection of the context's heap.
    void collectGarbage();

    JSGlobalContextRef m_context = nullptr;
};

}  // namespace KvTest

#endif
