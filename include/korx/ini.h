/** @file
 * Profiles: INI files. */
#ifndef KORX_INI_H
#define KORX_INI_H

#include <pthread.h>
#include <stdio.h>

#include "korx/common.h"

KORX_BEGIN_DECLS

/** @defgroup korx_ini Profiles
 *
 * Small INI files, read whole for every lookup and replaced whole for every change.
 *
 *     [PATH]                      a section; its name is "[PATH]", brackets included
 *     LOG_PATH = /var/log         a key and its value, without the blanks and tabs around them
 *     ; or # begin a comment
 *
 * A key line is split at its last "=": a key may hold one, a value may not. Keys before the first
 * section are ignored. A key of more than 64 characters or a value of more than 256 makes the whole
 * file unreadable; a section name is cut to 64 characters, its closing bracket included. A line is
 * read in pieces of 399 bytes. Names are compared exactly; where there are duplicates, the first
 * one counts.
 *
 * Files must be named with their directory ("./a.ini", not "a.ini"), and whoever reads one needs
 * write permission too. Only a regular file is read by its name, or a link to one; a FIFO or device
 * counts as unreadable. Readers take no lock: a change replaces the file by a rename. Every failure
 * is logged unless a function says otherwise.
 * @{ */

/** @name Results of lookups and changes
 * They also return the codes of common.h.
 * @{ */
#define KORX_INI_ERR_NULL_PARA 1u  /**< a required argument is null */
#define KORX_INI_ERR_TOO_LONG 2u   /**< an argument is too long */
#define KORX_INI_ERR_LOAD 3u       /**< the profile is empty or cannot be loaded */
#define KORX_INI_ERR_QUOTE 4u      /**< lookups: no closing quote, or no room for a quoted value */
#define KORX_INI_ERR_NOT_FOUND 4u  /**< changes: there is no such section or key */
#define KORX_INI_ERR_NO_MEMORY 12u /**< memory for the profile, or for its new entry, is short */
/** @} */

#define KORX_INI_NOT_LOADED 0u /**< of KORX_IniReadProfile(): empty, or cannot be loaded */
#define KORX_INI_READ 1u       /**< of KORX_IniReadProfile(): the value, or two quotes */

/** The class of a line, by KORX_IniAnalysisTextLine(). */
enum {
    KORX_INI_LINE_SECTION = 0, /**< begins with "[" and ends in "]" */
    KORX_INI_LINE_KEY = 1,     /**< anything else */
    KORX_INI_LINE_BLANK = 2,   /**< empty, or a ";" comment */
    KORX_INI_LINE_COMMENT = 3  /**< a "#" comment */
};

/** One key of a section. Every node is an allocation of its own. */
typedef struct KORX_IniKey {
    char acKey[65];              /**< at most 64 characters */
    char acValue[258];           /**< at most 256 characters; quotes are part of it */
    struct KORX_IniKey* pstNext; /**< the next one of the section; null: none */
} KORX_IniKey;

/** One section. A profile is its first section, in the order of the file; null is an empty one. */
typedef struct KORX_IniSection {
    char acName[65];                 /**< with its brackets */
    KORX_IniKey* pstFirstKey;        /**< null: none */
    struct KORX_IniSection* pstNext; /**< null: none */
} KORX_IniSection;

/** Held during every change, behind the lock file; one for all files of the process, not recursive.
 * A thread that holds it must not call the setters below. */
KORX_API extern pthread_mutex_t g_unKorxIniWriteLock;

/** @name Reading
 * @{ */

/** Reads a profile from a stream of any kind, to its end, and closes the stream.
 *
 * @param stream closed in any case
 * @return the profile, for KORX_FreeProfile(). Null for a null stream, for a file without a section
 * and for a failed load: a read error, a key line that is too long, no memory (the last without a
 * line). */
KORX_API KORX_IniSection* KORX_IniLoadProfile(FILE* stream);

/** Frees a profile with all its sections and keys.
 *
 * @param profile null is ignored */
KORX_API void KORX_FreeProfile(KORX_IniSection* profile);

/** Tells what a line is.
 *
 * @param line without its line end
 * @return its class, KORX_INI_LINE_... */
KORX_API uint32_t KORX_IniAnalysisTextLine(const char* line);

/** Copies a line from its first character that is no blank or tab.
 *
 * @param line      what is copied, cut to size - 1 characters
 * @param[out] name takes it
 * @param size      of name; below 2 nothing is written, and that is logged */
KORX_API void KORX_IniGetSectionName(const char* line, char* name, uint32_t size);

/** Splits a key line. A line without "=" becomes a key, cut to its buffer, with an empty value.
 *
 * @param line       without its line end
 * @param[out] key   what stands before the last "=", without blanks and tabs around it
 * @param key_size   of key
 * @param[out] value what stands behind it, likewise
 * @param value_size of value
 * @return 0; 0x0FFFFFFF for a key or value that does not fit its buffer (what fits is in it), for a
 * value of more than 256 characters, and for a null or empty buffer */
KORX_API uint32_t KORX_IniGetKeyInfo(const char* line, char* key, uint32_t key_size, char* value,
                                     uint32_t value_size);

/** Reads a value as it stands in the file.
 *
 * @param file       its name, with its directory
 * @param section    with its brackets
 * @param key        whose value
 * @param[out] value cut to size - 1 characters; two double quotes where there is no such key
 * @param size       of value
 * @return #KORX_INI_READ; #KORX_INI_NOT_LOADED; 0x0FFFFFFF when the file is missing (logged at
 * INFO) or cannot be opened, and for a size below 2: value is then left alone */
