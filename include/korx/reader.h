/* libkorx_reader: reads the component's logs from outside, and empties those that wait for it.
 *
 *     korx_reader* log;
 *     korx_reader_error error;
 *     korx_record record;
 *     if (korx_reader_open(path, KORX_LOG_AUTO, NULL, &log, &error) != KORX_READER_OK)
 *         return complain(error.text);
 *     while (korx_reader_next(log, KORX_RECORD_UNREAD, &record))
 *         deliver(record.text, record.text_length);
 *     korx_reader_ack(log, NULL, &error);
 *     korx_reader_close(log);
 *
 * A reader is a snapshot: the file is locked only while it is copied, and everything else works on
 * the copy. Nothing in a file can make a function crash, hang or read outside the copy; what is not
 * a record is told as damage. Texts are bytes of the file with a length: they may hold anything but
 * NUL, line ends and terminal escapes included.
 *
 * A PROCESS THAT ITSELF WRITES THESE LOGS must not call korx_reader_open or korx_reader_ack:
 * closing any descriptor of a file drops all record locks that the process holds on it, and a
 * writer thread in the middle of a record would go on without its lock. Such a process runs another
 * program (the korx command) for it, or gets the bytes from one and uses korx_reader_open_memory.
 *
 * Readers are independent of one another; one reader is used by one thread at a time. Functions
 * that can fail return a KORX_READER_ code and fill *error, if error is not null. */
#ifndef KORX_READER_H
#define KORX_READER_H

#include <stddef.h>
#include <stdint.h>
#include <time.h>

#include "korx/common.h"

KORX_BEGIN_DECLS

/* --- Kinds, results --- */

typedef enum korx_log_kind {
    KORX_LOG_AUTO = 0,     /* told by the file's name, or else by its content */
    KORX_LOG_TEXT = 1,     /* diagnostic text log: orx_agent.log, orx_app.log */
    KORX_LOG_DIAG = 2,     /* diagnostic record log, a ring: KORX_DIAG_LOG */
    KORX_LOG_SECURITY = 3, /* security event log, a ring: korx_safe.log */
    KORX_LOG_LIFE = 4,     /* life-cycle log, a ring: korx_life.log */
    KORX_LOG_START = 5,    /* start log, four rings: KORX_START_LOG with .korxloghdr beside it */
    KORX_LOG_PROCESS = 6,  /* process log, a plain file that wraps: <process>.log */
    KORX_LOG_SPACE = 7     /* disk-space log: orx_spacefull.log */
} korx_log_kind;

enum korx_reader_code {
    KORX_READER_OK = 0,
    KORX_READER_ARGUMENT = 1,    /* null pointer or unknown kind */
    KORX_READER_MISSING = 2,     /* there is no such file */
    KORX_READER_DENIED = 3,      /* no permission */
    KORX_READER_IO = 4,          /* another system error: error.sys_errno */
    KORX_READER_FOREIGN = 5,     /* not a regular file, or of no kind that is known */
    KORX_READER_TOO_LARGE = 6,   /* larger than options.max_bytes */
    KORX_READER_BUSY = 7,        /* a writer held the lock for all of options.lock_timeout_ms */
    KORX_READER_MEMORY = 8,      /* out of memory */
    KORX_READER_STALE = 9,       /* ack: the file or its reading position is another one by now */
    KORX_READER_UNSUPPORTED = 10 /* ack: this log keeps no reading position, or it is a copy */
};

typedef struct korx_reader_error {
    uint32_t code;     /* KORX_READER_ */
    int32_t sys_errno; /* 0 when no system call failed */
    uint64_t offset;   /* in the file, where it applies */
    char text[640];    /* one line for people, with the path; empty on success */
} korx_reader_error;

/* --- Opening --- */

#define KORX_READER_DEFAULT_MAX_BYTES (16u * 1024 * 1024)
#define KORX_READER_DEFAULT_TIMEOUT_MS 2000u

/* All zero: the defaults. */
typedef struct korx_reader_options {
    uint32_t max_bytes;       /* 0: KORX_READER_DEFAULT_MAX_BYTES; a larger file is refused */
    uint32_t lock_timeout_ms; /* 0: KORX_READER_DEFAULT_TIMEOUT_MS */
    uint32_t limit;           /* size limit the writers use; 0: the kind's usual one */
    uint32_t no_lock;         /* not 0: copy without the lock; a record being written may be cut */
    uint32_t no_cursor;       /* not 0: neither read nor write a cursor file */
    const char* cursor_path;  /* null: the cursor stands beside the log, see korx_reader_ack */
    const char* header_path;  /* start log: its header file; null: .korxloghdr beside it */
} korx_reader_options;

