#include "ScriptContext.h"

#include <CommonsJavaScript/PrivateObject.h>
#include <dpl/shared_ptr.h>

#include <gtest/gtest.h>

using WrtDeviceApis::CommonsJavaScript::NoOwnership;
using WrtDeviceApis::CommonsJavaScript::Ownership;
using WrtDeviceApis::CommonsJavaScript::PrivateObject;

namespace {

// Counts the instances alive, to see who deletes what.
struct Native {
    static inline int alive = 0;
    Native() { ++alive; }
    ~Native() { --alive; }
    int value = 7;
};

using PrivateObjectTest = KvTest::ScriptTest;

TEST_F(PrivateObjectTest, KeepsTheContextAndTheObject) {
    auto native = DPL::SharedPtr<Native>(new Native);
    PrivateObject<DPL::SharedPtr<Native>> priv(m_context, native);
    EXPECT_EQ(priv.getContext(), m_context);
    EXPECT_EQ(priv.getObject(), native);
    EXPECT_EQ(priv.getObject()->value, 7);
}

TEST_F(PrivateObjectTest, NoOwnershipReleasesOnlyItsSharedReference) {
    auto native = DPL::SharedPtr<Native>(new Native);
    auto* priv = new PrivateObject<DPL::SharedPtr<Native>, NoOwnership>(m_context, native);
    EXPECT_EQ(native.use_count(), 2);
    delete priv;
    EXPECT_EQ(native.use_count(), 1);
    EXPECT_EQ(Native::alive, 1);
    native.reset();
    EXPECT_EQ(Native::alive, 0);
}

TEST_F(PrivateObjectTest, NoOwnershipLeavesARawPointerAlone) {
    Native native;
    { PrivateObject<Native*> priv(m_context, &native); }
    EXPECT_EQ(Native::alive, 1);
}

TEST_F(PrivateObjectTest, OwnershipDeletesTheObject) {
    { PrivateObject<Native*, Ownership> priv(m_context, new Native); }
    EXPECT_EQ(Native::alive, 0);
}

TEST_F(PrivateObjectTest, IsReleasedByTheFinaliserOfItsScriptObject) {
    typedef PrivateObject<DPL::SharedPtr<Native>> NativePrivate;
    JSClassDefinition definition = kJSClassDefinitionEmpty;
    definition.className = "Holder";
    definition.finalize = [](JSObjectRef object) {
        delete static_cast<NativePrivate*>(JSObjectGetPrivate(object));
    };
    JSClassRef holderClass = JSClassCreate(&definition);
    auto native = DPL::SharedPtr<Native>(new Native);
    JSGlobalContextRef context = JSGlobalContextCreate(nullptr);
    JSObjectMake(context, holderClass, new NativePrivate(context, native));
    EXPECT_EQ(native.use_count(), 2);
    JSGlobalContextRelease(context);
    JSClassRelease(holderClass);
    EXPECT_EQ(native.use_count(), 1);
}

using PrivateObjectDeathTest = PrivateObjectTest;

TEST_F(PrivateObjectDeathTest, RefusesANullContext) {
    auto native = DPL::SharedPtr<Native>(new Native);
    EXPECT_DEATH(PrivateObject<DPL::SharedPtr<Native>>(nullptr, native), "Context is NULL");
}

TEST_F(PrivateObjectDeathTest, RefusesANullObject) {
    EXPECT_DEATH(PrivateObject<DPL::SharedPtr<Native>>(m_context, DPL::SharedPtr<Native>()),
                 "Object is NULL");
    EXPECT_DEATH((PrivateObject<Native*, Ownership>(m_context, nullptr)), "Object is NULL");
}

}  // namespace
