#include "record_print.h"

#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>

#include "common.h"
#include "text.h"

namespace korx::tool {
namespace {

constexpr std::string_view kForms[] = {"short", "cat", "json"};
constexpr std::string_view kSeverities[] = {"debug", "info", "warning", "error", "fatal"};
constexpr std::string_view kHumanLevels[] = {"DEBUG  ", "INFO   ", "WARNING", "ERROR  ", "FATAL  "};
constexpr std::string_view kDim = "\033[2m";
constexpr std::string_view kErrorColor = "\033[31m";
constexpr std::string_view kLevelColors[] = {kDim, "", "\033[33m", kErrorColor, "\033[1;31m"};
constexpr std::string_view kReset = "\033[0m";

template <size_t N>
std::string Listed(const std::string_view (&words)[N]) {
    std::string list;
    for (const std::string_view word : words) {
        list += list.empty() ? "" : ", ";
        list += word;
    }
    return list;
}

bool Has(const korx_record& record, uint32_t field) {
    return (record.fields & field) != 0;
}

bool IsDamaged(const korx_record& record) {
    return (record.flags & KORX_RECORD_DAMAGED) != 0;
}

std::string_view View(const char* text, size_t length) {
    return text == nullptr ? std::string_view() : std::string_view(text, length);
}

// The fields of a record's object, in their order. A field's number is its bit in Style::fields.
enum Key : uint32_t {
    kTime,
    kSeverity,
    kKind,
    kFile,
    kId,
    kIndex,
    kAppCid,
    kLocation,
    kM,
    kValue,
    kSection,
    kProcess,
    kMount,
    kPid,
    kModule,
    kMessage,
    kDamaged,
    kOffset,
};
constexpr std::string_view kKeys[] = {
    "time",  "severity", "kind",    "file",  "id",  "index",  "app_cid", "location", "m",
    "value", "section",  "process", "mount", "pid", "module", "message", "damaged",  "offset",
};
static_assert(std::size(kKeys) == kOffset + 1);

Key NameKey(korx_log_kind kind) {
    return kind == KORX_LOG_START ? kSection : kind == KORX_LOG_PROCESS ? kProcess : kMount;
}

// An object of the wanted fields while it grows.
class JsonRecord {
  public:
    JsonRecord(std::string& out, uint32_t fields) : out_(out), fields_(fields) { out_ += '{'; }

    // Whether the field is wanted; its name stands there then.
    bool begin(Key key) {
        if ((fields_ & 1u << key) == 0)
            return false;
        out_ += is_first_ ? "\"" : ",\"";
        is_first_ = false;
        out_ += kKeys[key];
        out_ += "\":";
        return true;
    }
    void text(Key key, std::string_view value) {
        if (begin(key))
            AppendJsonString(out_, value);
    }
    void number(Key key, uint64_t value) {
        if (begin(key))
            AppendNumber(out_, value);
    }
    void end() { out_ += "}\n"; }

