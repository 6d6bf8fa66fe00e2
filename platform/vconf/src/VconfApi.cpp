// The get, set and unset functions of the C interface. No exception leaves
// them: every failure is logged and becomes VCONF_ERROR (or NULL).
#include "VconfStore.h"

#include <vconf.h>

#include <Logger.h>

#include <cstdlib>
#include <cstring>
#include <exception>

using Kv::Vconf::Value;

namespace {

// Runs `work` for `key`, turning a null key or an exception into `failed`.
template <typename Result, typename Work>
Result guarded(const char* operation, const char* key, Result failed, Work work) {
    if (key == nullptr) {
        LoggerE(operation << ": null key");
        return failed;
    }
    try {
        return work();
    } catch (const std::exception& error) {
        LoggerE(operation << " " << key << ": " << error.what());
        return failed;
    }
}

int setValue(const char* operation, const char* key, const Value& value) {
    return guarded(operation, key, VCONF_ERROR, [&] {
        Kv::Vconf::store(key, value);
        return VCONF_OK;
    });
}

// The key's value when it holds one of `type`.
std::optional<Value> typedValue(const char* operation, const char* key, int type) {
    return guarded(operation, key, std::optional<Value>(), [&] {
        std::optional<Value> value = Kv::Vconf::load(key);
        return value && value->type == type ? value : std::nullopt;
    });
}

Value numberValue(int type, int number) {
    Value value;
    value.type = type;
    value.number = number;
    return value;
}

int getNumber(const char* operation, const char* key, int type, int* out) {
    const std::optional<Value> value = typedValue(operation, key, type);
    if (!value || out == nullptr) {
        return VCONF_ERROR;
    }
    *out = value->number;
    return VCONF_OK;
}

}  // namespace

extern "C" {

int vconf_set_int(const char* in_key, const int intval) {
    return setValue("vconf_set_int", in_key, numberValue(VCONF_TYPE_INT, intval));
}

int vconf_get_int(const char* in_key, int* intval) {
    return getNumber("vconf_get_int", in_key, VCONF_TYPE_INT, intval);
}

int vconf_set_bool(const char* in_key, const int boolval) {
    return setValue("vconf_set_bool", in_key, numberValue(VCONF_TYPE_BOOL, boolval != 0));
}

int vconf_get_bool(const char* in_key, int* boolval) {
    return getNumber("vconf_get_bool", in_key, VCONF_TYPE_BOOL, boolval);
}

int vconf_set_dbl(const char* in_key, const double dblval) {
    Value value;
    value.type = VCONF_TYPE_DOUBLE;
    value.real = dblval;
    return setValue("vconf_set_dbl", in_key, value);
}

int vconf_get_dbl(const char* in_key, double* dblval) {
    const std::optional<Value> value = typedValue("vconf_get_dbl", in_key, VCONF_TYPE_DOUBLE);
    if (!value || dblval == nullptr) {
        return VCONF_ERROR;
    }
    *dblval = value->real;
    return VCONF_OK;
}

int vconf_set_str(const char* in_key, const char* strval) {
    if (strval == nullptr) {
        LoggerE("vconf_set_str: null value for " << (in_key != nullptr ? in_key : "(null)"));
        return VCONF_ERROR;
    }
    Value value;
    value.type = VCONF_TYPE_STRING;
    value.text = strval;
    return setValue("vconf_set_str", in_key, value);
}

char* vconf_get_str(const char* in_key) {
    const std::optional<Value> value = typedValue("vconf_get_str", in_key, VCONF_TYPE_STRING);
    return value ? strdup(value->text.c_str()) : nullptr;
}

int vconf_unset(const char* in_key) {
    return guarded("vconf_unset", in_key, VCONF_ERROR,
                   [&] { return Kv::Vconf::erase(in_key) ? VCONF_OK : VCONF_ERROR; });
}

}  // extern "C"
