// A profile of forty keys: one value looked up, one value changed.
#include <stdio.h>

#include "bench.h"
#include "korx/ini.h"

namespace {

std::string Content() {
    std::string content;
    for (int section = 0; section < 4; ++section) {
        content += (section == 0 ? "[S" : "\n[S") + std::to_string(section) + "]\n";
        for (int key = 0; key < 10; ++key)
            content += "key" + std::to_string(key) + "=value" + std::to_string(key) + "\n";
    }
    return content;
}

std::string MakeProfile(const char* name) {
    const std::string path = bench::Path(name);
    FILE* const file = fopen(path.c_str(), "we");
    bench::Must(fputs(Content().c_str(), file) >= 0 && fclose(file) == 0);
    return path;
}

void ReadLines(const std::string& path) {
    FILE* const file = fopen(path.c_str(), "r+e");
    char line[400];
    while (fgets(line, sizeof line, file) != nullptr)
        benchmark::DoNotOptimize(line);
    fclose(file);
}

void ProfileLookup(benchmark::State& state) {
    const std::string path = MakeProfile("lookup.ini");
    char value[64];
    for (auto _ : state)
        bench::Must(KORX_IniGetValue(path.c_str(), "[S3]", "key9", value, sizeof value) == 0);
}
BENCHMARK(ProfileLookup);

void ProfileLookupFloor(benchmark::State& state) {
    const std::string path = MakeProfile("lookup-floor.ini");
    for (auto _ : state) {
        struct stat st;
        free(realpath(bench::Dir().c_str(), nullptr));
        bench::Must(stat(path.c_str(), &st) == 0);
        ReadLines(path);
    }
}
BENCHMARK(ProfileLookupFloor);

void ProfileChange(benchmark::State& state) {
    const std::string path = MakeProfile("change.ini");
    for (auto _ : state)
        bench::Must(KORX_IniSetOrAddValue(path.c_str(), "[S3]", "key9", "changed") == 0);
}
BENCHMARK(ProfileChange);

void ProfileChangeFloor(benchmark::State& state) {
    const std::string path = MakeProfile("change-floor.ini");
    const std::string fresh = path + "+", backup = path + "-", lock = path + ".lock";
    const std::string content = Content();
    for (auto _ : state) {
        const int lock_fd = open(lock.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0640);
        bench::SetRecordLock(lock_fd, F_WRLCK);
        for (int resolved = 0; resolved < 4; ++resolved)
            free(realpath(bench::Dir().c_str(), nullptr));
        ReadLines(path);
        const int old_fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
        const int fd = open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        bench::SetRecordLock(fd, F_WRLCK);
        bench::SetRecordLock(old_fd, F_WRLCK);
        struct stat st;
        bench::Must(fstat(old_fd, &st) == 0 && fchmod(fd, st.st_mode & 0740) == 0 &&
                    fchown(fd, st.st_uid, st.st_gid) == 0);
        bench::Put(fd, 0, content);
        bench::Must(fsync(fd) == 0);
        bench::SetRecordLock(fd, F_UNLCK);
        close(fd);
        (void) unlink(backup.c_str());
        bench::Must(link(path.c_str(), backup.c_str()) == 0);
        bench::Must(rename(fresh.c_str(), path.c_str()) == 0);
        for (const char* const synced : {path.c_str(), bench::Dir().c_str()}) {
            const int synced_fd = open(synced, O_RDONLY | O_CLOEXEC);
            bench::Must(fsync(synced_fd) == 0);
            close(synced_fd);
        }
        bench::SetRecordLock(old_fd, F_UNLCK);
        close(old_fd);
        bench::SetRecordLock(lock_fd, F_UNLCK);
        close(lock_fd);
    }
}
BENCHMARK(ProfileChangeFloor);

}  // namespace

BENCHMARK_MAIN();
