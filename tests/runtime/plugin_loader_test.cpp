#include "TestFiles.h"

#include <kv-runtime/AppSession.h>
#include <kv-runtime/JsValues.h>
#include <kv-runtime/Plugin.h>
#include <kv-runtime/PluginLoader.h>
#include <kv-runtime/ScriptEnvironment.h>

#include <Commons/Exception.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

using namespace Kv::Runtime;
using KvTest::readLines;
using KvTest::TempDir;
using KvTest::writeFile;
using WrtDeviceApis::Commons::NotFoundException;
using WrtDeviceApis::Commons::PlatformException;

namespace {

// Each test gets its own hook log, named to the test plug-ins by
// $KV_TEST_PLUGIN_LOG.
class PluginLoaderTest : public testing::Test {
protected:
    void SetUp() override { setenv("KV_TEST_PLUGIN_LOG", m_dir.file("hooks.log").c_str(), 1); }
    void TearDown() override { unsetenv("KV_TEST_PLUGIN_LOG"); }

    std::vector<std::string> hookLog() const { return readLines(m_dir.file("hooks.log")); }

    // The message of the commons exception `run` throws; empty if none.
    template <typename ExceptionClass, typename Run>
    static std::string failureOf(Run&& run) {
        try {
            run();
        } catch (const ExceptionClass& error) {
            return error.GetMessage();
        }
        return {};
    }

    TempDir m_dir;
};

std::string evaluateToString(JSContextRef context, const std::string& code) {
    JSValueRef exception = nullptr;
    JSValueRef value =
        JSEvaluateScript(context, JsString(code).get(), nullptr, nullptr, 1, &exception);
    return toStdString(context, exception ? exception : value);
}

std::string fileName(const std::string& path) {
    return std::filesystem::path(path).filename().string();
}

const js_entity_definition_t kTerminator = {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};

JSClassRef noClass() { return nullptr; }

JSClassRef plainClass() {
    static JSClassRef theClass = JSClassCreate(&kJSClassDefinitionEmpty);
    return theClass;
}

}  // namespace

TEST_F(PluginLoaderTest, FolderIsLoadedInNameOrderAndOnlyItsSharedObjects) {
    writeFile(m_dir.file("plugins/b.so"), "b");
    writeFile(m_dir.file("plugins/a.so"), "a");
    writeFile(m_dir.file("plugins/notes.txt"), "not a plug-in");
    std::filesystem::create_directories(m_dir.file("plugins/folder.so"));
    EXPECT_EQ(PluginLoader::pluginFilesIn(m_dir.file("plugins")),
              (std::vector<std::string>{m_dir.file("plugins/a.so"), m_dir.file("plugins/b.so")}));

    PluginLoader loader;
    loader.loadFolder(KV_TEST_PLUGIN_DIR);
    ASSERT_EQ(loader.plugins().size(), 2u);
    EXPECT_EQ(fileName(loader.plugins()[0]->path()), "kvtest_a.so");
    EXPECT_EQ(fileName(loader.plugins()[1]->path()), "kvtest_b.so");
}

TEST_F(PluginLoaderTest, BrokenSharedObjectIsAClearErrorNamingTheFile) {
    const std::string broken = m_dir.file("plugins/broken.so");
    writeFile(broken, "this is not a shared object");
    const std::string message = failureOf<PlatformException>([&] { Plugin::open(broken); });
    EXPECT_NE(message.find("cannot load plug-in " + broken + ": "), std::string::npos) << message;
    EXPECT_NE(message.find("broken.so"), message.rfind("broken.so")) << "dlerror() names it too";

    PluginLoader loader;
    const std::string fromFolder =
        failureOf<PlatformException>([&] { loader.loadFolder(m_dir.file("plugins")); });
    EXPECT_NE(fromFolder.find(broken), std::string::npos) << fromFolder;
}

TEST_F(PluginLoaderTest, MissingFileAndFolderAreErrors) {
    const std::string missing = m_dir.file("nothing.so");
    EXPECT_NE(failureOf<PlatformException>([&] { Plugin::open(missing); }).find(missing),
              std::string::npos);
    PluginLoader loader;
    EXPECT_NE(failureOf<PlatformException>([&] {
                  loader.loadFolder(m_dir.file("none"));
              }).find("cannot read plug-in folder"),
              std::string::npos);
}

TEST_F(PluginLoaderTest, PluginWithoutClassMapIsRejected) {
    const std::string message =
        failureOf<PlatformException>([] { Plugin::open(KV_TEST_PLUGIN_NO_CLASS_MAP); });
    EXPECT_NE(message.find("exports no class_map"), std::string::npos) << message;
}

TEST_F(PluginLoaderTest, MissingHooksAreSkipped) {
    std::unique_ptr<Plugin> plugin = Plugin::open(KV_TEST_PLUGIN_B);
    EXPECT_TRUE(plugin->hasWidgetStart());
    EXPECT_TRUE(plugin->hasWidgetStop());
    EXPECT_FALSE(plugin->hasFrameLoad());
    EXPECT_FALSE(plugin->hasFrameUnload());
    plugin->frameLoad(nullptr);
    plugin->widgetStart(3);
    EXPECT_EQ(hookLog(), (std::vector<std::string>{"b widget_start 3"}));
}

