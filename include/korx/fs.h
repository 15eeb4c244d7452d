/** @file
 * Files and directories. */
#ifndef KORX_FS_H
#define KORX_FS_H

#include "korx/common.h"

KORX_BEGIN_DECLS

/** @defgroup korx_fs Files and directories
 *
 * What exists and what may be a name, and the small operations on files.
 *
 * Here and in the other groups of this header nothing is kept between calls, and no call leaves a
 * descriptor or memory behind. Every failure is logged once, at ERR where nothing else is said, and
 * returned. A path that may name anything is opened without waiting, so that a FIFO hangs nobody.
 * Arguments must not be null unless it is said what null does.
 * @{ */

/** @name Results of the checking calls
 * They also return the codes of common.h.
 * @{ */
#define ORXFS_OK 0u                     /**< success */
#define ORXFS_ERR_NAME_TOO_LONG 1u      /**< a file name has at most 382 characters */
#define ORXFS_ERR_NAME_EMPTY 2u         /**< and at least one */
#define ORXFS_ERR_NAME_END_SLASH 3u     /**< and does not end in '/' */
#define ORXFS_ERR_NOT_EXIST 4u          /**< the file, or the target of a link, does not exist */
#define ORXFS_ERR_ALREADY_EXIST 5u      /**< the destination exists and is not to be overwritten */
#define ORXFS_ERR_PROTECTED 6u          /**< the destination is protected */
#define ORXFS_ERR_NOT_LINK 11u          /**< not a symbolic link */
#define ORXFS_ERR_SAME_FILE 12u         /**< source and destination are the same */
#define ORXFS_ERR_DIR_NAME_TOO_LONG 13u /**< a directory name has at most 254 characters */
#define ORXFS_ERR_DIR_NAME_EMPTY 14u    /**< and at least one */
#define ORXFS_ERR_DIR_OPEN 15u          /**< a directory could not be opened */
#define ORXFS_ERR_PROTECT_SYMLINK 22u   /**< symbolic links are not protected */
#define ORXFS_ERR_UNPROTECT_SYMLINK 24u /**< nor unprotected */
#define ORXFS_ERR_SYMLINK 27u           /**< a symbolic link could not be made */
#define ORXFS_ERR_REMOVE 29u            /**< a file could not be removed */
#define ORXFS_ERR_READLINK 30u          /**< a symbolic link could not be read */
#define ORXFS_ERR_LINK_DIFF 31u         /**< a link has other contents than expected */
#define ORXFS_ERR_NULL_PARA 32u         /**< a required argument is null */

#define KORX_LINK_ERR_NULL_PARA 1u /**< the same, from the calls of links and relative paths */
/** @} */

/** Whether something of any type stands at a path. Logs nothing.
 *
 * @param path links are followed; null: nothing is there
 * @return 1; 0 also for a dangling link */
KORX_API uint32_t KORX_IsFileExist(const char* path);

/** Whether a directory stands at a path. Logs nothing.
 *
 * @param path links are followed; null: nothing is there
 * @return 1 or 0 */
KORX_API uint32_t KORX_IsDirExist(const char* path);

/** Whether a path itself is a symbolic link, dangling or not. Logs nothing.
 *
 * @param path   null: no link
 * @param length not consulted
 * @return 1 or 0 */
KORX_API uint32_t ORX_IsSymLink(const char* path, uint32_t length);

/** Removes one line end, as ORX_RemoveLastRn() does.
 *
 * @param[in,out] text edited in place; null is ignored */
KORX_API void KORX_RemoveLastRn(char* text);

/** Makes the missing directories of a path. What exists stays as it is, a file included.
 *
 * @param path absolute, of at most 383 characters
 * @param mode exactly the permission bits of new directories, whatever the umask
 * @return 0; 0x71000002 for a bad path; 0x71000004, with the upper directories made, when one
 * cannot be made */
KORX_API uint32_t KORX_Mkdir(const char* path, uint32_t mode);

/** Sets the permission bits of what a path resolves to, never of a link. A path that does not
 * resolve is not logged, a refused change at WARNING.
 *
 * @param path of something that exists
 * @param mode the permission bits
 * @return 0 or 0x0FFFFFFF */
