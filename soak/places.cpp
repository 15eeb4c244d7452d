// What must be true of the logs without a head, byte by byte: the start log, and the process logs,
// also of those whose process was killed. Its successor goes on at the file's end, or from the
// beginning once that is where the limit is, so a file may hold pieces of many runs, and no reader
// can tell in which order they were written. Nor can one tell what is left of which lap near a
// limit when laps pass within a second.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "korx/plog.h"
#include "tickets.h"

namespace soak {
namespace {

// Where a ring of records lies. A lap ends where its room is less than this, so what begins behind
// may be left of any lap.
struct Ring {
    Log log;
    std::string path;
    size_t begin, end, room;
    std::vector<unsigned> writers;
};

struct Found {
    Name name;
    size_t begin, end;
    bool is_near_end;
    bool is_same_as(const Found& other) const {
        return name.writer == other.name.writer && name.number == other.name.number &&
               begin == other.begin;
    }
};

struct Content {
    size_t size = 0;
    std::vector<Found> records;
    bool has(const Found& record) const {
        return std::any_of(records.begin(), records.end(),
                           [&](const Found& found) { return found.is_same_as(record); });
    }
    bool has(const Name& name) const {
        return std::any_of(records.begin(), records.end(), [&](const Found& found) {
            return found.name.writer == name.writer && found.name.number == name.number;
        });
    }
};

// The process that now writes a log: since when, and what it has found there.
struct Run {
    uint32_t started = 0;
    std::vector<Found> before;
    bool wrote(const Found& record) const { return record.name.call().begun > started; }
};
Run g_runs[std::size(kProcessNames)];

Ring ProcessRing(unsigned process) {
    Ring ring{
        kProcess, std::string("../log/") + kProcessNames[process] + ".log", 0, kRingLimit, 300, {}};
    for (unsigned slot = 0; slot < kSlots; ++slot)
        ring.writers.push_back(process * kSlots + slot);
    return ring;
}

Ring StartRing(unsigned section) {
    STLOG_HDR_S header;
    STLOG_LoghdrInit(&header);
    const STLOG_SEC_S& bounds = header.astSec[section];
    Ring ring{kStart, std::string("../log/") + FileOf(kStart), bounds.uiStart, bounds.uiEnd, 600,
              {}};
    for (unsigned writer = 0; writer < kWriters; ++writer)
        if (writer % kSlots % kThreads == section)
            ring.writers.push_back(writer);
    return ring;
}

// Under the writers' lock.
std::string BytesOf(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return "";
    struct flock lock = {};
    lock.l_type = F_RDLCK;
    while (fcntl(fd, F_SETLKW, &lock) < 0 && errno == EINTR)
        continue;
    struct stat st = {};
    fstat(fd, &st);
    std::string bytes(static_cast<size_t>(st.st_size), '\0');
    bytes.resize(static_cast<size_t>(std::max<ssize_t>(0, pread(fd, &bytes[0], bytes.size(), 0))));
    close(fd);
    return bytes;
}

Content ContentOf(const Ring& ring) {
    const std::string bytes = BytesOf(ring.path);
    Content content{bytes.size(), {}};
    for (size_t begin = ring.begin, end; (end = bytes.find('\n', begin)) < ring.end;
         begin = end + 1) {
        const std::string_view line(&bytes[begin], end - begin);
        const size_t message = line.find("]<");
        Found found{{}, begin, end + 1, begin + ring.room > ring.end};
        if (message != line.npos && ParseMessage(line.substr(message + 1), &found.name) &&
            found.name.log == ring.log)
            content.records.push_back(found);
    }
    return content;
}

// What the run has found there stays until the run has got to it: from the beginning on, once the
// file has reached its limit, to which its first lap's end has cut or filled it.
void JudgeFormer(const std::string& path, const Run& run, const Content& content) {
    const size_t end = run.before.empty() ? 0 : run.before.back().end;
    size_t reached = 0;
    for (const Found& found : content.records)
        if (run.wrote(found) && found.begin < end && content.size >= kRingLimit)
            reached = std::max(reached, found.end);
    for (const Found& former : run.before)
        if (former.begin >= reached && !former.is_near_end && !content.has(former))
            Complain("%s: record %u of writer %u was at %zu before the last kill, and is not there",
                     path.c_str(), former.name.number, former.name.writer, former.begin);
}

// In a ring there is one place at which a later record is followed by an earlier one.
void JudgeOrder(const std::string& path, const Run& run, const Content& content) {
    unsigned falls = 0;
    uint32_t newest_begun = 0;
    for (const Found& found : content.records) {
        if (!run.wrote(found) || found.is_near_end)
            continue;
        const uint32_t ended = found.name.call().ended;
        const bool falls_here = ended != 0 && ended < newest_begun;
        falls += falls_here;
        newest_begun = falls_here ? 0 : std::max<uint32_t>(newest_begun, found.name.call().begun);
    }
    if (falls > 1)
        Complain("%s: its records' order is none of a ring", path.c_str());
}

// Whether the run has written over nothing of its own: anything stands there that it has found, or
// the file has not reached its limit.
bool IsIntact(const Ring& ring, const Run& run, const Content& content) {
    return ring.log == kProcess &&
           (content.size < ring.end ||
            std::any_of(run.before.begin(), run.before.end(),
                        [&](const Found& it) { return !it.is_near_end && content.has(it); }));
}

// The ticket behind which none of the run's records may be missing.
uint32_t CompleteSince(const Ring& ring, const Run& run, const Content& content) {
    uint32_t since = UINT32_MAX;
    for (const Found& found : content.records)
        if (const uint32_t ended = found.name.call().ended;
            run.wrote(found) && !found.is_near_end && ended != 0)
            since = std::min(since, ended);
    return std::max<uint32_t>(IsIntact(ring, run, content) ? run.started : since,
                              g_shared->disturbed);
}

void JudgeRing(const Ring& ring, const Run& run) {
    const uint32_t opened = ++g_shared->tickets;
    const Content content = ContentOf(ring);
    if (g_shared->disturbed <= run.started) {
        JudgeFormer(ring.path, run, content);
        JudgeOrder(ring.path, run, content);
    }
    const uint32_t since = CompleteSince(ring, run, content);
    for (const unsigned writer : ring.writers) {
        const unsigned drawn = std::min<unsigned>(g_shared->drawn[ring.log][writer], kMostCalls);
        for (unsigned number = 0; number < drawn; ++number) {
            const Name name{ring.log, writer, number};
            if (name.call().was_accepted(since, opened) && !content.has(name))
                Complain("%s: record %u of writer %u is missing", ring.path.c_str(), number,
                         writer);
        }
    }
}

}  // namespace

void JudgePlaces() {
    for (unsigned process = 0; process < std::size(kProcessNames); ++process)
        JudgeRing(ProcessRing(process), g_runs[process]);
    for (unsigned section = 0; section < kThreads; ++section)
        JudgeRing(StartRing(section), Run{});
}

void NoteStart(unsigned process) {
    if (process < std::size(kProcessNames))
        g_runs[process] = {++g_shared->tickets, ContentOf(ProcessRing(process)).records};
}

}  // namespace soak
