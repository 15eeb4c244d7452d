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

/* Symbolic links are deleted, never followed; only the start path itself may be a link to a
 * directory. Entries are deleted through the descriptor of their directory, so a directory swapped
 * for a link while a removal runs is not entered and nothing outside the tree is touched. A file
 * that cannot be deleted is unprotected and tried once more.
 *
 * The start path has at most 255 characters, and so has the path of every entry below it. There is
 * no recursion; memory is needed for the paths of the pending directories only. Result: 0 or
 * 0x0FFFFFFF, logged; the first failure ends the removal and nothing is restored. */

/* mode 1 removes everything, mode 0 keeps the directories; any other fails without a line. */
KORX_API uint32_t ORX_RmParentDir(const char* path, int32_t mode);

/* Removes the directory and everything in it. A directory that cannot be opened, one that does not
 * exist included, ends the removal with 0 and an ERR line. */
KORX_API uint32_t ORX_RmParentDirNotReserveDir(const char* path);

/* Deletes everything that is not a directory anywhere in the tree; the given directory and its
 * subdirectories stay, empty. */
KORX_API uint32_t ORX_RmParentDirReserveDir(const char* path);

/* --- Copy --- */

/* Copies the bytes of a file to a new or emptied one with the source's permission bits, less the
 * umask. The directory of either name must be given and exist; the destination's resolved name has
 * at most 255 characters. A failed copy removes whatever stands at the destination's name, unless
 * it is the source itself under another name: that is refused and left alone. Nothing is synced.
 * The lengths are not consulted. Result: 0 or 0x0FFFFFFF. */
KORX_API uint32_t KORX_CopyFile(const char* source, uint32_t source_length, const char* destination,
                                uint32_t destination_length);

/* The checks of KORXFS_CopyFile. Result: 32 for a null name, the code of KORX_CheckFileName, 12 for
 * equal names, 4 for a missing source, else 0. */
KORX_API uint32_t KORXFS_CheckCopyFilePara(const char* source, uint32_t source_length,
                                           const char* destination, uint32_t destination_length);

/* The safe copy: writes destination + ".orxtmp" and renames it over the destination, so that no
 * reader sees a half-written file; names too long for the suffix are written directly. A missing
 * directory is made with mode 0750. An existing destination is deleted first: a copy that fails
 * after that leaves none. A rename that fails is logged and still gives 0.
 *
 * Result: 0; a code of the checks; 12 also where deleting the destination, or its temporary name,
 * would delete the source; 5 for an existing destination with overwrite 0; 6 for a protected one;
 * 0x0FFFFFFF for a failed copy, a directory of 256 or a name of 128 characters or more. Copies to
 * one destination at the same time share the temporary name: serialise them. */
KORX_API uint32_t KORXFS_CopyFile(const char* source, uint32_t source_length,
                                  const char* destination, uint32_t overwrite,
                                  uint32_t destination_length);

/* Reads until length bytes are there or the file ends, and returns their number. A descriptor that
 * would block, or an interrupted read, is tried again every 10 ms, 30000 times in one call. Result:
 * the bytes read, or 0xFFFFFFFF for a null buffer or a failure. */
KORX_API uint32_t ORXFS_Read(int fd, void* buffer, uint32_t length);

/* --- Disk-space-full record --- */

/* Appends a line to "orx_spacefull.log" in the log directory: local time, name (a mount directory)
 * and value (a percentage). A file of more than 5120 bytes is started anew. A file that cannot be
 * opened is replaced by the standard output. Not locked. */
KORX_API void ORX_SpaceFull(const char* name, uint32_t value);

/* Records, for every mounted file system that has blocks, the share of the used blocks in those
 * that ordinary users can use, in whole percent. Failures are silent. */
KORX_API void ORX_GetAndSaveAllDfInfo(void);

/* --- Archives --- */

/* These run zip and unzip and wait for them. A path with one of the characters that commands refuse
 * (see cmd.h) makes the command fail, one with a blank becomes two arguments; a command line has at
 * most 399 characters. Null arguments count as missing. */

/* 0 when the archive exists and the directory does or could be made, with mode 0750; 0x71000002 for
 * a null argument or a missing archive; 0x0FFFFFFF when the directory cannot be made. */
KORX_API uint32_t ORX_CheckUnZipFilePara(const char* archive, const char* directory);

/* Unpacks every file of the archive directly into the directory, over existing files. A failure may
 * leave some of them. Result: 0 or 0x0FFFFFFF. */
KORX_API uint32_t ORX_UnZipFile(const char* archive, const char* directory);

/* Deletes an existing archive, then answers 0 when the directory exists, else 0x71000002. length is
 * not consulted. */
KORX_API uint32_t ORX_PrepareZipFileAction(const char* directory, const char* archive,
                                           uint32_t length);

/* Packs all files below the directory, without their directory names, into a new archive; an old
 * one is deleted even when the directory is missing. Result: 0 or 0x0FFFFFFF. */
KORX_API uint32_t ORX_ZipFile(const char* directory, const char* archive, uint32_t length);

KORX_END_DECLS

#endif
