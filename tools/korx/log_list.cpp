// korx log list: what logs there are and how they are.
#include <sys/stat.h>
#include <unistd.h>

#include "json.h"
#include "log_commands.h"
#include "output.h"
#include "sources.h"
#include "text.h"

namespace korx::tool {
namespace {

void ListJson(Output& out, const Source& source, const korx_reader_info* info,
              const std::string& trouble) {
    nlohmann::ordered_json object = {{"kind", korx_log_kind_name(source.kind)},
                                     {"path", source.path},
                                     {"present", info != nullptr}};
    if (info != nullptr) {
        object["size"] = info->size;
        object["limit"] = info->limit;
        object["fill"] = info->fill;
        object["laps"] = info->laps;
        object["records"] = info->records;
        object["unread"] = info->unread_records;
        object["unread_bytes"] = info->unread_bytes;
        object["damage"] = info->damage;
        object["gap"] = info->gap != 0;
        object["lost"] = info->gap_lost;
    }
    if (!trouble.empty())
        object["error"] = trouble;
    out.write(JsonLine(object));
}

std::string Left(std::string text, size_t width) {
    text.append(text.size() < width ? width - text.size() : 0, ' ');
    return text + "  ";
}

std::string Right(const std::string& text, size_t width) {
    return std::string(text.size() < width ? width - text.size() : 0, ' ') + text + "  ";
}

std::string Percent(uint64_t part, uint64_t whole) {
    return whole == 0 ? "-" : std::to_string(part * 100 / whole) + "%";
}

std::string Columns(const std::string& kind, const std::string (&numbers)[6]) {
    return Left(kind, 8) + Right(numbers[0], 7) + Right(numbers[1], 4) + Right(numbers[2], 4) +
           Right(numbers[3], 7) + Right(numbers[4], 6) + Right(numbers[5], 6);
}

struct Row {
    std::string columns;  // with the blanks that lead to the path
    std::string path;
    std::string note;

    std::string text(size_t width) const { return TableRow(columns, path, note, width); }
};

Row RowOf(const Source& source, const korx_reader_info* info, const std::string& trouble,
          size_t width) {
    const std::string kind = korx_log_kind_name(source.kind);
    if (info != nullptr)
        return {Columns(kind, {HumanSize(info->size), Percent(info->fill, info->limit),
                               std::to_string(info->laps), std::to_string(info->records),
                               std::to_string(info->unread_records), std::to_string(info->damage)}),
                source.path, info->gap != 0 ? "gap: records were lost unread" : ""};
    const std::string why = trouble.empty() ? "not written yet" : "unreadable";
    const Row row{Columns(kind, {"-", "-", "-", "-", "-", "-"}), source.path, why};
    if (row.text(width).find('\n') + 1 == row.text(width).size())
        return row;
    return {Left(kind, 8) + "(" + why + ")  ", source.path, ""};
}

void ListHuman(Output& out, const Source& source, const korx_reader_info* info,
               const std::string& trouble, size_t width, bool color) {
    const std::string text = RowOf(source, info, trouble, width).text(width);
    const bool is_red = color && info != nullptr && info->damage > 0;
    out.write(is_red ? "\033[31m" + text + "\033[0m" : text);
}

}  // namespace

int RunLogList(const Globals& globals) {
    Output out;
    const bool color = WantsColor(STDOUT_FILENO);
    const size_t width = TerminalWidth(STDOUT_FILENO);
    int status = kWell;
    if (!globals.json)
        out.write(Row{Columns("KIND", {"SIZE", "FILL", "LAPS", "RECORDS", "UNREAD", "DAMAGE"}),
                      "PATH", ""}
                      .text(SIZE_MAX));
    for (const Source& source : AllSources(globals)) {
        korx_reader_info info = {};
        std::string trouble;
        Reader reader;
        try {
            reader = OpenReader(source);
        } catch (const Failure& failure) {
            trouble = failure.text;
            Complain(trouble);
            status = kInput;
        }
        if (reader)
            korx_reader_get_info(reader.get(), &info);
        const korx_reader_info* const known = reader ? &info : nullptr;
        if (globals.json)
            ListJson(out, source, known, trouble);
        else
            ListHuman(out, source, known, trouble, width, color);
    }
    out.flush();
    return status;
}

}  // namespace korx::tool
