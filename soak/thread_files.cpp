// The calls of files, archives, profiles and the reader.
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "threads.h"

namespace threads {
namespace {

// Of all threads.
constexpr char kProfile[] = "./shared.ini";
constexpr char kTree[] = "tree";

bool FindsUser(uint32_t (*find)(const char*, uint32_t*)) {
    uint32_t id = 1;
    return find("root", &id) == 0 && id == 0;
}

bool LocksAndUnlocks(int fd) {
    return KORX_LockFile(fd) == 0 && KORX_UnLockFile(fd) == 0;
}

bool OpensAndCloses(int fd) {
    return fd > 0 && ZUVA_CanonicalClose(fd) == 0;
}

uint32_t Visit(const char*, const char*, uint32_t*, void*) {
    return 0;
}

bool LoadsAndFrees() {
    KORX_IniSection* const profile = KORX_IniLoadProfile(fopen(kProfile, "re"));
    KORX_FreeProfile(profile);
    return profile != nullptr;
}

bool Refreshes(korx_reader* reader) {
    korx_refreshed how = KORX_REFRESHED_MORE;
    return korx_reader_refresh(reader, &how, nullptr) == KORX_READER_OK &&
           how == KORX_REFRESHED_SAME;
}

bool OpensByDescriptor(Scene& at) {
    korx_reader* reader = nullptr;
    const bool opens = korx_reader_open_fd(at.ring(), at.path("korx_safe.log"), KORX_LOG_SECURITY,
                                           nullptr, &reader, nullptr) == KORX_READER_OK;
    korx_reader_close(reader);
    return opens;
}

// The rings of the scenes are sound.
bool FindsNothingToRepair(Scene& at) {
    const auto keep = [](void*, const korx_reader*, const korx_record*) { return 0; };
    korx_reader_repaired repaired;
    return at.ring() > 0 &&
           korx_reader_repair(at.path("korx_safe.log"), KORX_LOG_SECURITY, nullptr, keep, nullptr,
                              &repaired, &at.error) == KORX_READER_SOUND;
}

bool HasId(Scene& at) {
    char id[KORX_RECORD_ID_SIZE];
    return korx_reader_next(at.reader(), &at.record) == 1 &&
           korx_reader_record_id(at.reader(), &at.record, id, sizeof id) == 1;
}

bool ReturnsToMark(Scene& at) {
    korx_mark mark;
    korx_reader_get_mark(at.reader(), &mark);
    return korx_reader_seek_mark(at.reader(), &mark) == 1;
}

bool HasOneRecord(korx_reader* reader) {
    korx_reader_info info;
    korx_reader_get_info(reader, &info);
    return info.records == 1;
}

bool HasNoDamage(korx_reader* reader) {
    korx_damage damage;
    return korx_reader_get_damage(reader, 0, &damage) == 0;
}

bool Acknowledges(Scene& at) {
    return korx_reader_next_unread(at.ring_reader(), &at.record) == 1 &&
           korx_reader_ack(at.ring_reader(), &at.error) == KORX_READER_OK;
}

constexpr Call kCalls[] = {
    // fs: files
    GIVES(KORX_IsFileExist, 1u, kProfile),
    GIVES(KORX_IsDirExist, 1u, kTree),
    GIVES(ORX_IsSymLink, 1u, at.path("l"), 0),
    RUNS(KORX_RemoveLastRn, at.text("a\n")),
    GIVES(KORX_Mkdir, 0u, at.path("new/c"), 0750),
    GIVES(KORX_Fchmod, 0u, at.path("f"), 0640),
    {"KORX_LockFile", [](Scene& at) { return LocksAndUnlocks(at.fd()); }},
    {"KORX_UnLockFile", [](Scene& at) { return LocksAndUnlocks(at.fd()); }},
    GIVES(KORX_IsPostfixMatch, 1u, "a.INI", ".ini"),
    GIVES(KORX_IsPrefixMatch, 1u, "a.ini", "a."),
    {"KORX_GetFileName", [](Scene& at) { return *KORX_GetFileName(at.text("/a/b")) == 'b'; }},
    {"KORX_GetUidByName", [](Scene&) { return FindsUser(KORX_GetUidByName); }},
    {"KORX_GetGidByName", [](Scene&) { return FindsUser(KORX_GetGidByName); }},
    GIVES(KORX_Write, 3, at.fd(), "new", 3),
    GIVES(KORX_DelFile, 0u, at.path("f"), 0),
    GIVES(KORX_CheckFileName, 0u, "/a", 0),
    GIVES(KORX_CheckDirName, 0u, "/a"),
    GIVES(KORX_IsDirEmpty, 0u, kTree),
    // fs: protection
    RUNS(KORX_IsForIoctl, at.path("p")),
    RUNS(KORX_IsFileWriteable, at.path("p")),
    GIVES(KORX_RmWriteRight, 0u, at.path("f")),
    GIVES(KORX_GiveWriteRight, 0u, at.path("f")),
    RUNS(KORX_IsFileProtected, at.path("p")),
    GIVES(KORX_ProtectFile, 0u, at.path("p")),
    GIVES(KORX_UndoProtectFile, 0u, at.path("p")),
    GIVES(ORXFS_ProtectFile, 0u, at.path("p"), 0),
    GIVES(ORXFS_UndoProtectFile, 0u, at.path("p"), 0),
    // fs: paths
    GIVES(ORX_GetAbsolutePathAndFileName, 0u, kProfile, at.out, sizeof at.out),
    GIVES(KORX_Trans2AbsolutePath, 0u, kProfile, at.out, sizeof at.out),
    GIVES(ORX_PathCat, 0u, "b", at.text("/a"), sizeof at.in),
    GIVES(ORX_PathCatDoubleDot, 0u, at.text("/a/b")),
    GIVES(ORX_GetDirectory, 0u, "a/b", at.out, sizeof at.out),
    GIVES(KORX_Trans2CanonicalFilepath, 0u, kProfile, at.out, sizeof at.out),
    GIVES(KORX_GetCanonicalFilepath, 0u, kProfile, at.out, sizeof at.out),
    {"ZUVA_CanonicalOpenUseMode",
     [](Scene&) { return OpensAndCloses(ZUVA_CanonicalOpenUseMode(kProfile, O_RDONLY, 0)); }},
    {"ZUVA_CanonicalOpen",
     [](Scene&) { return OpensAndCloses(ZUVA_CanonicalOpen(kProfile, O_RDONLY)); }},
    {"ZUVA_CanonicalClose",
     [](Scene&) { return OpensAndCloses(ZUVA_CanonicalOpen(kProfile, O_RDONLY)); }},
    GIVES(ORX_DelSlashInPathEnd, at.in, at.text("/a/"), 0),
    GIVES(ORX_CmpLinuxDirStr, 0, "/a", "/a/"),
    GIVES(KORX_GetParentDir, 0u, "/a/b", at.out),
    GIVES(ORX_CreateDirByFile, 0u, at.path("new/d/f")),
    GIVES(KORX_CreateFile, 0u, at.path("f")),
    // fs: links, walks, removal
    GIVES(KORX_IsFileLinkRight, 0, "f", at.path("l"), 0),
    GIVES(KORX_LinkFile, 0u, kProfile, 0, at.path("l"), 0),
    GIVES(KORX_LinkFilesSafeParaCheck, 0u, "/a", "f", "/b", "l"),
    GIVES(KORX_LinkFilesSafe, 0u, "/dev", "null", at.path(""), "l"),
    GIVES(ORX_GetRelPath, 0u, "/a/b", "/a/c", at.out, sizeof at.out),
    GIVES(ORX_WalkDirRecur, 0u, kTree, "", Visit, Visit, nullptr),
    GIVES(KORX_WalkDirRecurInner, 0u, kTree, "", Visit, Visit, nullptr),
    GIVES(ORX_RmParentDir, 0u, at.path("d"), ORX_RM_ALL),
    GIVES(ORX_RmParentDirNotReserveDir, 0u, at.path("d")),
    GIVES(ORX_RmParentDirReserveDir, 0u, at.path("d")),
    // fs: copies
    GIVES(KORX_CopyFile, 0u, kProfile, 0, at.path("copy"), 0),
    GIVES(KORXFS_CheckCopyFilePara, 0u, kProfile, 0, at.path("copy"), 0),
    GIVES(KORXFS_CopyFile, 0u, kProfile, 0, at.path("copy"), ORXFS_OVERWRITE, 0),
    GIVES(ORXFS_Read, 4u, at.fd(), at.out, 4),
    // fs: space and archives
    RUNS(ORX_SpaceFull, "/data", 97),
    RUNS(ORX_GetAndSaveAllDfInfo),
    GIVES(ORX_CheckUnZipFilePara, 0u, "a.zip", at.path("unzipped")),
    GIVES(ORX_UnZipFile, 0u, "a.zip", at.path("unzipped")),
    GIVES(ORX_PrepareZipFileAction, 0u, kTree, at.path("new.zip"), 0),
    GIVES(ORX_ZipFile, 0u, kTree, at.path("new.zip"), 0),
    // ini
    {"KORX_IniLoadProfile", [](Scene&) { return LoadsAndFrees(); }},
    {"KORX_FreeProfile", [](Scene&) { return LoadsAndFrees(); }},
    GIVES(KORX_IniAnalysisTextLine, +KORX_INI_LINE_SECTION, "[A]"),
    RUNS(KORX_IniGetSectionName, " [A]", at.out, sizeof at.out),
    GIVES(KORX_IniGetKeyInfo, 0u, "x=1", at.in, 8, at.out, 8),
    GIVES(KORX_IniReadProfile, KORX_INI_READ, kProfile, "[A]", "x", at.out, sizeof at.out),
    GIVES(KORX_IniGetValue, 0u, kProfile, "[A]", "x", at.out, sizeof at.out),
    GIVES(KORX_GetMidString, 1u, "<a>", "<", ">", at.out, sizeof at.out),
    GIVES(KORX_IniSaveFile, 0u, at.path("f"), at.profile()),
    GIVES(KORX_IniSetValue, 0u, kProfile, "[A]", "x", "2"),
    GIVES(KORX_IniSetOrAddValue, 0u, kProfile, "[B]", "y", "3"),
    GIVES(KORX_CheckIniValuePara, 0u, kProfile, "[A]", "x", "2"),
    // reader
    {"korx_reader_open", [](Scene& at) { return at.ring_reader() != nullptr; }},
    {"korx_reader_open_fd", OpensByDescriptor},
    {"korx_reader_open_memory", [](Scene& at) { return at.reader() != nullptr; }},
    {"korx_reader_refresh", [](Scene& at) { return Refreshes(at.ring_reader()); }},
    {"korx_reader_close", [](Scene& at) { return at.reader() != nullptr; }},
    {"korx_reader_record_id", HasId},
    GIVES(korx_reader_next, 1, at.reader(), &at.record),
    GIVES(korx_reader_next_unread, 1, at.reader(), &at.record),
    RUNS(korx_reader_rewind, at.reader()),
    RUNS(korx_reader_seek_newest, at.reader(), 1),
    {"korx_reader_ack", Acknowledges},
    {"korx_reader_repair", FindsNothingToRepair},
    {"korx_reader_get_mark", ReturnsToMark},
    {"korx_reader_seek_mark", ReturnsToMark},
    {"korx_reader_get_info", [](Scene& at) { return HasOneRecord(at.reader()); }},
    GIVES(korx_reader_doubts, 0u, at.reader()),
    {"korx_reader_get_damage", [](Scene& at) { return HasNoDamage(at.reader()); }},
    {"korx_log_kind_name", [](Scene&) { return *korx_log_kind_name(KORX_LOG_LIFE) == 'l'; }},
    {"korx_damage_rule_name",
     [](Scene&) { return *korx_damage_rule_name(KORX_DAMAGE_ZEROS) == 'z'; }},
    GIVES(korx_log_kind_of_name, KORX_LOG_LIFE, "korx_life.log"),
};

}  // namespace

std::span<const Call> CallsOnFiles() {
    return kCalls;
}

}  // namespace threads
