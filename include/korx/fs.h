/* Files and directories: what exists, who may write it, what a name resolves to, and the operations
 * that change files without losing them.
 *
 * Nothing is kept between calls, and no call leaves a descriptor or memory behind. Every failure is
 * logged once, at ERR where nothing else is said, and returned. A path that may name anything is
 * opened without waiting, so that a FIFO hangs nobody. Arguments must not be null unless it is said
 * what null does. Parameters called length are not consulted. */
#ifndef KORX_FS_H
#define KORX_FS_H

#include "korx/common.h"

KORX_BEGIN_DECLS

/* The results of the checking calls, below without their ORXFS_ERR_. They also return the codes of
 * common.h. */
#define ORXFS_OK 0u
#define ORXFS_ERR_NAME_TOO_LONG 1u      /* a file name has at most 382 characters */
#define ORXFS_ERR_NAME_EMPTY 2u         /* and at least one */
#define ORXFS_ERR_NAME_END_SLASH 3u     /* and does not end in '/' */
#define ORXFS_ERR_NOT_EXIST 4u          /* the file, or the target of a link, does not exist */
#define ORXFS_ERR_ALREADY_EXIST 5u      /* the destination exists and is not to be overwritten */
#define ORXFS_ERR_PROTECTED 6u          /* the destination is protected */
#define ORXFS_ERR_NOT_LINK 11u          /* not a symbolic link */
#define ORXFS_ERR_SAME_FILE 12u         /* source and destination are the same */
#define ORXFS_ERR_DIR_NAME_TOO_LONG 13u /* a directory name has at most 254 characters */
#define ORXFS_ERR_DIR_NAME_EMPTY 14u    /* and at least one */
#define ORXFS_ERR_DIR_OPEN 15u          /* a directory could not be opened */
#define ORXFS_ERR_PROTECT_SYMLINK 22u   /* symbolic links are not protected */
#define ORXFS_ERR_UNPROTECT_SYMLINK 24u /* nor unprotected */
#define ORXFS_ERR_SYMLINK 27u           /* a symbolic link could not be made */
#define ORXFS_ERR_REMOVE 29u            /* a file could not be removed */
#define ORXFS_ERR_READLINK 30u          /* a symbolic link could not be read */
#define ORXFS_ERR_LINK_DIFF 31u         /* a link has other contents than expected */
#define ORXFS_ERR_NULL_PARA 32u         /* a required argument is null */

#define KORX_LINK_ERR_NULL_PARA 1u /* the same, from the calls of links and relative paths */

/* --- Files and directories --- */

/* 1 when something of any type stands at path, links followed: a dangling link does not exist.
 * 0 also for null. Nothing is logged; so it is for the next two. */
KORX_API uint32_t KORX_IsFileExist(const char* path);

/* The same for directories. */
KORX_API uint32_t KORX_IsDirExist(const char* path);

/* 1 when path itself is a symbolic link, dangling or not, else 0; 0 also for null. */
KORX_API uint32_t ORX_IsSymLink(const char* path, uint32_t length);

/* Removes one line end, as ORX_RemoveLastRn of str.h does. Null is ignored. */
KORX_API void KORX_RemoveLastRn(char* text);

/* Makes the missing directories of an absolute path of at most 383 characters. Those that it makes
 * get exactly the given mode, whatever the umask; what exists stays as it is, a file included.
 * Result: 0; 0x71000002 for a bad path; 0x71000004, with the upper directories made, when one
 * cannot be made. */
KORX_API uint32_t KORX_Mkdir(const char* path, uint32_t mode);

/* Sets the permission bits of what path resolves to, never of a link. Result: 0 or 0x0FFFFFFF; a
 * path that does not resolve is not logged, a refused change at WARNING. */
KORX_API uint32_t KORX_Fchmod(const char* path, uint32_t mode);

/* Take, waiting for it, and give back the record lock on a whole file, which must be open for
 * writing. It belongs to the process: it excludes other processes, not other threads, and closing
 * any descriptor of the file drops it. A signal does not end the wait. Result: 0, or 0x0FFFFFFF,
 * not logged. */
KORX_API uint32_t KORX_LockFile(int fd);
KORX_API uint32_t KORX_UnLockFile(int fd);

/* 1 when text is longer than suffix and ends in it, ignoring case, else 0. */
KORX_API uint32_t KORX_IsPostfixMatch(const char* text, const char* suffix);

