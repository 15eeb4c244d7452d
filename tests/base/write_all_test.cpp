#include "base/write_all.h"

#include <fcntl.h>

#include "base/unique.h"
#include "support/faults.h"
#include "support/fixture.h"

namespace korx::test {
namespace {

struct WriteAllTest : RoomTest {
    const UniqueFd fd{open("file", O_CREAT | O_RDWR | O_CLOEXEC, 0600)};
};

TEST_F(WriteAllTest, GoesOnAfterShortAndInterruptedWrites) {
    const Fault interrupted{"write", 1, EINTR};
    const Fault would_block{"write", 2, EAGAIN};
    const Fault cut = Fault::Short("write", 3, 2);
    EXPECT_EQ(WriteAll(fd.get(), "12345", 5), 5);
    EXPECT_EQ(cut.calls(), 4u);
    EXPECT_EQ(ReadFile("file"), "12345");
}

TEST_F(WriteAllTest, HandsBackTheFailingWrite) {
    const Fault cut = Fault::Short("write", 1, 2);
    const Fault full{"write", 2, ENOSPC};
    EXPECT_EQ(WriteAll(fd.get(), "12345", 5), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(ReadFile("file"), "12");
}

// A write of 0 bytes leaves errno alone: what an earlier call left there must not count as EAGAIN.
TEST_F(WriteAllTest, EndsWhenNothingIsTaken) {
    const Fault nothing = Fault::Short("write", 1, 0, Fault::kAll);
    errno = EAGAIN;
    EXPECT_EQ(WriteAll(fd.get(), "12345", 5), 0);
    EXPECT_EQ(nothing.calls(), 1u);
}

// The error being handled is reported after its owners have let go.
TEST_F(WriteAllTest, OwnersKeepErrno) {
    const Fault fault{"close", 1, EIO};
    errno = ENOSPC;
    { const UniqueFd owned(dup(fd.get())); }
    EXPECT_EQ(fault.hits(), 1u);
    EXPECT_EQ(errno, ENOSPC);
}

}  // namespace
}  // namespace korx::test