KORX_API uint32_t KORX_Fchmod(const char* path, uint32_t mode);

/** Takes the record lock on a whole file, waiting for it.
 *
 * It belongs to the process: it excludes other processes, not other threads, a forked child does
 * not have it, and closing any descriptor of the file drops it. A signal does not end the wait.
 *
 * @param fd open for writing
 * @return 0; 0x0FFFFFFF, not logged, with errno */
KORX_API uint32_t KORX_LockFile(int fd);
/** Gives the record lock on a whole file back.
 *
 * @param fd as for KORX_LockFile()
 * @return 0; 0x0FFFFFFF, not logged, with errno */
KORX_API uint32_t KORX_UnLockFile(int fd);

/** Whether a text is longer than another and ends in it, ignoring case.
 *
 * @param text   what is looked at
 * @param suffix its end
 * @return 1 or 0 */
KORX_API uint32_t KORX_IsPostfixMatch(const char* text, const char* suffix);

/** Whether a text begins with another.
 *
 * @param text   what is looked at
 * @param prefix its beginning
 * @return 1; 0 also where either is null, empty or only whitespace */
KORX_API uint32_t KORX_IsPrefixMatch(const char* text, const char* prefix);

/** The file name in a path.
 *
 * @param path what is looked at
 * @return what stands behind the last '/', within path; all of it when there is none */
KORX_API char* KORX_GetFileName(char* path);

/** The id of a user.
 *
 * @param name     an unknown one is not logged
 * @param[out] uid untouched after a failure
 * @return 0; 0x0FFFFFFF: null, an unknown name, an entry whose texts exceed 128 bytes */
KORX_API uint32_t KORX_GetUidByName(const char* name, uint32_t* uid);
/** The id of a group.
 *
 * @param name     an unknown one is not logged
 * @param[out] gid untouched after a failure
 * @return 0; 0x0FFFFFFF: null, an unknown name, an entry whose texts exceed 128 bytes */
KORX_API uint32_t KORX_GetGidByName(const char* name, uint32_t* gid);

/** Writes all of some data, however often a write is interrupted or would block; a non-blocking
 * descriptor is tried again at once, without a pause. Logs nothing.
 *
 * @param fd     where to
 * @param data   what
 * @param length of data, in bytes
 * @return length, also one below 1; -1 for null data; else that of the failing write, -1 with errno
 * or 0 */
KORX_API int32_t KORX_Write(int fd, const void* data, int32_t length);

/** Removes a file or an empty directory.
 *
 * @param path   of what is removed; a link, not its target
 * @param length not consulted
 * @return 0, logged at INFO; #ORXFS_ERR_REMOVE, logged at WARNING; #ORXFS_ERR_NULL_PARA */
KORX_API uint32_t KORX_DelFile(const char* path, uint32_t length);

/** Whether a name may be a file's. Nothing is looked up.
 *
 * @param name   with or without its directory
 * @param length not consulted
 * @return 0; #ORXFS_ERR_NAME_TOO_LONG; #ORXFS_ERR_NAME_EMPTY; #ORXFS_ERR_NAME_END_SLASH;
 * #ORXFS_ERR_NULL_PARA */
KORX_API uint32_t KORX_CheckFileName(const char* name, uint32_t length);

/** Whether a name may be a directory's. Nothing is looked up.
 *
 * @param name may end in '/'
 * @return 0; #ORXFS_ERR_DIR_NAME_TOO_LONG; #ORXFS_ERR_DIR_NAME_EMPTY; #ORXFS_ERR_NULL_PARA */
KORX_API uint32_t KORX_CheckDirName(const char* name);

/** Whether a directory has no entries.
 *
 * @param path of the directory
 * @return 1, also for null and where nothing is; 0; #ORXFS_ERR_DIR_OPEN for what cannot be opened
 * as a directory */
KORX_API uint32_t KORX_IsDirEmpty(const char* path);

/** @} */

