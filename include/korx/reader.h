/** @file
 * The reader of the component's logs. */
#ifndef KORX_READER_H
#define KORX_READER_H

#include <stddef.h>
#include <time.h>

#include "korx/common.h"

KORX_BEGIN_DECLS

/** @defgroup korx_reader Reading the logs from outside
 *
 * libkorx_reader reads the component's logs and acknowledges what has been taken.
 *
 * Opening a log copies it: the file's lock is held for the copy alone, never while records are
 * looked at. A reader iterates over its copy, oldest record first, so it shows one moment; to see
 * what came later, refresh it, or open again (korx_mark carries the place over).
 *
 *     korx_reader* reader;
 *     korx_reader_error error;
 *     korx_record record;
 *     if (korx_reader_open(path, KORX_LOG_AUTO, NULL, &reader, &error) != KORX_READER_OK)
 *         return complain(error.text);
 *     while (korx_reader_next_unread(reader, &record))
 *         deliver(&record);
 *     if (delivered())
 *         korx_reader_ack(reader, &error);
 *     korx_reader_close(reader);
 *
 * A record is told by its time stamp and its head fields at the start of a line; a message with
 * line ends in it stays one record. Zero fill, what is left of a record that the log has partly
 * written over, and text that lies behind the end of its lap are never records. Whatever else is
 * not a record is damage: it is listed with offset and rule, and text among it is also handed out
 * as a record with KORX_RECORD_DAMAGED, so that nothing is acknowledged unseen.
 *
 * In a process that writes these logs. The writers' record locks belong to the process, and closing
 * any descriptor of a file drops them. korx_reader_open and korx_reader_ack open and close the log,
 * so such a process must not call them while one of its threads may log. It may instead
 *   - hand in the descriptor that it already has (korx_reader_open_fd; for the security log
 *     g_iSLogFileFd). The reader never closes that one, leaves its position alone, and its own
 *     lock excludes the process's writers, so no other care is needed;
 *   - read in a forked child: a child's close does not touch its parent's locks;
 *   - read the bytes itself and use korx_reader_open_memory.
 *
 * The start log's header file is opened by its path all the same; hand its bytes in as well there.
 * The diagnostic text log and the space-full log have no such locks; any process may open them.
 *
 * Functions return KORX_READER_OK or another korx_reader_code and explain a failure in *error,
 * which may be null. No input makes them crash or hang: memory stays below about four times the
 * file's size and waiting below the lock time-out. A reader belongs to one thread at a time;
 * different readers may be used by different threads. Times are local times of TZ as it was when
 * the reader was opened.
 *
 * A process log doesn't say where its newest record ends; that is found by the time stamps. At that
 * place, and where an old lap ends in the start or process log, further lines of a message can't be
 * told from the rest of an older record and are left out.
 * @{ */

/** The kinds of logs. */
typedef enum korx_log_kind {
    KORX_LOG_AUTO = 0,     /**< from the file's name, else from its content */
    KORX_LOG_TEXT = 1,     /**< diagnostic text log, "orx_agent.log" or "orx_app.log" */
    KORX_LOG_DIAG = 2,     /**< diagnostic record log, the ring "KORX_DIAG_LOG" */
    KORX_LOG_SECURITY = 3, /**< security event log, the ring "korx_safe.log" */
    KORX_LOG_LIFE = 4,     /**< life-cycle log, the ring "korx_life.log" */
    KORX_LOG_START = 5,    /**< start log "KORX_START_LOG" with its header ".korxloghdr" */
    KORX_LOG_PROCESS = 6,  /**< process log "<process>.log" */
    KORX_LOG_SPACE = 7     /**< space-full log "orx_spacefull.log" */
} korx_log_kind;

