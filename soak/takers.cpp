// Those who read the protected rings while they are written.
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <string>

#include "korx/plog.h"
#include "korx/reader.h"
#include "tickets.h"

namespace soak {
namespace {

constexpr Log kProtected[] = {kSecurity, kLife};

// Takes what is unread and writes it down, an id and a message a line. Returns how many.
int TakeOnce(Log log) {
    const std::string path = std::string("../log/") + FileOf(log);
    korx_reader* reader = nullptr;
    korx_reader_error error = {};
    if (korx_reader_open(path.c_str(), KORX_LOG_AUTO, nullptr, &reader, &error) != KORX_READER_OK)
        return 0;
    std::string lines;
    int count = 0;
    korx_record record;
    while (korx_reader_next_unread(reader, &record) == 1) {
        char id[KORX_RECORD_ID_SIZE];
        if ((record.flags & KORX_RECORD_DAMAGED) != 0)
            continue;
        korx_reader_record_id(reader, &record, id, sizeof id);
        lines += std::string(id) + " " + std::string(record.message, record.message_length) + "\n";
        ++count;
    }
    // Where somebody has acknowledged meanwhile the cursor may be newer than the head that was
    // read.
    const bool misfits = (korx_reader_doubts(reader) & KORX_DOUBT_CURSOR) != 0;
    const korx_reader_code code = korx_reader_ack(reader, &error);
    korx_reader_close(reader);
    if (misfits && count > 0 && code == KORX_READER_OK && g_shared->round != Round::kRemovals)
        Complain("%s: a killed command has left a cursor that is not the head's", path.c_str());
    if (code == KORX_READER_CURSOR || code == KORX_READER_UNSURE || code == KORX_READER_WRITE)
        Complain("%s: %s", path.c_str(), error.text);
    if (code != KORX_READER_OK)
        return 0;
    FILE* const taken = fopen("taken.reader", "ae");
    fputs(lines.c_str(), taken);
    fclose(taken);
    return count;
}

int64_t NowUs() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000000 + now.tv_nsec / 1000;
}

void WatchHead(Log log) {
    const std::string path = std::string("../log/") + FileOf(log);
    LOG_HEAD_S head = {};
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const bool whole = fd >= 0 && pread(fd, &head, sizeof head, 0) == ssize_t{sizeof head};
    if (fd >= 0)
        close(fd);
    if (whole &&
        (head.uiLogLen > kRingLimit || head.uiDumpLen > kRingLimit || head.uiTotalLen > kRingLimit))
        Complain("%s: the head says %u %u %u", path.c_str(), head.uiLogLen, head.uiDumpLen,
                 head.uiTotalLen);
    korx_reader* reader = nullptr;
    if (korx_reader_open(path.c_str(), KORX_LOG_AUTO, nullptr, &reader, nullptr) != KORX_READER_OK)
        return;
    korx_damage damage;
    for (size_t i = 0; korx_reader_get_damage(reader, i, &damage) == 1; ++i)
        if (damage.rule <= KORX_DAMAGE_DUMP_POSITION)
            Complain("%s: offset %llu: %s", path.c_str(),
                     static_cast<unsigned long long>(damage.offset), damage.text);
    korx_reader_close(reader);
}

}  // namespace

void TakeRest() {
    constexpr int kMostTakes = 10;
    for (const Log log : kProtected) {
        int takes = 0;
        while (takes < kMostTakes && TakeOnce(log) > 0)
            ++takes;
        if (takes == kMostTakes)
            Complain("%s: what was taken is handed out again and again", FileOf(log));
    }
}

void RunTaker() {
    const Descriptors descriptors;
    for (; !g_shared->stops; usleep(20000))
        for (const Log log : kProtected)
            TakeOnce(log);
    descriptors.judge("taker", 0);
    _exit(0);
}

void RunSampler() {
    const Descriptors descriptors;
    for (; !g_shared->stops; usleep(3000))
        for (const Log log : {kDiag, kSecurity, kLife})
            WatchHead(log);
    descriptors.judge("sampler", 0);
    _exit(0);
}

// In a round of kills the command ends at any moment, too.
void RunCommand(const char* korx, unsigned seed) {
    std::minstd_rand random(seed);
    int64_t whole_run = 20000;  // of one that was not killed, in microseconds
    for (; !g_shared->stops; usleep(random() % 30000)) {
        const bool is_life = random() % 2 == 0;
        const pid_t child = fork();
        if (child == 0) {
            const int null = open("/dev/null", O_RDWR);
            dup2(null, STDOUT_FILENO);
            dup2(null, STDERR_FILENO);
            execl(korx, korx, "log", "take", is_life ? "life" : "security", "--json", "--output",
                  "taken.command", nullptr);
            _exit(127);
        }
        const int64_t begin = NowUs();
        const bool is_killed = g_shared->round == Round::kKills && random() % 2 == 0;
        if (is_killed) {
            usleep(static_cast<useconds_t>(random() % whole_run));
            kill(child, SIGKILL);
        }
        int status = 0;
        waitpid(child, &status, 0);
        if (!is_killed)
            whole_run = std::min<int64_t>(NowUs() - begin, 1000000);
        if (WIFEXITED(status) && WEXITSTATUS(status) == 127)
            Complain("%s cannot be run", korx);
    }
    _exit(0);
}

}  // namespace soak