/** @defgroup korx_protect Protection of files
 *
 * Keeps a file from being changed or removed.
 *
 * A protected file has the immutable inode flag. Where the file system has no flags, or the process
 * may not set them, all three write permissions are taken away instead; unprotecting gives all
 * three, whatever there was before. The calls act on the file that a path resolves to. Two of them
 * at a time on one file may undo each other. Arguments must not be null.
 * @{ */

/** Whether the file system keeps inode flags for a file.
 *
 * @param path of the file
 * @return 1, also when the file cannot be opened; 0; 0x0FFFFFFF when the path does not resolve */
KORX_API uint32_t KORX_IsForIoctl(const char* path);

/** Whether a path itself, links not followed, has a write permission for anybody.
 *
 * @param path of the file
 * @return 1 or 0 */
KORX_API uint32_t KORX_IsFileWriteable(const char* path);

/** Takes from all the permission to write what a path resolves to.
 *
 * @param path of the file
 * @return that of KORX_Fchmod(); 0x0FFFFFFF for a path that leads nowhere */
KORX_API uint32_t KORX_RmWriteRight(const char* path);
/** Gives to all the permission to write what a path resolves to.
 *
 * @param path of the file
 * @return that of KORX_Fchmod(); 0x0FFFFFFF for a path that leads nowhere */
KORX_API uint32_t KORX_GiveWriteRight(const char* path);

/** Whether a file cannot be written: where it has inode flags, by this process; everywhere, when
 * its path has no write permission at all.
 *
 * @param path of the file
 * @return 1; 0, also for a missing file, logged at INFO */
KORX_API uint32_t KORX_IsFileProtected(const char* path);

/** Protects a file. What has the flag already is left alone.
 *
 * @param path of the file
 * @return 0, also where only the weaker way was tried, logged at WARNING, even in vain;
 * 0x0FFFFFFF */
KORX_API uint32_t KORX_ProtectFile(const char* path);

/** Undoes either form; a file with any write permission and no flag stays as it is.
 *
 * @param path of the file
 * @return 0, also where only the weaker way was tried, logged at WARNING, even in vain;
 * 0x0FFFFFFF */
KORX_API uint32_t KORX_UndoProtectFile(const char* path);

/** KORX_ProtectFile() after checks, and not for symbolic links.
 *
 * @param name   of a file or directory
 * @param length not consulted
 * @return that of KORX_ProtectFile(); #ORXFS_ERR_NOT_EXIST; #ORXFS_ERR_PROTECT_SYMLINK;
 * #ORXFS_ERR_NAME_END_SLASH for a name that is neither a file's nor a directory's */
KORX_API uint32_t ORXFS_ProtectFile(const char* name, uint32_t length);

/** KORX_UndoProtectFile() after checks, and not for symbolic links. The checks of existence and
 * type are not logged.
 *
 * @param name   of a file or directory, without a '/' at its end
 * @param length not consulted
 * @return that of KORX_UndoProtectFile(); #ORXFS_ERR_NOT_EXIST; #ORXFS_ERR_UNPROTECT_SYMLINK; that
 * of KORX_CheckFileName() for a bad name */
KORX_API uint32_t ORXFS_UndoProtectFile(const char* name, uint32_t length);

/** @} */

/** @defgroup korx_resolve Path resolution and canonical open
 *
 * What a path leads to, and opening that.
 *
 * Outputs have size bytes and, where nothing else is said, are empty after a failure. Arguments
 * must not be null.
 * @{ */

/** Resolves the directory of a name and leaves its last component as it is, whether that exists or
 * not. A name directly below the root gets two slashes.
 *
 * @param name     must hold a directory, of at most 255 characters with its last '/', and its last
 * component has at most 127
 * @param[out] out the absolute name
 * @param size     of out
 * @return 0; 0x0FFFFFFF; 0x71000002 for size 0 */
KORX_API uint32_t ORX_GetAbsolutePathAndFileName(const char* name, char* out, uint32_t size);

/** The absolute form of a path as text: nothing is looked up but the working directory.
 *
 * @param path        a component has at most 127 characters; ".." leaves a '/' at the end and fails
 * at the root
 * @param[out] buffer the absolute path
 * @param size        of buffer
 * @return 0 or 0x0FFFFFFF */
KORX_API uint32_t KORX_Trans2AbsolutePath(const char* path, char* buffer, uint32_t size);

