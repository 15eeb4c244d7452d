#include "record_print.h"

#include <algorithm>
#include <iterator>

#include "text.h"

namespace korx::tool {
namespace {

constexpr std::string_view kSeverities[] = {"debug", "info", "warning", "error", "fatal"};
constexpr std::string_view kHumanLevels[] = {"DEBUG  ", "INFO   ", "WARNING", "ERROR  ", "FATAL  "};
constexpr std::string_view kDim = "\033[2m";
constexpr std::string_view kErrorColor = "\033[31m";
constexpr std::string_view kLevelColors[] = {kDim, "", "\033[33m", kErrorColor, "\033[1;31m"};
constexpr std::string_view kReset = "\033[0m";

bool Has(const korx_record& record, uint32_t field) {
    return (record.fields & field) != 0;
}

bool IsDamaged(const korx_record& record) {
    return (record.flags & KORX_RECORD_DAMAGED) != 0;
}

std::string_view View(const char* text, size_t length) {
    return text == nullptr ? std::string_view() : std::string_view(text, length);
}

const char* NameField(korx_log_kind kind) {
    return kind == KORX_LOG_START     ? ",\"section\":"
           : kind == KORX_LOG_PROCESS ? ",\"process\":"
                                      : ",\"mount\":";
}

void AppendJsonNumber(std::string& out, const korx_record& record, uint32_t field,
                      std::string_view name, uint64_t value) {
    if (!Has(record, field))
        return;
    out += name;
    AppendNumber(out, value);
}

void AppendJsonTimeAndLevel(std::string& out, const korx_record& record) {
    if (Has(record, KORX_FIELD_TIME)) {
        out += "\"time\":\"";
        AppendTime(out, record.time, record.utc_offset, TimeForm::kRfc3339);
        out += "\",";
    }
    if (Has(record, KORX_FIELD_LEVEL)) {
        out += "\"severity\":\"";
        out += SeverityName(record.level);
        out += "\",";
    }
}

void AppendJsonMessage(std::string& out, const korx_record& record) {
    if (Has(record, KORX_FIELD_MESSAGE)) {
        out += ",\"message\":";
        AppendJsonString(out, View(record.message, record.message_length));
    } else if (IsDamaged(record)) {
        out += ",\"message\":";
        AppendJsonString(out, View(record.text, record.length));
    }
    if (IsDamaged(record)) {
        out += ",\"damaged\":true,\"offset\":";
        AppendNumber(out, record.offset);
    }
}

void AppendJson(std::string& out, const korx_record& record, std::string_view file) {
    out += '{';
    AppendJsonTimeAndLevel(out, record);
    out += "\"kind\":\"";
    out += korx_log_kind_name(record.kind);
    out += "\",\"file\":";
    AppendJsonString(out, file);
    AppendJsonNumber(out, record, KORX_FIELD_INDEX, ",\"index\":", record.index);
    AppendJsonNumber(out, record, KORX_FIELD_APP_CID, ",\"app_cid\":", record.app_cid);
    AppendJsonNumber(out, record, KORX_FIELD_LOCATION, ",\"location\":", record.location);
    AppendJsonNumber(out, record, KORX_FIELD_M_VALUE, ",\"m\":", record.m_value);
    AppendJsonNumber(out, record, KORX_FIELD_VALUE, ",\"value\":", record.value);
    if (Has(record, KORX_FIELD_NAME)) {
        out += NameField(record.kind);
        AppendJsonString(out, View(record.name, record.name_length));
    }
    if (Has(record, KORX_FIELD_PID)) {
        out += ",\"pid\":";
        out += std::to_string(record.pid);
    }
    AppendJsonNumber(out, record, KORX_FIELD_MODULE, ",\"module\":", record.module);
    AppendJsonMessage(out, record);
    out += "}\n";
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

void AppendWholeRecord(std::string& out, Line& line, const korx_record& record) {
    line.color(kDim);
    AppendTime(out, record.time, record.utc_offset, TimeForm::kHuman);
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
        AppendWholeRecord(out, line, record);
    else
        AppendForeignText(out, line, record);
    out += '\n';
}

}  // namespace

std::string_view SeverityName(uint32_t level) {
    return kSeverities[std::min<size_t>(level, std::size(kSeverities) - 1)];
}

void AppendRecord(std::string& out, const korx_record& record, std::string_view file,
                  const Style& style) {
    if (style.json)
        AppendJson(out, record, file);
    else
        AppendHuman(out, record, file, style);
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
