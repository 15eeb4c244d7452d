// The little of a system log that the demo needs: each message that arrives at /dev/log becomes a
// line of a file.
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "demo.h"

namespace demo {

int RunSyslog() {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, "/dev/log");
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const timeval patience = {0, 100000};
    FILE* const file = fopen(kSyslogFile.c_str(), "ae");
    if (fd < 0 || file == nullptr ||
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience) < 0 ||
        bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) < 0)
        return 1;

    char message[2048];
    for (bool stopping = false; !stopping;) {
        stopping = access(kStopFile.c_str(), F_OK) == 0;  // what came before is still received
        for (ssize_t n; (n = recv(fd, message, sizeof message, 0)) > 0;) {
            while (n > 0 && (message[n - 1] == '\n' || message[n - 1] == '\0'))
                --n;
            fprintf(file, "%.*s\n", static_cast<int>(n), message);
        }
    }
    return fclose(file) == 0 ? 0 : 1;
}

}  // namespace demo
