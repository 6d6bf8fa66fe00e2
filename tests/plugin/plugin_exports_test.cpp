// The plug-in files as the runtime sees them: exactly the five data symbols
// are exported, and the class map installs one object, webapis.kv.
#include <wrt_plugin_export.h>

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstdio>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

// The names of the dynamic symbols that `file` defines.
std::set<std::string> definedDynamicSymbols(const std::string& file) {
    std::set<std::string> names;
    FILE* pipe = popen(("nm -D --defined-only '" + file + "'").c_str(), "r");
    if (pipe == nullptr) {
        return names;
    }
    char line[1024];
    while (std::fgets(line, sizeof line, pipe) != nullptr) {
        std::istringstream fields(line);
        std::string address, type, name;
        if (fields >> address >> type >> name) {
            names.insert(name);
        }
    }
    pclose(pipe);
    return names;
}

void expectOnlyTheHooksAndClassMap(const std::string& file) {
    const std::set<std::string> expected = {"class_map", "on_frame_load", "on_frame_unload",
                                            "on_widget_start", "on_widget_stop"};
    EXPECT_EQ(definedDynamicSymbols(file), expected) << file;
}

// A class map row, copied out of the plug-in before it is closed.
struct Row {
    std::string parent;
    std::string object;
    std::string interface;
    bool hasGetter;
    bool hasConstructor;
    bool hasOptions;
};

// The rows of the plug-in's class map before its all-null row.
std::vector<Row> classMapRows(const std::string& file) {
    std::vector<Row> rows;
    void* handle = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        ADD_FAILURE() << dlerror();
        return rows;
    }
    auto* classMap = static_cast<class_map_t*>(dlsym(handle, "class_map"));
    if (classMap == nullptr) {
        ADD_FAILURE() << "no class_map in " << file;
    } else {
        for (const js_entity_definition_t* row = *classMap; row->parent_name != nullptr; ++row) {
            rows.push_back({row->parent_name, row->object_name,
                            row->interface_name != nullptr ? row->interface_name : "<null>",
                            row->js_class_template_getter != nullptr,
                            row->js_class_constructor_cb != nullptr,
                            row->class_options != nullptr});
        }
    }
    dlclose(handle);
    return rows;
}

TEST(PluginExports, TestPluginExportsOnlyItsHooksAndClassMap) {
    expectOnlyTheHooksAndClassMap(KV_TEST_PLUGIN_FILE);
}

#ifdef KV_PLUGIN_FILE
TEST(PluginExports, PluginExportsOnlyItsHooksAndClassMap) {
    expectOnlyTheHooksAndClassMap(KV_PLUGIN_FILE);
}
#endif

TEST(PluginExports, ClassMapHasOneRowInstallingWebapisKv) {
    const std::vector<Row> rows = classMapRows(KV_TEST_PLUGIN_FILE);
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0].parent, "webapis");
    EXPECT_EQ(rows[0].object, "kv");
    EXPECT_EQ(rows[0].interface, "");
    EXPECT_TRUE(rows[0].hasGetter);
    EXPECT_FALSE(rows[0].hasConstructor);
    EXPECT_FALSE(rows[0].hasOptions);
}

}  // namespace