/* 1 when text begins with prefix, else 0; 0 also where either is null, empty or only whitespace. */
KORX_API uint32_t KORX_IsPrefixMatch(const char* text, const char* prefix);

/* The part of path behind the last '/', within path; all of it when there is none. */
KORX_API char* KORX_GetFileName(char* path);

/* The ids of a user and a group. Result: 0, or 0x0FFFFFFF, with the output untouched: for null, for
 * an unknown name, which is not logged, and for an entry whose texts exceed 128 bytes. */
KORX_API uint32_t KORX_GetUidByName(const char* name, uint32_t* uid);
KORX_API uint32_t KORX_GetGidByName(const char* name, uint32_t* gid);

/* Writes all of data, however often a write is interrupted or would block; a non-blocking
 * descriptor is tried again at once, without a pause. Result: length; -1 for null data; a length
 * below 1 unchanged; else that of the failing write, -1 or 0. Not logged. */
KORX_API int32_t KORX_Write(int fd, const void* data, int32_t length);

/* Removes a file or an empty directory. Result: 0, logged at INFO; REMOVE, logged at
 * WARNING; NULL_PARA. */
KORX_API uint32_t KORX_DelFile(const char* path, uint32_t length);

/* Whether a name may be a file's: 0, NAME_TOO_LONG, NAME_EMPTY, NAME_END_SLASH or NULL_PARA.
 * Nothing is looked up. */
KORX_API uint32_t KORX_CheckFileName(const char* name, uint32_t length);

/* Whether it may be a directory's, which may end in '/': 0, DIR_NAME_TOO_LONG, DIR_NAME_EMPTY or
 * NULL_PARA. */
KORX_API uint32_t KORX_CheckDirName(const char* name);

/* 1 for an empty directory, and for null or nothing at all; 0 for one with entries; DIR_OPEN for
 * what cannot be opened as a directory. */
KORX_API uint32_t KORX_IsDirEmpty(const char* path);

/* --- Protection --- */

/* A protected file has the immutable inode flag. Where the file system has no flags, or the process
 * may not set them, all three write permissions are taken away instead; unprotecting gives all
 * three, whatever there was before. The calls act on the file that a path resolves to. Two of them
 * at a time on one file may undo each other. */

/* 1 when the file system keeps inode flags for this file, and when the file cannot be opened; 0
 * when it does not; 0x0FFFFFFF when the path does not resolve. */
KORX_API uint32_t KORX_IsForIoctl(const char* path);

/* 1 when path itself, links not followed, has a write permission for anybody, else 0. */
KORX_API uint32_t KORX_IsFileWriteable(const char* path);

/* Take from all, and give to all, the permission to write what path resolves to. Result: that of
 * KORX_Fchmod; 0x0FFFFFFF for a path that leads nowhere. */
KORX_API uint32_t KORX_RmWriteRight(const char* path);
KORX_API uint32_t KORX_GiveWriteRight(const char* path);

/* 1 when the file cannot be written: where it has inode flags, by this process; everywhere, when
 * path has no write permission at all. Else 0; also for a missing file, logged at INFO. */
KORX_API uint32_t KORX_IsFileProtected(const char* path);

/* Protects a file. What has the flag already is left alone. Result: 0, also where only the weaker
 * way was tried, logged at WARNING, even in vain; 0x0FFFFFFF. */
KORX_API uint32_t KORX_ProtectFile(const char* path);

/* Undoes either form; a file with any write permission and no flag stays as it is. Result: 0 or
 * 0x0FFFFFFF, as above. */
KORX_API uint32_t KORX_UndoProtectFile(const char* path);

/* The same after checks, and not for symbolic links. Result: that of the call behind it;
 * NOT_EXIST; PROTECT_SYMLINK; NAME_END_SLASH for a name that is neither a file's nor a
 * directory's. */
KORX_API uint32_t ORXFS_ProtectFile(const char* name, uint32_t length);

/* Result: as above, but UNPROTECT_SYMLINK for a link and the code of KORX_CheckFileName for a bad
 * name: one that ends in '/' is refused here. The checks of existence and type are not logged. */
KORX_API uint32_t ORXFS_UndoProtectFile(const char* name, uint32_t length);

/* --- Path resolution and canonical open --- */

/* Outputs have size bytes and, where nothing else is said, are empty after a failure. Result, where
 * nothing else is said: 0 or 0x0FFFFFFF. */

