/* Writes one record, as any process of the component does. */
#include <korx/basic.h>

int main(void) {
    LOG_FileInit();
    return KORX_SecurityEventLog(0, KORX_LEVEL_INFO, 1, 0, 0, "%s", "seen by a foreign program") !=
           0;
}