/** What the functions answer. */
typedef enum korx_reader_code {
    KORX_READER_OK = 0,          /**< success */
    KORX_READER_ARGUMENT = 1,    /**< a required argument is null or out of range */
    KORX_READER_NO_MEMORY = 2,   /**< memory allocation failed */
    KORX_READER_OPEN = 3,        /**< the log cannot be opened; system_error says why */
    KORX_READER_NOT_REGULAR = 4, /**< a directory, device, pipe or socket */
    KORX_READER_TOO_LARGE = 5,   /**< more bytes than max_bytes would have to be read */
    KORX_READER_LOCKED = 6,      /**< a writer held the file for the whole time-out */
    KORX_READER_READ = 7,        /**< reading or examining the file failed */
    KORX_READER_UNKNOWN = 8,     /**< KORX_LOG_AUTO found nothing it knows */
    KORX_READER_CHANGED = 9,     /**< not acknowledged: the log is no longer what was handed out */
    KORX_READER_DAMAGED = 10,    /**< not acknowledged: the head cannot be trusted */
    KORX_READER_WRITE = 11,  /**< not acknowledged: writing the log's head or the cursor failed */
    KORX_READER_CURSOR = 12, /**< acknowledged in the head, but the cursor could not be kept */
    KORX_READER_UNSURE = 13, /**< whether it is done, or lasts, cannot be known */
    KORX_READER_SOUND = 14,  /**< not repaired: there is nothing to repair */
    KORX_READER_REFUSED = 15 /**< not repaired: the caller did not keep the records */
} korx_reader_code;

/** Why something failed. */
typedef struct korx_reader_error {
    korx_reader_code code; /**< that was answered */
    int system_error;      /**< errno of the call that failed, else 0 */
    uint64_t offset;       /**< where in the file, else 0 */
    char text[512]; /**< one sentence with the path, without a line end; the path may be cut */
} korx_reader_error;

/** How to open. All zero means the defaults, and so does a null pointer to it. */
typedef struct korx_reader_options {
    uint32_t flags;           /**< KORX_READER_... below */
    uint32_t lock_timeout_ms; /**< how long to wait for writers; 0: 5000 */
    uint64_t max_bytes;       /**< most bytes to read of one file; 0: 64 MiB */
    const char* header_path;  /**< start log: its header file; null: ".korxloghdr" beside the log */
    const char* cursor_path;  /**< null: the log's path with ".cursor" appended; "": no cursor */
    const char* name;         /**< process log: the process; null: from the file's name */
    const void* header;       /**< start log from memory: the header file's bytes, or null */
    size_t header_length;     /**< of header */
} korx_reader_options;

/** The flags of korx_reader_options. */
enum {
    /** Copy without the lock. The copy may then hold a half-written record or a head that does not
     * fit it, which shows as damage. Such a reader cannot acknowledge. */
    KORX_READER_NO_LOCK = 1
};

/** A reader: a copy of a log and a place in it. */
typedef struct korx_reader korx_reader;

/** Copies a log and makes a reader of it. A missing file is #KORX_READER_OPEN with ENOENT. An empty
 * file is a log without records. A file that is not a log of this kind opens too, and is all
 * damage.
 *
 * @param path          of the log, links followed
 * @param kind          of the log; #KORX_LOG_AUTO: found out
 * @param options       null: the defaults
 * @param[out] reader   null after a failure, else for korx_reader_close()
 * @param[out] error    explains a failure; may be null
 * @return #KORX_READER_OK or another code */
KORX_API korx_reader_code korx_reader_open(const char* path, korx_log_kind kind,
                                           const korx_reader_options* options, korx_reader** reader,
                                           korx_reader_error* error);

/** korx_reader_open() from a descriptor, which stays the caller's: it is never closed and its
 * position never moved. It must be readable, and writable to acknowledge; path names the log in
 * messages and, with the defaults above, the header file and the cursor, and may be null (no
 * cursor then unless one is named). It is used until the reader is closed.
 *
 * @param fd            of the log
 * @param path          its name, or null
 * @param kind          of the log; #KORX_LOG_AUTO: found out
 * @param options       null: the defaults
 * @param[out] reader   null after a failure, else for korx_reader_close()
 * @param[out] error    explains a failure; may be null
 * @return #KORX_READER_OK or another code */
KORX_API korx_reader_code korx_reader_open_fd(int fd, const char* path, korx_log_kind kind,
                                              const korx_reader_options* options,
                                              korx_reader** reader, korx_reader_error* error);

