// The keynode accessors of the C interface.
#include "Keynode.h"

#include <vconf.h>

extern "C" {

const char* vconf_keynode_get_name(keynode_t* keynode) {
    return keynode != nullptr ? keynode->name.c_str() : nullptr;
}

int vconf_keynode_get_type(keynode_t* keynode) {
    return keynode != nullptr ? keynode->value.type : VCONF_ERROR;
}

int vconf_keynode_get_int(const keynode_t* keynode) {
    return keynode != nullptr && keynode->value.type == VCONF_TYPE_INT ? keynode->value.number
                                                                       : VCONF_ERROR;
}

int vconf_keynode_get_bool(const keynode_t* keynode) {
    return keynode != nullptr && keynode->value.type == VCONF_TYPE_BOOL ? keynode->value.number
                                                                        : VCONF_ERROR;
}

double vconf_keynode_get_dbl(const keynode_t* keynode) {
    return keynode != nullptr && keynode->value.type == VCONF_TYPE_DOUBLE ? keynode->value.real
                                                                          : VCONF_ERROR;
}

char* vconf_keynode_get_str(const keynode_t* keynode) {
    if (keynode == nullptr || keynode->value.type != VCONF_TYPE_STRING) {
        return nullptr;
    }
    return const_cast<char*>(keynode->value.text.c_str());
}

}  // extern "C"
