// The reader against the real writers: whatever is written and taken in whatever order, each record
// that a writer accepted is taken once and in order.

#include <deque>
#include <string>

#include "korx/plog.h"
#include "reader/log_reader.h"

namespace {

using namespace korx::test;

constexpr uint32_t kDiscarded = 99;

struct Ring {
    korx_log_kind kind;
    uint32_t limit;
};

class TakeOnce : public ::testing::TestWithParam<Ring> {
  protected:
    void SetUp() override { ASSERT_EQ(DLOG_CheckAndCreateFile(kPath, &fd_), 0u); }
    void TearDown() override { close(fd_); }

    // A record of any length up to the longest, some with line ends in their message.
    std::string make_record() {
        char head[96];
        const auto micros = serial_ * 7;
        const int length =
            snprintf(head, sizeof head,
                     "[2026-11-24 %02u:%02u:%02u.%06u][Index:%#x][AppCid:1][INFO][L:2 M:3][%u]",
                     micros / 3600000000u % 24, micros / 60000000 % 60, micros / 1000000 % 60,
                     micros % 1000000, serial_, serial_);
        ++serial_;
        std::string record(head, static_cast<size_t>(length));
        const size_t room = 598 - record.size();
        const bool uniform = serial_ / 512 % 4 == 0;  // equal lengths make laps end alike
        const size_t size = uniform ? 100 - (record.size() % 100) + 27 : random_() % room;
        while (record.size() < 98 + (uniform ? 30 : size) && record.size() < 598)
            record += random_() % 40 == 0 ? '\n' : static_cast<char>('a' + random_() % 26);
        return record + '\n';
    }

    void write() {
        const std::string record = make_record();
        const auto length = static_cast<uint32_t>(record.size());
        const auto put = GetParam().kind == KORX_LOG_DIAG ? DLOG_Buff2File : SLOG_Buff2File;
        const uint32_t result = put(fd_, record.data(), length, GetParam().limit);
        if (result == 0)
            accepted_.push_back(record.substr(0, record.size() - 1));
        else
            ASSERT_EQ(result, kDiscarded);
    }

    void take() {
        LogReader log(kPath, GetParam().kind);
        ASSERT_EQ(log.code, KORX_READER_OK) << log.error.text;
        const korx_reader_info& info = log.info;
        ASSERT_EQ(info.damage, 0u);
        // One lap more or less looks the same to head and cursor: a gap's count is a lower bound.
        const bool lost = info.gap != 0;
        if (!lost) {
            ASSERT_EQ(info.unread_records, accepted_.size()) << "gap " << info.gap;
        }

        const korx_record& record = log.record;
        const size_t missing_before = missing_;
        const size_t most = random_() % 3 == 0 ? random_() % 20 : SIZE_MAX;
        bool first = true;
        for (size_t i = 0; i < most && log.next_unread() == 1; ++i) {
            const std::string text(record.text, record.length);
            // Only behind a reported gap may records be missing, and only the oldest ones.
            while (lost && first && !accepted_.empty() && accepted_.front() != text) {
                accepted_.pop_front();
                ++missing_;
            }
            first = false;
            ASSERT_FALSE(accepted_.empty());
            ASSERT_EQ(text, accepted_.front());
            ASSERT_EQ(record.flags & KORX_RECORD_DAMAGED, 0u);
            ASSERT_EQ(record.index, record.value);
            accepted_.pop_front();
            ++taken_;
        }
        if (!first && !refused_) {
            ASSERT_GE(missing_ - missing_before, info.gap_lost);
        }
        // Between copy and acknowledgement a writer may come in.
        if (random_() % 8 == 0)
            write();
        const korx_reader_code code = log.ack();
        // Where the writers take a full lap as read they may run over what was just handed out.
        const bool overrun =
            code == KORX_READER_CHANGED && (info.gap != 0 || GetParam().kind == KORX_LOG_DIAG);
        ASSERT_TRUE(code == KORX_READER_OK || overrun) << log.error.text;
        if (!first)
            refused_ = overrun;
    }

    static constexpr char kPath[] = "/dev/shm/ring";
    int fd_ = 0;
    uint32_t serial_ = 1;
    Chance random_{5};
    std::deque<std::string> accepted_;
    size_t taken_ = 0;
    size_t missing_ = 0;
    bool refused_ = false;  // the log doesn't know that the last records were delivered
};

TEST_P(TakeOnce, EveryAcceptedRecordIsTakenOnceAndInOrder) {
    const unsigned steps = FromEnvironment("KORX_TEST_STEPS", 20000);
    for (unsigned i = 0; i < steps && !HasFatalFailure(); ++i) {
        if (random_() % 5 == 0)
            take();
        else
            write();
    }
    while (!accepted_.empty() && !HasFatalFailure())
        take();
    EXPECT_GT(taken_, steps / 20);
}

INSTANTIATE_TEST_SUITE_P(Rings, TakeOnce,
                         ::testing::Values(Ring{KORX_LOG_SECURITY, 4096},
                                           Ring{KORX_LOG_SECURITY, 1900},
                                           Ring{KORX_LOG_LIFE, 16384}, Ring{KORX_LOG_DIAG, 4096}),
                         [](const auto& instance) {
                             return std::string(korx_log_kind_name(instance.param.kind)) +
                                    std::to_string(instance.param.limit);
                         });

}  // namespace