/** Applies one component to a path: "." nothing, ".." one level up, a name is appended.
 *
 * @param component    what
 * @param[in,out] path edited in place; a failure leaves it as it was
 * @param size         of the buffer that path stands in
 * @return 0; 0x0FFFFFFF, a lack of room not being logged */
KORX_API uint32_t ORX_PathCat(const char* component, char* path, uint32_t size);

/** Cuts the last component off: "/a/b" and "/a/b/" become "/a/".
 *
 * @param[in,out] path edited in place
 * @return 0; 0x0FFFFFFF, not logged, where no '/' stands before it */
KORX_API uint32_t ORX_PathCatDoubleDot(char* path);

/** Copies the characters before the first '/'.
 *
 * @param source           of what
 * @param[out] destination takes them
 * @param size             of destination
 * @return 0 or 0x0FFFFFFF */
KORX_API uint32_t ORX_GetDirectory(const char* source, char* destination, uint32_t size);

/** Resolves a path that exists, completely.
 *
 * @param path     what
 * @param[out] out the absolute path; may be path itself, which a failure leaves as it was
 * @param size     of out
 * @return 0; 0x0FFFFFFF, a short buffer not being logged */
KORX_API uint32_t KORX_Trans2CanonicalFilepath(const char* path, char* out, uint32_t size);

/** Resolves a path: completely if it exists, else as ORX_GetAbsolutePathAndFileName() does.
 *
 * @param path     of at most 383 characters
 * @param[out] out the absolute path; may be path itself, which a failure leaves
 * @param size     of out
 * @return 0 or 0x0FFFFFFF */
KORX_API uint32_t KORX_GetCanonicalFilepath(const char* path, char* out, uint32_t size);

/** Opens a name in its resolved directory, which is the working directory for a bare name. The last
 * component is not resolved before.
 *
 * @param name  1 to 384 characters
 * @param flags as for open(); always close-on-exec
 * @param mode  as for open()
 * @return a descriptor for ZUVA_CanonicalClose(); -1, with errno, the open's own failure not being
 * logged */
KORX_API int ZUVA_CanonicalOpenUseMode(const char* name, int flags, uint32_t mode);
/** ZUVA_CanonicalOpenUseMode() for a file that exists.
 *
 * @param name  1 to 384 characters
 * @param flags as for open(); always close-on-exec
 * @return a descriptor for ZUVA_CanonicalClose(); -1, with errno */
KORX_API int ZUVA_CanonicalOpen(const char* name, int flags);

/** Closes a descriptor, but none below 1.
 *
 * @param fd which
 * @return that of close(), or -1 */
KORX_API int ZUVA_CanonicalClose(int fd);

/** Removes one '/' from the end of a path, also from "/".
 *
 * @param[in,out] path edited in place
 * @param length       not consulted
 * @return path */
KORX_API char* ORX_DelSlashInPathEnd(char* path, uint32_t length);

/** Compares two directory names, less one '/' at the end of each, as strcmp() does.
 *
 * @param a at most 255 characters
 * @param b at most 255 characters
 * @return below, above or exactly 0; 1, logged, for null or longer ones */
KORX_API int ORX_CmpLinuxDirStr(const char* a, const char* b);

/** The path without its last component and with a '/' at its end, of at most 254 characters.
 *
 * @param path           of what
 * @param[in,out] parent 256 bytes that hold a text already, such as the empty one; may be path; a
 * failure leaves it as it was
 * @return 0 or 0x0FFFFFFF */
KORX_API uint32_t KORX_GetParentDir(const char* path, char* parent);

/** Makes the missing directories that a file will lie in, with mode 0750.
 *
 * @param file its name with its directory
 * @return 0 or 0x0FFFFFFF */
KORX_API uint32_t ORX_CreateDirByFile(const char* file);

/** Creates an empty file, with mode 0666 less the umask. A file that exists is left alone.
 *
 * @param file its name with its directory, which must exist
 * @return 0 or 0x0FFFFFFF */
KORX_API uint32_t KORX_CreateFile(const char* file);

/** @} */