  private:
    std::string& out_;
    const uint32_t fields_;
    bool is_first_ = true;
};

void AppendId(std::string& out, JsonRecord& object, const korx_reader* reader,
              const korx_record& record, const std::string& board) {
    if (!object.begin(kId))
        return;
    char id[KORX_RECORD_ID_SIZE];
    (void) korx_reader_record_id(reader, &record, id, sizeof id);
    AppendJsonString(out, board + ":" + id);
}

void AppendJsonNumbers(JsonRecord& object, const korx_record& record) {
    const struct {
        Key key;
        uint32_t field;
        uint32_t value;
    } numbers[] = {{kIndex, KORX_FIELD_INDEX, record.index},
                   {kAppCid, KORX_FIELD_APP_CID, record.app_cid},
                   {kLocation, KORX_FIELD_LOCATION, record.location},
                   {kM, KORX_FIELD_M_VALUE, record.m_value},
                   {kValue, KORX_FIELD_VALUE, record.value}};
    for (const auto& number : numbers)
        if (Has(record, number.field))
            object.number(number.key, number.value);
}

// The message, or all that there is of a record without one.
std::string_view MessageOf(const korx_record& record) {
    return Has(record, KORX_FIELD_MESSAGE) ? View(record.message, record.message_length)
                                           : View(record.text, record.length);
}

void AppendJson(std::string& out, const korx_reader* reader, const korx_record& record,
                std::string_view file, const Style& style) {
    JsonRecord object(out, style.fields);
    if (Has(record, KORX_FIELD_TIME) && object.begin(kTime)) {
        out += '"';
        AppendTime(out, record.time, style.utc ? 0 : record.utc_offset, TimeForm::kRfc3339);
        out += '"';
    }
    if (Has(record, KORX_FIELD_LEVEL))
        object.text(kSeverity, SeverityName(record.level));
    object.text(kKind, korx_log_kind_name(record.kind));
    object.text(kFile, file);
    AppendId(out, object, reader, record, style.board);
    AppendJsonNumbers(object, record);
    if (Has(record, KORX_FIELD_NAME))
        object.text(NameKey(record.kind), View(record.name, record.name_length));
    if (Has(record, KORX_FIELD_PID) && object.begin(kPid))
        out += std::to_string(record.pid);
    if (Has(record, KORX_FIELD_MODULE))
        object.number(kModule, record.module);
    if (Has(record, KORX_FIELD_MESSAGE) || IsDamaged(record))
        object.text(kMessage, MessageOf(record));
    if (IsDamaged(record)) {
        if (object.begin(kDamaged))
            out += "true";
        object.number(kOffset, record.offset);
    }
    object.end();
}

void AppendName(std::string& out, const korx_record& record, size_t width) {
    const size_t before = out.size();
    AppendPlain(out, View(record.name, record.name_length), 0);
    const size_t length = out.size() - before;
    out.append(width > length ? width - length : 0, ' ');
}

// The fields between level and message, in columns.
void AppendFields(std::string& out, const korx_record& record) {
    switch (record.kind) {
        case KORX_LOG_TEXT:
            out += " pid ";
            out += std::to_string(record.pid);
            out += " module ";
            AppendNumber(out, record.module);
            return;
        case KORX_LOG_START:
            out += ' ';
            AppendName(out, record, 5);
            break;
        case KORX_LOG_PROCESS:
            out += ' ';
            AppendName(out, record, 10);
            break;
        case KORX_LOG_SPACE:
            out += ' ';
            AppendPadded(out, record.value, 3);
            out += "% ";
            AppendName(out, record, 0);
            return;
        default:
            out += " 0x";
            AppendHex8(out, record.index);
            out += " cid ";
            AppendPadded(out, record.app_cid, 3);
    }
    out += " L ";
    AppendPadded(out, record.location, 3);
    if (Has(record, KORX_FIELD_M_VALUE)) {
        out += " M ";
        AppendPadded(out, record.m_value, 3);
    }
    out += " value ";
    AppendPadded(out, record.value, 3);
}

// A line while it grows. It knows its column, in which the further lines of a message begin, too.
class Line {
  public:
    Line(std::string& text, const Style& style) : text_(text), style_(style), start_(text.size()) {}

    void color(std::string_view code) {
        if (!style_.color)
            return;
        text_ += code;
        invisible_ += code.size();
    }
    size_t column() const { return text_.size() - start_ - invisible_; }