/** korx_reader_open() from bytes in memory. No file is touched. Such a reader cannot
 * acknowledge.
 *
 * @param data          the bytes of the log, copied
 * @param length        how many
 * @param kind          of the log; #KORX_LOG_AUTO: found out from its content
 * @param options       null: the defaults
 * @param[out] reader   null after a failure, else for korx_reader_close()
 * @param[out] error    explains a failure; may be null
 * @return #KORX_READER_OK or another code */
KORX_API korx_reader_code korx_reader_open_memory(const void* data, size_t length,
                                                  korx_log_kind kind,
                                                  const korx_reader_options* options,
                                                  korx_reader** reader, korx_reader_error* error);

/** What korx_reader_refresh has found. */
typedef enum korx_refreshed {
    KORX_REFRESHED_SAME = 0, /**< nothing has changed */
    KORX_REFRESHED_MORE = 1, /**< something has; the reader stands where it stood */
    /** None of the records that the reader had passed is there any more: the log was replaced, or
     * went over them. The reader stands at the oldest record, and there may be a gap before it. */
    KORX_REFRESHED_GAP = 2
} korx_refreshed;

/** Brings a reader up to its log as it is now, as if it were opened again, but keeps its place: the
 * next record is the first one that was written since, or that had not been passed yet. Records are
 * the same when they stand where they stood with the bytes that they had; a record that the text
 * log cut meanwhile is the same, too. Records handed out for korx_reader_ack stay so. Info, damage
 * and what is unread become those of a reader opened now, after an acknowledgement, by whomever, as
 * well. *how, which may be null, tells what was found.
 *
 * The log is opened by its path, so a replaced file is met here. Fails like korx_reader_open, and
 * the reader then is as it was and may be refreshed again: a file that is gone is KORX_READER_OPEN
 * with ENOENT. A reader from memory is KORX_READER_ARGUMENT. What records handed out before point
 * to is gone when it succeeds.
 *
 * @param reader       which
 * @param[out] how     what was found; may be null
 * @param[out] error   explains a failure; may be null
 * @return #KORX_READER_OK or another code */
KORX_API korx_reader_code korx_reader_refresh(korx_reader* reader, korx_refreshed* how,
                                              korx_reader_error* error);

/** Frees a reader and everything its records point to; null is allowed.
 *
 * @param reader which */
KORX_API void korx_reader_close(korx_reader* reader);

/** Which fields of a record are there. */
enum {
    KORX_FIELD_TIME = 1 << 0,     /**< all */
    KORX_FIELD_LEVEL = 1 << 1,    /**< all but the space-full log */
    KORX_FIELD_INDEX = 1 << 2,    /**< rings */
    KORX_FIELD_APP_CID = 1 << 3,  /**< rings */
    KORX_FIELD_LOCATION = 1 << 4, /**< rings, start and process log */
    KORX_FIELD_M_VALUE = 1 << 5,  /**< rings and process log */
    KORX_FIELD_VALUE = 1 << 6,    /**< all but the text log; space-full log: percent used */
    KORX_FIELD_NAME = 1 << 7,     /**< start log: section; process log: process; space-full log:
                                     mount directory */
    KORX_FIELD_PID = 1 << 8,      /**< text log */
    KORX_FIELD_MODULE = 1 << 9,   /**< text log */
    KORX_FIELD_MESSAGE = 1 << 10  /**< all but the space-full log */
};

/** What a record is. */
enum {
    KORX_RECORD_UNREAD = 1 << 0,  /**< not acknowledged yet */
    KORX_RECORD_OLD_LAP = 1 << 1, /**< from the lap before the newest */
    /** Not sound: text that is no record (no fields), or a record whose end is missing or replaced
     * by other bytes (its fields are there, its message may be cut). */
    KORX_RECORD_DAMAGED = 1 << 2,
    /** Older than the record before it by more than two seconds: the clock was set back between
     * them, as it is at each start of a board without a clock of its own. No damage. */
    KORX_RECORD_CLOCK_BACK = 1 << 3
};