/* Resolves the directory of a name and leaves its last component as it is, whether that exists or
 * not. The name must hold a directory, of at most 255 characters with its last '/', and its last
 * component has at most 127. A name directly below the root gets two slashes. Result: also
 * 0x71000002 for size 0. */
KORX_API uint32_t ORX_GetAbsolutePathAndFileName(const char* name, char* out, uint32_t size);

/* The absolute form of a path as text: nothing is looked up but the working directory. A component
 * has at most 127 characters; ".." leaves a '/' at the end and fails at the root. */
KORX_API uint32_t KORX_Trans2AbsolutePath(const char* path, char* buffer, uint32_t size);

/* Applies one component to a path in a buffer of size bytes: "." nothing, ".." one level up, a name
 * is appended. A failure leaves the path as it was; a lack of room is not logged. */
KORX_API uint32_t ORX_PathCat(const char* component, char* path, uint32_t size);

/* Cuts the last component off: "/a/b" and "/a/b/" become "/a/". Fails, unlogged, where no '/'
 * stands before it. */
KORX_API uint32_t ORX_PathCatDoubleDot(char* path);

/* Copies the characters before the first '/'. */
KORX_API uint32_t ORX_GetDirectory(const char* source, char* destination, uint32_t size);

/* Resolves a path that exists, completely. out may be the path itself, which a failure leaves as it
 * was. A short buffer is not logged. */
KORX_API uint32_t KORX_Trans2CanonicalFilepath(const char* path, char* out, uint32_t size);

/* Resolves a path of at most 383 characters: completely if it exists, else as
 * ORX_GetAbsolutePathAndFileName does. out may be the path itself, which a failure leaves. */
KORX_API uint32_t KORX_GetCanonicalFilepath(const char* path, char* out, uint32_t size);

/* Open a name of 1 to 384 characters in its resolved directory, which is the working directory for
 * a bare name; flags and mode as for open, and always close-on-exec. The last component is not
 * resolved before. Result: a descriptor for ZUVA_CanonicalClose, or -1; the open's own failure is
 * not logged. */
KORX_API int ZUVA_CanonicalOpenUseMode(const char* name, int flags, uint32_t mode);
KORX_API int ZUVA_CanonicalOpen(const char* name, int flags);

/* Closes a descriptor, but none below 1. Result: that of close, or -1. */
KORX_API int ZUVA_CanonicalClose(int fd);

/* Removes one '/' from the end of path, in place, also from "/". Returns path. */
KORX_API char* ORX_DelSlashInPathEnd(char* path, uint32_t length);

/* Compares two directory names of at most 255 characters, less one '/' at the end of each, as
 * strcmp does. 1, logged, for null or longer ones. */
KORX_API int ORX_CmpLinuxDirStr(const char* a, const char* b);

/* The path without its last component and with a '/' at its end, of at most 254 characters. parent
 * has 256 bytes and holds a text already, such as the empty one; it may be path. A failure leaves
 * it as it was. */
KORX_API uint32_t KORX_GetParentDir(const char* path, char* parent);

/* Makes the missing directories that a file will lie in, with mode 0750. */
KORX_API uint32_t ORX_CreateDirByFile(const char* file);

/* Creates an empty file, with mode 0666 less the umask, in an existing directory that the name must
 * hold. A file that exists is left alone. */
KORX_API uint32_t KORX_CreateFile(const char* file);

/* --- Links and directory walking --- */

/* Called for an entry of a walk, given the root as the walk's caller wrote it, the entry's path
 * below it, a flag (see ORX_WalkDirRecur) and the caller's context. Any result but 0 ends the walk
 * with that result. */
typedef uint32_t (*ORX_WalkCallback)(const char* root, const char* relative_path, uint32_t* flag,
                                     void* context);

/* Whether path is a symbolic link with exactly the expected contents: 0; NOT_EXIST, also for a
 * dangling link; NOT_LINK; READLINK; LINK_DIFF. */
KORX_API int32_t KORX_IsFileLinkRight(const char* expected, const char* path, uint32_t length);

/* Makes path a symbolic link with the contents target, in place of whatever file or empty directory
 * stands there. Result: 0; NOT_EXIST when the target, seen from the working directory, does not
 * exist; SAME_FILE when both are the same or removing path would remove the target; SYMLINK when
 * the link cannot be made, what stood there being gone. */
KORX_API uint32_t KORX_LinkFile(const char* target, uint32_t target_length, const char* path,
                                uint32_t path_length);

