// Symbolic links that have the contents they should have, and the relative paths they may need.
#include "korx/fs.h"

#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/codes.h"
#include "base/report.h"
#include "base/text.h"
#include "base/unique.h"
#include "fs/entry.h"

namespace korx {
namespace {

constexpr size_t kMaxDirectory = kDirectorySize - 1;
constexpr size_t kMaxName = kComponentSize - 1;
constexpr char kRelativeRoot[] = "/opt";
constexpr char kUp[] = "../";
constexpr uint32_t kUpLength = sizeof kUp - 1;

bool ReadLink(const char* path, FullPathText* contents) {
    const ssize_t length = readlink(path, contents->data(), kFullPathSize - 1);
    if (length >= 0)
        contents->data()[length] = '\0';
    return length >= 0;
}

bool StartsWithRelativeRoot(const FullPathText& path) {
    return strncmp(path.c_str(), kRelativeRoot, sizeof kRelativeRoot - 1) == 0;
}

void EnsureSlash(FullPathText* path) {
    const size_t length = strlen(path->c_str());
    const bool ends_in_slash = length > 0 && path->c_str()[length - 1] == '/';
    if (!ends_in_slash && length + 1 < kFullPathSize)
        path->data()[length] = '/';
}

uint32_t FailAsSame(const char* target, const char* path) {
    return Fail(ORXFS_ERR_SAME_FILE, "Src File '%s' is same to Dst File '%s'.", target, path);
}

struct LinkPaths {
    FullPathText target;
    FullPathText link;
};

uint32_t ComposePaths(const char* source_directory, const char* file_name,
                      const char* link_directory, const char* link_name, LinkPaths* paths) {
    if (!paths->target.format("%s", source_directory))
        return Fail(kFailed, "Print pcSrcPath = %s unsuccessfully.", source_directory);
    if (!paths->link.format("%s", link_directory))
        return Fail(kFailed, "Print pcDesPath = %s unsuccessfully.", link_directory);
    EnsureSlash(&paths->target);
    EnsureSlash(&paths->link);

    char* const target = paths->target.data();
    int spliced = strncat_s(target, kFullPathSize, file_name, kFullPathSize - 1 - strlen(target));
    if (spliced != 0)
        return Fail(
            kFailed,
            "nRet = %d. Splice pcFileName behind acSrcPath unsuccessfully. pcFileName = %s, acSrcPath = %s.",
            spliced, file_name, target);
    char* const link = paths->link.data();
    spliced = strncat_s(link, kFullPathSize, link_name, kFullPathSize - 1 - strlen(link));
    if (spliced != 0)
        return Fail(
            kFailed,
            "nRet = %d. Splice pcLnName behind acDesPath unsuccessfully. pcLnName = %s, acDesPath = %s.",
            spliced, link_name, link);
    return kOk;
}

// A link below the common root has relative contents: the tree may be mounted elsewhere.
uint32_t ChooseContents(const LinkPaths& paths, FullPathText* contents) {
    if (!StartsWithRelativeRoot(paths.target) || !StartsWithRelativeRoot(paths.link)) {
        *contents = paths.target;
        return kOk;
    }
    DirectoryText relative;
    if (ORX_GetRelPath(paths.target.c_str(), paths.link.c_str(), relative.data(),
                       relative.capacity()) != kOk)
        return Fail(ORXFS_ERR_SYMLINK, "[TAV-LIB] TAV_GetRelPath unsuccessfully!");
    if (!contents->format("%s", relative.c_str()))
        return Fail(kFailed, "Print acRelSrcFile = %s unsuccessfully.", relative.c_str());
    return kOk;
}

// What a symlink call came to.
struct Linked {
    int result;
    int error;

    // An entry that is already there is left as it is.
    bool failed() const { return result != 0 && error != EEXIST; }
};

Linked Link(const char* contents, const char* link) {
    const int result = symlink(contents, link);
    return {result, errno};
}

// Makes the link, in place of a dangling one; anything else at its name stays.
uint32_t PutLink(const char* contents, const char* link) {
    if (KORX_IsFileExist(link) == KORX_TRUE) {
        const Linked made = Link(contents, link);
        if (made.failed())
            return Fail(kFailed,
                        "Make symlink(%s) to file(%s) unsuccessfully, errcode=%d, errno=%d.", link,
                        contents, made.result, made.error);
        return kOk;
    }
    Log(kLevelInfo, "Rudimental Link File ,Delete link file: %s!", link);
    (void) remove(link);
    const Linked made = Link(contents, link);
    if (made.failed())
        return Fail(kFailed, "make symlink(%s) to file(%s) unsuccessfully, errcode=%d, errno=%d.",
                    link, contents, made.result, made.error);
    return kOk;
}

size_t ComponentLength(const char* text) {
    return strcspn(text, "/");
}

const char* SkipSlashes(const char* text) {
    return text + strspn(text, "/");
}

// How many directories stand before the last component.
uint32_t CountLevels(const char* text) {
    uint32_t levels = 0;
    for (text = strchr(text, '/'); text != nullptr; text = strchr(SkipSlashes(text), '/'))
        ++levels;
    return levels;
}

// Moves both past the directories that they share.
uint32_t SkipCommon(const char* whole_source, const char** source, const char** destination) {
    *source = SkipSlashes(*source);
    *destination = SkipSlashes(*destination);
    while (strchr(*source, '/') != nullptr && strchr(*destination, '/') != nullptr) {
        const size_t length = ComponentLength(*source);
        if (length != ComponentLength(*destination) || strncmp(*source, *destination, length) != 0)
            break;
        *source = SkipSlashes(*source + length);
        *destination = SkipSlashes(*destination + length);
        if (**source == '\0')
            return Fail(kFailed, "The path is unsuccessfully, src[%s].", whole_source);
    }
    return kOk;
}

}  // namespace
}  // namespace korx