/** One record. Its pointers lead into the reader and live until it is refreshed or closed; the
 * texts are not terminated and may hold any byte but, in sound records, NUL. Numbers without their
 * bit in fields are 0, texts null. */
typedef struct korx_record {
    korx_log_kind kind;     /**< of the log */
    uint32_t flags;         /**< KORX_RECORD_... */
    uint32_t fields;        /**< KORX_FIELD_... */
    uint64_t offset;        /**< in the file */
    const char* text;       /**< the whole record without its last line end */
    size_t length;          /**< of text */
    struct timespec time;   /**< since the Epoch, to the microsecond */
    int32_t utc_offset;     /**< of the local time that the record shows, in seconds east */
    uint32_t level;         /**< 0 DEBUG, 1 INFO, 2 WARNING, 3 ERROR (text log: ERR), 4 FATAL */
    const char* level_name; /**< as the record spells it; terminated and static */
    uint32_t index;         /**< number of the message */
    uint32_t app_cid;       /**< number of the application component */
    uint32_t location;      /**< behind "L:" */
    uint32_t m_value;       /**< behind "M:" */
    uint32_t value;         /**< in the brackets before the message; space-full log: percent used */
    int32_t pid;            /**< process id of the writer */
    uint32_t module;        /**< module id of the writer */
    const char* name;       /**< see #KORX_FIELD_NAME */
    size_t name_length;     /**< of name */
    const char* message;    /**< what the caller of the writer wrote */
    size_t message_length;  /**< of message */
} korx_record;

/** The size of a record's id. */
enum {
    KORX_RECORD_ID_SIZE = 384 /**< has room for any process's name that a file can have */
};

/** By what a record is known wherever it gets to. The id is one word:
 *
 *       KIND[/PROCESS]:STAMP:HASH:OFFSET
 *       security:2026-11-24T12:00:00.000123:9c1f0a66b2f0e3d7:4123
 *
 * The stamp as it is written in the record ("-" in damaged text), the FNV-1a hash with 64 bits of
 * the record's text, in hexadecimal, and the offset in the file, which tells equal records apart: a
 * record never moves. So the id is the same whoever reads the record, live or from a copy, in
 * whatever time zone, however often, and after any number of laps; a record that was cut or damaged
 * since has another one. It is unique within a log; put the board's name before it where several
 * boards meet.
 *
 * @param reader    where the record is from
 * @param record    unchanged
 * @param[out] id   takes it; empty where size is too small
 * @param size      of id; #KORX_RECORD_ID_SIZE is enough
 * @return 1, or 0 where size is too small */
KORX_API int korx_reader_record_id(const korx_reader* reader, const korx_record* record, char* id,
                                   size_t size);

/** The next record, oldest first; the start log's sections are merged by time.
 *
 * @param reader      which
 * @param[out] record cleared at the end
 * @return 1, or 0 at the end */
KORX_API int korx_reader_next(korx_reader* reader, korx_record* record);

/** The next unread record, and the only call that hands records out for korx_reader_ack. Both calls
 * move the same place.
 *
 * @param reader      which
 * @param[out] record cleared at the end
 * @return 1, or 0 at the end */
KORX_API int korx_reader_next_unread(korx_reader* reader, korx_record* record);

/** Goes back to the oldest record. What has been handed out stays handed out.
 *
 * @param reader which */
KORX_API void korx_reader_rewind(korx_reader* reader);

/** Goes to the place behind the newest count records, so that next yields just these.
 *
 * @param reader which
 * @param count  how many; 0: to the end */
KORX_API void korx_reader_seek_newest(korx_reader* reader, size_t count);

