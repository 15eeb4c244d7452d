// korx log verify: names all that is wrong in the logs.
#include <unistd.h>

#include "json.h"
#include "log_commands.h"
#include "output.h"
#include "sources.h"

namespace korx::tool {
namespace {

void ReportDamage(Output& out, const Source& source, const korx_damage& damage,
                  const Globals& globals) {
    if (globals.json) {
        out.write(JsonLine({{"file", source.path},
                            {"offset", damage.offset},
                            {"length", damage.length},
                            {"in_header", damage.in_header != 0},
                            {"rule", korx_damage_rule_name(damage.rule)},
                            {"text", damage.text}}));
        return;
    }
    // The reader keeps two small files beside the log; an offset may be one of theirs.
    const char* const place = damage.in_header == 0               ? ""
                              : damage.rule == KORX_DAMAGE_CURSOR ? " of the cursor"
                                                                  : " of the header file";
    out.write(source.path + ": offset " + std::to_string(damage.offset) + place + ": " +
              korx_damage_rule_name(damage.rule) + ": " + damage.text + "\n");
}

// What is worth knowing and no damage.
void ReportNote(Output& out, const Source& source, const std::string& text,
                const Globals& globals) {
    out.write(globals.json ? JsonLine({{"file", source.path}, {"note", text}})
                           : source.path + ": note: " + text + "\n");
}

// kNoLog: it is missing and may be.
int VerifyOne(Output& out, const Source& source, const Globals& globals) {
    const Reader reader = OpenReader(source);
    if (!reader)
        return kNoLog;
    uint64_t listed = 0;
    korx_damage damage;
    for (; korx_reader_get_damage(reader.get(), listed, &damage) != 0; ++listed)
        ReportDamage(out, source, damage, globals);
    const korx_reader_info info = InfoOf(reader.get());
    for (const std::string& doubt : DoubtsIn(korx_reader_doubts(reader.get())))
        ReportNote(out, source, doubt, globals);
    if (info.clock_set_back > 0)
        ReportNote(out, source,
                   "the clock was set back " + std::to_string(info.clock_set_back) + " times",
                   globals);
    if (!globals.json) {
        if (info.damage > listed)
            out.write(source.path + ": and " + std::to_string(info.damage - listed) + " more\n");
        out.write(source.path + ": " + korx_log_kind_name(info.kind) + ", " +
                  std::to_string(info.records) + " records, " +
                  (info.damage == 0 ? std::string("sound")
                                    : std::to_string(info.damage) + " damaged places") +
                  "\n");
    }
    return info.damage == 0 ? kWell : kFinding;
}

}  // namespace

int RunLogVerify(const Globals& globals, const std::vector<std::string>& what) {
    Output out;
    int status = kWell;
    bool any = false;
    for (const std::string& word : what) {
        for (const Source& source : FindSources(globals, word)) {
            try {
                const int found = VerifyOne(out, source, globals);
                any |= found != kNoLog;
                status = std::max(status, found == kNoLog ? int{kWell} : found);
            } catch (const Failure& failure) {
                if (failure.status != kInput)
                    throw;
                out.flush();
                Complain(failure.text);
                status = kInput;
                any = true;
            }
        }
    }
    out.flush();
    if (any)
        return status;
    Complain("there is no log here that could be verified");
    return kNoLog;
}

}  // namespace korx::tool
