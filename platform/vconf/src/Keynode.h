// The node handed to a vconf callback: the key and its value.
#ifndef KV_PLATFORM_VCONF_KEYNODE_H
#define KV_PLATFORM_VCONF_KEYNODE_H

#include "VconfStore.h"

#include <string>

struct _keynode_t {
    std::string name;
    Kv::Vconf::Value value;
};

#endif
