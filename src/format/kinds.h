// Every kind of log: one row each. What the logs are called, how big they get and how their writers
// exclude each other stands here and nowhere else; writers, reader and tool look it up.
//
// To add a kind: its number in korx_log_kind, its row here, and a file in src/plog/ that writes it.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <iterator>

#include "format/record.h"
#include "format/ring.h"
#include "format/space.h"
#include "format/stamp.h"
#include "format/start.h"
#include "korx/reader.h"

namespace korx {

// How the bytes of a log are laid out.
enum class Shape {
    kUnknown,
    kText,     // a count of text bytes, then lines; starts again behind the count
    kRing,     // a head with the ends of the laps, then records
    kStart,    // four sections side by side, their cursors in a file of their own
    kPlain,    // records only; starts again at the beginning, and nothing says where the lap ends
    kReserve,  // records in a file that was filled with blanks beforehand
};

// What the writers of a log hold while they change it.
enum class LogLockKind { kNone, kFlock, kRecord };

// The component's processes; the row is the component number and the process's log slot.
inline constexpr const char* kComponents[] = {"QTMON", "zelk_agent", "ZELK_QR9T", "zelk", "DXN"};
inline constexpr size_t kComponentCount = std::size(kComponents);
static_assert(kComponentCount == ORX_PLOG_COMP_COUNT);

inline constexpr char kAgentLogFile[] = "orx_agent.log";
inline constexpr char kAppLogFile[] = "orx_app.log";
inline constexpr char kDiagLogFile[] = "KORX_DIAG_LOG";
inline constexpr char kSecurityLogFile[] = "korx_safe.log";
inline constexpr char kLifeLogFile[] = "korx_life.log";
inline constexpr char kStartLogFile[] = "KORX_START_LOG";
inline constexpr char kStartHeaderFile[] = ".korxloghdr";  // the start log's cursors
inline constexpr char kSpaceLogFile[] = "orx_spacefull.log";

inline constexpr const char* kTextFiles[] = {kAgentLogFile, kAppLogFile};
inline constexpr const char* kDiagFiles[] = {kDiagLogFile};
inline constexpr const char* kSecurityFiles[] = {kSecurityLogFile};
inline constexpr const char* kLifeFiles[] = {kLifeLogFile};
inline constexpr const char* kStartFiles[] = {kStartLogFile};
inline constexpr const char* kSpaceFiles[] = {kSpaceLogFile};

// The end of a process log's name, behind the name of its process.
inline constexpr char kProcessSuffix[] = ".log";

// A list of names that stands somewhere for good.
struct Names {
    const char* const* first = nullptr;
    size_t count = 0;

    constexpr Names() = default;
    template <size_t N>
    constexpr Names(const char* const (&names)[N]) : first(names), count(N) {}

    constexpr const char* const* begin() const { return first; }
    constexpr const char* const* end() const { return first + count; }
    constexpr const char* operator[](size_t index) const { return first[index]; }
};

struct LogKind {
    korx_log_kind kind;
    const char* name;  // for people and scripts
    Shape shape;
    StampStyle stamp;
    LogLockKind lock;
    Unread unread;
    uint32_t head;            // bytes before the log's text
    uint32_t limit;           // usual size of the file in bytes; 0: none
    uint32_t longest_record;  // with its line end
    Names files;              // in the log directory, each with the suffix behind it
    const char* suffix;
};

inline constexpr LogKind kKinds[] = {
    {KORX_LOG_AUTO,
     "auto",
     Shape::kUnknown,
     StampStyle::kDashed,
     LogLockKind::kNone,
     Unread::kOverwritten,
     0,
     0,
     kMaxRecord,
     {},
     ""},
    {KORX_LOG_TEXT, "text", Shape::kText, StampStyle::kShort, LogLockKind::kFlock,
     Unread::kOverwritten, kTextHeadSize, 0x80000, kMaxTextLine, kTextFiles, ""},
    {KORX_LOG_DIAG, "diag", Shape::kRing, StampStyle::kDashed, LogLockKind::kRecord,
     Unread::kOverwritten, kRingHeadSize, 262144, kMaxRecord, kDiagFiles, ""},
    {KORX_LOG_SECURITY, "security", Shape::kRing, StampStyle::kDashed, LogLockKind::kRecord,
     Unread::kProtected, kRingHeadSize, 131072, kMaxRecord, kSecurityFiles, ""},
    {KORX_LOG_LIFE, "life", Shape::kRing, StampStyle::kDashed, LogLockKind::kRecord,
     Unread::kProtected, kRingHeadSize, 262144, kMaxRecord, kLifeFiles, ""},
    {KORX_LOG_START, "start", Shape::kStart, StampStyle::kDashed, LogLockKind::kRecord,
     Unread::kOverwritten, 0, kStartFileEnd, kMaxRecord, kStartFiles, ""},
    {KORX_LOG_PROCESS, "process", Shape::kPlain, StampStyle::kDashed, LogLockKind::kRecord,
     Unread::kOverwritten, 0, 262144, kMaxRecord, kComponents, kProcessSuffix},
    {KORX_LOG_SPACE, "space", Shape::kReserve, StampStyle::kCompact, LogLockKind::kNone,
     Unread::kOverwritten, 0, kSpaceReserve, kMaxSpaceRecord, kSpaceFiles, ""},
};

constexpr bool KindsStandAtTheirNumbers() {
    for (size_t i = 0; i < std::size(kKinds); ++i) {
        if (static_cast<size_t>(kKinds[i].kind) != i)
            return false;
    }
    return true;
}
static_assert(KindsStandAtTheirNumbers());

constexpr bool IsKind(korx_log_kind kind) {
    return kind >= 0 && static_cast<size_t>(kind) < std::size(kKinds);
}

// The row of a kind that there is.
constexpr const LogKind& KindOf(korx_log_kind kind) {
    return kKinds[kind];
}

constexpr bool IsRing(korx_log_kind kind) {
    return KindOf(kind).shape == Shape::kRing;
}

// By what the head of a ring of this kind is judged. A file without a head is one that is new.
constexpr RingBounds BoundsOf(const LogKind& kind, uint64_t file_size) {
    return {.room = file_size < kRingHeadSize ? 0 : file_size - kRingHeadSize,
            .longest = kind.longest_record,
            .unread = kind.unread};
}

// Whether a file of this name, directories left out, is the log of that row and file.
inline bool IsLogFile(const LogKind& kind, const char* file, const char* name) {
    const size_t length = strlen(file);
    return strncmp(name, file, length) == 0 && strcmp(name + length, kind.suffix) == 0;
}

}  // namespace korx
