#include "record_print.h"

#include <algorithm>
#include <iterator>

#include "text.h"

namespace korx::tool {
namespace {

constexpr std::string_view kSeverities[] = {"debug", "info", "warning", "error", "fatal"};
constexpr std::string_view kHumanLevels[] = {"DEBUG  ", "INFO   ", "WARNING", "ERROR  ", "FATAL  "};
constexpr std::string_view kLevelColors[] = {"\033[2m", "", "\033[33m", "\033[31m", "\033[1;31m"};
constexpr std::string_view kDim = "\033[2m";
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

void AppendJson(std::string& out, const korx_record& record, std::string_view file) {
    const auto number = [&](uint32_t field, std::string_view name, uint64_t value) {
        if (Has(record, field)) {
            out += name;
            AppendNumber(out, value);
        }
    };
    out += '{';
    if (Has(record, KORX_FIELD_TIME)) {
        out += "\"time\":\"";
        AppendTime(out, record.time, record.utc_offset, true);
        out += "\",";
    }
    if (Has(record, KORX_FIELD_LEVEL)) {
        out += "\"severity\":\"";
        out += SeverityName(record.level);
        out += "\",";
    }
    out += "\"kind\":\"";
    out += korx_log_kind_name(record.kind);
    out += "\",\"file\":";
    AppendJsonString(out, file);
    number(KORX_FIELD_INDEX, ",\"index\":", record.index);
    number(KORX_FIELD_APP_CID, ",\"app_cid\":", record.app_cid);
    number(KORX_FIELD_LOCATION, ",\"location\":", record.location);
    number(KORX_FIELD_M_VALUE, ",\"m\":", record.m_value);
    number(KORX_FIELD_VALUE, ",\"value\":", record.value);
    if (Has(record, KORX_FIELD_NAME)) {
        out += NameField(record.kind);
        AppendJsonString(out, View(record.name, record.name_length));
    }
    if (Has(record, KORX_FIELD_PID)) {
        out += ",\"pid\":";
        out += std::to_string(record.pid);
    }
    number(KORX_FIELD_MODULE, ",\"module\":", record.module);
    const bool damaged = IsDamaged(record);
    if (Has(record, KORX_FIELD_MESSAGE) || damaged) {
        out += ",\"message\":";
        AppendJsonString(out, Has(record, KORX_FIELD_MESSAGE)
                                  ? View(record.message, record.message_length)
                                  : View(record.text, record.length));
    }
    if (damaged) {
        out += ",\"damaged\":true,\"offset\":";
        AppendNumber(out, record.offset);
    }
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

void AppendHuman(std::string& out, const korx_record& record, std::string_view file,
                 const Style& style) {
    const size_t line = out.size();
    size_t invisible = 0;
    const auto color = [&](std::string_view code) {
        if (style.color) {
            out += code;
            invisible += code.size();
        }
    };
    if (style.with_file) {
        color(kDim);
        out += file;
        out.append(file.size() < 17 ? 17 - file.size() : 0, ' ');
        color(kReset);
        out += ' ';
    }
    if (!Has(record, KORX_FIELD_TIME)) {
        color(kLevelColors[3]);
        out += "damaged text at offset ";
        AppendNumber(out, record.offset);
        color(kReset);
        out += ": ";
        AppendPlain(out, View(record.text, record.length), out.size() - line - invisible);
        out += '\n';
        return;
    }
    color(kDim);
    AppendTime(out, record.time, record.utc_offset, false);
    color(kReset);
    if (Has(record, KORX_FIELD_LEVEL)) {
        const size_t level = std::min<size_t>(record.level, std::size(kHumanLevels) - 1);
        out += ' ';
        color(kLevelColors[level]);
        out += kHumanLevels[level];
        if (!kLevelColors[level].empty())
            color(kReset);
    }
    AppendFields(out, record);
    if (Has(record, KORX_FIELD_MESSAGE)) {
        out += "  ";
        AppendPlain(out, View(record.message, record.message_length),
                    out.size() - line - invisible);
    }
    if (IsDamaged(record)) {
        out += "  ";
        color(kLevelColors[3]);
        out += "[damaged, offset ";
        AppendNumber(out, record.offset);
        out += ']';
        color(kReset);
    }
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

void AppendGap(std::string& out, const korx_reader_info& info, std::string_view file) {
    out += "{\"time\":\"";
    out += NowRfc3339();
    out += "\",\"severity\":\"warning\",\"kind\":\"";
    out += korx_log_kind_name(info.kind);
    out += "\",\"file\":";
    AppendJsonString(out, file);
    out += ",\"gap\":true,\"lost\":";
    AppendNumber(out, info.gap_lost);
    out += ",\"lost_bytes\":";
    AppendNumber(out, info.gap_bytes);
    out += ",\"recovered\":";
    AppendNumber(out, info.gap_recovered);
    out += ",\"message\":\"records were written over before anybody took them\"}\n";
}

}  // namespace korx::tool
