#include "reader/cursor.h"

#include <errno.h>
#include <fcntl.h>
#include <inttypes.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <iterator>
#include <type_traits>

#include "base/bounded.h"
#include "base/sync_directory.h"
#include "base/text.h"
#include "base/unique.h"
#include "base/write_all.h"
#include "format/kinds.h"

namespace korx {
namespace {

constexpr size_t kFileSize = 1024;  // a cursor is much smaller
constexpr mode_t kCursorMode = 0640;

using CursorText = FixedText<kFileSize>;
using LastText = FixedText<128>;
using TailText = FixedText<2 * kTailSize + 1>;

void FormatTail(const Cursor& cursor, TailText* text) {
    constexpr char kDigits[] = "0123456789abcdef";
    for (uint32_t i = 0; i < cursor.tail_length; ++i) {
        text->data()[2 * i] = kDigits[cursor.tail[i] >> 4];
        text->data()[2 * i + 1] = kDigits[cursor.tail[i] & 15];
    }
}

bool ParseTail(const TailText& text, Cursor* cursor) {
    const size_t length = strlen(text.c_str());
    cursor->tail_length = static_cast<uint32_t>(length / 2);
    for (uint32_t i = 0; i < cursor->tail_length; ++i) {
        unsigned byte = 0;
        if (sscanf_s(text.c_str() + 2 * i, "%2x", &byte) != 1)
            return false;
        cursor->tail[i] = static_cast<unsigned char>(byte);
    }
    return length % 2 == 0;
}

using Last = std::remove_extent_t<decltype(korx_mark::last)>;

bool FormatLast(const Last& last, LastText* text) {
    return text->format("last %016" PRIx64 " %" PRIu64 " %" PRId64 " %" PRIu32 "\n", last.hash,
                        last.end, last.time_us, last.length);
}

// How much of the text it takes; 0: it is not there.
int ParseLast(const char* text, Last* last) {
    int taken = 0;
    const int fields = sscanf_s(text, "last %" SCNx64 " %" SCNu64 " %" SCNd64 " %" SCNu32 "\n%n",
                                &last->hash, &last->end, &last->time_us, &last->length, &taken);
    return fields == 4 ? taken : 0;
}

bool Format(const Cursor& cursor, CursorText* text) {
    LastText last[kSectionCount];
    for (size_t s = 0; s < kSectionCount; ++s) {
        if (!FormatLast(cursor.mark.last[s], &last[s]))
            return false;
    }
    TailText tail;
    FormatTail(cursor, &tail);
    return text->format(
        "korx-cursor 1\nkind %u\nhead %" PRIu32 " %" PRIu32 " %" PRIu32 "\n%s%s%s%stail .%s\n",
        static_cast<unsigned>(cursor.kind), cursor.log_len, cursor.dump_len, cursor.total_len,
        last[0].c_str(), last[1].c_str(), last[2].c_str(), last[3].c_str(), tail.c_str());
}

// A cursor is what Format makes of it and nothing else, so that a damaged one is never followed:
// sscanf takes blanks, signs and zeros that Format never writes.
bool Parse(const char* text, Cursor* cursor) {
    unsigned kind = 0;
    int taken = 0;
    const int fields =
        sscanf_s(text, "korx-cursor 1\nkind %u\nhead %" SCNu32 " %" SCNu32 " %" SCNu32 "\n%n",
                 &kind, &cursor->log_len, &cursor->dump_len, &cursor->total_len, &taken);
    if (fields != 4 || kind >= std::size(kKinds))
        return false;
    cursor->kind = static_cast<korx_log_kind>(kind);
    const char* rest = text + taken;
    for (Last& last : cursor->mark.last) {
        taken = ParseLast(rest, &last);
        if (taken == 0)
            return false;
        rest += taken;
    }
    TailText tail;
    static_assert(2 * kTailSize == 128);
    (void) sscanf_s(rest, "tail .%128[0-9a-f]", tail.data());  // it may be empty
    CursorText again;
    return ParseTail(tail, cursor) && Format(*cursor, &again) && strcmp(again.c_str(), text) == 0;
}

SystemResult WriteNew(const char* path, const CursorText& text) {
    const size_t length = strlen(text.c_str());
    const UniqueFd fd(
        open(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, kCursorMode));
    const bool written = fd &&
                         WriteAll(fd.get(), text.c_str(), length) == static_cast<ssize_t>(length) &&
                         fsync(fd.get()) == 0;
    return written ? SystemResult{} : SystemResult::Failed();
}

SystemResult Rename(const char* from, const char* to) {
    return rename(from, to) == 0 ? SystemResult{} : SystemResult::Failed();
}

}  // namespace

// A cursor that is there but can't be read is damage, like one that is none: who acknowledged what
// is then not known.
CursorState LoadCursor(const char* path, Cursor* cursor) {
    const UniqueFd fd(open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!fd)
        return errno == ENOENT ? CursorState::kNone : CursorState::kDamaged;
    CursorText text;
    const ssize_t got = pread(fd.get(), text.data(), text.capacity() - 1, 0);
    Cursor loaded;
    if (got < 0 || !Parse(text.c_str(), &loaded))
        return CursorState::kDamaged;
    *cursor = loaded;
    return CursorState::kFound;
}

// The number in the temporary name keeps processes apart; within one the log's lock does.
SystemResult StoreCursor(const char* path, const Cursor& cursor) {
    CursorText text;
    FixedText<PATH_MAX> temporary;
    if (!Format(cursor, &text) || !temporary.format("%s.%ld", path, static_cast<long>(getpid())))
        return {ENAMETOOLONG};
    SystemResult result = WriteNew(temporary.c_str(), text);
    if (result.ok())
        result = Rename(temporary.c_str(), path);
    if (result.ok())
        return SyncDirectoryOf(path);
    (void) unlink(temporary.c_str());
    return result;
}

bool SameCursor(const Cursor& a, const Cursor& b) {
    CursorText first;
    CursorText second;
    return Format(a, &first) && Format(b, &second) && strcmp(first.c_str(), second.c_str()) == 0;
}

}  // namespace korx
