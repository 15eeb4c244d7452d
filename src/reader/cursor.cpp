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

#include "base/bounded.h"
#include "base/sync_directory.h"
#include "base/system_result.h"
#include "base/text.h"
#include "base/unique.h"
#include "base/write_all.h"
#include "format/kinds.h"
#include "reader/log_file.h"

namespace korx {
namespace {

constexpr size_t kFileSize = 1024;  // a cursor is much smaller

using CursorText = FixedText<kFileSize>;
using LastText = FixedText<128>;
using TailText = FixedText<2 * kTailSize + 1>;
using TakenText = FixedText<320>;

void FormatTail(const Tail& tail, TailText* text) {
    constexpr char kDigits[] = "0123456789abcdef";
    for (size_t i = 0; i < tail.length; ++i) {
        text->data()[2 * i] = kDigits[tail.bytes[i] >> 4];
        text->data()[2 * i + 1] = kDigits[tail.bytes[i] & 15];
    }
}

// What isn't a tail is noticed where the cursor is formatted again.
void ParseTail(const char* text, Tail* tail) {
    TailText digits;
    static_assert(2 * kTailSize == 128);
    (void) sscanf_s(text, "tail .%128[0-9a-f]", digits.data());  // it may be empty
    tail->length = static_cast<uint32_t>(strlen(digits.c_str()) / 2);
    for (size_t i = 0; i < tail->length; ++i) {
        unsigned byte = 0;
        (void) sscanf_s(digits.c_str() + 2 * i, "%2x", &byte);
        tail->bytes[i] = static_cast<unsigned char>(byte);
    }
}

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

bool FormatBefore(const Cursor& cursor, TakenText* text) {
    if (cursor.form == 1)
        return true;
    const Taken& before = cursor.before;
    LastText last;
    TailText tail;
    FormatTail(before.tail, &tail);
    return FormatLast(before.last, &last) &&
           text->format("before %" PRIu32 "\n%stail .%s\n", before.dump_len, last.c_str(),
                        tail.c_str());
}

bool ParseBefore(const char* text, Taken* before) {
    int taken = 0;
    if (sscanf_s(text, "before %" SCNu32 "\n%n", &before->dump_len, &taken) != 1)
        return false;
    const int last = ParseLast(text + taken, &before->last);
    ParseTail(text + taken + last, &before->tail);
    return last != 0;
}

bool Format(const Cursor& cursor, CursorText* text) {
    LastText last[kSectionCount];
    for (size_t s = 0; s < kSectionCount; ++s) {
        if (!FormatLast(cursor.mark.last[s], &last[s]))
            return false;
    }
    TailText tail;
    FormatTail(cursor.after.tail, &tail);
    TakenText before;
    return FormatBefore(cursor, &before) &&
           text->format("korx-cursor %u\nkind %u\nhead %" PRIu32 " %" PRIu32 " %" PRIu32
                        "\n%s%s%s%stail .%s\n%s",
                        cursor.form, static_cast<unsigned>(cursor.kind), cursor.log_len,
                        cursor.after.dump_len, cursor.total_len, last[0].c_str(), last[1].c_str(),
                        last[2].c_str(), last[3].c_str(), tail.c_str(), before.c_str());
}

// A cursor is what Format makes of it and nothing else, so that a damaged one is never followed:
// sscanf takes blanks, signs and zeros that Format never writes.
bool Parse(const char* text, Cursor* cursor) {
    unsigned kind = 0;
    int taken = 0;
    const int fields =
        sscanf_s(text, "korx-cursor %u\nkind %u\nhead %" SCNu32 " %" SCNu32 " %" SCNu32 "\n%n",
                 &cursor->form, &kind, &cursor->log_len, &cursor->after.dump_len,
                 &cursor->total_len, &taken);
    if (fields != 5 || kind >= std::size(kKinds) || cursor->form < 1 || cursor->form > 2)
        return false;
    cursor->kind = static_cast<korx_log_kind>(kind);
    const char* rest = text + taken;
    for (Last& last : cursor->mark.last) {
        taken = ParseLast(rest, &last);
        if (taken == 0)
            return false;
        rest += taken;
    }
    cursor->after.last = cursor->mark.last[0];
    ParseTail(rest, &cursor->after.tail);
    const char* const end = strchr(rest, '\n');
    CursorText again;
    return end != nullptr && (cursor->form == 1 || ParseBefore(end + 1, &cursor->before)) &&
           Format(*cursor, &again) && strcmp(again.c_str(), text) == 0;
}

// A planted link is not followed: what stands there is removed, and then must not be there.
SystemResult WriteNew(const char* path, int log_fd, const CursorText& text) {
    (void) unlink(path);
    const UniqueFd fd(open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!fd)
        return SystemResult::Failed();
    LikeLog(log_fd, fd.get());
    const size_t length = strlen(text.c_str());
    const bool written = WriteAll(fd.get(), text.c_str(), length) == static_cast<ssize_t>(length) &&
                         fsync(fd.get()) == 0;
    return written ? SystemResult{} : SystemResult::Failed();
}

SystemResult Rename(const char* from, const char* to) {
    return rename(from, to) == 0 ? SystemResult{} : SystemResult::Failed();
}

bool EndsThere(const Last& last, uint32_t dump_len) {
    return last.length != 0 && last.end == uint64_t{kRingHeadSize} + dump_len;
}

}  // namespace

// Where nothing was taken yet there is no record to know.
const Taken* TakenAt(const Cursor& cursor, uint32_t dump_len) {
    const Taken& after = cursor.after;
    const Taken& before = cursor.before;
    if (after.dump_len == dump_len && EndsThere(after.last, dump_len))
        return &after;
    const bool is_before = cursor.form != 1 && before.dump_len == dump_len;
    return is_before && (dump_len == 0 || EndsThere(before.last, dump_len)) ? &before : nullptr;
}

// A cursor that is there but can't be read is damage, like one that is none: who acknowledged what
// is then not known. That this process may not read it is none.
CursorState LoadCursor(const char* path, Cursor* cursor) {
    const UniqueFd fd(open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!fd && errno == ENOENT)
        return CursorState::kNone;
    if (!fd)
        return errno == EACCES || errno == EPERM ? CursorState::kForbidden : CursorState::kDamaged;
    CursorText text;
    const ssize_t got = pread(fd.get(), text.data(), text.capacity() - 1, 0);
    Cursor loaded;
    if (got < 0 || !Parse(text.c_str(), &loaded))
        return CursorState::kDamaged;
    *cursor = loaded;
    return CursorState::kFound;
}

StoreResult StoreCursor(const char* path, int log_fd, const Cursor& cursor) {
    CursorText text;
    FixedText<PATH_MAX> temporary;
    if (!Format(cursor, &text) || !temporary.format("%s.new", path))
        return {Stored::kNot, ENAMETOOLONG};
    SystemResult result = WriteNew(temporary.c_str(), log_fd, text);
    if (result.ok())
        result = Rename(temporary.c_str(), path);
    if (!result.ok()) {
        (void) unlink(temporary.c_str());
        return {Stored::kNot, result.error};
    }
    result = SyncDirectoryOf(path);
    return {result.ok() ? Stored::kKept : Stored::kUnsure, result.error};
}

bool SameCursor(const Cursor& a, const Cursor& b) {
    CursorText first;
    CursorText second;
    return Format(a, &first) && Format(b, &second) && strcmp(first.c_str(), second.c_str()) == 0;
}

}  // namespace korx
