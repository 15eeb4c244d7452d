#include "reader/record.h"

#include <string.h>

#include <algorithm>

namespace korx {
namespace {

constexpr size_t kHeadRoom = 128;  // where the pieces of a damaged head are looked for

// Reads a head piece by piece. Once a piece is not there everything after it fails as well.
class Pieces {
  public:
    Pieces(const char* text, size_t length) : at_(text), end_(text + length) {}

    bool ok() const { return ok_; }
    const char* at() const { return at_; }

    Pieces& literal(const char* wanted) {
        const size_t length = strlen(wanted);
        if (!ok_ || left() < length || memcmp(at_, wanted, length) != 0)
            return fail();
        at_ += length;
        return *this;
    }
    // As %u prints it.
    Pieces& number(uint32_t* value) { return digits(10, value); }
    Pieces& signed_number(int32_t* value) {
        const bool negative = ok_ && left() > 0 && *at_ == '-';
        at_ += negative ? 1 : 0;
        uint32_t magnitude = 0;
        digits(10, &magnitude);
        *value = static_cast<int32_t>(negative ? 0 - magnitude : magnitude);
        return *this;
    }
    // As %#x prints it.
    Pieces& alternate_hex(uint32_t* value) {
        if (!ok_ || left() < 1)
            return fail();
        if (left() < 2 || at_[0] != '0' || at_[1] != 'x')
            return digits(1, value);  // nothing but a single 0
        at_ += 2;
        return digits(16, value);
    }
    template <size_t N>
    Pieces& one_of(const char* const (&words)[N], const char* tail, uint32_t* which) {
        for (size_t i = 0; ok_ && i < N; ++i) {
            Pieces attempt = *this;
            if (attempt.literal(words[i]).literal(tail).ok()) {
                *which = static_cast<uint32_t>(i);
                return *this = attempt;
            }
        }
        return fail();
    }

  private:
    size_t left() const { return static_cast<size_t>(end_ - at_); }
    Pieces& fail() {
        ok_ = false;
        return *this;
    }
    static uint32_t DigitValue(char c) {
        if (c >= '0' && c <= '9')
            return static_cast<uint32_t>(c - '0');
        return c >= 'a' && c <= 'f' ? static_cast<uint32_t>(c - 'a') + 10 : UINT32_MAX;
    }
    Pieces& digits(uint32_t base, uint32_t* value) {
        const char* const first = at_;
        uint64_t sum = 0;
        while (ok_ && at_ < end_ && DigitValue(*at_) < base && sum <= UINT32_MAX)
            sum = sum * base + DigitValue(*at_++);
        const auto count = at_ - first;
        const bool leading_zero = count > 1 && *first == '0';
        if (!ok_ || count == 0 || leading_zero || sum > UINT32_MAX)
            return fail();
        *value = static_cast<uint32_t>(sum);
        return *this;
    }

