// Shows what is in the logs and looks for every line that the processes say was accepted.
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <vector>

#include "demo.h"
#include "korx/basic.h"

namespace demo {
namespace {

// --- The forms of lines ---
//
// A demo line carries "<process.thread.number>". "Other" lines are the library's own.

const std::string kId = R"(<([A-Za-z_]+\.\d+\.\d+)>)";
const std::string kStamp = R"(\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6}\])";
const std::string kOtherDiag =
    R"(\[\d{6}-\d\d:\d\d:\d\d\.\d{6}\] \[ProcID:\d+\|\d+\|(?:INFO|WARNING|ERR)\] : [^<]*)";
const std::string kDiag = R"(\[\d{6}-\d\d:\d\d:\d\d\.\d{6}\] \[ProcID:\d+\|\d+\|INFO\] : )" + kId;
const std::string kOtherInRing =
    kStamp + R"(\[Index:0x37741004\]\[AppCid:0\]\[[A-Z]+\]\[L:\d+ M:0\]\[0\][^<]*)";
const std::string kDiagInRing =
    kStamp + R"(\[Index:0x37741004\]\[AppCid:0\]\[INFO\]\[L:\d+ M:0\]\[0\]\[SlotId=1\])" + kDiag;
const std::string kRecord =
    kStamp + R"(\[Index:0x1000\]\[AppCid:1\]\[INFO\]\[L:\d+ M:0\]\[0\])" + kId;
const std::string kProcessLine = kStamp + R"(\[INFO\]\[L:\d+ M:0\]\[0\])" + kId;
const std::string kStartLine = kStamp + R"(\[INFO\]\[L:\d+ (?:FRAME|PATCH|CFL|DBG)\]\[0\])" + kId;
const std::string kStartSeparator = "=*";
const std::string kSlot = R"(\[SlotId=1\])";
const std::string kNone = "$^";

// --- Reading ---

std::string Read(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::string LogBytes(const std::string& name) {
    return Read(kLogDir + "/" + name);
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

template <typename Head>
Head HeadOf(const std::string& bytes) {
    Head head = {};
    memcpy(&head, bytes.data(), std::min(bytes.size(), sizeof head));
    return head;
}

// The text of a file that begins with a head, whose first number is the text's length.
template <typename Head>
std::string Text(const std::string& name) {
    const std::string bytes = LogBytes(name);
    return bytes.size() < sizeof(Head) ? "" : bytes.substr(sizeof(Head), HeadOf<uint32_t>(bytes));
}

std::string DiagText() {
    return Text<uint32_t>("orx_agent.log") + Text<uint32_t>("orx_app.log");
}

std::string ProcessText() {
    std::string text;
    for (const Process& process : kProcesses)
        text += LogBytes(std::string(process.name) + ".log");
    return text;
}

std::string StartText() {
    std::string text = LogBytes("KORX_START_LOG");
    std::erase(text, '\0');  // what no line has filled yet
    return text;
}

// The sum over the processes of one line of their results.
int Sum(const std::string& name) {
    int sum = 0;
    for (const Process& process : kProcesses) {
        std::istringstream in(Read(kResultDir + "/" + process.name));
        std::string key;
        for (int value; in >> key >> value;)
            sum += key == name ? value : 0;
    }
    return sum;
}

int CountOf(const std::string& text, const std::string& part) {
    int count = 0;
    for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size())
        ++count;
    return count;
}

// --- The verdict ---

class Verdict {
  public:
    // Every line of the text must have one of the two forms, and every id must be there once.
    void count(const char* log, const std::string& text, int sent, const std::string& form,
               const std::string& other = kNone) {
        const std::regex ours(form), others(other);
        std::set<std::string> ids;
        int found = 0, torn = 0;
        for (const std::string& line : Lines(text)) {
            std::smatch match;
            if (std::regex_match(line, match, ours)) {
                ids.insert(match[1]);
                ++found;
            } else if (!std::regex_match(line, others)) {
                ++torn;
            }
        }
        const int distinct = static_cast<int>(ids.size());
        const bool whole = sent > 0 && distinct == sent && found == sent && torn == 0;
        printf("  %-36s %6d %6d %6d %6d   %s\n", log, sent, distinct, sent - distinct, torn,
               whole ? "ok" : "WRONG");
        right_ = right_ && whole;
    }
    void expect(const char* what, bool holds) {
        printf("  %-64s   %s\n", what, holds ? "ok" : "WRONG");
        right_ = right_ && holds;
    }
    bool right() const { return right_; }

  private:
    bool right_ = true;
};

void CountHeading(const char* title) {
    printf("\n%-38s %6s %6s %6s %6s\n", title, "sent", "found", "lost", "torn");
}

// --- What there is to see ---

void ShowPaths() {
    char log[256] = "", data[256] = "", tmp[256] = "", local[256] = "";
    KORX_GetLogPath(log, sizeof log);
    KORX_GetDataPath(data, sizeof data);
    KORX_GetCommTmpPath(tmp, sizeof tmp);
    KORX_GetLocalDataFileFullPath(local, sizeof local);
    printf("\nPaths in force\n");
    printf("  log directory        %s\n  data directory       %s\n", log, data);
    printf("  temporary directory  %s\n  local data file      %s\n", tmp, local);
}

void ShowHeads() {
    printf("\nFiles, and what their heads say\n");
    for (const char* name : {"orx_agent.log", "orx_app.log"}) {
        const std::string bytes = LogBytes(name);
        printf("  %-16s %7zu bytes   %u bytes of text\n", name, bytes.size(),
               HeadOf<uint32_t>(bytes));
    }
    for (const char* name : {"KORX_DIAG_LOG", "korx_safe.log", "korx_life.log"}) {
        const std::string bytes = LogBytes(name);
        const auto head = HeadOf<LOG_HEAD_S>(bytes);
        printf("  %-16s %7zu bytes   newest record ends at %6u, taken up to %6u, last lap %6u\n",
               name, bytes.size(), head.uiLogLen, head.uiDumpLen, head.uiTotalLen);
    }
    const auto header = HeadOf<STLOG_HDR_S>(LogBytes(".korxloghdr"));
    printf("  %-16s %7zu bytes   magic 0x%X, version %u\n", "KORX_START_LOG",
           LogBytes("KORX_START_LOG").size(), header.uiMagic, header.uiVersion);
    for (uint32_t i = 0; i < 4; ++i) {
        char module[8] = "";
        STLOG_GetMoudleBySecIndex(i, module, sizeof module);
        printf("  %-31s section %-5s from %6u to %6u, next line at %6u\n", "", module,
               header.astSec[i].uiStart, header.astSec[i].uiEnd, header.astSec[i].uiCur);
    }
    for (const Process& process : kProcesses) {
        const std::string name = std::string(process.name) + ".log";
        printf("  %-16s %7zu bytes   no head\n", name.c_str(), LogBytes(name).size());
    }
    printf("  %-16s %7zu bytes   no head\n", "orx_spacefull.log",
           LogBytes("orx_spacefull.log").size());
}

void ShowNewest(const char* title, const std::string& text, size_t count) {
    printf("  %s\n", title);
    const std::vector<std::string> lines = Lines(text);
    for (size_t i = lines.size() - std::min(count, lines.size()); i < lines.size(); ++i)
        printf("    %s\n", lines[i].c_str());
}

void ShowSteps() {
    printf("\nFiles, profiles and commands, by one process while all of them log\n");
    printf("%s", Read(kStepsFile).c_str());
}

// --- The two modes ---

void CheckRoadOfOneEvent(Verdict* verdict, const std::string& ring) {
    printf("\nThe road of one event: the profile change whose rename fails\n");
    if (!HasMounts()) {
        printf("  left out: without a mount of its own the profile can be replaced\n");
        return;
    }
    const std::string message = "|ERR] : [ORX]rename file '" + kMountedProfile + "+' to '" +
                                kMountedProfile + "' unsuccessfully! errno = 16!\n";
    verdict->expect("its message stands in KORX_DIAG_LOG", CountOf(ring, message) == 1);
    verdict->expect("its message stands in orx_app.log", CountOf(DiagText(), message) == 1);
    verdict->expect("the profile still holds its old value",
                    Read(kMountedProfile) == "[BOOT]\ncount=1\n");
}

void CheckTheRest(Verdict* verdict, const std::string& dump_at) {
    verdict->expect("the crash left its call stack in the diagnostic log",
                    CountOf(dump_at, "*******Start to get backtrace info*******") == 1);
    if (HasMounts())
        verdict->expect("the file systems' usage was recorded",
                        CountOf(LogBytes("orx_spacefull.log"), " /opt ") == 1);
    verdict->expect("no other call failed", Sum("failed") == 0);
}

void ShowNewestOfAllLogs(const std::string& ring, const std::string& security,
                         const std::string& life) {
    printf("\nNewest lines\n");
    ShowNewest("orx_agent.log", Text<uint32_t>("orx_agent.log"), 2);
    ShowNewest("orx_app.log", Text<uint32_t>("orx_app.log"), 2);
    ShowNewest("KORX_DIAG_LOG", ring, 2);
    ShowNewest("korx_safe.log, as the reader took it", security, 2);
    ShowNewest("korx_life.log, as the reader took it", life, 2);
    ShowNewest("KORX_START_LOG, section DBG", StartText(), 2);
    ShowNewest("zelk.log", LogBytes("zelk.log"), 2);
    ShowNewest("orx_spacefull.log", LogBytes("orx_spacefull.log"), 2);
    ShowNewest("the system log", Read(kSyslogFile), 2);
}

// The ring holds lines of both logs that are written to it.
void CountRing(Verdict* verdict, const std::string& ring) {
    const std::string diag_index = "[Index:0x37741004]";
    std::string diag_in_ring, records_in_ring;
    for (const std::string& line : Lines(ring)) {
        const bool is_diag = line.find(diag_index) != std::string::npos;
        (is_diag ? diag_in_ring : records_in_ring) += line + "\n";
    }
    verdict->count("diagnostic log, in KORX_DIAG_LOG", diag_in_ring, Sum("diag"), kDiagInRing,
                   kOtherInRing);
    verdict->count("diagnostic record log", records_in_ring, Sum("record"), kRecord);
}

void CheckRefusedEvents(Verdict* verdict, const std::string& ring) {
    char what[80];
    snprintf(what, sizeof what, "each of %d refused events left a warning in KORX_DIAG_LOG",
             Sum("refused"));
    verdict->expect(
        what,
        Sum("refused") > 0 &&
            CountOf(ring, "New log will wrap undumped log, discard and ret:99.") == Sum("refused"));
}

bool ReportLocal() {
    const std::string ring = Text<LOG_HEAD_S>("KORX_DIAG_LOG");
    const std::string security = Read(kTakenDir + "/security");
    const std::string life = Read(kTakenDir + "/life");
    ShowHeads();
    ShowNewestOfAllLogs(ring, security, life);
    ShowSteps();

    Verdict verdict;
    CountHeading("Lines accepted by the logs");
    verdict.count("diagnostic log, in its files", DiagText(), Sum("diag"), kDiag, kOtherDiag);
    CountRing(&verdict, ring);
    verdict.count("process logs", ProcessText(), Sum("process"), kProcessLine);
    verdict.count("security log, taken by the reader", security, Sum("security"), kRecord);
    verdict.count("life-cycle log, taken by the reader", life, Sum("life"), kRecord);
    verdict.count("start log", StartText(), Sum("start"), kStartLine, kStartSeparator);

    CheckRoadOfOneEvent(&verdict, ring);
    printf("\nAnd\n");
    CheckRefusedEvents(&verdict, ring);
    CheckTheRest(&verdict, ring);
    return verdict.right();
}

bool ReportAgent() {
    // One report a line: its log type and id, then the text.
    const std::string received = Read(kAgentFile);
    std::map<std::string, std::string> by_kind;
    for (const std::string& line : Lines(received)) {
        const size_t end = line.find(' ', line.find(' ') + 1);
        by_kind[line.substr(0, end)] += line.substr(end + 1) + "\n";
    }
    printf("\nNewest lines that the agent received, by log type and log id\n");
    for (const auto& [kind, lines] : by_kind)
        ShowNewest(kind.c_str(), lines, 2);
    ShowSteps();

    Verdict verdict;
    CountHeading("Lines handed to the agent");
    const std::string diag = by_kind["9 0x37741004"];
    verdict.count("diagnostic log", diag, Sum("diag"), kDiag + kSlot, kOtherDiag + kSlot);
    verdict.count("diagnostic record log", by_kind["9 0x1000"], Sum("record"), kId);
    verdict.count("security log", by_kind["1 0x1000"], Sum("security"), kId);
    verdict.count("life-cycle log", by_kind["22 0x1000"], Sum("life"), kId);
    verdict.count("start log", by_kind["9 0x37741005"], Sum("start"), kId + kSlot);
    verdict.count("process logs, in their files as ever", ProcessText(), Sum("process"),
                  kProcessLine);

    printf("\nAnd\n");
    verdict.expect("nothing else came to the agent", by_kind.size() == 5);
    verdict.expect("no ring and no diagnostic log file got any of it",
                   CountOf(Text<LOG_HEAD_S>("KORX_DIAG_LOG") + DiagText(), "<") == 0 &&
                       LogBytes("korx_safe.log").empty() && LogBytes("korx_life.log").empty());
    CheckTheRest(&verdict, diag);
    return verdict.right();
}

}  // namespace

int Report(bool agent_mode) {
    ShowPaths();
    const bool right = agent_mode ? ReportAgent() : ReportLocal();
    printf("\nVERDICT: %s\n", right ? "every line was found again, none lost, none torn"
                                    : "something is missing, torn or wrong, see above");
    return right ? 0 : 1;
}

}  // namespace demo
