// A JavaScriptCore global context for one native test of the script layer,
// with helpers to evaluate script and read values back.
#ifndef KV_TESTS_PLUGIN_SCRIPT_TEST_CONTEXT_H
#define KV_TESTS_PLUGIN_SCRIPT_TEST_CONTEXT_H

#include <JavaScriptCore/JavaScript.h>

#include <string>

class ScriptTestContext {
public:
    ScriptTestContext();
    ~ScriptTestContext();
    ScriptTestContext(const ScriptTestContext&) = delete;
    ScriptTestContext& operator=(const ScriptTestContext&) = delete;

    JSGlobalContextRef get() const { return m_context; }

    // Evaluates `script`; a thrown value is stored in `*exception` when given.
    JSValueRef evaluate(const std::string& script, JSValueRef* exception = nullptr) const;
    // Sets a property of the global object.
    void setGlobal(const std::string& name, JSValueRef value) const;
    // The value as text (String(value)).
    std::string text(JSValueRef value) const;
    // A full garbage collection, synchronous where the engine offers it.
    void collectGarbage() const;

private:
    JSGlobalContextRef m_context;
};

#endif
