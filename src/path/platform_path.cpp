// The platform's log and data directories, from its base configuration or the defaults.
//
// The two directories are worked out in locals and stored at the end: the profile reader and the
// link repair report through the diagnostic log, whose writer may ask for them meanwhile and finds
// the old ones. Nothing is locked: a thread that reads while another one stores may see a torn
// path.
#include "korx/path.h"

#include <stddef.h>
#include <string.h>

#include "base/codes.h"
#include "base/report.h"
#include "base/text.h"
#include "format/board.h"
#include "korx/fs.h"
#include "korx/ini.h"
#include "korx/str.h"

static_assert(sizeof(KORX_PtnPath) == 512);
static_assert(offsetof(KORX_PtnPath, acLogPath) == 0);
static_assert(offsetof(KORX_PtnPath, acDataPath) == 256);

constinit KORX_PtnPath g_stPtnPath = {};

namespace korx {
namespace {

bool DefaultPath(const char* name, DirectoryText* path) {
    return path->format("%s/%s", kBaseDir, name);
}

// What could not be made leaves the path that is in force.
void Store(const DirectoryText& path, char (&field)[kDirectorySize]) {
    if (!path.empty())
        (void) strncpy_s(field, kDirectorySize, path.c_str(), kDirectorySize - 1);
}

bool IsConfigured(uint32_t read, const DirectoryText& value) {
    return read == kOk && value.c_str()[0] == '/';
}

void RepairLogLink(const DirectoryText& path) {
    if (!path.empty())
        KORX_CreateLinkFileForPath(path.c_str(), kDirectorySize);
}

void UseDefaults() {
    DirectoryText log;
    if (!DefaultPath(kLogDirName, &log))
        Log(kLevelErr, "snprintf_s log path unsuccessfully.");
    RepairLogLink(log);
    DirectoryText data;
    if (!DefaultPath(kDataDirName, &data))
        Log(kLevelErr, "snprintf_s data path unsuccessfully.");
    Store(log, g_stPtnPath.acLogPath);
    Store(data, g_stPtnPath.acDataPath);
}

uint32_t ReadKey(const char* key, DirectoryText* value) {
    const uint32_t read =
        KORX_IniGetValue(kConfFile, kPathSection, key, value->data(), kDirectorySize);
    (void) ORX_Trim(value->data(), kDirectorySize);
    return read;
}

// Into a buffer with room for length characters: those that were counted, because the path may be
// stored anew since.
void CopyClean(const char* path, size_t length, char* buffer, uint32_t size) {
    (void) strncpy_s(buffer, size, path, length);
    ORX_CutPathStr(buffer);
}

void ParseOnFirstUse() {
    if (KORX_IsPathInit() == KORX_FALSE)
        KORX_ParsePathConf();
}

}  // namespace
}  // namespace korx

using namespace korx;

void KORX_ParsePathConf(void) {
    if (KORX_IsFileExist(kConfFile) == KORX_FALSE)
        return UseDefaults();

    DirectoryText log;
    const uint32_t log_read = ReadKey(kLogPathKey, &log);
    Log(kLevelInfo, "Get log path in %s, log_path=[%s].", kConfFile, log.c_str());
    if (!IsConfigured(log_read, log)) {
        if (!DefaultPath(kLogDirName, &log))
            Log(kLevelErr, "snprintf_s log path:%s unsuccessfully.", kBaseDir);
        RepairLogLink(log);
    }

    DirectoryText data;
    const uint32_t data_read = ReadKey(kDataPathKey, &data);
    Log(kLevelInfo, "Get data path in %s, data_path=[%s].", kConfFile, data.c_str());
    if (!IsConfigured(data_read, data) && !DefaultPath(kDataDirName, &data))
        Log(kLevelErr, "snprintf_s data path:%s unsuccessfully.", kBaseDir);

    Store(log, g_stPtnPath.acLogPath);
    Store(data, g_stPtnPath.acDataPath);
    Log(kLevelInfo, "Log path is [%s], data path is [%s].", g_stPtnPath.acLogPath,
        g_stPtnPath.acDataPath);
}

uint32_t KORX_IsPathInit(void) {
    const bool is_known = g_stPtnPath.acLogPath[0] != '\0' || g_stPtnPath.acDataPath[0] != '\0';
    return is_known ? KORX_TRUE : KORX_FALSE;
}

uint32_t KORX_GetLogPath(char* buffer, uint32_t size) {
    if (buffer == nullptr)
        return Fail(kNullOutput, "Input LogPath is null.");
    ParseOnFirstUse();
    const size_t length = strnlen(g_stPtnPath.acLogPath, kDirectorySize - 1);
    if (length >= size)
        return Fail(kBufferTooShort, "LogPath buffer len is too short, BufLen=%u, LogPath=[%s].",
                    size, g_stPtnPath.acLogPath);
    CopyClean(g_stPtnPath.acLogPath, length, buffer, size);
    return kOk;
}

uint32_t KORX_GetDataPath(char* buffer, uint32_t size) {
    if (buffer == nullptr)
        return Fail(kNullOutput, "Input DataPath is null.");
    ParseOnFirstUse();
    const size_t length = strnlen(g_stPtnPath.acDataPath, kDirectorySize - 1);
    if (length >= size)
        return Fail(kBufferTooShort,
                    "ComDataPath buffer len is too short, BufLen=%u, DataPath=[%s].", size,
                    g_stPtnPath.acDataPath);
    CopyClean(g_stPtnPath.acDataPath, length, buffer, size);
    return kOk;
}

uint32_t KORX_GetCommTmpPath(char* buffer, uint32_t size) {
    if (snprintf_s(buffer, size, size - 1, "%s", kTmpDir) < 0)
        return Fail(kFailed, "Get CommTmpPath unsuccessfully.");
    return kOk;
}

uint32_t KORX_GetLocalDataFileFullPath(char* buffer, uint32_t size) {
    DirectoryText directory;
    if (!directory.format("%s", kTmpDir))
        Log(kLevelErr, "Get CommTmpPath unsuccessfully.");
    if (snprintf_s(buffer, size, size - 1, "%s/%s", directory.c_str(), kLocalDataFile) < 0)
        return Fail(kFailed, "Get LocalDataFileFullPath unsuccessfully, commTmpPath=%s.",
                    directory.c_str());
    return kOk;
}

void KORX_CreateLinkFileForPath(const char* path, uint32_t size) {
    if (KORX_IsFileLinkRight(kLogLinkTarget, path, size) == ORXFS_OK)
        return Log(kLevelInfo, "Log path is link right.");
    if (ORX_IsSymLink(path, size) == KORX_FALSE)
        return Log(kLevelWarning, "File: %s is not link.", path);

    (void) KORX_DelFile(path, size);
    const uint32_t linked = KORX_LinkFile(kLogLinkTarget, strlen(kLogLinkTarget), path, size);
    if (linked != kOk)
        Log(kLevelWarning, "Log path link unsuccessfully. ret=%u", linked);
}
