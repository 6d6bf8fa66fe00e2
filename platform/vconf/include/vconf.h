/* vconf: the device's key-value configuration store.
 *
 * Keys are texts such as "memory/private/kvp/conn_status"; each holds one
 * value of one type (integer, boolean, double or string). The store belongs
 * to the process's device (the folder named by KV_DEVICE): every process of
 * one device shares it, processes of other devices never see it. Writes are
 * atomic and safe between processes.
 *
 * Getting a key that is absent or holds another type, and any null argument,
 * gives VCONF_ERROR (or NULL).
 *
 * Notifications: vconf_notify_key_changed registers a callback for a key.
 * Every set of that key (in any process of the device, even with an unchanged
 * value) calls every callback registered for it, later, on the main loop,
 * with a keynode that holds the key's value at delivery time and the user
 * data. The watch is made on the first registration, which, like every
 * registration and removal, must be made on the main loop's thread (the
 * thread that runs the ecore main loop, DPL::MainLoop). A callback may remove
 * itself or others. The keynode lives only during the callback.
 */
#ifndef KV_PLATFORM_VCONF_H
#define KV_PLATFORM_VCONF_H

#ifdef __cplusplus
extern "C" {
#endif

typedef struct _keynode_t keynode_t;
typedef void (*vconf_callback_fn)(keynode_t* node, void* user_data);

enum {
    VCONF_TYPE_NONE = 0,
    VCONF_TYPE_STRING = 40,
    VCONF_TYPE_INT = 41,
    VCONF_TYPE_DOUBLE = 42,
    VCONF_TYPE_BOOL = 43
};

#define VCONF_OK 0
#define VCONF_ERROR -1

int vconf_set_int(const char* in_key, const int intval);
int vconf_get_int(const char* in_key, int* intval);
int vconf_set_bool(const char* in_key, const int boolval); /* stored as 0 or 1 */
int vconf_get_bool(const char* in_key, int* boolval);
int vconf_set_dbl(const char* in_key, const double dblval);
int vconf_get_dbl(const char* in_key, double* dblval);
int vconf_set_str(const char* in_key, const char* strval);
char* vconf_get_str(const char* in_key); /* malloc'd copy, caller frees; NULL when absent */
int vconf_unset(const char* in_key);     /* VCONF_ERROR when the key is absent */

int vconf_notify_key_changed(const char* in_key, vconf_callback_fn cb, void* user_data);
/* Removes the first registration of `cb` for the key; VCONF_ERROR when none. */
int vconf_ignore_key_changed(const char* in_key, vconf_callback_fn cb);

/* Keynode accessors. A getter of another type than the node's, or given a
 * null node, returns VCONF_ERROR (NULL for the string). */
const char* vconf_keynode_get_name(keynode_t* keynode);
int vconf_keynode_get_type(keynode_t* keynode);
int vconf_keynode_get_int(const keynode_t* keynode);
int vconf_keynode_get_bool(const keynode_t* keynode);
double vconf_keynode_get_dbl(const keynode_t* keynode);
char* vconf_keynode_get_str(const keynode_t* keynode); /* owned by the node */

#ifdef __cplusplus
}
#endif

#endif
