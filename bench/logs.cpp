// Log lines and records, beside their floors and what other programs would log with.
#include <signal.h>
#include <stdint.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

#include "floor.h"
#include "korx/log.h"
#include "korx/plog.h"
#include "log_peers.h"

namespace bench {
namespace {

const std::string kText(60, 'm');
constexpr uint32_t kLimit = 1 << 30;  // no lap, so that all that was written can be counted

bool HasLines(const std::string& path, size_t count) {
    std::ifstream file(path, std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    size_t lines = 0;
    for (size_t at = 0; (at = content.find(kText, at)) != std::string::npos; ++lines)
        at += kText.size();
    return lines == count;
}

// A contestant whose lines all go into one file, which is made anew for each round.
Contestant IntoFile(const std::string& name, Role role, const std::string& path,
                    std::function<Operation(const std::string& path)> enter) {
    return {.name = name,
            .role = role,
            .enter = [=] { return enter(path); },
            .is_done = [=](size_t operations) { return HasLines(path, operations); },
            .lay_out = [=] { unlink(path.c_str()); }};
}

// --- The rings ---

Operation DiagRecords(const std::string& path) {
    strcpy(g_stDLogInfo.acFileName, path.c_str());
    g_stDLogInfo.uiMaxSize = kLimit;
    return [] { MUST(KORX_DLog(0, 1, 1, 0, 0, "%s", kText.c_str()) == 0); };
}

void WriteRecord(int fd, const std::string& path, const std::string& record) {
    struct stat status;
    MUST(stat(path.c_str(), &status) == 0 && fstat(fd, &status) == 0);
    LookAtZone();
    SetRecordLock(fd, F_WRLCK);
    auto head = Get<LOG_HEAD_S>(fd, 0);
    Put(fd, static_cast<off_t>(sizeof head + head.uiLogLen), record.data(), record.size());
    head.uiLogLen += static_cast<uint32_t>(record.size());
    Put(fd, 0, &head, sizeof head);
    SetRecordLock(fd, F_UNLCK);
}

const std::string kRecord = "[2026-01-01 00:00:00.000000]" + kText + std::string(42, '.') + "\n";

Operation RecordFloor(const std::string& path) {
    auto file = std::make_shared<Descriptor>(path, O_RDWR | O_CREAT);
    return [=] { WriteRecord(file->get(), path, kRecord); };
}

// --- The text log ---

Operation Lines(const std::string& path, uint32_t mode) {
    ORX_LogInfo record = {};
    record.uiLogMode = mode;
    record.uiMaxLogLen = kLimit;
    const std::filesystem::path split(path);
    strcpy(record.acLogDir, split.parent_path().c_str());
    strcpy(record.acLogFileName, split.filename().c_str());
    g_stLogInfo = record;
    return [] { ORX_Log2File(1, "%s", kText.c_str()); };
}

Operation LineFloor(const std::string& path) {
    const std::string directory = std::filesystem::path(path).parent_path();
    const std::string line = kText + std::string(64, '.') + "\n";
    return [=] {
        LookAtZone();
        Resolve(directory);
        const Descriptor file(path, O_RDWR | O_CREAT | O_SYNC);
        MUST(flock(file.get(), LOCK_EX) == 0);
        const uint32_t length = Get<uint32_t>(file.get(), 0);
        Put(file.get(), static_cast<off_t>(sizeof length + length), line.data(), line.size());
        const uint32_t after = length + static_cast<uint32_t>(line.size());
        Put(file.get(), 0, &after, sizeof after);
        MUST(flock(file.get(), LOCK_UN) == 0);
    };
}

// --- Process log and start log ---

Operation ProcessRecords(const std::string& path) {
    strcpy(g_stPLogInfo[0].acFileName, path.c_str());
    g_stPLogInfo[0].uiMaxSize = kLimit;
    return [] { MUST(KORX_PLogByProcName(1, "QTMON", 0, 0, "%s", kText.c_str()) == 0); };
}

Operation ProcessFloor(const std::string& path) {
    auto file = std::make_shared<Descriptor>(path, O_RDWR | O_CREAT);
    return [=] {
        struct stat status;
        MUST(stat(path.c_str(), &status) == 0 && fstat(file->get(), &status) == 0);
        LookAtZone();
        SetRecordLock(file->get(), F_WRLCK);
        MUST(lseek(file->get(), 0, SEEK_CUR) >= 0);
        MUST(write(file->get(), kRecord.data(), kRecord.size()) > 0);
        SetRecordLock(file->get(), F_UNLCK);
    };
}

Operation StartRecords(const std::string& path) {
    strcpy(g_acSTLogFileName, path.c_str());
    strcpy(g_acSTLogFileHeadName, (path + ".header").c_str());
    return [] { MUST(KORX_STLog(3, 1, 0, "%s", kText.c_str()) == 0); };
}

// The header is read, the record written at the section's cursor, the header written back.
Operation StartFloor(const std::string& path) {
    auto file = std::make_shared<Descriptor>(path, O_RDWR | O_CREAT);
    auto header = std::make_shared<Descriptor>(path + ".header", O_RDWR | O_CREAT);
    return [=] {
        for (const Descriptor* const one : {file.get(), header.get()}) {
            struct stat status;
            MUST(fstat(one->get(), &status) == 0);
        }
        Look(path);
        Look(path + ".header");
        LookAtZone();
        SetRecordLock(header->get(), F_WRLCK);
        auto head = Get<STLOG_HDR_S>(header->get(), 0);
        SetRecordLock(file->get(), F_WRLCK);
        Put(file->get(), head.astSec[3].uiCur, kRecord.data(), kRecord.size());
        SetRecordLock(file->get(), F_UNLCK);
        head.astSec[3].uiCur += static_cast<uint32_t>(kRecord.size());
        Put(header->get(), 0, &head, sizeof head);
        SetRecordLock(header->get(), F_UNLCK);
    };
}

// --- syslog ---

// Somebody must listen at /dev/log, or the lines cost nothing.
class SystemLog {
  public:
    SystemLog() : reader_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        unlink("/dev/log");
        sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = "/dev/log"};
        MUST(bind(reader_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0);
        pid_ = fork();
        MUST(pid_ >= 0);
        if (pid_ != 0)
            return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);  // also when the contest ends with a failure
        char line[1024];
        while (true)
            MUST(recv(reader_.get(), line, sizeof line, 0) > 0);
    }
    ~SystemLog() { kill(pid_, SIGKILL); }
    SystemLog(const SystemLog&) = delete;
    SystemLog& operator=(const SystemLog&) = delete;