/** Acknowledges all that korx_reader_next_unread has handed out since the reader was opened or last
 * acknowledged; call it when that has been delivered. KORX_READER_OK when there is nothing.
 *
 * What the code means for what was delivered:
 *   - KORX_READER_OK, KORX_READER_CURSOR: acknowledged, and it lasts. Who takes the delivery back
 *     now loses it.
 *   - KORX_READER_UNSURE: a write or sync failed, and so did putting back what was there. The
 *     records may be acknowledged or not, now or after a power failure. Leave them delivered: they
 *     may be handed out again, so that they come twice rather than never.
 *   - every other code: nothing was acknowledged, now and for good. The delivery may be taken back;
 *     the records will be handed out again.
 *
 * A process that is killed in here leaves one or the other. After any code but the first open the
 * log again before going on.
 *
 * Rings: with the file locked, uiDumpLen moves to the end of what was handed out, never past it,
 * and no other byte changes. Where that end is the end of a finished lap, uiDumpLen becomes
 * uiTotalLen and not 0. Before that the cursor is replaced; where it cannot be, the head is moved
 * all the same (KORX_READER_CURSOR), because the writers wait for it. The other kinds have no such
 * mark; there the cursor alone says what has been taken.
 *
 * Refused with KORX_READER_CHANGED, nothing acknowledged, when the file was replaced, somebody else
 * acknowledged meanwhile, or the last record handed out is no longer where it was; with
 * KORX_READER_ARGUMENT when the reader came from memory or was opened without lock. Open again
 * then: what is still there is handed out again.
 *
 * The cursor is a small text file beside the log, replaced atomically, with the owner and mode of
 * the log where the process may give them. It holds place, stamp and hash of the last record, on
 * either side of the acknowledgement, with which the next reader tells a full lap of unread records
 * from none; the head alone cannot. Without one (KORX_READER_CURSOR, or cursor_path "") that case
 * shows as nothing unread, and as KORX_DOUBT_LAP.
 *
 * @param reader     which
 * @param[out] error explains a failure; may be null
 * @return see above */
KORX_API korx_reader_code korx_reader_ack(korx_reader* reader, korx_reader_error* error);

/** Keeps a record of a ring that is being repaired; 0 when that was done, else the repair stops.
 * The last call has a null record: it makes what was kept durable, or says that it is not. reader
 * is good for the record's id, during the call.
 *
 * @param context that of korx_reader_repair()
 * @param reader  for the record's id
 * @param record  what is kept; null: the last call
 * @return 0 when that was done; anything else stops the repair */
typedef int korx_reader_keep(void* context, const korx_reader* reader, const korx_record* record);

/** What a repair has done. */
typedef struct korx_reader_repaired {
    uint64_t records; /**< how many were handed to keep */
    char copy[4096];  /**< the copy of the damaged file; "": there is none, nothing was changed */
} korx_reader_repaired;

/** Cures a ring whose head is damaged, that is one which no writer and no reader leaves behind: the
 * writers of the security and life-cycle logs would refuse their records for good. With the file
 * locked, so that its writers wait meanwhile:
 *   - a copy of the file is made beside it, durably, as "<path>.damaged.1" or with the next free
 *     number, with the owner and mode of the log;
 *   - every sound record that can be found is handed to keep, oldest first as far as the records
 *     tell. Nothing says which of them were taken before, so some may come again;
 *   - the log becomes an empty ring, and its cursor is removed.
 *
 * KORX_READER_OK: all of that was done, durably. KORX_READER_UNSURE: it was done, but syncing the
 * empty ring failed; after a power failure it may be damaged again. With any other code the log is
 * as it was and there is no copy: KORX_READER_SOUND where the head is in order,
 * KORX_READER_REFUSED where keep stopped it, KORX_READER_WRITE where a copy could not be made or
 * the log not be emptied (the records were handed out, and will be again), KORX_READER_ARGUMENT
 * for a log that is no ring. The file must be readable and writable, and its folder writable.
 *
 * keep must not write into the log that is being repaired: it would wait for itself. Killed at any
 * moment, the log is either as it was, perhaps with a copy beside it, or an empty ring.
 *
 * @param path          of the log
 * @param kind          of the log; #KORX_LOG_AUTO: found out
 * @param options       null: the defaults
 * @param keep          takes the records
 * @param context       is handed to keep
 * @param[out] repaired what was done
 * @param[out] error    explains a failure; may be null
 * @return see above */
