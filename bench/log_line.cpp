// One line of the diagnostic log, straight into its file.
#include <string.h>
#include <sys/file.h>

#include "bench.h"
#include "korx/log.h"

namespace {

const std::string kMessage(60, 'm');

void LogLine(benchmark::State& state) {
    ORX_LogInfo record = {};
    record.uiLogMode = ORX_LOG_MODE_FILE;
    record.uiMaxLogLen = 0x80000;
    strcpy(record.acLogDir, bench::Dir().c_str());
    strcpy(record.acLogFileName, "line.log");
    g_stLogInfo = record;
    for (auto _ : state)
        ORX_Log2File(1, "%s", kMessage.c_str());
    bench::Must(access(bench::Path("line.log").c_str(), F_OK) == 0);
}
BENCHMARK(LogLine);

void LogLineFloor(benchmark::State& state) {
    const std::string path = bench::Path("line-floor.log");
    const std::string line(125, 'l');
    const std::string length(4, 'n');
    off_t position = 4;
    for (auto _ : state) {
        struct stat st;
        (void) stat("/etc/localtime", &st);
        free(realpath(bench::Dir().c_str(), nullptr));
        const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_SYNC | O_CLOEXEC, 0640);
        bench::Must(flock(fd, LOCK_EX) == 0);
        bench::Get(fd, length.size());
        bench::Put(fd, position, line);
        bench::Put(fd, 0, length);
        bench::Must(flock(fd, LOCK_UN) == 0);
        close(fd);
        position = position > 524288 ? 4 : position + 125;
    }
}
BENCHMARK(LogLineFloor);

}  // namespace

BENCHMARK_MAIN();