using namespace korx;

int32_t KORX_IsFileLinkRight(const char* expected, const char* path, uint32_t length) {
    if (KORX_IsFileExist(path) == KORX_FALSE)
        return ORXFS_ERR_NOT_EXIST;
    if (ORX_IsSymLink(path, length) == KORX_FALSE) {
        Log(kLevelInfo, "File: %s is not link.", path);
        return ORXFS_ERR_NOT_LINK;
    }
    FullPathText contents;
    if (!ReadLink(path, &contents))
        return ORXFS_ERR_READLINK;
    if (strcmp(contents.c_str(), expected) != 0) {
        Log(kLevelInfo, "Link diff, src=%s, cur=%s, dst=%s", path, contents.c_str(), expected);
        return ORXFS_ERR_LINK_DIFF;
    }
    return ORXFS_OK;
}

uint32_t KORX_LinkFile(const char* target, uint32_t, const char* path, uint32_t) {
    if (strcmp(target, path) == 0)
        return FailAsSame(target, path);
    if (KORX_IsFileExist(target) == KORX_FALSE)
        return Warn(ORXFS_ERR_NOT_EXIST, "File '%s' is not exist when link file!", target);
    if (HoldsSource(path, target))
        return FailAsSame(target, path);

    struct stat st;
    if (lstat(path, &st) == 0) {
        if (const int removed = remove(path); removed < 0)
            Log(kLevelErr, "remove file %s unsuccessfully.uiRet:%d, errno:%d", path, removed,
                errno);
    }
    if (const int made = symlink(target, path); made < 0)
        return Fail(ORXFS_ERR_SYMLINK,
                    "Make symlink(%s) to file(%s) unsuccessfully, ret=[0x%x], errno=[%d].", path,
                    target, static_cast<unsigned>(made), errno);
    return ORXFS_OK;
}

uint32_t KORX_LinkFilesSafeParaCheck(const char* source_directory, const char* file_name,
                                     const char* link_directory, const char* link_name) {
    if (source_directory == nullptr || file_name == nullptr || link_directory == nullptr ||
        link_name == nullptr)
        return KORX_LINK_ERR_NULL_PARA;
    if (strlen(source_directory) > kMaxDirectory || strlen(link_directory) > kMaxDirectory ||
        strlen(file_name) > kMaxName || strlen(link_name) > kMaxName)
        return kInvalidParam;
    return kOk;
}

uint32_t KORX_LinkFilesSafe(const char* source_directory, const char* file_name,
                            const char* link_directory, const char* link_name) {
    uint32_t code =
        KORX_LinkFilesSafeParaCheck(source_directory, file_name, link_directory, link_name);
    if (code != kOk)
        return Fail(code, "KORX_LinkFilesSafeParaCheck unsuccessfully!");
    LinkPaths paths;
    code = ComposePaths(source_directory, file_name, link_directory, link_name, &paths);
    if (code != kOk)
        return code;
    const char* const link = paths.link.c_str();
    if (HoldsSource(link, paths.target.c_str()))
        return FailAsSame(paths.target.c_str(), link);  // the link would lead to itself
    Log(kLevelInfo, "TAV_LinkFile[Dest](%s) to file[Src](%s)", link, paths.target.c_str());
    FullPathText current;
    const bool was_link = ReadLink(link, &current);
    Log(kLevelInfo, "ReadLink Really(%s) size %d.", current.c_str(),
        static_cast<int>(kFullPathSize - 1));

    // Before the old link goes: a link that cannot be made again must not be lost.
    FullPathText contents;
    code = ChooseContents(paths, &contents);
    if (code != kOk)
        return code;
    if (was_link && strcmp(current.c_str(), paths.target.c_str()) != 0)
        (void) remove(link);
    return PutLink(contents.c_str(), link);
}

uint32_t ORX_GetRelPath(const char* source, const char* destination, char* out, uint32_t size) {
    if (source == nullptr || destination == nullptr || out == nullptr)
        return KORX_LINK_ERR_NULL_PARA;
    if (source[0] != '/' || destination[0] != '/')
        return Fail(kFailed, "TAV_GetRelPath input must be absolute path.");
    const char* rest = source;
    if (SkipCommon(source, &rest, &destination) != kOk)
        return kFailed;

    // Each step up counts twice against the room: as text, and as a reserve that stays free. The
    // limit is published, so a path that would only fit without the reserve must be refused.
    const uint32_t levels = CountLevels(destination);
    const uint64_t reserve = uint64_t{levels} * kUpLength;
    const size_t room = reserve < size ? size - reserve : 0;
    int spliced = 0;
    for (uint32_t level = 0; level < levels && spliced == 0; ++level)
        spliced = strncat_s(out, room, kUp, kUpLength);
    if (spliced == 0)
        spliced = strncat_s(out, room, rest, strlen(rest));
    if (spliced != 0 && size != 0)
        out[0] = '\0';
    if (spliced != 0)
        return Fail(
            kFailed,
            "nRet = %d. Splice pcSrcDirPtr behind pcRelSrcPath unsuccessfully. pcSrcDirPtr = %s, pcRelSrcPath = %s.",
            spliced, rest, out);
    return kOk;
}
