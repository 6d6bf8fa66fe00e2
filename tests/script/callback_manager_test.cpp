#include "ScriptContext.h"

#include <Commons/Exception.h>
#include <Commons/IEvent.h>
#include <CommonsJavaScript/JSCallbackManager.h>
#include <CommonsJavaScript/ScriptExceptionHost.h>
#include <dlog-capture.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

using WrtDeviceApis::Commons::InvalidArgumentException;
using WrtDeviceApis::CommonsJavaScript::JSCallbackManager;
using WrtDeviceApis::CommonsJavaScript::JSCallbackManagerPtr;
using WrtDeviceApis::CommonsJavaScript::ScriptExceptionHost;

namespace {

// Script functions that count their calls and their finalisation, so the
// tests can see whether the collector freed them.
struct Probes {
    static inline int called = 0;
    static inline int finalized = 0;

    static JSValueRef call(JSContextRef context, JSObjectRef, JSObjectRef, size_t,
                           const JSValueRef[], JSValueRef*) {
        ++called;
        return JSValueMakeUndefined(context);
    }
    static void finalize(JSObjectRef) { ++finalized; }

    static JSClassRef probeClass() {
        static JSClassRef classRef = [] {
            JSClassDefinition definition = kJSClassDefinitionEmpty;
            definition.className = "Probe";
            definition.callAsFunction = call;
            definition.finalize = finalize;
            return JSClassCreate(&definition);
        }();
        return classRef;
    }
};

class CallbackManagerTest : public KvTest::ScriptTest {
protected:
    void SetUp() override {
        ScriptTest::SetUp();
        Probes::called = 0;
        Probes::finalized = 0;
        eval(
            "globalThis.calls = [];"
            "globalThis.record = function (kind) {"
            "  return function () { calls.push({ kind, self: this, args: [...arguments] }); };"
            "};");
    }

    bool holds(const std::string& script) { return JSValueToBoolean(m_context, eval(script)); }

