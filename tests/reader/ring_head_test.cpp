// Which heads a ring can have: all that the real writers and a reader make of it, however they are
// interrupted, and hardly any other.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <set>

#include "base/unique.h"
#include "format/ring.h"
#include "korx/plog.h"
#include "reader/log_reader.h"

namespace {

using namespace korx;
using namespace korx::test;

constexpr uint32_t kRoom = 10, kLimit = kRingHeadSize + kRoom, kLongest = 3;

struct State {
    LOG_HEAD_S head;
    uint32_t size;

    auto key() const { return std::array{head.uiLogLen, head.uiDumpLen, head.uiTotalLen, size}; }
    bool operator<(const State& other) const { return key() < other.key(); }
};

class Heads : public ::testing::TestWithParam<Unread> {
  protected:
    bool is_accepted(const State& state) const {
        const uint64_t room = state.size < kRingHeadSize ? 0 : state.size - kRingHeadSize;
        const RingBounds bounds = {.room = room, .longest = kLongest, .unread = GetParam()};
        return FaultOf(state.head, bounds) == HeadFault::kNone;
    }

    void reach(const State& state) {
        if (!reached_.insert(state).second)
            return;
        EXPECT_TRUE(is_accepted(state)) << ::testing::PrintToString(state.key());
        found_.push_back(state);
    }

    // The writer comes to its end, or ends before it has entered the record, or the wrap; or only
    // the beginning of the record finds room.
    void write(const State& from, uint32_t length) {
        const bool wraps = ReachesLimit(from.head, length, kLimit);
        ASSERT_EQ(ftruncate(fd_, from.size), 0);
        ASSERT_EQ(pwrite(fd_, &from.head, kRingHeadSize, 0), ssize_t{kRingHeadSize});
        const auto put = GetParam() == Unread::kProtected ? SLOG_Buff2File : DLOG_Buff2File;
        if (put(fd_, "123", length, kLimit) != 0)
            return;
        State to = {};
        ASSERT_EQ(pread(fd_, &to.head, kRingHeadSize, 0), ssize_t{kRingHeadSize});
        to.size = static_cast<uint32_t>(lseek(fd_, 0, SEEK_END));
        reach(to);
        reach({from.head, to.size});
        for (uint32_t size = std::max(from.size, kRingHeadSize + from.head.uiLogLen) + 1;
             !wraps && size < to.size; ++size)
            reach({to.head, size});
    }

    // Anywhere in what is unread a record may end, and the reader stop.
    void take(const State& from) {
        const LOG_HEAD_S& head = from.head;
        const bool in_old = head.uiLogLen < head.uiDumpLen;
        const bool any = GetParam() == Unread::kOverwritten || head.uiDumpLen == 0;
        for (uint32_t to = 1; to <= std::max(head.uiLogLen, head.uiTotalLen); ++to) {
            State taken = from;
            taken.head.uiDumpLen = to;
            if (any || (in_old ? to > head.uiDumpLen || to <= head.uiLogLen
                               : to > head.uiDumpLen && to <= head.uiLogLen))
                reach(taken);
        }
    }

    const UniqueFd file_{open("/dev/shm/ring", O_RDWR | O_CREAT | O_CLOEXEC, 0600)};
    const int fd_ = file_.get();
    std::set<State> reached_;
    std::vector<State> found_;
};

TEST_P(Heads, AreSoundJustWhereWritersAndReadersMakeThem) {
    reach({{}, kRingHeadSize});
    for (size_t i = 0; i < found_.size() && !HasFailure(); ++i) {
        for (uint32_t length = 1; length <= kLongest; ++length)
            write(State(found_[i]), length);
        take(State(found_[i]));
    }
    // What else it lets pass is a position of 0, which others may leave, and a record that reaches
    // beyond a limit that it doesn't know.
    size_t impossible = 0, passed = 0;
    for (uint32_t i = 0; i < 16 * 16 * 16 * (kRoom + 1); ++i) {
        const LOG_HEAD_S head = {i / 256 % 16, i / 16 % 16, i % 16};
        const State state = {head, kRingHeadSize + i / 4096};
        const bool can_be =
            (head.uiTotalLen != 0 && state.size != kLimit) || reached_.contains(state);
        impossible += !can_be;
        passed += !can_be && is_accepted(state);
    }
    EXPECT_LT(passed * 80, impossible) << passed;
}

INSTANTIATE_TEST_SUITE_P(Rings, Heads, ::testing::Values(Unread::kProtected, Unread::kOverwritten));

}  // namespace
