// Packing and unpacking archives with the system's zip and unzip.
//
// The command lines are split at blanks and filtered like any other: no shell sees a path, and a
// path with a blank becomes two arguments.
#include "korx/fs.h"

#include "base/codes.h"
#include "base/report.h"
#include "base/text.h"
#include "korx/cmd.h"
#include "korx/str.h"

namespace korx {
namespace {

constexpr uint32_t kDirectoryMode = 0750;
constexpr char kArgumentSeparator[] = " ";

using Command = FixedText<400>;

// A null argument as the messages show it.
const char* Shown(const char* text) {
    return text == nullptr ? "" : text;
}

}  // namespace
}  // namespace korx

using namespace korx;

uint32_t ORX_CheckUnZipFilePara(const char* archive, const char* directory) {
    if (archive == nullptr || directory == nullptr)
        return Fail(kInvalidParam, "[unzip file] Input para is invalid.");
    if (KORX_IsFileExist(archive) == KORX_FALSE)
        return Fail(kInvalidParam, "[unzip file] The File doesn't exist, path:%s.", archive);
    if (KORX_IsDirExist(directory) == KORX_TRUE)
        return kOk;
    if (ORX_MkDir(directory, kDirectoryMode) != kOk)
        return Fail(kFailed, "[unzip file] Create dir[%s] unsuccessfully.", directory);
    return kOk;
}

uint32_t ORX_UnZipFile(const char* archive, const char* directory) {
    uint32_t code = ORX_CheckUnZipFilePara(archive, directory);
    if (code != kOk)
        return Fail(kFailed, "[unzip file] check unzip file unsuccessfully, uiRet:%u.", code);

    Command command;
    if (!command.format("unzip -o -j -d %s %s", directory, archive))
        return Fail(kFailed, "Unsuccess to print pcUnZipDir = %s, pcZipFile = %s.", directory,
                    archive);
    code = KORX_Execvp(command.c_str(), kArgumentSeparator);
    if (code != kOk)
        return Fail(kFailed, "[unzip file] Execute the command unsuccessfully, commod:%s, ret:%u.",
                    command.c_str(), code);
    return kOk;
}

uint32_t ORX_PrepareZipFileAction(const char* directory, const char* archive, uint32_t length) {
    if (KORX_IsFileExist(archive) == KORX_TRUE)
        (void) KORX_DelFile(archive, length);
    if (KORX_IsDirExist(directory) == KORX_FALSE)
        return Fail(kInvalidParam, "[zip file] The dir doesn't exist, dir:%s.", Shown(directory));
    return kOk;
}

uint32_t ORX_ZipFile(const char* directory, const char* archive, uint32_t length) {
    uint32_t code = ORX_PrepareZipFileAction(directory, archive, length);
    if (code != kOk)
        return Fail(kFailed, "[zip file] check zip file unsuccessfully, uiRet:%u.", code);

    Command command;
    if (archive == nullptr || !command.format("zip -q -o -j -r %s %s", archive, directory))
        return Fail(kFailed, "Print pcDescZipFile = %s, pcSrcZipDir = %s unsuccessfully.",
                    Shown(archive), directory);
    code = KORX_Execvp(command.c_str(), kArgumentSeparator);
    if (code != kOk)
        return Fail(kFailed, "[zip file] Execute the command unsuccessfully, commod:%s, ret:%u.",
                    command.c_str(), code);
    return kOk;
}