/* The checks of KORX_LinkFilesSafe: 0; KORX_LINK_ERR_NULL_PARA; 0x71000002 for a directory of more
 * than 255 or a name of more than 127 characters. Not logged. */
KORX_API uint32_t KORX_LinkFilesSafeParaCheck(const char* source_directory, const char* file_name,
                                              const char* link_directory, const char* link_name);

/* Links link_name in one directory to file_name in another, which need not exist. The contents are
 * the absolute name, or a relative one where both begin with "/opt". A link with other contents
 * than the absolute name is made anew and a dangling one replaced; anything else at the link's name
 * stays, with result 0. Result: 0, a code of the checks, SAME_FILE when the way to the file leads
 * through the link's name, SYMLINK when there is no relative path that fits, both with the old link
 * untouched, or 0x0FFFFFFF. */
KORX_API uint32_t KORX_LinkFilesSafe(const char* source_directory, const char* file_name,
                                     const char* link_directory, const char* link_name);

/* Appends to out, of size bytes and cleared by the caller, the path of source as seen from the
 * directory of destination; both are absolute, and nothing is looked up. With k steps up the text
 * must stay below size - 3k characters. Result: 0; KORX_LINK_ERR_NULL_PARA; 0x0FFFFFFF, out being
 * empty where it did not fit. */
KORX_API uint32_t ORX_GetRelPath(const char* source, const char* destination, char* out,
                                 uint32_t size);

/* Walks the tree below root in the order of the directories' entries, the entries of a directory
 * right after itself. on_file gets regular files and symbolic links, which are not followed; its
 * flag, 0 at the start of every directory, ends that directory's listing when it is set.
 * on_directory gets each subdirectory; clearing its flag, which is 1, keeps the walk out of it. A
 * null on_directory enters all. Other types, and entries whose type the file system does not tell,
 * are passed over. A directory that has become a link by the time it is entered cannot be opened.
 *
 * Paths below root, and root with any directory's path, have at most 383 characters. One descriptor
 * is open per level. Result: 0, the first other result of a callback, or 0x0FFFFFFF: for null root
 * or on_file, for a directory that cannot be opened, which is not logged, for a path too long. */
KORX_API uint32_t ORX_WalkDirRecur(const char* root, const char* unused,
                                   ORX_WalkCallback on_directory, ORX_WalkCallback on_file,
                                   void* context);

/* The same below a directory of root, "" for root itself. The arguments are not checked. */
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

/* What ORX_RmParentDir removes. */
enum {
    ORX_RM_KEEP_DIRECTORIES = 0, /* as ORX_RmParentDirReserveDir */
    ORX_RM_ALL = 1               /* as ORX_RmParentDirNotReserveDir */
};

/* Removes what mode says; any other mode fails without a line. */
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
 * at most 255 characters. A failed copy removes whatever stands at the destination's name. The
 * source itself under another name, and a FIFO, are no destinations: they are refused and left
 * alone. Nothing is synced. The lengths are not consulted. Result: 0 or 0x0FFFFFFF. */
KORX_API uint32_t KORX_CopyFile(const char* source, uint32_t source_length, const char* destination,
                                uint32_t destination_length);

/* The checks of KORXFS_CopyFile. Result: NULL_PARA, the code of KORX_CheckFileName, SAME_FILE for
 * equal names, NOT_EXIST for a missing source, else 0. */
KORX_API uint32_t KORXFS_CheckCopyFilePara(const char* source, uint32_t source_length,
                                           const char* destination, uint32_t destination_length);

/* What KORXFS_CopyFile does when the destination exists; any higher value overwrites, too. */
enum { ORXFS_KEEP_EXISTING = 0, ORXFS_OVERWRITE = 1 };

/* The safe copy: writes destination + ".orxtmp" and renames it over the destination, so that no
 * reader sees a half-written file; names too long for the suffix are written directly. A missing
 * directory is made with mode 0750. An existing destination is deleted first: a copy that fails
 * after that leaves none. A rename that fails is logged and still gives 0.
 *
 * Result: 0; a code of the checks; SAME_FILE also where deleting the destination, or its temporary
 * name, would delete the source; ALREADY_EXIST; PROTECTED; 0x0FFFFFFF for a failed copy, a
 * directory of 256 or a name of 128 characters or more. Copies to one destination at the same time
 * share the temporary name: serialise them. */
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