/** @defgroup korx_links Links and directory walking
 *
 * Symbolic links that are made and checked, and walks through a tree.
 * @{ */

/** Called for an entry of a walk.
 *
 * @param root          as the walk's caller wrote it
 * @param relative_path the entry's path below it
 * @param flag          see ORX_WalkDirRecur()
 * @param context       the caller's
 * @return 0: go on; anything else ends the walk with that result */
typedef uint32_t (*ORX_WalkCallback)(const char* root, const char* relative_path, uint32_t* flag,
                                     void* context);

/** Whether a path is a symbolic link with exactly the expected contents.
 *
 * @param expected the contents
 * @param path     of the link
 * @param length   not consulted
 * @return 0; #ORXFS_ERR_NOT_EXIST, also for a dangling link; #ORXFS_ERR_NOT_LINK;
 * #ORXFS_ERR_READLINK; #ORXFS_ERR_LINK_DIFF */
KORX_API int32_t KORX_IsFileLinkRight(const char* expected, const char* path, uint32_t length);

/** Makes a path a symbolic link, in place of whatever file or empty directory stands there.
 *
 * @param target        the link's contents
 * @param target_length not consulted
 * @param path          of the link
 * @param path_length   not consulted
 * @return 0; #ORXFS_ERR_NOT_EXIST when the target, seen from the working directory, does not exist;
 * #ORXFS_ERR_SAME_FILE when both are the same or removing path would remove the target;
 * #ORXFS_ERR_SYMLINK when the link cannot be made, what stood there being gone */
KORX_API uint32_t KORX_LinkFile(const char* target, uint32_t target_length, const char* path,
                                uint32_t path_length);

/** The checks of KORX_LinkFilesSafe(). Logs nothing.
 *
 * @param source_directory at most 255 characters
 * @param file_name        at most 127 characters
 * @param link_directory   at most 255 characters
 * @param link_name        at most 127 characters
 * @return 0; #KORX_LINK_ERR_NULL_PARA; 0x71000002 for a longer one */
KORX_API uint32_t KORX_LinkFilesSafeParaCheck(const char* source_directory, const char* file_name,
                                              const char* link_directory, const char* link_name);

/** Links a name in one directory to a file in another, which need not exist.
 *
 * The contents are the absolute name, or a relative one where both begin with "/opt". A link with
 * other contents than the absolute name is made anew and a dangling one replaced; anything else at
 * the link's name stays, with result 0.
 *
 * @param source_directory of the file
 * @param file_name        its name there
 * @param link_directory   of the link
 * @param link_name        its name there
 * @return 0; a code of the checks; #ORXFS_ERR_SAME_FILE when the way to the file leads through the
 * link's name, #ORXFS_ERR_SYMLINK when there is no relative path that fits, both with the old link
 * untouched; 0x0FFFFFFF */
KORX_API uint32_t KORX_LinkFilesSafe(const char* source_directory, const char* file_name,
                                     const char* link_directory, const char* link_name);

/** Appends a path as seen from the directory of another. Nothing is looked up.
 *
 * @param source      absolute: what the result leads to
 * @param destination absolute: from whose directory
 * @param[in,out] out cleared by the caller; empty where it did not fit
 * @param size        of out; with k steps up the text must stay below size - 3k characters
 * @return 0; #KORX_LINK_ERR_NULL_PARA; 0x0FFFFFFF */
KORX_API uint32_t ORX_GetRelPath(const char* source, const char* destination, char* out,
                                 uint32_t size);

/** Walks a tree in the order of the directories' entries, the entries of a directory right after
 * itself.
 *
 * Other types than those below, and entries whose type the file system does not tell, are passed
 * over. A directory that has become a link by the time it is entered cannot be opened. Paths below
 * root, and root with any directory's path, have at most 383 characters. One descriptor is open per
 * level.
 *
 * @param root         where it begins
 * @param unused       not consulted
 * @param on_directory gets each subdirectory; clearing its flag, which is 1, keeps the walk out of
 * it; null enters all
 * @param on_file      gets regular files and symbolic links, which are not followed; its flag, 0 at
 * the start of every directory, ends that directory's listing when it is set
 * @param context      is handed to both
 * @return 0; the first other result of a callback; 0x0FFFFFFF: for null root or on_file, for a
 * directory that cannot be opened, which is not logged, for a path too long */
