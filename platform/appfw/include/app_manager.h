/* The application manager: which app a process runs, and the installed
 * apps' identities. Backed by the current device's running-app table and
 * installed packages. Texts returned through char** are malloc'd; the
 * caller frees them. */
#ifndef KV_PLATFORM_APP_MANAGER_H
#define KV_PLATFORM_APP_MANAGER_H

#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct app_info_s* app_info_h;

typedef enum {
    APP_MANAGER_ERROR_NONE = 0,
    APP_MANAGER_ERROR_INVALID_PARAMETER = -22,
    APP_MANAGER_ERROR_OUT_OF_MEMORY = -12,
    APP_MANAGER_ERROR_IO_ERROR = -5,
    APP_MANAGER_ERROR_NO_SUCH_APP = -0x01110000 | 0x01
} app_manager_error_e;

/* The id of the app that process `pid` runs; NO_SUCH_APP when it runs none. */
int app_manager_get_app_id(pid_t pid, char** app_id);
/* The information of an installed app; NO_SUCH_APP when none has this id.
 * Release it with app_info_destroy. */
int app_manager_get_app_info(const char* app_id, app_info_h* app_info);
int app_info_get_package(app_info_h app_info, char** package);
int app_info_get_app_id(app_info_h app_info, char** app_id);
int app_info_destroy(app_info_h app_info);

#ifdef __cplusplus
}
#endif

#endif
