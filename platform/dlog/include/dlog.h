// The platform log: one call, __dlog_print, that writes a tagged line at a
// priority. Lines go to stderr by default. Two environment variables steer it:
//   KV_LOG_LEVEL  the lowest priority written: VERBOSE, DEBUG, INFO, WARN,
//                 ERROR, FATAL or SILENT (or their first letter); default INFO.
//   KV_LOG_FILE   a file the lines are appended to instead of stderr.
// Writing is thread-safe: each line is written whole.
#ifndef KV_PLATFORM_DLOG_H
#define KV_PLATFORM_DLOG_H

#ifdef __cplusplus
extern "C" {
#endif

typedef enum { LOG_ID_MAIN = 0, LOG_ID_RADIO, LOG_ID_SYSTEM, LOG_ID_APPS, LOG_ID_MAX } log_id_t;

typedef enum {
    DLOG_UNKNOWN = 0,
    DLOG_DEFAULT,
    DLOG_VERBOSE,
    DLOG_DEBUG,
    DLOG_INFO,
    DLOG_WARN,
    DLOG_ERROR,
    DLOG_FATAL,
    DLOG_SILENT,
    DLOG_PRIO_MAX
} log_priority;

#define DLOG_ERROR_NONE 0
#define DLOG_ERROR_INVALID_PARAMETER (-22)

// Formats the message and writes it if `prio` passes the level filter.
// Returns the number of bytes of the message, or DLOG_ERROR_INVALID_PARAMETER
// for a null format or an out-of-range id or priority.
int __dlog_print(log_id_t log_id, int prio, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 4, 5)));

/* Non-zero when a line of priority `prio` would be written or captured now:
   callers may skip formatting a line that would not be. */
int dlog_is_enabled(int prio);

#ifdef __cplusplus
}
#endif

#endif
