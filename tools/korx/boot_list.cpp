#include "boot_list.h"

#include <array>

#include "boots.h"
#include "format/start.h"
#include "json.h"
#include "output.h"
#include "text.h"

namespace korx::tool {
namespace {

struct Boot {
    korx_record first = {};  // with a time
    korx_record last = {};
    uint64_t records = 0;
};

// The boots of one section, or of a log without sections.
using Boots = std::vector<Boot>;

std::array<Boots, kSectionCount> BootsOf(korx_reader* reader) {
    std::array<Boots, kSectionCount> sections;
    BootCounter counter;
    korx_record record;
    while (korx_reader_next(reader, &record) != 0) {
        const uint64_t number = counter.next(record);
        Boots& boots = sections[counter.section()];
        boots.resize(number);
        Boot& boot = boots.back();
        ++boot.records;
        if ((record.fields & KORX_FIELD_TIME) == 0)
            continue;
        boot.last = record;
        if ((boot.first.fields & KORX_FIELD_TIME) == 0)
            boot.first = record;
    }
    return sections;
}

std::string Time(const korx_record& record, const Style& style, TimeForm form) {
    std::string text;
    if ((record.fields & KORX_FIELD_TIME) != 0)
        AppendTime(text, record.time, style.utc ? 0 : record.utc_offset, form);
    return text;
}

// Without its fraction of a second.
std::string ShortTime(const korx_record& record, const Style& style) {
    constexpr size_t kLength = sizeof "2024-03-05 14:07:09" - 1;
    std::string text = Time(record, style, TimeForm::kHuman);
    text.resize(kLength, ' ');
    return text;
}

void AppendHuman(std::string& out, const Boot& boot, int64_t number, const std::string& log,
                 const Style& style, size_t width) {
    const std::string place = std::to_string(number);
    std::string columns(place.size() < 4 ? 4 - place.size() : 0, ' ');
    columns += place + "  " + ShortTime(boot.first, style) + "  " + ShortTime(boot.last, style);
    columns += ' ';
    AppendPadded(columns, boot.records, 8);
    out += TableRow(columns + "  ", log, "", width);
}

void AppendJson(std::string& out, const Boot& boot, int64_t number, const korx_reader* reader,
                const Source& source, const char* section, const Style& style) {
    nlohmann::ordered_json object = {{"kind", korx_log_kind_name(InfoOf(reader).kind)},
                                     {"file", source.file}};
    if (section != nullptr)
        object["section"] = section;
    object["boot"] = number;
    object["records"] = boot.records;
    if ((boot.first.fields & KORX_FIELD_TIME) != 0) {
        object["first"] = Time(boot.first, style, TimeForm::kRfc3339);
        object["last"] = Time(boot.last, style, TimeForm::kRfc3339);
    }
    out += JsonLine(object);
}

void ListOne(Output& out, korx_reader* reader, const Source& source, const Style& style) {
    const auto sections = BootsOf(reader);
    const bool has_sections = InfoOf(reader).kind == KORX_LOG_START;
    for (size_t i = 0; i < sections.size(); ++i) {
        const char* const section = has_sections ? kModules[i] : nullptr;
        const std::string log = source.file + (has_sections ? std::string(" ") + section : "");
        int64_t number = 1 - static_cast<int64_t>(sections[i].size());
        for (const Boot& boot : sections[i]) {
            if (style.form == Form::kJson)
                AppendJson(out.buffer(), boot, number, reader, source, section, style);
            else
                AppendHuman(out.buffer(), boot, number, log, style, TerminalWidth(out.fd()));
            ++number;
        }
    }
}

}  // namespace

int ListBoots(const std::vector<Source>& sources, const Style& style) {
    Output out;
    int status = kWell;
    if (style.form != Form::kJson)
        out.write(TableRow("BOOT  FIRST                LAST                  RECORDS  ", "LOG", "",
                           TerminalWidth(out.fd())));
    for (const Source& source : sources) {
        try {
            if (const Reader reader = OpenReader(source))
                ListOne(out, reader.get(), source, style);
        } catch (const Failure& failure) {
            Complain(failure.text);
            status = kInput;
        }
    }
    out.flush();
    return status;
}

}  // namespace korx::tool