KORX_API korx_reader_code korx_reader_repair(const char* path, korx_log_kind kind,
                                             const korx_reader_options* options,
                                             korx_reader_keep* keep, void* context,
                                             korx_reader_repaired* repaired,
                                             korx_reader_error* error);

/** A place in a log that outlives the reader: what has been seen, told by the records themselves.
 * All zero is the place before everything. */
typedef struct korx_mark {
    /** The last record seen; start log: of each section, else the first of the four. */
    struct {
        uint64_t hash;     /**< of the record's bytes */
        uint64_t end;      /**< offset behind it */
        int64_t time_us;   /**< its stamp */
        uint32_t length;   /**< of its bytes; 0: no record seen yet */
        uint32_t reserved; /**< 0 */
    } last[4];
} korx_mark;

/** The place where the reader stands: behind the last record that next or next_unread returned.
 *
 * @param reader    which
 * @param[out] mark the place */
KORX_API void korx_reader_get_mark(const korx_reader* reader, korx_mark* mark);

/** Goes to the place of a mark taken from an earlier reader of the same log, so that next yields
 * what was written since. 1, also where the marked record was cut or damaged but the records around
 * it, by place and stamp, leave no doubt of where it was; or 0 when it is no longer there: the
 * reader then stands at the oldest record, and there may be a gap before it.
 *
 * @param reader which
 * @param mark   the place
 * @return 1 or 0 */
KORX_API int korx_reader_seek_mark(korx_reader* reader, const korx_mark* mark);

/** What a log looks like. */
typedef struct korx_reader_info {
    korx_log_kind kind; /**< of the log */
    uint32_t laps;      /**< 0 before the first wrap, then 1: how often is not recorded */
    uint64_t size;      /**< of the file */
    uint64_t limit;     /**< usual limit of this kind, or the size of a file that has wrapped */
    uint64_t fill;      /**< bytes that hold log, both laps */
    uint64_t records;   /**< sound and damaged ones */
    uint64_t unread_records; /**< those of them that are unread */
    uint64_t unread_bytes;   /**< their bytes */
    uint64_t clock_set_back; /**< records with #KORX_RECORD_CLOCK_BACK */
    uint64_t damage;         /**< all of it, also what korx_reader_get_damage() no longer lists */
    uint32_t has_head;       /**< 1: log_len, dump_len and total_len are there (rings) */
    uint32_t log_len;        /**< the head as it stands in the file: uiLogLen */
    uint32_t dump_len;       /**< uiDumpLen */
    uint32_t total_len;      /**< uiTotalLen */
    uint32_t has_cursor;     /**< 1: a cursor was found and fits the log */
    /** 1 when at least a lap passed since the last acknowledgement: records that nobody had taken
     * when the log went over them, as far as head and cursor tell. */
    uint32_t gap;
    uint64_t gap_recovered; /**< unread records that the head would have hidden, handed out still */
    /** What was written over. A lower bound, 0 too, wherever #KORX_DOUBT_LOST says so: how many
     * laps have passed nobody writes down. */
    uint64_t gap_bytes;
    uint64_t gap_lost; /**< at least so many records of that; likewise */
    /** Start log: section bounds and cursor, offsets in the file. */
    struct {
        uint32_t start;   /**< first byte */
        uint32_t end;     /**< just past the last */
        uint32_t cursor;  /**< where the next line goes */
        uint32_t wrapped; /**< 1: there are lines behind the cursor */
    } sections[4];
} korx_reader_info;

/** Tells what the log looks like, as it was opened, refreshed or last acknowledged.
 *
 * @param reader    which
 * @param[out] info all of it */
KORX_API void korx_reader_get_info(const korx_reader* reader, korx_reader_info* info);