    // Managers each holding a new probe as its success callback (or as its
    // `this` object). Made in a function of its own so that no probe stays
    // referenced from the test's stack.
    [[gnu::noinline]] std::vector<JSCallbackManagerPtr> managersWithProbes(int count,
                                                                           bool asThis = false) {
        std::vector<JSCallbackManagerPtr> managers;
        for (int i = 0; i < count; ++i) {
            JSObjectRef probe = JSObjectMake(m_context, Probes::probeClass(), nullptr);
            managers.push_back(
                JSCallbackManager::createObject(m_context, asThis ? nullptr : probe));
            if (asThis) {
                managers.back()->setObject(probe);
            }
        }
        return managers;
    }
};

TEST_F(CallbackManagerTest, CallsSuccessAndErrorWithTheirArgumentsAndThis) {
    JSCallbackManagerPtr manager = JSCallbackManager::createObject(
        m_context, eval("record('success')"), eval("record('error')"));
    manager->setObject(evalObject("globalThis.target = {}"));

    manager->callOnSuccess();
    manager->callOnSuccess(JSValueMakeNumber(m_context, 1));
    JSValueRef two[] = {JSValueMakeNumber(m_context, 2), eval("'b'")};
    manager->callOnSuccess(two, 2);
    manager->callOnError(eval("'oops'"));

    EXPECT_TRUE(holds("calls.length === 4"));
    EXPECT_TRUE(holds("calls.every(c => c.self === target)"));
    EXPECT_TRUE(holds("calls[0].kind === 'success' && calls[0].args.length === 0"));
    EXPECT_TRUE(holds("calls[1].args.length === 1 && calls[1].args[0] === 1"));
    EXPECT_TRUE(holds("calls[2].args.join() === '2,b'"));
    EXPECT_TRUE(holds("calls[3].kind === 'error' && calls[3].args[0] === 'oops'"));
}

TEST_F(CallbackManagerTest, CallsWithTheGlobalObjectAsThisByDefault) {
    JSCallbackManagerPtr manager = JSCallbackManager::createObject(m_context);
    manager->setOnError(eval("record('error')"));
    manager->callOnError();
    manager->callOnError(nullptr, 0);
    EXPECT_TRUE(holds("calls.length === 2 && calls[0].self === globalThis"));
}

TEST_F(CallbackManagerTest, EmptySlotsDoNothing) {
    JSCallbackManagerPtr manager = JSCallbackManager::createObject(m_context);
    EXPECT_EQ(manager->getOnSuccess(), nullptr);
    EXPECT_EQ(manager->getOnError(), nullptr);
    manager->callOnSuccess(JSValueMakeNull(m_context));
    manager->callOnError();
    EXPECT_TRUE(holds("calls.length === 0"));
}

TEST_F(CallbackManagerTest, AThrowingCallbackIsLoggedAndContained) {
    DlogCapture capture;
    JSCallbackManagerPtr manager = JSCallbackManager::createObject(
        m_context, eval("(function () { throw new Error('boom'); })"), eval("record('error')"));
    manager->callOnSuccess();
    EXPECT_TRUE(capture.contains(DLOG_ERROR, "The success callback threw: Error: boom"));
    manager->callOnError();
    EXPECT_TRUE(holds("calls.length === 1"));
}

TEST_F(CallbackManagerTest, AThrowingCallbackIsHandedToTheHostOfItsContext) {
    std::vector<std::string> reported;
    ScriptExceptionHost::attach(m_context, [this, &reported](JSValueRef exception) {
        reported.push_back(text(exception));
    });
    DlogCapture capture;
    JSCallbackManagerPtr manager = JSCallbackManager::createObject(
        m_context, eval("record('success')"), eval("(function () { throw new Error('lost'); })"));
    manager->callOnSuccess();
    manager->callOnError();
    ScriptExceptionHost::detach(m_context);
    EXPECT_EQ(reported, std::vector<std::string>{"Error: lost"});
    EXPECT_TRUE(capture.contains(DLOG_ERROR, "The error callback threw: Error: lost"));
}

TEST_F(CallbackManagerTest, NoCallbackRunsOnceTheHostSaysItsScriptHasEnded) {
    bool running = true;
    ScriptExceptionHost::attach(
        m_context, [](JSValueRef) {}, [&running] { return running; });
    JSCallbackManagerPtr manager = JSCallbackManager::createObject(
        m_context, eval("record('success')"), eval("record('error')"));
    manager->callOnSuccess();
    running = false;
    EXPECT_FALSE(ScriptExceptionHost::scriptRuns(m_context));
    manager->callOnSuccess();
    manager->callOnError();
    ScriptExceptionHost::detach(m_context);
    EXPECT_TRUE(holds("calls.length === 1 && calls[0].kind === 'success'"));
    EXPECT_TRUE(ScriptExceptionHost::scriptRuns(m_context));
}

TEST_F(CallbackManagerTest, NonFunctionsAreNotStored) {
    DlogCapture capture;
    JSCallbackManagerPtr manager =
        JSCallbackManager::createObject(m_context, eval("42"), eval("({})"));
    EXPECT_EQ(manager->getOnSuccess(), nullptr);
    EXPECT_EQ(manager->getOnError(), nullptr);
    EXPECT_TRUE(capture.contains(DLOG_WARN, "The success callback is not a function"));

    manager->setOnSuccess(eval("record('success')"));
    ASSERT_NE(manager->getOnSuccess(), nullptr);
    manager->setOnSuccess(eval("'text'"));
    EXPECT_EQ(manager->getOnSuccess(), nullptr);
    manager->callOnSuccess();
    EXPECT_TRUE(holds("calls.length === 0"));
}

TEST_F(CallbackManagerTest, NullCallbacksAreRefusedUnlessAccepted) {
    JSValueRef null = JSValueMakeNull(m_context);
    JSValueRef undefined = JSValueMakeUndefined(m_context);
    JSValueRef function = eval("record('x')");
    EXPECT_THROW(JSCallbackManager::createObject(m_context, null, function, false, true),
                 InvalidArgumentException);
    EXPECT_THROW(JSCallbackManager::createObject(m_context, function, undefined, true, false),
                 InvalidArgumentException);
    JSCallbackManagerPtr manager = JSCallbackManager::createObject(m_context, null, null);
    EXPECT_EQ(manager->getOnSuccess(), nullptr);
    EXPECT_NE(
        JSCallbackManager::createObject(m_context, function, function, false, false)->getOnError(),
        nullptr);
}

TEST_F(CallbackManagerTest, TravelsAsThePrivateDataOfAnEvent) {
    WrtDeviceApis::Commons::IEventController event;
    JSCallbackManagerPtr manager =
        JSCallbackManager::createObject(m_context, eval("record('answer')"));
    event.setPrivateData(
        DPL::StaticPointerCast<WrtDeviceApis::Commons::IEventPrivateData>(manager));
    manager.reset();
    JSCallbackManagerPtr carried =
        DPL::DynamicPointerCast<JSCallbackManager>(event.getPrivateData());
    ASSERT_TRUE(carried);
    carried->callOnSuccess();
    EXPECT_TRUE(holds("calls.length === 1 && calls[0].kind === 'answer'"));
}

// A script function that makes a manager from the context of its own call.
JSCallbackManagerPtr madeInCall;

JSValueRef makeManager(JSContextRef context, JSObjectRef, JSObjectRef, size_t argumentCount,
                       const JSValueRef arguments[], JSValueRef*) {
    madeInCall =
        JSCallbackManager::createObject(context, argumentCount > 0 ? arguments[0] : nullptr);
    return JSValueMakeUndefined(context);
}

TEST_F(CallbackManagerTest, KeepsTheGlobalContextOfTheCall) {
    auto name = JSStringCreateWithUTF8CString("makeManager");
    setGlobal("makeManager", JSObjectMakeFunctionWithCallback(m_context, name, makeManager));
    JSStringRelease(name);
    eval("makeManager(record('later'))");
    ASSERT_TRUE(madeInCall);
    EXPECT_EQ(madeInCall->getContext(), m_context);
    madeInCall->callOnSuccess();
    EXPECT_TRUE(holds("calls.length === 1 && calls[0].kind === 'later'"));
    madeInCall.reset();
}

TEST_F(CallbackManagerTest, HeldCallbacksSurviveACollection) {
    std::vector<JSCallbackManagerPtr> managers = managersWithProbes(20);
    collectGarbage();
    EXPECT_EQ(Probes::finalized, 0);
    for (const JSCallbackManagerPtr& manager : managers) {
        manager->callOnSuccess();
    }
    EXPECT_EQ(Probes::called, 20);
}

TEST_F(CallbackManagerTest, ReleasedCallbacksCanBeCollected) {
    managersWithProbes(20).clear();
    collectGarbage();
    // The collector scans the stack conservatively, so a stray copy of a
    // pointer may keep one alive; most must go.
    EXPECT_GE(Probes::finalized, 10);
}

TEST_F(CallbackManagerTest, ReplacedCallbacksCanBeCollected) {
    std::vector<JSCallbackManagerPtr> managers = managersWithProbes(20);
    for (const JSCallbackManagerPtr& manager : managers) {
        manager->setOnSuccess(eval("record('replacement')"));
    }
    collectGarbage();
    EXPECT_GE(Probes::finalized, 10);
    managers.front()->callOnSuccess();
    EXPECT_TRUE(holds("calls.length === 1 && calls[0].kind === 'replacement'"));
}

TEST_F(CallbackManagerTest, HeldThisObjectSurvivesACollection) {
    std::vector<JSCallbackManagerPtr> managers = managersWithProbes(20, true);
    collectGarbage();
    EXPECT_EQ(Probes::finalized, 0);
    for (const JSCallbackManagerPtr& manager : managers) {
        ASSERT_NE(manager->getObject(), nullptr);
        JSObjectCallAsFunction(m_context, manager->getObject(), nullptr, 0, nullptr, nullptr);
    }
    EXPECT_EQ(Probes::called, 20);
}

TEST_F(CallbackManagerTest, ReleasedThisObjectsCanBeCollected) {
    managersWithProbes(20, true).clear();
    collectGarbage();
    EXPECT_GE(Probes::finalized, 10);
}

TEST_F(CallbackManagerTest, ManagersFreedWithTheirContextLeaveNothingBehind) {
    // A manager owned by a script object is released by the object's
    // finaliser while the context is torn down.
    JSClassDefinition definition = kJSClassDefinitionEmpty;
    definition.className = "Owner";
    definition.finalize = [](JSObjectRef object) {
        delete static_cast<JSCallbackManagerPtr*>(JSObjectGetPrivate(object));
    };
    JSClassRef ownerClass = JSClassCreate(&definition);
    JSGlobalContextRef context = JSGlobalContextCreate(nullptr);
    auto* manager = new JSCallbackManagerPtr(JSCallbackManager::createObject(
        context, JSObjectMake(context, Probes::probeClass(), nullptr)));
    JSObjectRef owner = JSObjectMake(context, ownerClass, manager);
    (*manager)->setObject(owner);
    JSGlobalContextRelease(context);
    JSClassRelease(ownerClass);
    SUCCEED() << "the sanitizer build checks that nothing leaked or was used after free";
}

}  // namespace
