/* A library that is no module. */
#include <kiv/types.h>

KIV_MODULE_EXPORT int noentry_unused(void);
int noentry_unused(void) {
    return 0;
}
