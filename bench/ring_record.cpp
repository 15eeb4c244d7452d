// One record of the diagnostic record log.
#include "bench.h"
#include "korx/plog.h"

namespace {

const std::string kMessage(60, 'm');

void RingRecord(benchmark::State& state) {
    snprintf(g_stDLogInfo.acFileName, sizeof g_stDLogInfo.acFileName, "%s",
             bench::Path("ring").c_str());
    g_stDLogInfo.uiMaxSize = 262144;
    for (auto _ : state)
        bench::Must(KORX_DLog(0, 1, 1, 0, 0, "%s", kMessage.c_str()) == 0);
}
BENCHMARK(RingRecord);

void RingRecordFloor(benchmark::State& state) {
    const std::string path = bench::Path("ring-floor");
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640);
    const std::string record(130, 'r');
    const std::string head(12, 'h');
    off_t position = 12;
    for (auto _ : state) {
        struct stat st;
        bench::Must(stat(path.c_str(), &st) == 0 && fstat(fd, &st) == 0);
        (void) stat("/etc/localtime", &st);
        bench::SetRecordLock(fd, F_WRLCK);
        bench::Get(fd, head.size());
        bench::Put(fd, position, record);
        bench::Put(fd, 0, head);
        bench::SetRecordLock(fd, F_UNLCK);
        position = position > 262000 ? 12 : position + 130;
    }
    close(fd);
}
BENCHMARK(RingRecordFloor);

}  // namespace

BENCHMARK_MAIN();
