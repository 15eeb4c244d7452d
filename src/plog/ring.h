// The ring that the diagnostic record, security and life-cycle logs share: a 12-byte head, then the
// data area in which each record follows the one before until it starts again at the beginning.
#pragma once

#include <pthread.h>
#include <stdarg.h>
#include <stdint.h>

#include "format/ring.h"
#include "korx/plog.h"
#include "plog/record.h"

namespace korx {

// Stores a record where the head says and moves the head on, in memory only: the caller holds the
// file lock and writes the head back. On failure the head in the file still is the old one, and the
// next record tries the same step again. Reports begin with the tag.
uint32_t RingStore(const char* tag, int fd, const void* record, uint32_t length, uint32_t limit,
                   LOG_HEAD_S* head);

// A ring log of this process. store takes the file lock and puts the record into the ring.
struct RingLog {
    LOG_INFO_S* info;
    int* fd;
    pthread_mutex_t* mutex;
    uint32_t (*store)(int fd, const Record& record, uint32_t limit);
};

// Appends one record: mutex, open or create, assemble, store.
[[gnu::format(printf, 2, 0)]] uint32_t AppendRecord(const RingLog& log, const char* format,
                                                    va_list args);

// What an event is made of besides its message.
struct EventFields {
    uint32_t app_cid;
    uint32_t index;
    uint32_t level;
    uint32_t m_value;
    uint32_t value;
};

// Appends an event in the ring logs' record format.
uint32_t AppendEvent(const RingLog& log, const EventFields& fields, const MessageText& message);

}  // namespace korx