  private:
    std::string& text_;
    const Style& style_;
    const size_t start_;
    size_t invisible_ = 0;
};

void AppendFile(std::string& out, Line& line, std::string_view file) {
    constexpr size_t kWidth = 17;
    line.color(kDim);
    out += file;
    out.append(file.size() < kWidth ? kWidth - file.size() : 0, ' ');
    line.color(kReset);
    out += ' ';
}

void AppendLevel(std::string& out, Line& line, uint32_t level) {
    level = std::min<uint32_t>(level, std::size(kHumanLevels) - 1);
    out += ' ';
    line.color(kLevelColors[level]);
    out += kHumanLevels[level];
    if (!kLevelColors[level].empty())
        line.color(kReset);
}

// What has no time is no record at all, only some text between them.
void AppendForeignText(std::string& out, Line& line, const korx_record& record) {
    line.color(kErrorColor);
    out += "damaged text at offset ";
    AppendNumber(out, record.offset);
    line.color(kReset);
    out += ": ";
    AppendPlain(out, View(record.text, record.length), line.column());
}

void AppendWholeRecord(std::string& out, Line& line, const korx_record& record,
                       const Style& style) {
    line.color(kDim);
    AppendTime(out, record.time, style.utc ? 0 : record.utc_offset, TimeForm::kHuman);
    if (style.utc)
        out += 'Z';
    line.color(kReset);
    if (Has(record, KORX_FIELD_LEVEL))
        AppendLevel(out, line, record.level);
    AppendFields(out, record);
    if (Has(record, KORX_FIELD_MESSAGE)) {
        out += "  ";
        AppendPlain(out, View(record.message, record.message_length), line.column());
    }
    if (IsDamaged(record)) {
        out += "  ";
        line.color(kErrorColor);
        out += "[damaged, offset ";
        AppendNumber(out, record.offset);
        out += ']';
        line.color(kReset);
    }
}

void AppendHuman(std::string& out, const korx_record& record, std::string_view file,
                 const Style& style) {
    Line line(out, style);
    if (style.with_file)
        AppendFile(out, line, file);
    if (Has(record, KORX_FIELD_TIME))
        AppendWholeRecord(out, line, record, style);
    else
        AppendForeignText(out, line, record);
    out += '\n';
}

}  // namespace

std::string_view SeverityName(uint32_t level) {
    return kSeverities[std::min<size_t>(level, std::size(kSeverities) - 1)];
}

Form FormOfWord(const std::string& word) {
    for (size_t i = 0; i < std::size(kForms); ++i)
        if (word == kForms[i])
            return static_cast<Form>(i);
    throw Failure{kUsage, "--output: '" + word + "' is none of " + Listed(kForms)};
}

uint32_t FieldsOfList(const std::string& list) {
    uint32_t fields = 0;
    for (size_t begin = 0; begin <= list.size();) {
        const size_t end = std::min(list.find(',', begin), list.size());
        const std::string name = list.substr(begin, end - begin);
        const auto* const key = std::find(std::begin(kKeys), std::end(kKeys), name);
        if (key == std::end(kKeys))
            throw Failure{kUsage, "--output-fields: '" + name + "' is none of " + Listed(kKeys)};
        fields |= 1u << (key - kKeys);
        begin = end + 1;
    }
    return fields;
}

std::string BoardName(const Globals& globals) {
    if (!globals.board.empty())
        return globals.board;
    const char* const board = getenv("KORX_BOARD");
    if (board != nullptr && board[0] != '\0')
        return board;
    char host[HOST_NAME_MAX + 1] = {};
    (void) gethostname(host, sizeof host - 1);
    return host;
}

void AppendRecord(std::string& out, const korx_reader* reader, const korx_record& record,
                  std::string_view file, const Style& style) {
    switch (style.form) {
        case Form::kShort:
            return AppendHuman(out, record, file, style);
        case Form::kCat:
            AppendPlain(out, MessageOf(record), 0);
            out += '\n';
            return;
        case Form::kJson:
            return AppendJson(out, reader, record, file, style);
    }
}

void AppendGap(std::string& out, const korx_reader_info& info, bool lost_is_known,
               std::string_view file) {
    out += "{\"time\":\"";
    out += NowRfc3339();
    out += "\",\"severity\":\"warning\",\"kind\":\"";
    out += korx_log_kind_name(info.kind);
    out += "\",\"file\":";
    AppendJsonString(out, file);
    out += ",\"gap\":true,\"lost\":";
    if (lost_is_known)
        AppendNumber(out, info.gap_lost);
    else
        out += "null";
    out += ",\"lost_bytes\":";
    if (lost_is_known)
        AppendNumber(out, info.gap_bytes);
    else
        out += "null";
    out += ",\"recovered\":";
    AppendNumber(out, info.gap_recovered);
    out += ",\"message\":\"records were written over before anybody took them\"}\n";
}

}  // namespace korx::tool
