#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include "support/faults.h"
#include "support/fixture.h"
#include "support/processes.h"

namespace korx::test {
namespace {

int VforkedStatus() {
    const pid_t pid = vfork();
    if (pid == 0)
        _exit(7);
    int status;
    return pid > 0 && waitpid(pid, &status, 0) == pid ? WEXITSTATUS(status) : -1;
}

using Support = RoomTest;

TEST_F(Support, FailsTheNthCall) {
    Fault fault{"open", 2, ENOSPC};
    int fd = open("x", O_CREAT | O_RDWR, 0640);
    EXPECT_GE(fd, 0);
    EXPECT_EQ(open("x", O_RDWR), -1);
    EXPECT_EQ(errno, ENOSPC);
    auto s = Fault::Short("write", 1, 2);
    EXPECT_EQ(write(fd, "abc", 3), 2);
    EXPECT_EQ(write(fd, "abc", 3), 3);
    EXPECT_EQ(Mode("x"), 0640u);
    EXPECT_EQ(ReadFile("x"), "ababc");
    EXPECT_EQ(fault.hits(), 1u);
    {
        Fault m{"malloc", 1, ENOMEM, Fault::kAll};
        std::string big(1000, 'x');
        void* volatile p = malloc(10);
        EXPECT_EQ(p, nullptr);
    }
    Fault c{"close", 1, EIO};
    EXPECT_EQ(close(fd), -1);
    EXPECT_EQ(close(fd), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(99, RunChild([] {
                  auto kill = Fault::Kill("*", 2);
                  access("x", F_OK);
                  access("x", F_OK);
                  return 0;
              }));
    EXPECT_EQ(RunChildren(3, [](int i) { return i == 1 ? 5 : 0; }), 5);
    {
        Fault v{"vfork", 2, EAGAIN};
        EXPECT_EQ(VforkedStatus(), 7);
        EXPECT_EQ(VforkedStatus(), -1);
        EXPECT_EQ(errno, EAGAIN);
        EXPECT_EQ(VforkedStatus(), 7);
    }
    EXPECT_DEATH(Fault("opne", 1, 1), "no tap");
}

TEST_F(Support, HearsTheSystemLog) {
    ::syslog(LOG_ERR, "hello\n");
    EXPECT_EQ(syslog.lines(), (std::vector<SyslogLine>{{LOG_ERR, "hello\n"}}));
    syslog.clear();
    for (int i = 0; i < 500; i++)
        ::syslog(LOG_INFO, "n: %d", i);
    EXPECT_EQ(RunChildren(4,
                          [] {
                              for (int i = 0; i < 100; i++)
                                  ::syslog(LOG_INFO, "c: %d", i);
                              return 0;
                          }),
              0);
    EXPECT_EQ(syslog.texts().size(), 900u);
    EXPECT_EQ(syslog.texts()[499], "n: 499");
}

}  // namespace
}  // namespace korx::test
