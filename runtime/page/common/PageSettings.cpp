#include "PageSettings.h"

namespace Kv {
namespace Page {

namespace {

const char kAppId[] = "app-id";
const char kWidgetId[] = "widget-id";
const char kAppRoot[] = "app-root";
const char kPluginFiles[] = "plugin-files";
const char kArguments[] = "arguments";

GVariant* stringArray(const std::vector<std::string>& strings) {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE_STRING_ARRAY);
    for (const std::string& text : strings) {
        g_variant_builder_add(&builder, "s", text.c_str());
    }
    return g_variant_builder_end(&builder);
}

std::string lookupString(GVariantDict* dict, const char* key) {
    const char* value = nullptr;
    return g_variant_dict_lookup(dict, key, "&s", &value) ? std::string(value) : std::string();
}

std::vector<std::string> lookupStrings(GVariantDict* dict, const char* key) {
    std::vector<std::string> strings;
    GVariantIter* iter = nullptr;
    if (g_variant_dict_lookup(dict, key, "as", &iter)) {
        const char* value = nullptr;
        while (g_variant_iter_next(iter, "&s", &value)) {
            strings.emplace_back(value);
        }
        g_variant_iter_free(iter);
    }
    return strings;
}

}  // namespace

GVariant* PageSettings::toVariant() const {
    GVariantDict dict;
    g_variant_dict_init(&dict, nullptr);
    g_variant_dict_insert(&dict, kAppId, "s", appId.c_str());
    g_variant_dict_insert(&dict, kWidgetId, "i", widgetId);
    g_variant_dict_insert(&dict, kAppRoot, "s", appRoot.c_str());
    g_variant_dict_insert_value(&dict, kPluginFiles, stringArray(pluginFiles));
    g_variant_dict_insert_value(&dict, kArguments, stringArray(arguments));
    return g_variant_dict_end(&dict);
}

PageSettings PageSettings::fromVariant(GVariant* variant) {
    PageSettings settings;
    if (!variant || !g_variant_is_of_type(variant, G_VARIANT_TYPE_VARDICT)) {
        return settings;
    }
    GVariantDict dict;
    g_variant_dict_init(&dict, variant);
    settings.appId = lookupString(&dict, kAppId);
    g_variant_dict_lookup(&dict, kWidgetId, "i", &settings.widgetId);
    settings.appRoot = lookupString(&dict, kAppRoot);
    settings.pluginFiles = lookupStrings(&dict, kPluginFiles);
    settings.arguments = lookupStrings(&dict, kArguments);
    g_variant_dict_clear(&dict);
    return settings;
}

}  // namespace Page
}  // namespace Kv
