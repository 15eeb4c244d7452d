// Paths as texts, and the directories along one. Nothing here resolves a path: a name is only read.
#include "korx/str.h"

#include <errno.h>
#include <string.h>

#include "base/bounded.h"
#include "base/codes.h"
#include "base/report.h"
#include "base/text.h"
#include "str/directories.h"

namespace korx {
namespace {

bool IsSeparator(char c) {
    return c == '/' || c == '\\';
}

// The part behind the last separator of either kind, which may be all of the path or nothing.
const char* NamePart(const char* path) {
    const char* name = path + strlen(path);
    while (name > path && !IsSeparator(name[-1]))
        --name;
    return name;
}

constexpr size_t kParentLength = 3;  // of "/.."

// Only a whole component counts: "/..x" and "/..." are ordinary names.
bool IsParentReference(const char* text) {
    return text[0] == '/' && text[1] == '.' && text[2] == '.' &&
           (text[kParentLength] == '/' || text[kParentLength] == '\0');
}

void ClearText(char* buffer, uint32_t size) {
    if (buffer != nullptr && size != 0)
        buffer[0] = '\0';
}

}  // namespace
}  // namespace korx

using namespace korx;

void ORX_EnSureExistPathSep(char* path, uint32_t size) {
    if (path == nullptr || path[0] == '\0')
        return;
    if (IsSeparator(path[strlen(path) - 1]))
        return;
    if (const int code = strncat_s(path, size, "/", 1); code != 0)
        Log(kLevelErr, "str cat pszFileName unsuccessfully.return value is %d", code);
}

uint32_t ORX_SplitPathFileName(const char* path, char* directory, uint32_t directory_size,
                               char* name, uint32_t name_size) {
    if (path == nullptr)
        return KORX_FALSE;
    ClearText(directory, directory_size);
    ClearText(name, name_size);
    if (path[0] == '\0')
        return KORX_FALSE;

    const char* const name_part = NamePart(path);
    const auto directory_length = static_cast<size_t>(name_part - path);
    const size_t name_length = strlen(name_part);

    // Without a separator this copies nothing, and still refuses a buffer of no size.
    if (directory != nullptr) {
        const int code = strncpy_s(directory, directory_size, path, directory_length);
        if (code != 0)
            return Fail(KORX_FALSE,
                        "nRet=%d.Copy string FileName:%s unsuccessfully, FileNameLen=%d.", code,
                        path, static_cast<int>(directory_length));
    }
    if (name == nullptr)
        return KORX_TRUE;
    const int code = strncpy_s(name, name_size, name_part, name_length);
    if (code != 0 && directory_length == 0)
        return Fail(KORX_FALSE, "nRet=%d.Copy FileName:%s unsuccessfully, FileNameLen=%d.", code,
                    path, static_cast<int>(name_length));
    if (code != 0)
        return Fail(
            KORX_FALSE,
            "nRet=%d.Strncpy FileName unsuccessfully.FileName=%s, FileNameLen=%d, bufflen=%u.",
            code, name_part, static_cast<int>(name_length), name_size);
    if (directory_length == 0)
        name[name_size - 1] = '\0';
    return KORX_TRUE;
}

uint32_t ORX_FindPreGangStr(const char* text, uint32_t position) {
    while (position > 0) {
        --position;
        if (text[position] == '/')
            return position;
    }
    return 0;
}

// What is kept moves down over what is cut, once.
void ORX_CutPathStr(char* path) {
    char* to = path;
    const char* from = path;
    while (*from != '\0') {
        if (from[0] == '/' && from[1] == '/') {
            ++from;
        } else if (IsParentReference(from)) {
            const void* const parent = memrchr(path, '/', static_cast<size_t>(to - path));
            to = parent == nullptr ? path : path + (static_cast<const char*>(parent) - path);
            from += kParentLength;
        } else {
            const auto length = static_cast<size_t>(strchrnul(from + 1, '/') - from);
            if (to != from)
                memmove(to, from, length);
            to += length;
            from += length;
        }
    }
    if (to != from)
        *to = '\0';
}

// The diagnostic log's writer makes its own directory with this, hence the system log.
uint32_t ORX_MkDir(const char* path, uint32_t mode) {
    const size_t length = strlen(path);
    if (length >= kBuildSize)
        return SysFail(kInvalidParam, "The path name length of %s is %u and is invalid. ", path,
                       static_cast<uint32_t>(length));
    if (path[0] != '/')
        return SysFail(kInvalidParam, "The path name %s is invalid,it should be full path. ", path);
    BuildText text;
    if (!text.format("%s", path))
        return SysFail(kFailed, "Print pcPathname unsuccessfully.pcPathname=%s ", path);
    if (!MakeDirectories(text.data(), mode, [](const char*) {}))
        return SysFail(kCreateDirFailed, "Create %s directory unsuccessfully as %d. ", path, errno);
    return kOk;
}
