// A protected ring in a tree of its own, by its real writer.
#pragma once

#include <stdio.h>
#include <unistd.h>

#include <string>

#include "korx/plog.h"
#include "reader/log_reader.h"
#include "support/records.h"

namespace korx::test {

struct Files : RoomTest {
    korx_reader_code open(const char* path, korx_log_kind kind = KORX_LOG_SECURITY) {
        const LogReader log(path, kind, &options);
        error = log.error;
        return log.code;
    }
    void TearDown() override {
        if (fd > 0)
            close(fd);
    }
    // A ring that is open for writing in fd, with nine records in a lap if the limit is kLap.
    void make_ring(unsigned count) {
        ASSERT_EQ(DLOG_CheckAndCreateFile(tree.path("ring").c_str(), &fd), 0u);
        add(count);
    }
    static constexpr uint32_t kLength = 71, kLap = 12 + 10 * 70;
    void add(unsigned count, uint32_t limit = 4096) {
        for (; count > 0; --count, ++serial) {
            char record[80];
            (void) snprintf(
                record, sizeof record,
                "[2026-11-24 12:00:00.%06u][Index:0x1][AppCid:1][INFO][L:1 M:1][1]%03u\n", serial,
                serial);
            ASSERT_EQ(SLOG_Buff2File(fd, record, kLength, limit), 0u);
        }
    }
    LOG_HEAD_S head() const { return HeadOf<LOG_HEAD_S>(tree.path("ring")); }

    int fd = 0;
    unsigned serial = 0;
    korx_reader_options options = {};
    korx_reader_error error = {};
};

struct Ring : LogReader {
    explicit Ring(int count, const korx_reader_options* options = nullptr)
        : LogReader("ring", KORX_LOG_SECURITY, options) {
        for (; count > 0; --count)
            EXPECT_EQ(next_unread(), 1);
    }
};

}  // namespace korx::test
