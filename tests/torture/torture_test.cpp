// What is tortured: every exported call that talks to the kernel or takes memory.
#include "torture/torture.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "base/unique.h"
#include "korx/basic.h"
#include "korx/reader.h"
#include "support/faults.h"
#include "support/fixture.h"
#include "support/records.h"

namespace korx::test {
namespace {

constexpr char kProfile[] = "[A]\nx=1\n\n[B]\ny=2\n";
constexpr uint32_t kAll = KORX_ERR_ALL_BITS;
constexpr uint32_t kWrong = 4711;  // no code of the library: the call has answered wrongly

std::string Here() {
    const Untapped untapped;
    const MallocPtr<char> here(getcwd(nullptr, 0));
    return here.get();
}

void Nothing() {
}
void AFile() {
    WriteFile("f", "content\n");
}
void AProfile() {
    WriteFile("p", kProfile);
}
void AProtectedFile() {
    AFile();
    if (KORX_ProtectFile("f") != 0)
        abort();
}
void ATree() {
    MakeDirs("d/sub/deep");
    for (const char* const name : {"d/f", "d/sub/f", "d/sub/deep/f"})
        WriteFile(name, "content\n");
}
void TwoFiles() {
    WriteFile("f", "content\n");
    WriteFile("to", "older\n");
}
void Logs() {
    SetLogPath(Here());
    LOG_FileInit();
    KORX_PLogInit(0, "zelk", 0);
}
void ATextLog() {
    ORX_LogInfo info = {};
    info.uiLogMode = ORX_LOG_MODE_FILE;
    info.uiMaxLogLen = 100000;
    strcpy(info.acLogDir, Here().c_str());
    strcpy(info.acLogFileName, "orx_app.log");
    KORX_LogInit(&info);
}
void ATextLogBesideRecords() {
    Logs();
    if (KORX_OrxLogInit(1, "zelk") != 0)
        abort();
}
void ADiagRecord() {
    Logs();
    if (KORX_DLog(1, 2, 1, 0, 0, "line") != 0)
        abort();
}
// The archivers.
void Programs() {
    ATree();
    MakeDirs("bin");
    for (const char* const name : {"bin/zip", "bin/unzip"}) {
        WriteFile(name, "#!/bin/sh\necho archive >\"${5:-d/f}\"\n");
        if (chmod(name, 0755) != 0)
            abort();
    }
    setenv("PATH", (Here() + "/bin:/usr/bin:/bin").c_str(), 1);
}
void ALink() {
    AFile();
    if (symlink("nowhere", "l") != 0)
        abort();
}
constexpr char kRecord[] = "[2026-11-24 12:00:00.000001][Index:0x1][AppCid:1][INFO][L:1 M:1][1]a\n";

void AnUnreadLog() {
    int fd = -1;
    if (DLOG_CheckAndCreateFile((Here() + "/korx_safe.log").c_str(), &fd) != 0 ||
        SLOG_Buff2File(fd, kRecord, sizeof kRecord - 1, 4096) != 0 || close(fd) != 0)
        abort();
}
void ADamagedLog() {
    AnUnreadLog();
    WriteFile("korx_safe.log", ReadFile("korx_safe.log").replace(0, 4, "\xff\xff\xff\x7f"));
}

// The test's own descriptor, which is none of the calls that are made to fail.
UniqueFd Own(const char* name, int flags) {
    const Untapped untapped;
    return UniqueFd(open(name, flags | O_CLOEXEC, 0640));
}

uint32_t Opened(int flags) {
    const int fd = ZUVA_CanonicalOpen("./f", flags);
    return fd < 0 ? kFailed : uint32_t(ZUVA_CanonicalClose(fd) == 0 ? 0 : 2);
}

uint32_t ReadBytes() {
    char bytes[] = "........";
    const UniqueFd fd = Own("f", O_RDONLY);
    const uint32_t got = ORXFS_Read(fd.get(), bytes, 8);
    return got != 8 ? got : strcmp(bytes, "content\n") == 0 ? 0u : kWrong;
}

template <typename Length>
uint32_t WriteBytes(int32_t (*write)(int, const void*, Length)) {
    const UniqueFd fd = Own("to", O_WRONLY | O_TRUNC);
    const int32_t written = write(fd.get(), "new", 3);
    return written == 3 ? 0 : uint32_t(written);
}

// The result of a call that has none.
template <auto kCall>
uint32_t Untold() {
    kCall();
    return 0;
}
void ALine() {
    ORX_Log2File(3, "line");
}
void ALinkForPath() {
    KORX_CreateLinkFileForPath("l", 2);
}
void Space() {
    ORX_SpaceFull("/data", 97);
}
void AllSpace() {
    ORX_GetAndSaveAllDfInfo();
    WriteFile("orx_spacefull.log", "");  // what it found changes
}

uint32_t Visit(const char* path, const char*, uint32_t*, void*) {
    Returned() += path;
    return 0;
}

// The helpers of the logs that are plain files, of the rings and of the start log.
uint32_t WriteByHelpers() {
    int fd = -1;
    uint32_t code = LOG_CheckAndCreateFile((Here() + "/zelk.log").c_str(), &fd);
    if (code == 0)
        code = LOG_Buff2File(fd, kRecord, sizeof kRecord - 1, 1000);
    if (code == 0)
        code = PLOG_Buff2File(fd, kRecord, sizeof kRecord - 1, 1000);
    const UniqueFd closed(fd);
    return code;
}
uint32_t WriteRingByHelpers() {
    int fd = -1;
    uint32_t code = DLOG_CheckAndCreateFile((Here() + "/KORX_DIAG_LOG").c_str(), &fd);
    if (code == 0)
        code = DLOG_Buff2File(fd, kRecord, sizeof kRecord - 1, 1000);
    const UniqueFd closed(fd);
    return code;
}
uint32_t WriteStartByHelpers() {
    STLOG_HDR_S header;
    uint32_t code = STLOG_CheckFileHandle();
    if (code == 0)
        code = STLOG_LogHdrGet(1, &header);
    if (code == 0)
        code = STLOG_LogHdrPut(&header);
    return code == 0 ? STLOG_LogBuff2File(1, kRecord, sizeof kRecord - 1) : code;
}

enum class From { kPath, kDescriptor, kMemory };

uint32_t ReadUnread(From from, bool acknowledges) {
    constexpr char kName[] = "korx_safe.log";
    korx_reader* reader = nullptr;
    korx_reader_error error = {};
    const UniqueFd fd = Own(kName, O_RDWR);
    const std::string bytes = ReadFile(kName);
    korx_reader_code code =
        from == From::kPath ? korx_reader_open(kName, KORX_LOG_SECURITY, nullptr, &reader, &error)
        : from == From::kDescriptor
            ? korx_reader_open_fd(fd.get(), kName, KORX_LOG_SECURITY, nullptr, &reader, &error)
            : korx_reader_open_memory(bytes.data(), bytes.size(), KORX_LOG_SECURITY, nullptr,
                                      &reader, &error);
    korx_record record = {};
    if (code == KORX_READER_OK && !acknowledges &&
        (korx_reader_next(reader, &record) != 1 || *record.message != 'a'))
        code = korx_reader_code(kWrong);
    if (code == KORX_READER_OK && acknowledges && korx_reader_next_unread(reader, &record) == 1)
        code = korx_reader_ack(reader, &error);
    korx_refreshed how;
    if (code == KORX_READER_OK && !acknowledges && from == From::kPath)
        code = korx_reader_refresh(reader, &how, &error);
    korx_reader_close(reader);
    return code;
}

// Somebody looks after what earlier ones have kept.
uint32_t Repair() {
    {
        const Untapped untapped;
        WriteFile("kept", "");
        (void) unlink("korx_safe.log.damaged.1");
    }
    const auto keep = [](void*, const korx_reader*, const korx_record* record) {
        const std::string text =
            record != nullptr ? std::string(record->text, record->length) : "end";
        WriteFile("kept", ReadFile("kept") + text);
        return 0;
    };
    korx_reader_repaired repaired;
    korx_reader_error error;
    return korx_reader_repair("korx_safe.log", KORX_LOG_SECURITY, nullptr, keep, nullptr, &repaired,
                              &error);
}

const Scenario kScenarios[] = {
    // Files
    Scenario("Mkdir", Nothing, [] { return KORX_Mkdir((Here() + "/a/b").c_str(), 0750); },
             {KORX_ERR_CREATE_DIR}, kLoses, {"a"}),
    Scenario("MkDir", Nothing, [] { return ORX_MkDir((Here() + "/a/b").c_str(), 0750); },
             {KORX_ERR_CREATE_DIR, kFailed}, kLoses, {"a"}),
    Scenario("CreateDirByFile", Nothing,
             [] { return ORX_CreateDirByFile((Here() + "/a/b/f").c_str()); },
             {kFailed, KORX_ERR_CREATE_DIR}, kLoses, {"a"}),
    Scenario("CreateFile", Nothing, [] { return KORX_CreateFile("./f"); }),
    Scenario(
        "Fchmod", AFile, [] { return KORX_Fchmod("f", 0600); }, {kFailed}, kSilent),
    Scenario("DelFile", AFile, [] { return KORX_DelFile("f", 2); }, {ORXFS_ERR_REMOVE}, kNone, {},
             {"f"}),
    Scenario(
        "IsDirEmpty", ATree, [] { return KORX_IsDirEmpty("d"); }, {ORXFS_ERR_DIR_OPEN, 1}, kSilent),
    Scenario(
        "RmWriteRight", AFile, [] { return KORX_RmWriteRight("f"); }, {kFailed}, kSilent),
    Scenario(
        "GiveWriteRight", AFile, [] { return KORX_GiveWriteRight("f"); }, {kFailed}, kSilent),
    Scenario(
        "IsForIoctl", AFile, [] { return KORX_IsForIoctl("f"); }, {kFailed, 0, 1}, kSilent),
    Scenario(
        "IsFileProtected", AFile, [] { return KORX_IsFileProtected("f"); }, {1}, kSilent),
    Scenario(
        "Protect", AFile, [] { return KORX_ProtectFile("f"); }, {kFailed}, kUntold),
    Scenario(
        "Unprotect", AProtectedFile, [] { return KORX_UndoProtectFile("f"); }, {kFailed}, kUntold),
    Scenario("ProtectItself", AFile, [] { return ORXFS_ProtectFile("f", 1); },
             {kFailed, ORXFS_ERR_NOT_EXIST}, kUntold, {}, {"f"}),
    Scenario("UnprotectItself", AProtectedFile, [] { return ORXFS_UndoProtectFile("f", 1); },
             {kFailed, ORXFS_ERR_NOT_EXIST}, kUntold | kSilent, {}, {"f"}),
    Scenario("ReadBytes", AFile, ReadBytes, {kAll}, kSilent),
    Scenario("WriteBytes", TwoFiles, [] { return WriteBytes(KORX_Write); }, {kAll}, kSilent,
             {"to"}),
    Scenario("WriteText", TwoFiles, [] { return WriteBytes(ORX_Write); }, {kAll}, kSilent, {"to"}),
    Scenario(
        "CanonicalOpen", AFile, [] { return Opened(O_RDONLY); }, {kFailed, 2}, kSilent),
    Scenario(
        "Canonical", AFile,
        [] {
            char out[400];
            return KORX_GetCanonicalFilepath("f", out, sizeof out);
        },
        {kFailed}, kUntold),
    Scenario("LinkFile", ALink, [] { return KORX_LinkFile("f", 2, "l", 2); },
             {ORXFS_ERR_NOT_EXIST, ORXFS_ERR_SAME_FILE, ORXFS_ERR_SYMLINK}, kLoses, {}, {"l"}),
    Scenario("LinkFilesSafe", ALink,
             [] { return KORX_LinkFilesSafe(Here().c_str(), "f", Here().c_str(), "l"); },
             {kFailed, ORXFS_ERR_SYMLINK, ORXFS_ERR_SAME_FILE}, kLoses | kUntold, {}, {"l"}),
    Scenario("Walk", ATree, [] { return ORX_WalkDirRecur("d", "", Visit, Visit, nullptr); },
             {kFailed}, kSilent, {}, {"d/sub"}),
    Scenario("RemoveTree", ATree, [] { return ORX_RmParentDir("d", ORX_RM_ALL); }, {kFailed},
             kLoses | kUntold, {}, {"d/sub", "d/sub/deep", "d/f", "d/sub/f"}),
    Scenario("EmptyTree", ATree, [] { return ORX_RmParentDir("d", ORX_RM_KEEP_DIRECTORIES); },
             {kFailed}, kLoses | kUntold, {}, {"d/sub", "d/sub/deep", "d/f", "d/sub/f"}),
    Scenario("RawCopy", TwoFiles, [] { return KORX_CopyFile("./f", 4, "./to", 5); }, {kFailed},
             kLoses, {"to"}),
    Scenario("SafeCopy", TwoFiles,
             [] { return KORXFS_CopyFile("./f", 4, "./to", ORXFS_OVERWRITE, 5); },
             {kFailed, ORXFS_ERR_NOT_EXIST, ORXFS_ERR_SAME_FILE, ORXFS_ERR_PROTECTED},
             kLoses | kUntold, {"to.orxtmp"}, {"to", "to.orxtmp"}),
    Scenario("SpaceFull", Logs, Untold<Space>, {}, kUntold, {"orx_spacefull.log"}),
    Scenario("SpaceFullLogInit", Logs, Untold<ORX_SpaceFullLogInit>, {}, kUntold | kLoses,
             {"orx_spacefull.log"}),
    Scenario("AllSpace", Logs, Untold<AllSpace>, {}, kUntold, {"orx_spacefull.log"}),
    Scenario("Zip", Programs, [] { return ORX_ZipFile("d", "a.zip", 5); }, {kFailed}, kLoses,
             {"a.zip"}),
    Scenario("Unzip", Programs, [] { return ORX_UnZipFile("d/f", "new/d"); }, {kFailed}, kNone,
             {"new", "new/d", "d/f"}, {"new"}),
    // Profiles
    Scenario("GetValue", AProfile,
             [] {
                 char value[8];
                 return KORX_IniGetValue("./p", "[A]", "x", value, sizeof value);
             },
             {KORX_INI_ERR_LOAD, KORX_INI_ERR_NO_MEMORY}),
    Scenario("SetValue", AProfile, [] { return KORX_IniSetValue("./p", "[A]", "x", "new"); },
             {kFailed, KORX_INI_ERR_LOAD}, kOwnRights, {"p+", "p-", "p.lock"}, {"p+", "p-"}),
    Scenario("SetOrAdd", AProfile, [] { return KORX_IniSetOrAddValue("./p", "[C]", "x", "new"); },
             {kFailed, KORX_INI_ERR_NO_MEMORY}, kOwnRights | kSilent, {"p+", "p-", "p.lock"},
             {"p+", "p-"}),
    Scenario("SaveFile", AProfile, [] { return KORX_IniSaveFile("./p", nullptr); }, {kFailed},
             kOwnRights, {"p+", "p-"}, {"p+", "p-"}),
    // Paths, strings, containers, semaphores, commands
    Scenario(
        "Paths", [] { SetLogPath(Here()); },
        [] {
            char path[300];
            return KORX_GetLogPath(path, sizeof path);
        },
        {kFailed, 1}, kUntold),
    Scenario(
        "Split", Nothing,
        [] {
            ORX_VEC_Vector* const vector = ORX_VEC_VectorInit(nullptr, 1);
            if (vector == nullptr)
                return kFailed;
            const uint32_t code = ORX_SplitString2Vector("a b c", ' ', 0, vector);
            ORX_FreeVectorNodes(vector);
            ORX_VEC_VectorFree(vector);
            return code;
        },
        {kFailed}, kSilent),
    Scenario(
        "Stack", Nothing,
        [] {
            ORX_StackNode* const stack = ORX_CreateStack();
            if (stack == nullptr)
                return kFailed;
            const uint32_t code = ORX_PushStack(stack, nullptr);
            ORX_DestroyStack(stack);
            return code;
        },
        {kFailed}, kSilent),
    Scenario("Semaphore", AFile,
             [] {
                 uint32_t key = 0, id = 0;
                 uint32_t code = KORX_MutexSemaGetKey("f", 7, &key);
                 if (code == 0)
                     code = KORX_MutexSemaCreate(key, &id);
                 return code == 0 ? KORX_MutexSemaDestroy(id) : code;
             }),
    Scenario("Execvp", Nothing, [] { return KORX_Execvp("true", " "); }, {kFailed, kAll}),
    Scenario("Filtered", Nothing, [] { return KORX_SystemWithFilter("true %s", 1, "x"); },
             {kFailed, kAll}),
    Scenario("LinkForPath", ALink, Untold<ALinkForPath>, {}, kLoses | kUntold, {}, {"l"}),
    // Logs
    Scenario("LogInit", Nothing, Untold<ATextLog>, {}, kShortCounts | kUntold, {"orx_app.log"}),
    Scenario("OrxLogInit", Logs, [] { return KORX_OrxLogInit(1, "zelk"); }, {kFailed, 1},
             kShortCounts | kUntold, {"orx_app.log", "KORX_DIAG_LOG"}),
    Scenario("Log2File", ATextLog, Untold<ALine>, {}, kShortCounts | kUntold | kForgets),
    Scenario("Log2FileAndRecords", ATextLogBesideRecords, Untold<ALine>, {},
             kShortCounts | kUntold | kForgets),
    Scenario("CreateLogfile", Nothing,
             [] { return ORX_CreateLogfile(Here().c_str(), "orx_app.log"); }, {kFailed, 1}, kUntold,
             {"orx_app.log"}),
    Scenario("WriteLogfile", Nothing,
             [] { return ORX_WriteLogfile((Here() + "/orx_app.log").c_str(), 100000, "line\n"); },
             {kFailed, kAll}, kShortCounts | kUntold | kSilent, {"orx_app.log"}),
    Scenario("DiagRecord", Logs, [] { return KORX_DLog(1, 2, 1, 0, 0, "line"); },
             {kAll, ORX_PLOG_ERR_OPEN, ORX_PLOG_ERR_LOCK}, kShortCounts | kUntold | kSilent,
             {"KORX_DIAG_LOG"}),
    Scenario("SecurityRecord", Logs, [] { return KORX_SecurityEventLog(1, 2, 1, 0, 0, "line"); },
             {kAll, ORX_PLOG_ERR_OPEN, ORX_PLOG_ERR_LOCK}, kShortCounts | kUntold | kSilent,
             {"korx_safe.log"}),
    Scenario("LifeRecord", Logs, [] { return KORX_LifeCycleLog(1, 2, 1, 0, 0, "line"); },
             {kAll, ORX_PLOG_ERR_OPEN, ORX_PLOG_ERR_LOCK}, kShortCounts | kUntold | kSilent,
             {"korx_life.log"}),
    Scenario("ProcessRecord", Logs, [] { return KORX_PLog(1, 0, 0, "line"); }, {kAll},
             kShortCounts | kUntold | kSilent, {"zelk.log"}),
    Scenario("StartRecord", Logs, [] { return KORX_STLog(1, 1, 0, "line"); },
             {kAll, ORX_PLOG_ERR_LOCK, ORX_PLOG_ERR_SEEK, ORX_PLOG_ERR_CUT, ORX_PLOG_ERR_HEADER},
             kShortCounts | kUntold | kSilent, {"KORX_START_LOG"}),
    Scenario(
        "SyncRecords", ADiagRecord, [] { return KORX_DLogFsync(); }, {kAll}, kSilent),
    Scenario("PlainHelpers", Logs, WriteByHelpers, {kAll}, kShortCounts | kUntold | kSilent,
             {"zelk.log"}),
    Scenario("RingHelpers", Logs, WriteRingByHelpers, {kAll}, kShortCounts | kUntold | kSilent,
             {"KORX_DIAG_LOG"}),
    Scenario("StartHelpers", Logs, WriteStartByHelpers,
             {kAll, ORX_PLOG_ERR_SEEK, ORX_PLOG_ERR_CUT, ORX_PLOG_ERR_HEADER},
             kShortCounts | kUntold | kSilent | kAbandons, {"KORX_START_LOG"}),
    // The outside reader
    Scenario(
        "Read", AnUnreadLog, [] { return ReadUnread(From::kPath, false); },
        {KORX_READER_NO_MEMORY, KORX_READER_OPEN, KORX_READER_READ, KORX_READER_LOCKED}, kSilent),
    Scenario(
        "ReadOpened", AnUnreadLog, [] { return ReadUnread(From::kDescriptor, false); },
        {KORX_READER_NO_MEMORY, KORX_READER_READ, KORX_READER_LOCKED}, kSilent),
    Scenario(
        "ReadMemory", AnUnreadLog, [] { return ReadUnread(From::kMemory, false); },
        {KORX_READER_NO_MEMORY}, kSilent),
    Scenario("Repair", ADamagedLog, Repair,
             {KORX_READER_NO_MEMORY, KORX_READER_OPEN, KORX_READER_READ, KORX_READER_LOCKED,
              KORX_READER_WRITE, KORX_READER_UNSURE},
             kSilent | kOwnRights, {"korx_safe.log.damaged.1", "kept"},
             {"korx_safe.log.damaged.1"}),
    Scenario("Acknowledge", AnUnreadLog, [] { return ReadUnread(From::kPath, true); },
             {KORX_READER_NO_MEMORY, KORX_READER_OPEN, KORX_READER_READ, KORX_READER_LOCKED,
              KORX_READER_CHANGED, KORX_READER_WRITE, KORX_READER_CURSOR, KORX_READER_UNSURE},
             kSilent | kLoses | kOwnRights, {"korx_safe.log.cursor", "korx_safe.log.cursor.new"},
             {"korx_safe.log.cursor", "korx_safe.log.cursor.new"}),
};

struct Tortured : ::testing::TestWithParam<Scenario> {};

TEST_P(Tortured, KeepsItsPromises) {
    Torture(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Calls, Tortured, ::testing::ValuesIn(kScenarios),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace korx::test
