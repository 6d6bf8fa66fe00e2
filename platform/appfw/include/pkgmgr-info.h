/* Package manager information: the metadata of installed apps, from the
 * metadata elements of their config.xml. Backed by the current device's
 * installed packages. */
#ifndef KV_PLATFORM_PKGMGR_INFO_H
#define KV_PLATFORM_PKGMGR_INFO_H

#ifdef __cplusplus
extern "C" {
#endif

typedef void* pkgmgrinfo_appinfo_h;
typedef int (*pkgmgrinfo_app_metadata_list_cb)(const char* metadata_key, const char* metadata_value,
                                               void* user_data);

#define PMINFO_R_OK 0
#define PMINFO_R_ERROR -1
#define PMINFO_R_EINVAL -2

/* The information of an installed app; PMINFO_R_ERROR when none has this
 * id. Release it with pkgmgrinfo_appinfo_destroy_appinfo. */
int pkgmgrinfo_appinfo_get_appinfo(const char* appid, pkgmgrinfo_appinfo_h* handle);
/* Calls `metadata_func` for each metadata entry of the app, in document
 * order, and stops early when it returns a negative value. */
int pkgmgrinfo_appinfo_foreach_metadata(pkgmgrinfo_appinfo_h handle,
                                        pkgmgrinfo_app_metadata_list_cb metadata_func,
                                        void* user_data);
int pkgmgrinfo_appinfo_destroy_appinfo(pkgmgrinfo_appinfo_h handle);

#ifdef __cplusplus
}
#endif

#endif
