// A process with a profile reader of its own: the library must call this one.
#include <stdio.h>
#include <string.h>

#include "korx/basic.h"

uint32_t KORX_IniGetValue(const char*, const char*, const char*, char* value, uint32_t size) {
    return snprintf(value, size, "/from/the/process") < 0;
}

int main() {
    FILE* const conf = fopen("/etc/base.d/base.conf", "we");
    if (conf == nullptr)
        return 2;
    fclose(conf);
    char path[256];
    return KORX_GetLogPath(path, sizeof path) == 0 && strcmp(path, "/from/the/process") == 0 ? 0
                                                                                             : 1;
}
