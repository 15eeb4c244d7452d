#ifndef KORX_FS_H
#define KORX_FS_H

#include "korx/common.h"

KORX_BEGIN_DECLS

/* File-system result codes. */
#define ORXFS_OK 0u
#define ORXFS_ERR_NAME_TOO_LONG 1u
#define ORXFS_ERR_NAME_EMPTY 2u
#define ORXFS_ERR_NAME_END_SLASH 3u
#define ORXFS_ERR_NOT_EXIST 4u
#define ORXFS_ERR_ALREADY_EXIST 5u
#define ORXFS_ERR_PROTECTED 6u
#define ORXFS_ERR_NOT_LINK 11u
#define ORXFS_ERR_SAME_FILE 12u
#define ORXFS_ERR_DIR_NAME_TOO_LONG 13u
#define ORXFS_ERR_DIR_NAME_EMPTY 14u
#define ORXFS_ERR_DIR_OPEN 15u
#define ORXFS_ERR_PROTECT_SYMLINK 22u
#define ORXFS_ERR_UNPROTECT_SYMLINK 24u
#define ORXFS_ERR_SYMLINK 27u
#define ORXFS_ERR_REMOVE 29u
#define ORXFS_ERR_READLINK 30u
#define ORXFS_ERR_LINK_DIFF 31u
#define ORXFS_ERR_NULL_PARA 32u

/* --- Files and directories --- */

KORX_API uint32_t KORX_IsFileExist(const char* path);
KORX_API uint32_t KORX_IsDirExist(const char* path);
KORX_API uint32_t ORX_IsSymLink(const char* path, uint32_t length);
KORX_API void KORX_RemoveLastRn(char* text);
KORX_API uint32_t KORX_Mkdir(const char* path, uint32_t mode);
KORX_API uint32_t KORX_Fchmod(const char* path, uint32_t mode);
KORX_API uint32_t KORX_LockFile(int fd);
KORX_API uint32_t KORX_UnLockFile(int fd);
KORX_API uint32_t KORX_IsPostfixMatch(const char* text, const char* suffix);
KORX_API uint32_t KORX_IsPrefixMatch(const char* text, const char* prefix);
KORX_API char* KORX_GetFileName(char* path);
KORX_API uint32_t KORX_GetUidByName(const char* name, uint32_t* uid);
KORX_API uint32_t KORX_GetGidByName(const char* name, uint32_t* gid);
KORX_API int32_t KORX_Write(int fd, const void* data, int32_t length);
KORX_API uint32_t KORX_DelFile(const char* path, uint32_t length);
KORX_API uint32_t KORX_CheckFileName(const char* name, uint32_t length);
KORX_API uint32_t KORX_CheckDirName(const char* name);
KORX_API uint32_t KORX_IsDirEmpty(const char* path);

/* --- Protection --- */

KORX_API uint32_t KORX_IsForIoctl(const char* path);
KORX_API uint32_t KORX_IsFileWriteable(const char* path);
KORX_API uint32_t KORX_RmWriteRight(const char* path);
KORX_API uint32_t KORX_GiveWriteRight(const char* path);
KORX_API uint32_t KORX_IsFileProtected(const char* path);
KORX_API uint32_t KORX_ProtectFile(const char* path);
KORX_API uint32_t KORX_UndoProtectFile(const char* path);
KORX_API uint32_t ORXFS_ProtectFile(const char* name, uint32_t length);
KORX_API uint32_t ORXFS_UndoProtectFile(const char* name, uint32_t length);

/* --- Path resolution and canonical open --- */