typedef struct korx_reader korx_reader;

/* Takes a snapshot of the log at path. The file is opened for reading only, never created, and
 * locked against its writers while it is copied: a shared flock for the text log, a whole-file
 * record lock for the others (the start log's header file first), none for the disk-space log.
 * options may be null. *reader is the new reader for korx_reader_close, or null on failure. A
 * damaged or empty file opens and has damage or no records. */
KORX_API uint32_t korx_reader_open(const char* path, korx_log_kind kind,
                                   const korx_reader_options* options, korx_reader** reader,
                                   korx_reader_error* error);

/* The same of bytes in memory, which are copied. header and header_length are the start log's
 * header file, else null and 0. Such a reader has no cursor and cannot acknowledge. */
KORX_API uint32_t korx_reader_open_memory(const void* bytes, size_t length, korx_log_kind kind,
                                          const void* header, size_t header_length,
                                          const korx_reader_options* options, korx_reader** reader,
                                          korx_reader_error* error);

/* Releases the snapshot with all texts that point into it. Null is allowed. */
KORX_API void korx_reader_close(korx_reader* reader);

/* --- Records --- */

enum korx_record_flags {
    KORX_RECORD_UNREAD = 1,    /* not acknowledged yet; only rings keep track */
    KORX_RECORD_OLD_LAP = 2,   /* of the lap that is being overwritten */
    KORX_RECORD_NEW = 4,       /* not in the earlier snapshot: korx_reader_compare */
    KORX_RECORD_CUT = 8,       /* its end is uncertain: leftovers follow it, and are not shown */
    KORX_RECORD_TIME_BACK = 16 /* clearly older than the record before it: the clock was set */
};

/* Which fields of a record are set; the others are 0, null or empty. */
enum korx_record_fields {
    KORX_FIELD_LEVEL = 1,
    KORX_FIELD_INDEX = 2,
    KORX_FIELD_APP_CID = 4,
    KORX_FIELD_LOCATION = 8,
    KORX_FIELD_M_VALUE = 16,
    KORX_FIELD_VALUE = 32,
    KORX_FIELD_NAME = 64,
    KORX_FIELD_PID = 128,
    KORX_FIELD_MODULE = 256,
    KORX_FIELD_MESSAGE = 512
};

/* One record. text, message and name point into the snapshot and are not NUL-terminated; the final
 * line end belongs to none of them. */
typedef struct korx_record {
    korx_log_kind kind;
    uint32_t flags;    /* KORX_RECORD_ */
    uint32_t fields;   /* KORX_FIELD_ */
    uint32_t position; /* of korx_reader_get */
    uint64_t offset;   /* first byte in the file */
    const char* text;  /* the whole record */
    size_t text_length;
    struct timespec time; /* the stamp, read as local time of this process */
    uint32_t level;       /* 0 DEBUG, 1 INFO, 2 WARNING, 3 ERROR, 4 FATAL */
    uint32_t index;
    uint32_t app_cid;
    uint32_t location;
    uint32_t m_value;
    uint32_t value; /* trailing value; disk-space log: percent used */
    int32_t pid;
    uint32_t module;
    const char* name; /* start log: section; process log opened by its name: process;
                         disk-space log: mount directory */
    size_t name_length;
    const char* message;
    size_t message_length;
} korx_record;

/* How many records there are. */
KORX_API size_t korx_reader_count(const korx_reader* reader);

/* The record at a position; 0 is the oldest. In a ring the old lap comes first, from the first
 * whole record that is left of it, then the new lap. The start log's sections are merged by time.
 * Result: 1; 0 beyond the last. */
KORX_API int korx_reader_get(const korx_reader* reader, size_t position, korx_record* record);

/* The next record that has all the flags (0: any), oldest to newest. Result: 1; 0 at the end. */
KORX_API int korx_reader_next(korx_reader* reader, uint32_t flags, korx_record* record);

/* Makes korx_reader_next start again at the oldest. */
KORX_API void korx_reader_rewind(korx_reader* reader);

/* Marks the records of now that an earlier snapshot of the same log has not: KORX_RECORD_NEW.
 * Result: how many. *lost, which may be null, is set to 1 when what followed the earlier snapshot
 * is overwritten already (then all are new), or the log was replaced; else to 0. */
KORX_API size_t korx_reader_compare(korx_reader* now, const korx_reader* earlier, int* lost);

/* --- The log as a whole --- */