KORX_API uint32_t ORX_WalkDirRecur(const char* root, const char* unused,
                                   ORX_WalkCallback on_directory, ORX_WalkCallback on_file,
                                   void* context);

/** ORX_WalkDirRecur() below a directory of root. The arguments are not checked.
 *
 * @param root               what callbacks get as the root
 * @param relative_directory where it begins, seen from root; "": root itself
 * @param on_directory       as above
 * @param on_file            as above
 * @param context            is handed to both
 * @return as above */
KORX_API uint32_t KORX_WalkDirRecurInner(const char* root, const char* relative_directory,
                                         ORX_WalkCallback on_directory, ORX_WalkCallback on_file,
                                         void* context);

/** @} */

/** @defgroup korx_remove Removal of trees
 *
 * Deletes what is in a directory, however deep.
 *
 * Symbolic links are deleted, never followed; only the start path itself may be a link to a
 * directory. Entries are deleted through the descriptor of their directory, so a directory swapped
 * for a link while a removal runs is not entered and nothing outside the tree is touched. A file
 * that cannot be deleted is unprotected and tried once more.
 *
 * The start path has at most 255 characters, and so has the path of every entry below it. There is
 * no recursion; memory is needed for the paths of the pending directories only. The first failure
 * ends a removal and nothing is restored.
 * @{ */

/** What ORX_RmParentDir() removes. */
enum {
    ORX_RM_KEEP_DIRECTORIES = 0, /**< as ORX_RmParentDirReserveDir() */
    ORX_RM_ALL = 1               /**< as ORX_RmParentDirNotReserveDir() */
};

/** Removes a directory or its files.
 *
 * @param path of the directory
 * @param mode ORX_RM_...; any other fails without a line
 * @return 0 or 0x0FFFFFFF, logged */
KORX_API uint32_t ORX_RmParentDir(const char* path, int32_t mode);

/** Removes a directory and everything in it.
 *
 * @param path of the directory
 * @return 0, also, with an ERR line, where one cannot be opened, such as one that does not exist;
 * 0x0FFFFFFF, logged */
KORX_API uint32_t ORX_RmParentDirNotReserveDir(const char* path);

/** Deletes everything that is not a directory anywhere in a tree; the given directory and its
 * subdirectories stay, empty.
 *
 * @param path of the directory
 * @return 0 or 0x0FFFFFFF, logged */
KORX_API uint32_t ORX_RmParentDirReserveDir(const char* path);

/** @} */

/** @defgroup korx_copy Copying of files
 *
 * The raw copy, and the safe one that no reader sees half-written. Nothing is synced.
 * @{ */

/** Copies the bytes of a file to a new or emptied one with the source's permission bits, less the
 * umask. The directory of either name must be given and exist. A failed copy removes whatever
 * stands at the destination's name. The source itself under another name, and a FIFO, are no
 * destinations: they are refused and left alone.
 *
 * @param source             what is copied
 * @param source_length      not consulted
 * @param destination        where to; resolved it has at most 255 characters
 * @param destination_length not consulted
 * @return 0 or 0x0FFFFFFF */
KORX_API uint32_t KORX_CopyFile(const char* source, uint32_t source_length, const char* destination,
                                uint32_t destination_length);

/** The checks of KORXFS_CopyFile().
 *
 * @param source             what would be copied
 * @param source_length      not consulted
 * @param destination        where to
 * @param destination_length not consulted
 * @return 0; #ORXFS_ERR_NULL_PARA; that of KORX_CheckFileName(); #ORXFS_ERR_SAME_FILE for equal
 * names; #ORXFS_ERR_NOT_EXIST for a missing source */
KORX_API uint32_t KORXFS_CheckCopyFilePara(const char* source, uint32_t source_length,
                                           const char* destination, uint32_t destination_length);

/** What KORXFS_CopyFile() does when the destination exists; any higher value overwrites, too. */
enum {
    ORXFS_KEEP_EXISTING = 0, /**< answers #ORXFS_ERR_ALREADY_EXIST */
    ORXFS_OVERWRITE = 1      /**< replaces it */
};