KORX_API uint32_t KORX_IniReadProfile(const char* file, const char* section, const char* key,
                                      char* value, uint32_t size);

/** Reads a value without the double quotes around it.
 *
 * A weak symbol: a process may define its own, which this library then calls as well.
 *
 * @param file       its name, with its directory, of at most 255 characters
 * @param section    with its brackets, at most 63 characters
 * @param key        at most 63 characters
 * @param[out] value cut to 255 characters; "" for a missing key, and for a file that is missing or
 * cannot be opened
 * @param size       of value; 256 is always enough
 * @return 0; #KORX_INI_ERR_NULL_PARA, #KORX_INI_ERR_TOO_LONG or #KORX_INI_ERR_LOAD;
 * #KORX_INI_ERR_QUOTE for a quoted value that has no closing quote (value then holds it, cut to
 * fit) or is too long for value (then ""); 0x0FFFFFFF for any other value that is too long */
KORX_API uint32_t KORX_IniGetValue(const char* file, const char* section, const char* key,
                                   char* value, uint32_t size);

/** Copies what stands between two markers, the first head and the next tail behind it.
 *
 * @param text     null is as a text without markers, but out is "" then
 * @param head     the first marker
 * @param tail     the second one
 * @param[out] out takes what is between; not null
 * @param size     of out
 * @return 1; 0 when it does not fit (out is then "") or a marker is missing (out is then the text,
 * cut to fit), and for a null text */
KORX_API uint32_t KORX_GetMidString(const char* text, const char* head, const char* tail, char* out,
                                    uint32_t size);

/** @} */
/** @name Writing
 * @{ */

/** Replaces an existing file F by a profile.
 *
 * The new version is written to "F+", synced and renamed over F; "F-" then holds the previous one.
 * F keeps its owner, and its mode as far as 0740 goes. Comments are lost. A failure up to the
 * rename leaves F as it was, and maybe an F+ that the next save removes. If the directory cannot be
 * synced after the rename, that is logged and the result is 0 all the same: after a power cut, F
 * may then be the previous version again.
 *
 * This takes no mutex and no lock file: a saver removes the F+ of another one at work. Whoever
 * calls it directly serialises the savers of a file himself, threads and processes alike; the
 * setters below do that among each other. A file that was loaded with a section name or line cut
 * is saved as it was cut: only the setters notice.
 *
 * A thread that is cancelled in here or in a setter finishes the call first.
 *
 * @param file    F, with its directory, of at most 126 characters
 * @param profile the new contents; stays the caller's; null: an empty file
 * @return 0 when the new version stands at F; 0x0FFFFFFF */
KORX_API uint32_t KORX_IniSaveFile(const char* file, const KORX_IniSection* profile);

/** Changes an existing key of a file F and saves the profile.
 *
 * Waits until all other changes of the file are done, those of other processes included, by
 * "F.lock", which it creates and leaves. What F names is found out after the wait: where F, F.lock
 * or a link on the way was replaced meanwhile, it starts over, 16 times at most.
 *
 * A change writes the whole file anew, so it refuses one in which it would cut, hide or reinterpret
 * a line, as if it could not be loaded, and leaves it as it is: one with a section name or a line
 * without "=" of more than 64 characters, with text behind a NUL, with a carriage return at the
 * start of a key or the end of a value, with a key line that would be read back as a section
 * without the blanks behind it, or with a line without "=" that is, without the blanks behind it,
 * the name of a key below it. Lookups read such files.
 *
 * None of the arguments may be null. A line end in section, key or value is refused, and so is a
 * pair that would be read back as a section ("[a" and "b]").
 *
 * @param file    F, with its directory, of at most 126 characters
 * @param section with its brackets, at most 63 characters
 * @param key     at most 63 characters
 * @param value   at most 255 characters, without "=", or it is not read back
 * @return 0 or that of KORX_IniSaveFile(); #KORX_INI_ERR_LOAD; #KORX_INI_ERR_NOT_FOUND, nothing
 * is written then; 0x0FFFFFFF */
KORX_API uint32_t KORX_IniSetValue(const char* file, const char* section, const char* key,
                                   const char* value);

/** Changes a key of a file F, or adds it at the top of its section, and a missing section at the
 * top of the file; then as KORX_IniSetValue(). A file that cannot be loaded stays as it is.
 *
 * @param file    F, with its directory, of at most 126 characters; must exist
 * @param section with its brackets, or it is not read back; a new one of more than 64 characters is
 * stored empty
 * @param key     a new one of more than 64 characters is stored empty
 * @param value   without "=", or it is not read back; one of more than 256 characters is stored
 * empty
 * @return 0 or that of KORX_IniSaveFile(); #KORX_INI_ERR_NULL_PARA; #KORX_INI_ERR_NO_MEMORY;
 * 0x0FFFFFFF */
KORX_API uint32_t KORX_IniSetOrAddValue(const char* file, const char* section, const char* key,
                                        const char* value);

/** The test of lengths that KORX_IniSetValue() begins with. None of the arguments may be null.
 *
 * @param file    at most 255 characters
 * @param section at most 63 characters
 * @param key     at most 63 characters
 * @param value   at most 255 characters
 * @return 0 or #KORX_INI_ERR_TOO_LONG */
KORX_API uint32_t KORX_CheckIniValuePara(const char* file, const char* section, const char* key,
                                         const char* value);

/** @} */
/** @} */

KORX_END_DECLS

#endif
