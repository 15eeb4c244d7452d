// Looks for every line that the processes say was accepted.
#include <stdio.h>
#include <string.h>

#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <vector>

#include "demo.h"
#include "korx/basic.h"

namespace demo {
namespace {

const std::string kStamp = R"(\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6}\])";
const std::string kId = R"(<([A-Za-z_]+\.\d+\.\d+)>)";
const std::string kRecord =
    kStamp + R"(\[Index:0x1000\]\[AppCid:1\]\[INFO\]\[L:\d+ M:0\]\[0\])" + kId + "\n";
const std::string kDiagLine = R"(\[[\d:.-]{22}\] \[ProcID:\d+\|\d+\|INFO\] : )" + kId + "\n";

std::string Read(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::string LogBytes(const char* name) {
    return Read(kLogDir + "/" + name);
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

class Verdict {
  public:
    // Counts the whole lines of one form; every id must be there once.
    void count(const char* log, const std::string& text, const std::string& form, int sent) {
        const std::regex line(form);
        std::set<std::string> ids;
        int found = 0;
        for (std::sregex_iterator it(text.begin(), text.end(), line), end; it != end; ++it, ++found)
            ids.insert((*it)[1]);
        // An id without its line around it is a torn line.
        const std::regex bare(kId);
        const auto any = static_cast<int>(
            std::distance(std::sregex_iterator(text.begin(), text.end(), bare), {}));
        const bool whole = static_cast<int>(ids.size()) == sent && found == sent && any == sent;
        printf("  %-34s %6d %6d %6d %6d   %s\n", log, sent, static_cast<int>(ids.size()),
               sent - static_cast<int>(ids.size()), any - found, whole ? "ok" : "WRONG");
        right_ = right_ && whole && sent > 0;
    }
    void expect(const char* what, bool holds) {
        printf("  %-62s   %s\n", what, holds ? "ok" : "WRONG");
        right_ = right_ && holds;
    }
    int status() const { return right_ ? 0 : 1; }

  private:
    bool right_ = true;
};

void ShowHead(const char* name) {
    const std::string bytes = LogBytes(name);
    LOG_HEAD_S head = {};
    memcpy(&head, bytes.data(), std::min(bytes.size(), sizeof head));
    printf("  %-18s %7zu bytes  next record at %6u, taken up to %6u, last lap ended at %6u\n", name,
           bytes.size(), head.uiLogLen, head.uiDumpLen, head.uiTotalLen);
}

void ShowLength(const char* name) {
    const std::string bytes = LogBytes(name);
    uint32_t length = 0;
    memcpy(&length, bytes.data(), std::min(bytes.size(), sizeof length));
    printf("  %-18s %7zu bytes  %u bytes of text\n", name, bytes.size(), length);
}

void ShowSections() {
    const std::string bytes = LogBytes(".korxloghdr");
    STLOG_HDR_S header = {};
    memcpy(&header, bytes.data(), std::min(bytes.size(), sizeof header));
    const char* const names[] = {"FRAME", "PATCH", "CFL", "DBG"};
    for (int i = 0; i < 4; ++i)
        printf("  KORX_START_LOG     section %-5s  from %6u to %6u, next line at %6u\n", names[i],
               header.astSec[i].uiStart, header.astSec[i].uiEnd, header.astSec[i].uiCur);
}

// The newest whole lines of a text.
void ShowNewest(const char* log, const std::string& text, int lines) {
    printf("  %s\n", log);
    size_t from = text.size();
    for (int i = 0; i <= lines && from != std::string::npos && from > 0; ++i)
        from = text.rfind('\n', from - 1);
    std::istringstream in(text.substr(from == std::string::npos ? 0 : from + 1));
    for (std::string line; std::getline(in, line);)
        printf("    %s\n", line.c_str());
}

std::string Counted(const std::string& bytes, size_t head) {
    uint32_t length = 0;
    memcpy(&length, bytes.data(), std::min(bytes.size(), sizeof length));
    return bytes.size() < head ? "" : bytes.substr(head, length);
}

std::string DiagText() {
    std::string text;
    for (const char* name : {"orx_agent.log", "orx_app.log"})
        text += Counted(LogBytes(name), sizeof(uint32_t));
    return text;
}

std::string ProcessText() {
    std::string text;
    for (const Process& process : kProcesses)
        text += LogBytes((std::string(process.name) + ".log").c_str());
    return text;
}

void ShowPaths() {
    char log[256] = "", data[256] = "", tmp[256] = "", local[256] = "";
    KORX_GetLogPath(log, sizeof log);
    KORX_GetDataPath(data, sizeof data);
    KORX_GetCommTmpPath(tmp, sizeof tmp);
    KORX_GetLocalDataFileFullPath(local, sizeof local);
    printf("\nPaths in force\n  log        %s\n  data       %s\n  temporary  %s\n  local data %s\n",
           log, data, tmp, local);
}

void Heading(const char* title) {
    printf("\n%-34s   %6s %6s %6s %6s\n", title, "sent", "found", "lost", "torn");
}

const std::string kProcessLine = kStamp + R"(\[INFO\]\[L:\d+ M:0\]\[0\])" + kId + "\n";

int ReportLocal() {
    printf("\nHeads and headers\n");
    for (const char* name : {"orx_agent.log", "orx_app.log"})
        ShowLength(name);
    for (const char* name : {"KORX_DIAG_LOG", "korx_safe.log", "korx_life.log"})
        ShowHead(name);
    ShowSections();

    const std::string ring = Counted(LogBytes("KORX_DIAG_LOG"), sizeof(LOG_HEAD_S));
    printf("\nNewest lines\n");
    ShowNewest("orx_app.log", Counted(LogBytes("orx_app.log"), sizeof(uint32_t)), 3);
    ShowNewest("KORX_DIAG_LOG", ring, 2);
    ShowNewest("zelk.log", LogBytes("zelk.log"), 2);
    ShowNewest("korx_safe.log, as taken", Read(kTakenDir + "/security"), 2);

    Verdict verdict;
    Heading("Lines accepted by the logs");
    const std::string diag_in_ring =
        kStamp + R"(\[Index:0x37741004\]\[AppCid:0\]\[INFO\]\[L:\d+ M:0\]\[0\]\[SlotId=1\])" +
        kDiagLine;
    std::string ring_of_lines, ring_of_records;
    std::istringstream in(ring);
    for (std::string line; std::getline(in, line);)
        (line.find("[Index:0x37741004]") != std::string::npos ? ring_of_lines : ring_of_records) +=
            line + "\n";
    verdict.count("diagnostic log, in its files", DiagText(), kDiagLine, Sum("diag"));
    verdict.count("diagnostic log, in the ring", ring_of_lines, diag_in_ring, Sum("diag"));
    verdict.count("diagnostic record log", ring_of_records, kRecord, Sum("record"));
    verdict.count("process logs", ProcessText(), kProcessLine, Sum("process"));
    verdict.count("security log, taken by the reader", Read(kTakenDir + "/security"), kRecord,
                  Sum("security"));
    verdict.count("life-cycle log, taken by the reader", Read(kTakenDir + "/life"), kRecord,
                  Sum("life"));
    verdict.count("start log", LogBytes("KORX_START_LOG"),
                  kStamp + R"(\[INFO\]\[L:\d+ (?:FRAME|PATCH|CFL|DBG)\]\[0\])" + kId + "\n",
                  Sum("start"));

    printf("\nThe road of one event: a profile change whose rename fails\n");
    const std::string message = "[ORX]rename file '" + kWorkDir + "/mounted.ini+' to '" + kWorkDir +
                                "/mounted.ini' unsuccessfully! errno = ";
    verdict.expect("its message stands in KORX_DIAG_LOG",
                   ring_of_lines.find("|ERR] : " + message) != std::string::npos);
    verdict.expect("its message stands in orx_app.log",
                   DiagText().find("|ERR] : " + message) != std::string::npos);
    verdict.expect("the profile still holds its old value",
                   Read(kWorkDir + "/mounted.ini") == "[BOOT]\ncount=1\n");
    verdict.expect("no call failed that should not have", Sum("failed") == 0);
    return verdict.status();
}

int ReportAgent() {
    // One report a line: its log type and id, then the text.
    const std::string received = Read(kAgentFile);
    std::map<std::string, std::string> by_kind;
    std::istringstream in(received);
    for (std::string line; std::getline(in, line);) {
        const size_t end = line.find(' ', line.find(' ') + 1);
        by_kind[line.substr(0, end)] += line.substr(end + 1) + "\n";
    }
    printf("\nNewest lines\n");
    ShowNewest("what the agent received", received, 4);

    Verdict verdict;
    Heading("Lines handed to the agent");
    const std::string bare = kId + "\n";
    const std::string slotted = kId + R"(\[SlotId=1\])" + "\n";
    verdict.count("diagnostic log", by_kind["9 0x37741004"],
                  R"(\[[\d:.-]{22}\] \[ProcID:\d+\|\d+\|INFO\] : )" + slotted, Sum("diag"));
    verdict.count("diagnostic record log", by_kind["9 0x1000"], bare, Sum("record"));
    verdict.count("security log", by_kind["1 0x1000"], bare, Sum("security"));
    verdict.count("life-cycle log", by_kind["22 0x1000"], bare, Sum("life"));
    verdict.count("start log", by_kind["9 0x37741005"], slotted, Sum("start"));
    verdict.count("process logs, always in their files", ProcessText(), kProcessLine,
                  Sum("process"));
    printf("\n");
    verdict.expect("no ring and no diagnostic log file was written",
                   LogBytes("KORX_DIAG_LOG").empty() && LogBytes("korx_safe.log").empty() &&
                       Counted(LogBytes("orx_app.log"), 4).find('<') == std::string::npos);
    verdict.expect("no call failed that should not have", Sum("failed") == 0);
    return verdict.status();
}

}  // namespace

int Report(bool agent_mode) {
    ShowPaths();
    const int status = agent_mode ? ReportAgent() : ReportLocal();
    printf("\nVERDICT: %s\n", status == 0 ? "every line was found again, none lost, none torn"
                                          : "something is missing or torn");
    return status;
}

}  // namespace demo
