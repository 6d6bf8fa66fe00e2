// The plug-ins' logging macros. Every line carries the tag LOG_TAG and starts
// with "<source file>: <function>(<line>) > ".
//   LOGD / LOGI / LOGW / LOGE ("format %d", value)   printf style
//   LoggerD / LoggerI / LoggerW / LoggerE ("text" << value)   stream style
#ifndef KV_PLATFORM_LOGGER_H
#define KV_PLATFORM_LOGGER_H

#include <FunctionName.h>
#include <dlog.h>

#include <sstream>
#include <string>

#ifndef LOG_TAG
#define LOG_TAG "WRT_PLUGINS/TIZEN"
#endif

#define KV_LOG_PREFIX "%s: %.*s(%d) > "

// A line that the level filter drops costs one comparison: its arguments are
// not evaluated and nothing is formatted.
#define KV_LOG_PRINTF(prio, fmt, ...)                                                        \
    do {                                                                                     \
        if (dlog_is_enabled(prio)) {                                                         \
            __dlog_print(LOG_ID_MAIN, prio, LOG_TAG, KV_LOG_PREFIX fmt, __FILE_NAME__,       \
                         static_cast<int>(KV_FUNCTION_NAME.size()), KV_FUNCTION_NAME.data(), \
                         __LINE__ __VA_OPT__(, ) __VA_ARGS__);                               \
        }                                                                                    \
    } while (0)

#define LOGD(fmt, ...) KV_LOG_PRINTF(DLOG_DEBUG, fmt __VA_OPT__(, ) __VA_ARGS__)
#define LOGI(fmt, ...) KV_LOG_PRINTF(DLOG_INFO, fmt __VA_OPT__(, ) __VA_ARGS__)
#define LOGW(fmt, ...) KV_LOG_PRINTF(DLOG_WARN, fmt __VA_OPT__(, ) __VA_ARGS__)
#define LOGE(fmt, ...) KV_LOG_PRINTF(DLOG_ERROR, fmt __VA_OPT__(, ) __VA_ARGS__)

#define KV_LOG_STREAM(prio, message)                               \
    do {                                                           \
        if (dlog_is_enabled(prio)) {                               \
            std::ostringstream kvLogStream_;                       \
            kvLogStream_ << message;                               \
            KV_LOG_PRINTF(prio, "%s", kvLogStream_.str().c_str()); \
        }                                                          \
    } while (0)

#define LoggerD(message) KV_LOG_STREAM(DLOG_DEBUG, message)
#define LoggerI(message) KV_LOG_STREAM(DLOG_INFO, message)
#define LoggerW(message) KV_LOG_STREAM(DLOG_WARN, message)
#define LoggerE(message) KV_LOG_STREAM(DLOG_ERROR, message)

#endif