KORX_API uint32_t ORX_GetAbsolutePathAndFileName(const char* name, char* out, uint32_t size);
KORX_API uint32_t KORX_Trans2AbsolutePath(const char* path, char* buffer, uint32_t size);
KORX_API uint32_t ORX_PathCat(const char* component, char* path, uint32_t size);
KORX_API uint32_t ORX_PathCatDoubleDot(char* path);
KORX_API uint32_t ORX_GetDirectory(const char* source, char* destination, uint32_t size);
KORX_API uint32_t KORX_Trans2CanonicalFilepath(const char* path, char* out, uint32_t size);
KORX_API uint32_t KORX_GetCanonicalFilepath(const char* path, char* out, uint32_t size);
KORX_API int ZUVA_CanonicalOpenUseMode(const char* name, int flags, uint32_t mode);
KORX_API int ZUVA_CanonicalOpen(const char* name, int flags);
KORX_API int ZUVA_CanonicalClose(int fd);
KORX_API char* ORX_DelSlashInPathEnd(char* path, uint32_t length);
KORX_API int ORX_CmpLinuxDirStr(const char* a, const char* b);
KORX_API uint32_t KORX_GetParentDir(const char* path, char* parent);
KORX_API uint32_t ORX_CreateDirByFile(const char* file);
KORX_API uint32_t KORX_CreateFile(const char* file);

/* --- Links and directory walking --- */

/* Called for an entry of a walk; see ORX_WalkDirRecur. */
typedef uint32_t (*ORX_WalkCallback)(const char* root, const char* relative_path, uint32_t* flag,
                                     void* context);

KORX_API int32_t KORX_IsFileLinkRight(const char* expected, const char* path, uint32_t length);
KORX_API uint32_t KORX_LinkFile(const char* target, uint32_t target_length, const char* path,
                                uint32_t path_length);
KORX_API uint32_t KORX_LinkFilesSafeParaCheck(const char* source_directory, const char* file_name,
                                              const char* link_directory, const char* link_name);
KORX_API uint32_t KORX_LinkFilesSafe(const char* source_directory, const char* file_name,
                                     const char* link_directory, const char* link_name);
KORX_API uint32_t ORX_GetRelPath(const char* source, const char* destination, char* out,
                                 uint32_t size);
KORX_API uint32_t ORX_WalkDirRecur(const char* root, const char* unused,
                                   ORX_WalkCallback on_directory, ORX_WalkCallback on_file,
                                   void* context);
KORX_API uint32_t KORX_WalkDirRecurInner(const char* root, const char* relative_directory,
                                         ORX_WalkCallback on_directory, ORX_WalkCallback on_file,
                                         void* context);

/* --- Tree removal --- */

KORX_API uint32_t ORX_RmParentDir(const char* path, int32_t mode);
KORX_API uint32_t ORX_RmParentDirNotReserveDir(const char* path);
KORX_API uint32_t ORX_RmParentDirReserveDir(const char* path);

/* --- Copy --- */

KORX_API uint32_t KORX_CopyFile(const char* source, uint32_t source_length, const char* destination,
                                uint32_t destination_length);
KORX_API uint32_t KORXFS_CheckCopyFilePara(const char* source, uint32_t source_length,
                                           const char* destination, uint32_t destination_length);
KORX_API uint32_t KORXFS_CopyFile(const char* source, uint32_t source_length,
                                  const char* destination, uint32_t overwrite,
                                  uint32_t destination_length);
KORX_API uint32_t ORXFS_Read(int fd, void* buffer, uint32_t length);

/* --- Disk-space-full record --- */

KORX_API void ORX_SpaceFull(const char* name, uint32_t value);
KORX_API void ORX_GetAndSaveAllDfInfo(void);

/* --- Archives --- */

KORX_API uint32_t ORX_CheckUnZipFilePara(const char* archive, const char* directory);
KORX_API uint32_t ORX_UnZipFile(const char* archive, const char* directory);
KORX_API uint32_t ORX_PrepareZipFileAction(const char* directory, const char* archive,
                                           uint32_t length);
KORX_API uint32_t ORX_ZipFile(const char* directory, const char* archive, uint32_t length);

KORX_END_DECLS

#endif
