// The tests' own instruments: a tap that does not strike, or a line that is not heard, would let
// every other test pass for nothing.
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <syslog.h>
#include <unistd.h>

#include "base/unique.h"
#include "support/faults.h"
#include "support/fixture.h"
#include "support/processes.h"

namespace korx::test {
namespace {

using Support = RoomTest;

TEST_F(Support, FailsTheNthCallOnly) {
    const Fault open_fault{"open", 2, ENOSPC};
    const UniqueFd fd(open("x", O_CREAT | O_RDWR, 0640));
    EXPECT_TRUE(fd);
    EXPECT_EQ(open("x", O_RDWR), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(Mode("x"), 0640u);

    const Fault short_write = Fault::Short("write", 1, 2);
    EXPECT_EQ(write(fd.get(), "abc", 3), 2);
    EXPECT_EQ(write(fd.get(), "abc", 3), 3);
    EXPECT_EQ(ReadFile("x"), "ababc");
    EXPECT_EQ(open_fault.hits(), 1u);
}

TEST_F(Support, TellsHowAChildEnded) {
    const auto killed = [] {
        const Fault kill = Fault::Kill("*", 2);
        (void) (access("x", F_OK) + access("x", F_OK));
        return 0;
    };
    EXPECT_EQ(RunChild(killed), Fault::kKilled);
    EXPECT_EQ(RunChildren(3, [](int index) { return index == 1 ? 5 : 0; }), 5);
    EXPECT_EQ(RunChild([]() -> int { abort(); }), 128 + SIGABRT);
}

TEST_F(Support, HearsEveryLineOfParentAndChildren) {
    ::syslog(LOG_ERR, "a: b\n");
    EXPECT_EQ(syslog.lines(), (std::vector<SyslogLine>{{LOG_ERR, "a: b\n"}}));
    syslog.clear();

    // Far more than the socket's queue holds.
    const auto send = [] {
        for (int i = 0; i < 200; ++i)
            ::syslog(LOG_INFO, "%d", i);
        return 0;
    };
    send();
    EXPECT_EQ(RunChildren(4, send), 0);
    EXPECT_EQ(syslog.texts().size(), 1000u);
    EXPECT_EQ(syslog.texts()[199], "199");
}

}  // namespace
}  // namespace korx::test
