// The demo's program: `component NAME` is one process of the component, `component reader` the
// outside reader, `component syslog` the system log, `component report [agent]` the verdict.
// scripts/demo starts them.
#include <stdio.h>
#include <string.h>

#include "demo.h"

int main(int argc, char** argv) {
    const char* const role = argc > 1 ? argv[1] : "";
    if (strcmp(role, "reader") == 0)
        return demo::RunReader();
    if (strcmp(role, "syslog") == 0)
        return demo::RunSyslog();
    if (strcmp(role, "report") == 0)
        return demo::Report(argc > 2 && strcmp(argv[2], "agent") == 0);
    for (const demo::Process& process : demo::kProcesses) {
        if (strcmp(role, process.name) == 0)
            return demo::RunComponent(process);
    }
    fprintf(stderr, "usage: component zelk_agent|zelk|QTMON|DXN|reader|syslog|report [agent]\n");
    return 2;
}