/** What a reader cannot know about unread records. None of it is damage. */
enum {
    /** The head of a ring looks the same when all was taken as when a whole lap is unread, and no
     * cursor tells which. What it would hide does not count as unread. In the diagnostic ring that
     * may be so at any position, as soon as it has wrapped. */
    KORX_DOUBT_LAP = 1 << 0,
    /** There is a gap, and how many records are lost is unknown: gap_lost and gap_bytes are what is
     * missing at least. */
    KORX_DOUBT_LOST = 1 << 1,
    /** There is a cursor that does not belong to the head of this ring: somebody has acknowledged
     * without it, or the log has begun anew. It is not followed. */
    KORX_DOUBT_CURSOR = 1 << 2,
    /** There is a cursor that this process may not read. It is as if there were none. */
    KORX_DOUBT_CURSOR_FORBIDDEN = 1 << 3
};

/** The KORX_DOUBT_... of a reader, as it was opened or last acknowledged.
 *
 * @param reader which
 * @return KORX_DOUBT_..., 0: none */
KORX_API uint32_t korx_reader_doubts(const korx_reader* reader);

/** What can be wrong. */
typedef enum korx_damage_rule {
    KORX_DAMAGE_HEAD_SHORT = 1,    /**< the file ends inside its head */
    KORX_DAMAGE_HEAD_LENGTH = 2,   /**< a length of the head leads outside the file */
    KORX_DAMAGE_HEAD_ORDER = 3,    /**< the head's lengths contradict each other */
    KORX_DAMAGE_DUMP_POSITION = 4, /**< uiDumpLen is outside the log or inside a record */
    KORX_DAMAGE_HEADER = 5,    /**< start log: header file missing, short, foreign or impossible */
    KORX_DAMAGE_SEPARATOR = 6, /**< start log: the separator before a section is not there */
    KORX_DAMAGE_NOT_A_RECORD = 7, /**< text without stamp or head fields where a record should be */
    KORX_DAMAGE_STAMP = 8,        /**< a record's head with a damaged time stamp before it */
    KORX_DAMAGE_FIELDS = 9,       /**< a time stamp with damaged head fields behind it */
    KORX_DAMAGE_UNTERMINATED = 10, /**< the last record has no line end */
    KORX_DAMAGE_TOO_LONG = 11,     /**< longer than any record: an end is missing */
    KORX_DAMAGE_ZEROS = 12,        /**< NUL bytes inside the log */
    KORX_DAMAGE_CUT = 13,          /**< text log: the end that a record lost when its lap ended */
    KORX_DAMAGE_UNCOMMITTED = 14,  /**< bytes of a record whose writer never finished */
    KORX_DAMAGE_CURSOR = 15        /**< the cursor file is not one; it was ignored */
} korx_damage_rule;

/** One damage. */
typedef struct korx_damage {
    korx_damage_rule rule; /**< what is wrong */
    uint32_t in_header;    /**< 1: offset is in the start log's header file or the cursor */
    uint64_t offset;       /**< in the file */
    uint64_t length;       /**< bytes concerned, may be 0 */
    char text[128];        /**< one sentence without path and offset, and without a line end */
} korx_damage;

/** The damage of this index, counted from 0 in order of discovery. 1, or 0 when there is no more.
 * At most 4096 are listed.
 *
 * @param reader      which
 * @param index       from 0 on, in order of discovery
 * @param[out] damage what is wrong; zero where there is no more
 * @return 1, or 0 when there is no more */
KORX_API int korx_reader_get_damage(const korx_reader* reader, size_t index, korx_damage* damage);

/** The short name of a kind, for people and scripts.
 *
 * @param kind which
 * @return "text", "diag", "security", "life", "start", "process", "space", or "auto" for
 * #KORX_LOG_AUTO, static; null for others */
KORX_API const char* korx_log_kind_name(korx_log_kind kind);
/** The short name of a rule, for people and scripts.
 *
 * @param rule which
 * @return "head-short" and so on, static; null for others */
KORX_API const char* korx_damage_rule_name(korx_damage_rule rule);

/** The kind that a file name stands for, directories ignored; KORX_LOG_AUTO when it is none.
 *
 * @param path a file name, directories ignored
 * @return the kind; #KORX_LOG_AUTO when it is none */
KORX_API korx_log_kind korx_log_kind_of_name(const char* path);

/** @} */

KORX_END_DECLS

#endif