typedef struct korx_reader_info {
    korx_log_kind kind;
    uint32_t laps;  /* 0: never wrapped; 1: an old lap is in the file or was */
    uint64_t size;  /* bytes of the file */
    uint64_t limit; /* bytes it may have */
    uint64_t used;  /* bytes that hold records; used / limit is the fill */
    uint64_t records;
    uint64_t unread_records; /* rings only, as the next two */
    uint64_t unread_bytes;
    uint32_t has_position; /* 1: a ring, which can be acknowledged */
    uint32_t log_length;   /* the head as it stands in the file: L, D and T of the rings; */
    uint32_t dump_length;  /* the text log has its count in log_length */
    uint32_t total_length;
    uint64_t damages;      /* how many were found; korx_reader_damage_at keeps the first 256 */
    uint32_t gap;          /* KORX_GAP_ */
    uint64_t lost_bytes;   /* at least so many were lost unread */
    uint64_t lost_records; /* about so many records, from the size of those that are left */
} korx_reader_info;

/* Whether records were overwritten before anybody took them. The head cannot show it: the cursor
 * does. With a gap all records of the snapshot are unread. */
enum korx_reader_gap {
    KORX_GAP_NONE = 0,
    KORX_GAP_UNKNOWN = 1, /* the cursor is missing or of another position: it cannot be told */
    KORX_GAP_LAP = 2,     /* exactly a lap is unread, or several of which the last is left */
    KORX_GAP_LOST = 3     /* at least lost_bytes are gone */
};

KORX_API void korx_reader_get_info(const korx_reader* reader, korx_reader_info* info);

typedef enum korx_damage_rule {
    KORX_DAMAGE_HEAD_SHORT = 1,  /* the file is shorter than its head */
    KORX_DAMAGE_HEAD_LENGTH = 2, /* the head's end of the records lies outside the file or limit */
    KORX_DAMAGE_HEAD_DUMP = 3,   /* the reading position lies outside the records */
    KORX_DAMAGE_HEAD_TOTAL = 4,  /* the old lap ends outside the file, or before the new one */
    KORX_DAMAGE_SIZE = 5,        /* the file is longer than its limit allows */
    KORX_DAMAGE_NOT_RECORD = 6,  /* bytes among the records that are none */
    KORX_DAMAGE_CUT_RECORD = 7,  /* a record without its end */
    KORX_DAMAGE_LONG_RECORD = 8, /* longer than any writer writes: it holds something else too */
    KORX_DAMAGE_TIME_BACK = 9,   /* a record is more than a second older than the one before it */
    KORX_DAMAGE_HEADER = 10,     /* start log: header file missing, short or not acceptable */
    KORX_DAMAGE_SEPARATOR = 11,  /* start log: a section's separator is not there */
    KORX_DAMAGE_CURSOR = 12      /* the cursor file is damaged; it is not used */
} korx_damage_rule;

typedef struct korx_damage {
    korx_damage_rule rule;
    uint64_t offset;  /* in the file (rule 10: in the header file; 12: in the cursor file) */
    uint64_t length;  /* bytes concerned */
    const char* text; /* one line for people, constant */
} korx_damage;

/* The damage at a position, in the order it was found. Result: 1; 0 beyond the last. */
KORX_API int korx_reader_damage_at(const korx_reader* reader, size_t position, korx_damage* damage);

/* --- Acknowledging --- */

/* Tells a ring's writers that the unread records up to and including last were delivered, so that
 * their room may be used again. last is a record of this reader; null: all unread ones. Call it
 * only when the records are safe where they were delivered.
 *
 * Under the file's exclusive lock the head is read again and the reading position moved to the end
 * of last, never past it and never when the file or its position is not the one of the snapshot
 * (KORX_READER_STALE: someone else took records; open again). Records written meanwhile stay
 * unread. Before that, the cursor is replaced: the file <log>.korxcursor or options.cursor_path,
 * which holds the end of the last delivered record. With it the next reader sees a whole lap
 * written since, which the head shows as nothing, and records lost after that: see korx_reader_gap.
 * If the cursor cannot be written nothing is acknowledged.
 *
 * After success the reader's flags and info are still those of the snapshot; a further call may
 * acknowledge further records of it. */
KORX_API uint32_t korx_reader_ack(korx_reader* reader, const korx_record* last,
                                  korx_reader_error* error);

/* --- Names --- */

/* "text", "diag", "security", "life", "start", "process", "space"; "auto" for anything else. */
KORX_API const char* korx_log_kind_name(korx_log_kind kind);
/* The kind of that name; KORX_LOG_AUTO when there is none. */
KORX_API korx_log_kind korx_log_kind_of_name(const char* name);
/* "DEBUG", "INFO", "WARNING", "ERROR" and above "FATAL". */
KORX_API const char* korx_level_name(uint32_t level);
/* A short name of the rule, for machines: "head-length". */
KORX_API const char* korx_damage_name(korx_damage_rule rule);

KORX_END_DECLS

#endif
