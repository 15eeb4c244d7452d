/* Counts the starts of this process in a profile. */
#include <korx/basic.h>
#include <stdio.h>
#include <stdlib.h>

#define STATE "/opt/veltra/state.ini" /* with its directory: "state.ini" alone is refused */

int main(void) {
    char value[256];
    char next[16];

    if (KORX_OrxLogInit(80101, "zelk") != KORX_OK)
        return 1;
    LOG_FileInit(); /* or what goes wrong below would be told in the system log only */
    if (KORX_CreateFile(STATE) != KORX_OK) /* a change wants a file; an old one stays */
        return 1;

    /* A missing key is "" with result 0, and so is a file that cannot be opened. An empty file is
     * KORX_INI_ERR_LOAD. */
    if (KORX_IniGetValue(STATE, "[BOOT]", "count", value, sizeof value) != KORX_OK)
        value[0] = '\0';
    snprintf(next, sizeof next, "%d", atoi(value) + 1);

    /* Locked against other processes, atomic, on disk when it returns; the version before is
     * "state.ini-". */
    if (KORX_IniSetOrAddValue(STATE, "[BOOT]", "count", next) != KORX_OK)
        return 1; /* why stands in the running log */
    printf("start %s\n", next);
    return 0;
}
