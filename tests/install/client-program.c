/*
 * A program of another project, written against the installed client
 * library alone: it asks its device's accessory service (KV_DEVICE) whether
 * the paired device is attached, and prints "attached" or "detached".
 * tests/install/client-program.sh builds it with pkg-config.
 */
#include <kvp-client-stub-api.h>
#include <stdio.h>

int main(void) {
    if (KVP_MAX_DATA_SIZE == 0u) {
        return 1;
    }
    printf("%s\n", isKvpConnected() ? "attached" : "detached");
    return 0;
}
