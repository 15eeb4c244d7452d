// What every case must leave as it found it, whatever it is about: the descriptors that are open,
// the published mutexes, and the file locks of the process.
#include "support/guard.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>

#include "korx/ini.h"
#include "korx/plog.h"
#include "support/faults.h"
#include "support/fixture.h"

// Some programs do without the library.
#pragma weak g_iPLogFileFd
#pragma weak g_iDLogFileFd
#pragma weak g_iSLogFileFd
#pragma weak g_lifeLogFileFd
#pragma weak g_iSTLogFileFd
#pragma weak g_iSTLogFileHeadFd
#pragma weak g_unDLogMutex
#pragma weak g_unSLogMutex
#pragma weak g_unLLogMutex
#pragma weak g_unKorxIniWriteLock

namespace korx::test {
namespace {

// The logs stay open until the process ends.
bool IsLog(int fd) {
    const int* const slots[] = {&g_iDLogFileFd, &g_iSLogFileFd, &g_lifeLogFileFd, &g_iSTLogFileFd,
                                &g_iSTLogFileHeadFd};
    const auto holds = [=](const int* slot) { return slot != nullptr && *slot == fd; };
    const int* const logs = g_iPLogFileFd;
    return std::any_of(std::begin(slots), std::end(slots), holds) ||
           (logs != nullptr && std::find(logs, logs + 5, fd) != logs + 5);
}

bool IsFree(pthread_mutex_t* mutex) {
    return mutex == nullptr ||
           (pthread_mutex_trylock(mutex) == 0 && pthread_mutex_unlock(mutex) == 0);
}

// The lines of /proc/locks look like "1: POSIX  ADVISORY  WRITE 4711 08:01:131 0 EOF".
std::string LocksOfThisProcess() {
    std::ifstream locks("/proc/locks");
    std::string held;
    for (std::string line; std::getline(locks, line);) {
        std::istringstream fields(line);
        std::string number, type, advisory, access, pid;
        fields >> number >> type >> advisory >> access >> pid;
        if (pid == std::to_string(getpid()))
            held += line + "\n";
    }
    return held;
}

// Without libc's socket for the system log, which is there from the first line on.
std::set<int> OpenNow() {
    std::set<int> open = OpenFiles();
    closelog();
    std::erase_if(open, [](int fd) { return fcntl(fd, F_GETFD) < 0; });
    return open;
}

std::string TargetOf(int fd) {
    char target[512] = "";
    (void) !readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), target, sizeof target - 1);
    return target;
}

struct Guard : ::testing::EmptyTestEventListener {
    void OnTestStart(const ::testing::TestInfo&) override { before_ = Belongings(); }
    void OnTestEnd(const ::testing::TestInfo&) override { EXPECT_EQ(before_.left_behind(), ""); }

    Belongings before_;
};

[[maybe_unused]] const bool g_watches = [] {
    ::testing::UnitTest::GetInstance()->listeners().Append(new Guard);
    return true;
}();

}  // namespace

Belongings::Belongings() : open_(OpenNow()) {
}

std::string Belongings::left_behind() const {
    const Untapped untapped;
    std::string left = LocksOfThisProcess();
    for (const int fd : OpenNow())
        if (!open_.contains(fd) && !IsLog(fd))
            left += "open: " + std::to_string(fd) + ", " + TargetOf(fd) + "\n";
    for (pthread_mutex_t* const mutex :
         {&g_unDLogMutex, &g_unSLogMutex, &g_unLLogMutex, &g_unKorxIniWriteLock})
        left += IsFree(mutex) ? "" : "a published mutex is held\n";
    return left;
}

}  // namespace korx::test
