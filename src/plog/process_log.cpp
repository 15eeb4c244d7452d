// The process logs: a plain text file for each process of the component. A file that has reached
// its limit is written again from its beginning; each process keeps its own position in it.
//
// Lock order: the slot's mutex, then the file lock.
#include "korx/plog.h"

#include <errno.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "format/kinds.h"
#include "korx/path.h"
#include "plog/file.h"
#include "plog/record.h"
#include "plog/report.h"

namespace korx {
namespace {

constinit pthread_mutex_t slot_mutexes[kComponentCount] = {
    PTHREAD_MUTEX_INITIALIZER, PTHREAD_MUTEX_INITIALIZER, PTHREAD_MUTEX_INITIALIZER,
    PTHREAD_MUTEX_INITIALIZER, PTHREAD_MUTEX_INITIALIZER};
constinit ForkMutex fork_mutexes[kComponentCount] = {
    ForkMutex(&slot_mutexes[0]), ForkMutex(&slot_mutexes[1]), ForkMutex(&slot_mutexes[2]),
    ForkMutex(&slot_mutexes[3]), ForkMutex(&slot_mutexes[4])};

// The position is asked for each time, and the write leaves it behind the record: a forked child
// moves the same one.
uint32_t MoveToRoom(int fd, off_t size, uint32_t length, uint32_t limit) {
    if (static_cast<int32_t>(size) < 0)
        return kRecordFailed;
    const off_t position = lseek(fd, 0, SEEK_CUR);
    const bool reaches_limit = position + off_t{length} > off_t{limit};
    if (position <= size && !reaches_limit)
        return kOk;

    // A position beyond the end of a file that somebody cut needs no cut of its own.
    if (reaches_limit && ftruncate(fd, limit) < 0)
        return DbgFail(kRecordFailed, "PLOG ftruncate unsuccessfully, err: %d.", errno);
    if (lseek(fd, 0, SEEK_SET) < 0)
        return DbgFail(kRecordFailed, "PLOG lseek unsuccessfully, err: %d.", errno);
    return kOk;
}

}  // namespace
}  // namespace korx

using namespace korx;

void KORX_PLogInit(uint32_t, const char* process_name, uint32_t max_size) {
    DirectoryText directory;
    if (KORX_GetLogPath(directory.data(), directory.capacity()) != kOk)
        return DBG_SysLog(LOG_ERR, "KORX PLogInit, get log path unsuccessfully.");
    const uint32_t slot = ORX_PLOG_GetCompType(process_name);
    if (slot >= kComponentCount)
        return DBG_SysLog(LOG_ERR, "KORX PLogInit, get comp type unsuccessfully.");

    LOG_INFO_S& info = g_stPLogInfo[slot];
    constexpr size_t kNameSize = sizeof info.acFileName;
    const int named = directory.empty() ? snprintf_s(info.acFileName, kNameSize, kNameSize - 1,
                                                     "../../common/log/%s.log", process_name)
                                        : snprintf_s(info.acFileName, kNameSize, kNameSize - 1,
                                                     "%s/%s.log", directory.c_str(), process_name);
    if (named < 0)
        return DBG_SysLog(LOG_ERR, "Get private log unsuccessfully, log path:%s proc name:%s.",
                          directory.c_str(), process_name);
    info.uiMaxSize = max_size == 0 ? KindOf(KORX_LOG_PROCESS).limit : max_size;
}

uint32_t KORX_PLog(uint32_t level, uint32_t m_value, uint32_t value, const char* format, ...) {
    Arguments args;
    va_start(args.list, format);
    MessageText message;
    if (!message.vformat(format, args.list))
        return kRecordFailed;
    FixedText<16> process;  // stays empty, and is then refused, when no log is configured
    (void) ORX_PLOG_GetProcName(process.data(), process.capacity());
    return PLOG_LogFile(process.c_str(), kOwnProcessFormat, LevelName(level), g_uiOrxLocationId,
                        m_value, value, message.c_str());
}

uint32_t KORX_PLogByProcName(uint32_t level, const char* process_name, uint32_t m_value,
                             uint32_t value, const char* format, ...) {
    Arguments args;
    va_start(args.list, format);
    MessageText message;
    if (!message.vformat(format, args.list))
        return kRecordFailed;
    return PLOG_LogFile(process_name, kNamedProcessFormat, g_uiOrxLocationId, m_value,
                        LevelName(level), value, message.c_str());
}

uint32_t PLOG_LogFile(const char* process_name, const char* format, ...) {
    Arguments args;
    va_start(args.list, format);
    const LogScope writing;
    const uint32_t slot = ORX_PLOG_GetCompType(process_name);
    if (slot >= kComponentCount)
        return DbgFail(kRecordFailed, "PLOG GetLogInfo, get comp type unsuccessfully.");

    const LOG_INFO_S& info = g_stPLogInfo[slot];
    int* const fd = &g_iPLogFileFd[slot];
    const RecordRoad road(fork_mutexes[slot]);
    if (!road || EnsureOpenAtEnd(info.acFileName, fd) != kOk)
        return kRecordFailed;
    Record record;
    if (!record.assemble(format, args.list))
        return kRecordFailed;
    LogFileLock lock(info.acFileName, fd, OpenAtEnd);
    if (!AcquireOrReport(&lock))
        return kRecordFailed;
    (void) MoveToRoom(*fd, lock.size(), record.length(), info.uiMaxSize);
    (void) LOG_Write(*fd, record.length(), record.text());
    ReleaseOrReport(&lock);
    return kOk;
}

uint32_t PLOG_Buff2File(int fd, const void* record, uint32_t length, uint32_t limit) {
    ReportedLock lock(fd);
    (void) PLOG_CheckAndTruncate(fd, length, limit);
    (void) LOG_Write(fd, length, record);
    lock.release();
    return kOk;
}

uint32_t PLOG_CheckAndTruncate(int fd, uint32_t length, uint32_t limit) {
    struct stat st;
    return fstat(fd, &st) < 0 ? kRecordFailed : MoveToRoom(fd, st.st_size, length, limit);
}