    const char* at_;
    const char* end_;
    bool ok_ = true;
};

bool SetLevel(RecordHead* head, const char* const* names, uint32_t level, uint32_t fields,
              const Pieces& pieces) {
    if (!pieces.ok())
        return false;
    head->level = level;
    head->level_name = names[level];
    head->message = pieces.at();
    head->fields |= fields | KORX_FIELD_LEVEL | KORX_FIELD_MESSAGE;
    return true;
}

bool ParseRing(Pieces pieces, RecordHead* head) {
    uint32_t level = 0;
    pieces.literal("[Index:").alternate_hex(&head->index);
    pieces.literal("][AppCid:")
        .number(&head->app_cid)
        .literal("][")
        .one_of(kRecordLevels, "", &level);
    pieces.literal("][L:").number(&head->location).literal(" M:").number(&head->m_value);
    pieces.literal("][").number(&head->value).literal("]");
    return SetLevel(head, kRecordLevels, level,
                    KORX_FIELD_INDEX | KORX_FIELD_APP_CID | KORX_FIELD_LOCATION |
                        KORX_FIELD_M_VALUE | KORX_FIELD_VALUE,
                    pieces);
}

bool ParseProcess(const Pieces& start, RecordHead* head) {
    constexpr uint32_t kFields = KORX_FIELD_LOCATION | KORX_FIELD_M_VALUE | KORX_FIELD_VALUE;
    uint32_t level = 0;
    Pieces own = start;
    own.literal("[").one_of(kRecordLevels, "][L:", &level).number(&head->location);
    own.literal(" M:").number(&head->m_value).literal("][").number(&head->value).literal("]");
    if (SetLevel(head, kRecordLevels, level, kFields, own))
        return true;

    Pieces named = start;  // written under a process's name by another one
    named.literal("[L:").number(&head->location).literal(" M:").number(&head->m_value);
    named.literal("][").one_of(kRecordLevels, "][", &level).number(&head->value).literal("]");
    return SetLevel(head, kRecordLevels, level, kFields, named);
}

bool ParseStart(Pieces pieces, RecordHead* head) {
    uint32_t level = 0;
    uint32_t module = 0;
    pieces.literal("[").one_of(kRecordLevels, "][L:", &level).number(&head->location).literal(" ");
    pieces.one_of(kModules, "][", &module).number(&head->value).literal("]");
    head->name = kModules[module];
    head->name_length = strlen(kModules[module]);
    return SetLevel(head, kRecordLevels, level,
                    KORX_FIELD_LOCATION | KORX_FIELD_VALUE | KORX_FIELD_NAME, pieces);
}

bool ParseText(Pieces pieces, RecordHead* head) {
    uint32_t level = 0;
    pieces.literal(" [ProcID:").signed_number(&head->pid).literal("|").number(&head->module);
    pieces.literal("|").one_of(kTextLevels, "] : ", &level);
    return SetLevel(head, kTextLevels, level, KORX_FIELD_PID | KORX_FIELD_MODULE, pieces);
}

// The value at the end of a body, right-aligned.
bool ParseValueField(const char* field, uint32_t* value) {
    size_t blanks = 0;
    while (blanks < kSpaceValueField && field[blanks] == ' ')
        ++blanks;
    Pieces pieces(field + blanks, kSpaceValueField - blanks);
    return pieces.number(value).ok() && pieces.at() == field + kSpaceValueField;
}

// A name may hold line ends, the end of the record is the first CR LF behind a value.
bool ParseSpace(const char* text, size_t length, size_t stamp, RecordHead* head) {
    const char* const body = text + stamp;
    const char* const end = text + std::min<size_t>(length, kMaxSpaceRecord);
    const char* from = body;
    while (from < end) {
        const auto* const line_end =
            static_cast<const char*>(memchr(from, '\n', static_cast<size_t>(end - from)));
        if (line_end == nullptr)
            return false;
        from = line_end + 1;
        const auto size = static_cast<size_t>(line_end - body);
        if (size < kSpaceNameField + kSpaceValueField + 1 || line_end[-1] != '\r')
            continue;
        const char* const field = line_end - 1 - kSpaceValueField;
        if (!ParseValueField(field, &head->value))
            continue;
        head->name = body;
        head->name_length = static_cast<size_t>(field - body);
        while (head->name_length > 0 && field - body == kSpaceNameField && *head->name == ' ') {
            ++head->name;
            --head->name_length;
        }
        head->fields |= KORX_FIELD_NAME | KORX_FIELD_VALUE;
        head->extent = static_cast<size_t>(from - text);
        return true;
    }
    return false;
}

bool ParseFields(korx_log_kind kind, const char* text, size_t length, size_t stamp,
                 RecordHead* head) {
    const Pieces pieces(text + stamp, length - stamp);
    switch (kind) {
        case KORX_LOG_TEXT:
            return ParseText(pieces, head);
        case KORX_LOG_START:
            return ParseStart(pieces, head);
        case KORX_LOG_PROCESS:
            return ParseProcess(pieces, head);
        case KORX_LOG_SPACE:
            return ParseSpace(text, length, stamp, head);
        default:
            return ParseRing(pieces, head);
    }
}

// How many of the head's fixed pieces are missing.
template <size_t N>
size_t CountMissing(const char* const (&wanted)[N], const char* text, size_t length) {
    return static_cast<size_t>(std::count_if(wanted, wanted + N, [&](const char* piece) {
        return memmem(text, length, piece, strlen(piece)) == nullptr;
    }));
}

bool ResemblesFields(korx_log_kind kind, const char* text, size_t length) {
    constexpr const char* kRing[] = {"[Index:", "][AppCid:", "][L:", " M:"};
    constexpr const char* kProcess[] = {"[L:", " M:", "]["};
    constexpr const char* kStart[] = {"][L:", "]["};
    constexpr const char* kText[] = {" [ProcID:", "] : "};
    const auto* const line_end = static_cast<const char*>(memchr(text, '\n', length));
    if (line_end == nullptr && length < kHeadRoom)
        return true;  // the log ends inside the head
    if (line_end != nullptr)
        length = static_cast<size_t>(line_end - text);
    length = std::min(length, kHeadRoom);
    switch (kind) {
        case KORX_LOG_TEXT:
            return CountMissing(kText, text, length) <= 1;
        case KORX_LOG_START:
            return CountMissing(kStart, text, length) <= 1;
        case KORX_LOG_PROCESS:
            return CountMissing(kProcess, text, length) <= 1;
        case KORX_LOG_SPACE:
            return true;
        default:
            return CountMissing(kRing, text, length) <= 1;
    }
}

}  // namespace

bool ParseHead(korx_log_kind kind, const char* text, size_t length, RecordHead* head) {
    if (length == 0 || text[0] != '[')
        return false;
    const size_t stamp = ParseStamp(KindOf(kind).stamp, text, length, &head->time);
    if (stamp == 0)
        return false;
    head->fields = KORX_FIELD_TIME;
    head->extent = 0;
    return ParseFields(kind, text, length, stamp, head);
}

korx_damage_rule ResemblesHead(korx_log_kind kind, const char* text, size_t length) {
    const StampStyle style = KindOf(kind).stamp;
    RecordHead head = {};
    if (const size_t stamp = ParseStamp(style, text, length, &head.time); stamp != 0) {
        const bool alike = ResemblesFields(kind, text + stamp, length - stamp);
        return alike ? KORX_DAMAGE_FIELDS : KORX_DAMAGE_NOT_A_RECORD;
    }
    if (!ResemblesStamp(style, text, length))
        return KORX_DAMAGE_NOT_A_RECORD;
    return ParseFields(kind, text, length, ShapeOf(style).length, &head) ? KORX_DAMAGE_STAMP
                                                                         : KORX_DAMAGE_NOT_A_RECORD;
}

}  // namespace korx
