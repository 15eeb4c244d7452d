// The calls of texts, containers, logs, commands and the reader.
#include <fcntl.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ipc.h>
#include <syslog.h>
#include <unistd.h>

#include "threads.h"

namespace threads {
namespace {

constexpr char kRecord[] = "[2026-11-24 12:00:00.000001][Index:0x1][AppCid:1][INFO][L:1 M:1][1]a\n";
constexpr uint32_t kRecordSize = sizeof kRecord - 1;
constexpr uint32_t kLimit = 4096;

uint32_t IsBad(uint32_t count, ...) {
    va_list texts;
    va_start(texts, count);
    const uint32_t is_bad = ORX_IsStrParaHasInvalidChar(count, texts);
    va_end(texts);
    return is_bad;
}

uint32_t AddTime(Scene& at, const char* format, ...) {
    va_list args;
    va_start(args, format);
    uint32_t length = 0;
    const uint32_t code = LOG_BuffAddTime(at.out, sizeof at.out, &length, format, args);
    va_end(args);
    return code;
}

bool Constructs(const char* command) {
    char** argv = nullptr;
    const uint32_t code = ORX_CommandConstructArgv(command, " ", &argv);
    free(argv);
    return code == 0;
}

uint32_t Execute(const char* program) {
    char name[16];
    strncpy(name, program, sizeof name);
    char* argv[] = {name, nullptr};
    return KORX_SystemExecvp(argv);
}

bool SetsAndFreesSemaphore(uint32_t key) {
    uint32_t id = 0;
    return KORX_MutexSemaCreate(key, &id) == 0 && KORX_MutexSemaDestroy(id) == 0;
}

// Text and length of the thread's TLV record.
bool FindsTlv(Scene& at) {
    uint16_t length = 0;
    const void* value = nullptr;
    return ORX_GetVFromTLV(at.tlv, sizeof at.tlv, 7, &length, &value) == 0 && length == 5;
}

uint32_t NodeIs(void* key, KORX_DllNode* node) {
    return node == key ? 0 : 1;
}

bool Frees(void* memory) {
    free(memory);
    return memory != nullptr;
}

std::string InLogs(const char* name) {
    return std::string(g_acLogPath) + '/' + name;
}

// Opens by one of the calls that hand a descriptor out.
bool Opens(uint32_t (*open)(const char*, int*), const char* path) {
    int fd = -1;
    return open(path, &fd) == 0 && close(fd) == 0;
}

bool RewritesHead(int ring) {
    LOG_HEAD_S head = {};
    return DLOG_ReadHead(ring, &head) == sizeof head && DLOG_WriteHead(ring, &head) == sizeof head;
}

bool AcceptsStartHeader() {
    STLOG_HDR_S header, other;
    STLOG_LoghdrInit(&header);
    STLOG_LoghdrInit(&other);
    return STLOG_LogValidCheck(&header, &other) == 1;
}

constexpr Call kCalls[] = {
    // str
    RUNS(ORX_EnSureExistPathSep, at.text("/a"), 8),
    GIVES(ORX_SplitPathFileName, 1, "/a/b", at.in, 8, at.out, 8),
    GIVES(ORX_Strtrimr, 0, at.text(" a")),
    GIVES(ORX_Strtriml, 0, at.text("a ")),
    GIVES(ORX_Trim, 0, at.text(" a "), 4),
    GIVES(ORX_StrIsStartWith, 1, "abc", "ab"),
    RUNS(ORX_RemoveLastRn, at.text("a\r\n"), 4),
    GIVES(ORX_ReplaceChar, 2, at.text("aba"), 'a', 'c'),
    {"ORX_StrNdup", [](Scene&) { return Frees(ORX_StrNdup("abc", 2)); }},
    GIVES(ORX_SplitString2Vector, 0, "a,b", ',', 0, at.vector()),
    GIVES(ORX_FindPreGangStr, 2, "/a/b", 3),
    GIVES(ORX_StringLoop, 0, "abc", at.out, 8),
    RUNS(ORX_CutPathStr, at.text("/a/../b")),
    GIVES(ORX_IsStringEqual, 1, "a", "a"),
    GIVES(ORX_IsSpaceString, 1, " \t"),
    GIVES(ORX_StringTrim, 0, at.text(" a ")),
    GIVES(ORX_IsDigitString, 1, "12"),
    GIVES(ORX_MkDir, 0, at.path("new/a/b"), 0750),
    GIVES(ORX_Write, 3, at.fd(), "new", 3),
    GIVES(ORX_Usleep, 0, 1),
    GIVES(ORX_Sleep, 0u, 0),
    GIVES(ORX_GetStrIpAddrByDig, 7, 0x01020304, at.out, 16),
    {"ORX_GetDigIpAddrByStr",
     [](Scene&) {
         uint32_t address = 0;
         return ORX_GetDigIpAddrByStr("1.2.3.4", &address) == ORX_IP_ADDRESS_FIELDS;
     }},
    // container
    RUNS(KORX_DllInsert, &at.list, nullptr, &at.nodes[2]),
    RUNS(KORX_DllInsertInMiddle, &at.list, &at.nodes[0], &at.nodes[2], &at.nodes[1]),
    RUNS(KORX_DllDelete, &at.list, &at.nodes[0]),
    RUNS(KORX_DllDeleteInMiddle, &at.list, &at.list.stNode, &at.nodes[0], &at.nodes[1]),
    GIVES(KORX_DllGet, &at.nodes[0], &at.list),
    GIVES(KORX_DllFind, &at.nodes[1], &at.list, &at.nodes[1], NodeIs),
    GIVES(KORX_DllWalk, 2u, &at.list, [](KORX_DllNode*) {}),
    RUNS(KORX_DllFreeAll, &at.list, [](void*) {}),
    {"ORX_CreateStack", [](Scene& at) { return at.stack() != nullptr; }},
    {"ORX_DestroyStack", [](Scene& at) { return at.stack() != nullptr; }},
    GIVES(ORX_IsStackEmpty, 0u, at.stack()),
    GIVES(ORX_PushStack, 0u, at.stack(), nullptr),
    {"ORX_PopStack",
     [](Scene& at) {
         void* element = nullptr;
         return ORX_PopStack(at.stack(), &element) == 0 && Frees(element);
     }},
    {"ORX_GetStackTopElement",
     [](Scene& at) {
         void* element = nullptr;
         return ORX_GetStackTopElement(at.stack(), &element) == 0 && element != nullptr;
     }},
    {"ORX_VEC_VectorInit", [](Scene& at) { return at.vector() != nullptr; }},
    {"ORX_VEC_VectorFree", [](Scene& at) { return at.vector() != nullptr; }},
    GIVES(ORX_VEC_VectorEnsure, 0u, at.vector(), 9),
    GIVES(ORX_VEC_VectorEmptySlot, 1u, at.vector()),
    GIVES(ORX_VEC_VectorSet, 1u, at.vector(), malloc(1)),
    GIVES(ORX_VEC_VectorSetIndex, 3u, at.vector(), 3, malloc(1)),
    RUNS(ORX_VEC_VectorClearAll, at.vector()),
    GIVES(ORX_VEC_VectorCount, 1u, at.vector()),
    RUNS(ORX_FreeVectorNodes, at.vector()),
    GIVES(ORX_VEC_Bzero, 0u, at.out, sizeof at.out),
    {"ORX_AppendTLV", FindsTlv},
    GIVES(ORX_SetValue, 0u, at.tlv, &at.room, 5, "value"),
    {"ORX_GetVFromTLV", FindsTlv},
    GIVES(ORX_GetStrByTlvType, 0u, 7, at.tlv, sizeof at.tlv, at.out, 8),
    // sema
    {"KORX_MutexSemaGetKey",
     [](Scene& at) {
         uint32_t key = 0;
         return KORX_MutexSemaGetKey(at.path("f"), 1, &key) == 0 && key != 0;
     }},
    {"KORX_MutexSemaCreate", [](Scene&) { return SetsAndFreesSemaphore(IPC_PRIVATE); }},
    {"KORX_MutexSemaDestroy", [](Scene&) { return SetsAndFreesSemaphore(IPC_PRIVATE); }},
    GIVES(KORX_MutexSemaP, 0u, at.semaphore()),
    GIVES(KORX_MutexSemaV, 0u, at.semaphore()),
    // cmd
    GIVES(KORX_GetExitStatus, 3u, 3 << 8),
    GIVES(ORX_IsCommandForbidden, 1u, "/bin/sh"),
    {"ORX_CommandConstructArgv", [](Scene&) { return Constructs("a b c"); }},
    {"KORX_SystemExecvp", [](Scene&) { return Execute("true") == 0; }},
    GIVES(ORX_CommandFilter, 0u, "abc", 3),
    GIVES(KORX_Execvp, 1u, "false now", " "),
    {"ORX_IsStrParaHasInvalidChar", [](Scene&) { return IsBad(2, "a", "b;") != 0; }},
    GIVES(KORX_SystemWithFilter, 4u, "exit 4", 1, "a"),
    // log
    RUNS(ORX_Log2File, KORX_LEVEL_ERR, "line %d", 1),
    RUNS(ORX_syslog, LOG_INFO, "line %d", 1),
    RUNS(ORX_GetLogTimeStr, at.out, 26),
    GIVES(ORX_LogLevelSwitch2SysLogLevel, 3u, 3),
    {"ORX_UpdatelogLen",
     [](Scene& at) {
         uint32_t length = 0;
         ORX_UpdatelogLen(at.fd(), ORX_LOG_LENGTH_READ, &length);
         return length != 0;
     }},
    GIVES(ORX_CreateLogfile, 0u, g_acLogPath, "threads.log"),
    GIVES(ORX_WriteLogfile, 0u, InLogs("orx_app.log").c_str(), kLimit, "line\n"),
    GIVES(ORX_IsCrcClosed, 0u),
    RUNS(ORX_SpaceFullLogInit),
    // path
    GIVES(KORX_IsPathInit, 1u),
    GIVES(KORX_GetLogPath, 0u, at.out, 256),
    GIVES(KORX_GetDataPath, 0u, at.out, 256),
    GIVES(KORX_GetCommTmpPath, 0u, at.out, 256),
    GIVES(KORX_GetLocalDataFileFullPath, 0u, at.out, 256),
    RUNS(KORX_CreateLinkFileForPath, at.path("l"), 0),
    // plog
    GIVES(ORX_LOG_GetSlotId, 0u),
    GIVES(LOG_GetCurrPath, g_acLogPath),
    GIVES(DLOG_GetLogInfo, &g_stDLogInfo),
    GIVES(SLOG_GetLogInfo, &g_stSLogInfo),
    GIVES(LLOG_GetLogInfo, &g_stLifeLogInfo),
    GIVES(ORX_PLOG_GetCompType, 3u, "zelk"),
    GIVES(ORX_PLOG_GetProcName, 0u, at.out, 16),
    RUNS(DBG_SysLog, LOG_ERR, "line %d", 1),
    GIVES(DBG_LockReg, 0u, at.fd(), DBG_LOCK_SET, DBG_LOCK_WRITE, 0, SEEK_SET, 0),
    GIVES(LOG_SetCloexecFlag, 0, at.fd()),
    {"LOG_OpenFile",
     [](Scene& at) {
         int fd = -1;
         return LOG_OpenFile(at.path("f"), O_RDWR, &fd) == 0 && close(fd) == 0;
     }},
    {"LOG_CheckAndCreateFile",
     [](Scene& at) { return Opens(LOG_CheckAndCreateFile, at.path("new.log")); }},
    GIVES(LOG_Write, 3, at.fd(), 3, "new"),
    GIVES(LOG_CheckAndTruncate, 0u, at.fd(), 2),
    GIVES(LOG_Buff2File, 0u, at.fd(), kRecord, kRecordSize, kLimit),
    GIVES(LOG_GetCurTime, 28, at.out, 32),
    {"LOG_BuffAddTime", [](Scene& at) { return AddTime(at, "%d", 1) == 0; }},
    GIVES(KORX_PLog, 0u, 1, 2, 3, "line %d", 1),
    GIVES(KORX_PLogByProcName, 0u, 1, "DXN", 2, 3, "line %d", 1),
    GIVES(PLOG_LogFile, 0u, "zelk", "line %d\n", 1),
    GIVES(PLOG_Buff2File, 0u, at.fd(), kRecord, kRecordSize, kLimit),
    GIVES(PLOG_CheckAndTruncate, 0u, at.fd(), 9, kLimit),
    GIVES(KORX_DLog, 0u, 1, 2, 3, 4, 5, "line %d", 1),
    GIVES(KORX_DLogFsync, 0u),
    GIVES(DLOG_LogFile, 0u, "line %d\n", 1),
    GIVES(DLOG_Buff2File, 0u, at.ring(), kRecord, kRecordSize, kLimit),
    {"DLOG_CheckAndCreateFile",
     [](Scene& at) { return Opens(DLOG_CheckAndCreateFile, at.path("new.ring")); }},
    {"DLOG_WriteHead", [](Scene& at) { return RewritesHead(at.ring()); }},
    {"DLOG_ReadHead", [](Scene& at) { return RewritesHead(at.ring()); }},
    GIVES(KORX_SecurityEventLog, 0u, 1, 2, 3, 4, 5, "line %d", 1),
    GIVES(SLOG_LogFile, 0u, "line %d\n", 1),
    GIVES(SLOG_Buff2File, 0u, at.ring(), kRecord, kRecordSize, kLimit),
    GIVES(LOG_IsReachUndump, 0u, LOG_HEAD_S{9, 0, 0}, 10, kLimit),
    GIVES(KORX_LifeCycleLog, 0u, 1, 2, 3, 4, 5, "line %d", 1),
    GIVES(LLOG_LogFile, 0u, "line %d\n", 1),
    GIVES(KORX_STLog, 0u, STLOG_SECTION_CFL, 1, 2, "line %d", 1),
    GIVES(STLOG_LogFile, 0u, STLOG_SECTION_DBG, "line %d\n", 1),
    GIVES(STLOG_CheckFileHandle, 0u),
    GIVES(STLOG_LogBuff2File, 0u, STLOG_SECTION_PATCH, kRecord, kRecordSize),
    {"STLOG_LoghdrInit", [](Scene&) { return AcceptsStartHeader(); }},
    {"STLOG_LogValidCheck", [](Scene&) { return AcceptsStartHeader(); }},
    GIVES(STLOG_GetMoudleBySecIndex, 0u, 1, at.out, 8),
    GIVES(KORX_IsImLibInited, 0u),
    GIVES(KORX_IsPkgPoolReady, 0u),
    GIVES(KORX_ReportLogByImLib, KORX_ERR_ALL_BITS, 1, "text"),
    GIVES(KORX_ReportDiagLogByImLib, KORX_ERR_ALL_BITS, 1, "text"),
};

}  // namespace

std::span<const Call> OtherCalls() {
    return kCalls;
}

}  // namespace threads
