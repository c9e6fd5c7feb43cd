/* Asks the device count twice, as the first calls of a process; built as C99 so
 * that it also proves rumo.h is plain C. */
#include <rumo/rumo.h>

#include <stdio.h>

int main(void) {
    int i;
    for (i = 0; i < 2; ++i) {
        int32_t count = -1;
        int ret = rumo_get_device_count(&count);
        printf("ret=%d count=%d\n", ret, (int)count);
    }
    return 0;
}