TEST_F(PluginLoaderTest, StartHooksRunInLoadOrderAndStopHooksInReverse) {
    PluginLoader loader;
    loader.loadFiles({KV_TEST_PLUGIN_A, KV_TEST_PLUGIN_B});
    ScriptEnvironment environment;
    loader.widgetStart(7);
    loader.frameLoad(environment.context());
    loader.frameUnload(environment.context());
    loader.widgetStop(7);
    EXPECT_EQ(hookLog(),
              (std::vector<std::string>{"a widget_start 7", "b widget_start 7", "a frame_load",
                                        "a frame_unload", "b widget_stop 7", "a widget_stop 7"}));
}

TEST_F(PluginLoaderTest, ClassMapRowsBecomeFixedPropertiesOfTheirParents) {
    PluginLoader loader;
    loader.loadFolder(KV_TEST_PLUGIN_DIR);
    ScriptEnvironment environment;
    JSContextRef context = environment.context();
    evaluateToString(context, "var webapis = {mine: 1};");
    loader.installClasses(context);

    EXPECT_EQ(evaluateToString(context, "webapis.testplugin.add(2, 3)"), "5");
    EXPECT_EQ(evaluateToString(context, "webapis.testplugin2.name"), "b");
    EXPECT_EQ(evaluateToString(context, "webapis.mine"), "1");
    EXPECT_EQ(evaluateToString(context,
                               "webapis.testplugin = null; delete webapis.testplugin; "
                               "typeof webapis.testplugin"),
              "object");
    // A row with a constructor callback still gets an instance of its class.
    EXPECT_EQ(evaluateToString(context, "kvtest.widget.name"), "a");
    EXPECT_EQ(evaluateToString(context, "delete kvtest; typeof kvtest"), "object");
    const std::vector<std::string> log = hookLog();
    EXPECT_EQ(std::count(log.begin(), log.end(), "a constructor called"), 0);
}

TEST_F(PluginLoaderTest, BadClassMapRowsAreClearErrors) {
    ScriptEnvironment environment;
    JSContextRef context = environment.context();
    const js_entity_definition_t noGetter[] = {{"webapis", "x", "", nullptr, nullptr, nullptr},
                                               kTerminator};
    EXPECT_NE(failureOf<PlatformException>([&] {
                  installClassMap(context, noGetter, "p.so");
              }).find("p.so: class map row 0 lacks a name or a class getter"),
              std::string::npos);
    const js_entity_definition_t nullClass[] = {{"webapis", "x", "", noClass, nullptr, nullptr},
                                                kTerminator};
    EXPECT_NE(failureOf<PlatformException>([&] {
                  installClassMap(context, nullClass, "p.so");
              }).find("the class getter of webapis.x returned no class"),
              std::string::npos);
    evaluateToString(context, "var taken = 5;");
    const js_entity_definition_t takenParent[] = {{"taken", "x", "", plainClass, nullptr, nullptr},
                                                  kTerminator};
    EXPECT_NE(failureOf<PlatformException>([&] {
                  installClassMap(context, takenParent, "p.so");
              }).find("the global taken exists and is not an object"),
              std::string::npos);
}

TEST_F(PluginLoaderTest, RunAppWrapsTheScriptInTheHooksAndFinalisesBeforeUnloading) {
    writeFile(m_dir.file("main.js"), "webapis.testplugin.record('main');\nruntime.exit(5);\n");
    AppRunOptions options;
    options.scriptPath = m_dir.file("main.js");
    options.widgetId = 42;
    options.pluginFolders = {KV_TEST_PLUGIN_DIR};
    const AppRunResult result = runApp(options);
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_EQ(result.reason, ExitReason::Script);

    std::vector<std::string> log = hookLog();
    ASSERT_GE(log.size(), 7u);
    const std::vector<std::string> calls(log.begin(), log.begin() + 7);
    EXPECT_EQ(calls, (std::vector<std::string>{"a widget_start 42", "b widget_start 42",
                                               "a frame_load", "a script main", "a frame_unload",
                                               "b widget_stop 42", "a widget_stop 42"}));
    // The context's objects are finalised while the plug-ins are still loaded.
    EXPECT_EQ(std::count(log.begin(), log.end(), "a finalize"), 2);
    EXPECT_EQ(std::count(log.begin(), log.end(), "b finalize"), 1);
}

TEST_F(PluginLoaderTest, RunAppStillRunsTheStopHooksAfterAnUncaughtException) {
    writeFile(m_dir.file("main.js"), "undefinedFunction();\n");
    testing::internal::CaptureStderr();
    AppRunOptions options;
    options.scriptPath = m_dir.file("main.js");
    options.scriptName = "main.js";
    options.pluginFiles = {KV_TEST_PLUGIN_A};
    const AppRunResult result = runApp(options);
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.reason, ExitReason::Uncaught);
    EXPECT_NE(err.find("Uncaught ReferenceError: Can't find variable: undefinedFunction at line 1 "
                       "in main.js"),
              std::string::npos)
        << err;
    const std::vector<std::string> log = hookLog();
    EXPECT_NE(std::find(log.begin(), log.end(), "a widget_stop 1"), log.end());
}

TEST_F(PluginLoaderTest, UnreadableScriptRunsNothing) {
    AppRunOptions options;
    options.scriptPath = m_dir.file("missing.js");
    options.pluginFiles = {KV_TEST_PLUGIN_A};
    EXPECT_NE(failureOf<NotFoundException>([&] { runApp(options); }).find("missing.js"),
              std::string::npos);
    EXPECT_TRUE(hookLog().empty());
}
