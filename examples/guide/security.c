/* Security events, with the one result that must not be overlooked. */
#include <korx/basic.h>

int main(void) {
    uint32_t result;

    if (KORX_OrxLogInit(80101, "zelk") != KORX_OK)
        return 1;
    LOG_FileInit();
    ORX_Log2File(KORX_LEVEL_INFO, "up"); /* makes the log directory; rings do not */

    result =
        KORX_SecurityEventLog(7, 0x2001, KORX_LEVEL_WARNING, 0, 13, "login of %s refused", "eve");
    switch (result) {
        case KORX_OK:
            return 0;
        case ORX_PLOG_ERR_DISCARDED: /* full of events that nobody has taken: this one is lost */
            ORX_Log2File(KORX_LEVEL_ERR, "a security event was lost: who takes korx_safe.log?");
            return 2;
        default: /* too long, or the log cannot be written: the system log says why */
            return 1;
    }
}