  private:
    Descriptor reader_;
    pid_t pid_;
};

Operation SystemLines() {
    openlog("bench", 0, LOG_USER);
    return [] { syslog(LOG_INFO, "%s", kText.c_str()); };
}

// --- The contests ---

Contest Records(unsigned processes) {
    const std::string dir = InMemory() + "/";
    Contest contest{.name = "KORX_DLog record",
                    .operations = 3000 / processes,
                    .processes = processes,
                    .size = processes,
                    .measure = Measure::kMeanAndTail,
                    .contestants = {}};
    contest.contestants = {
        IntoFile("korx", Role::kOurs, dir + "ring", DiagRecords),
        IntoFile("floor", Role::kFloor, dir + "ring-floor", RecordFloor),
        IntoFile("log4cplus, lock file", Role::kPeer, dir + "log4cplus", Log4cplusLines),
        IntoFile("syslog", Role::kPeer, dir + "none",
                 [](const std::string&) { return SystemLines(); }),
    };
    contest.contestants.back().is_done = nullptr;
    return contest;
}

// Without a lock between processes these lose lines; one process is all that they can be asked for.
Contest LinesInMemory() {
    const std::string dir = InMemory() + "/";
    return {.name = "ORX_Log2File line, memory",
            .operations = 3000,
            .measure = Measure::kMeanAndTail,
            .contestants = {
                IntoFile("korx", Role::kOurs, dir + "text",
                         [](const std::string& path) { return Lines(path, ORX_LOG_MODE_FILE); }),
                IntoFile("floor", Role::kFloor, dir + "text-floor", LineFloor),
                IntoFile("spdlog, flushed", Role::kPeer, dir + "spdlog", SpdlogLines),
                IntoFile("glog, flushed", Role::kPeer, dir + "glog", GlogLines),
                IntoFile("boost.log, flushed", Role::kPeer, dir + "boost", BoostLines)}};
}

Contest LinesOnDisk() {
    const std::string dir = OnDisk() + "/";
    return {.name = "ORX_Log2File line, disk",
            .operations = 60,
            .contestants = {
                IntoFile("korx", Role::kOurs, dir + "text",
                         [](const std::string& path) { return Lines(path, ORX_LOG_MODE_FILE); }),
                IntoFile("floor", Role::kFloor, dir + "text-floor", LineFloor)}};
}

// While the pool is ready the ring alone gets the lines. Whether it is, and whether the text log
// exists, is looked at for each of them.
Contest LinesIntoRing() {
    const std::string dir = InMemory() + "/";
    const std::string ready = "/dev/shm/korx/PkgPoolReady";
    std::filesystem::create_directories("/dev/shm/korx");
    Descriptor(ready, O_CREAT | O_WRONLY);
    return {.name = "ORX_Log2File line into the ring",
            .operations = 3000,
            .contestants = {
                IntoFile("korx", Role::kOurs, dir + "diag",
                         [](const std::string& path) {
                             (void) DiagRecords(path);
                             return Lines(path + ".text", ORX_LOG_MODE_DIAG);
                         }),
                IntoFile("floor", Role::kFloor, dir + "diag-floor", [=](const std::string& path) {
                    const Operation record = RecordFloor(path);
                    return [=] {
                        Look(path);
                        record();
                        Look(ready);
                    };
                })}};
}

Contest ProcessLog() {
    const std::string dir = InMemory() + "/";
    return {.name = "KORX_PLog record",
            .operations = 3000,
            .measure = Measure::kMeanAndTail,
            .contestants = {IntoFile("korx", Role::kOurs, dir + "process", ProcessRecords),
                            IntoFile("floor", Role::kFloor, dir + "process-floor", ProcessFloor)}};
}

// A section holds fewer records than a round should have for a steady figure.
Contest StartLog() {
    const std::string path = InMemory() + "/start";
    Contest contest{.name = "KORX_STLog record", .operations = 1000, .contestants = {}};
    contest.contestants = {IntoFile("korx", Role::kOurs, path, StartRecords),
                           IntoFile("floor", Role::kFloor, path + "-floor", StartFloor)};
    for (Contestant& contestant : contest.contestants) {
        const auto lay_out = contestant.lay_out;
        const std::string header =
            path + (contestant.role == Role::kOurs ? "" : "-floor") + ".header";
        contestant.lay_out = [=] {
            lay_out();
            unlink(header.c_str());
        };
    }
    return contest;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    using namespace bench;
    Begin(argc, argv);
    const SystemLog system_log;
    for (const unsigned processes : {1, 2, 4, 8})
        Hold(Records(processes));
    Hold(LinesInMemory());
    Hold(LinesOnDisk());
    Hold(LinesIntoRing());
    Hold(ProcessLog());
    Hold(StartLog());
}