/** The safe copy: writes destination + ".orxtmp" and renames it over the destination, so that no
 * reader sees a half-written file; names too long for the suffix are written directly.
 *
 * A missing directory is made with mode 0750. An existing destination is deleted first: a copy that
 * fails after that leaves none. A rename that fails is logged and still gives 0. Copies to one
 * destination at the same time share the temporary name: serialise them.
 *
 * @param source             what is copied
 * @param source_length      not consulted
 * @param destination        where to; its directory below 256, its name below 128 characters
 * @param overwrite          ORXFS_KEEP_EXISTING or ORXFS_OVERWRITE
 * @param destination_length not consulted
 * @return 0; a code of the checks; #ORXFS_ERR_SAME_FILE also where deleting the destination, or its
 * temporary name, would delete the source; #ORXFS_ERR_ALREADY_EXIST; #ORXFS_ERR_PROTECTED;
 * 0x0FFFFFFF for a failed copy or too long a destination */
KORX_API uint32_t KORXFS_CopyFile(const char* source, uint32_t source_length,
                                  const char* destination, uint32_t overwrite,
                                  uint32_t destination_length);

/** Reads until a number of bytes is there or the file ends. A descriptor that would block, or an
 * interrupted read, is tried again every 10 ms, 30000 times in one call.
 *
 * @param fd          where from
 * @param[out] buffer takes the bytes
 * @param length      how many at most
 * @return how many were read; 0xFFFFFFFF for a null buffer or a failure */
KORX_API uint32_t ORXFS_Read(int fd, void* buffer, uint32_t length);

/** @} */

/** @defgroup korx_space Space-full log
 *
 * How full the file systems were, in "orx_spacefull.log" in the log directory. Not locked.
 * @{ */

/** Appends a record. A file of more than 5120 bytes is started anew. A file that cannot be opened
 * is replaced by the standard output.
 *
 * @param name  a mount directory; null: ""
 * @param value how full it is, in percent */
KORX_API void ORX_SpaceFull(const char* name, uint32_t value);

/** Records, for every mounted file system that has blocks, the share of the used blocks in those
 * that ordinary users can use, in whole percent. Failures are silent. */
KORX_API void ORX_GetAndSaveAllDfInfo(void);

/** @} */

/** @defgroup korx_archive Archives
 *
 * Packs and unpacks zip archives.
 *
 * These run zip and unzip and wait for them. A path with one of the characters that commands refuse
 * (see KORX_Execvp()) makes the command fail, one with a blank becomes two arguments; a command
 * line has at most 399 characters. Null arguments count as missing.
 * @{ */

/** Whether an archive can be unpacked: it exists, and the directory does or could be made, with
 * mode 0750.
 *
 * @param archive   its name
 * @param directory where its files would go
 * @return 0; 0x71000002 for a null argument or a missing archive; 0x0FFFFFFF when the directory
 * cannot be made */
KORX_API uint32_t ORX_CheckUnZipFilePara(const char* archive, const char* directory);

/** Unpacks every file of an archive directly into a directory, over existing files. A failure may
 * leave some of them.
 *
 * @param archive   its name
 * @param directory where its files go
 * @return 0 or 0x0FFFFFFF */
KORX_API uint32_t ORX_UnZipFile(const char* archive, const char* directory);

/** Deletes an existing archive, then looks for the directory that will be packed.
 *
 * @param directory what will be packed
 * @param archive   its name
 * @param length    not consulted
 * @return 0 when the directory exists, else 0x71000002 */
KORX_API uint32_t ORX_PrepareZipFileAction(const char* directory, const char* archive,
                                           uint32_t length);

/** Packs all files below a directory, without their directory names, into a new archive; an old one
 * is deleted even when the directory is missing.
 *
 * @param directory what is packed
 * @param archive   its name
 * @param length    not consulted
 * @return 0 or 0x0FFFFFFF */
KORX_API uint32_t ORX_ZipFile(const char* directory, const char* archive, uint32_t length);

/** @} */

KORX_END_DECLS

#endif
