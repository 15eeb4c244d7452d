/** @file
 * Texts, and paths as texts. */
#ifndef KORX_STR_H
#define KORX_STR_H

#include "korx/common.h"
#include "korx/container.h"

KORX_BEGIN_DECLS

/** @defgroup korx_str Texts
 *
 * Texts and paths as texts: trimming, splitting, comparing, the directories along a path, and small
 * conversions.
 *
 * Texts are edited in place or returned as copies for free(). Nothing is kept between calls. Failed
 * copies are logged at ERR. Arguments must not be null unless it is said what null does.
 * @{ */

#define ORX_IP_ADDRESS_FIELDS 4 /**< what ORX_GetDigIpAddrByStr() reads of a whole address */

/** Appends "/" to a path that is not empty and does not end in '/' or a backslash.
 *
 * @param[in,out] path null is ignored; empty afterwards, with a line, where there is no room
 * @param size         of the buffer that path stands in */
KORX_API void ORX_EnSureExistPathSep(char* path, uint32_t size);

/** Splits a path behind its last '/' or backslash: "/opt/a" gives "/opt/" and "a", "a" gives "" and
 * "a". Buffers of failed splits are empty or hold their part; their last byte may be written.
 *
 * @param path           what is split
 * @param[out] directory the directory with its separator; null: not wanted
 * @param directory_size of that buffer
 * @param[out] name      the last component; null: not wanted
 * @param name_size      of that buffer
 * @return 1; 0 for a null or empty path and, logged, for a buffer that is too small */
KORX_API uint32_t ORX_SplitPathFileName(const char* path, char* directory, uint32_t directory_size,
                                        char* name, uint32_t name_size);

/** Strips leading blanks, then leading double quotes; despite the name it works on the start. Tabs
 * stay.
 *
 * @param[in,out] text edited in place
 * @return 0 */
KORX_API uint32_t ORX_Strtrimr(char* text);

/** Strips trailing double quotes, then trailing blanks; despite the name it works on the end.
 *
 * @param[in,out] text edited in place
 * @return 0 */
KORX_API uint32_t ORX_Strtriml(char* text);

/** ORX_Strtriml(), then ORX_Strtrimr(). The orders of the two ends differ: blanks
 * behind a closing quote hide it, blanks before an opening quote don't.
 *
 * @param[in,out] text edited in place
 * @param size         not consulted
 * @return 0 */
KORX_API uint32_t ORX_Trim(char* text, uint32_t size);

/** Whether a text begins with another.
 *
 * @param text   what is looked at
 * @param prefix at most 127 characters; where text is that long too, a longer one is logged
 * @return 1 or 0; 0 also when either is null */
KORX_API uint32_t ORX_StrIsStartWith(const char* text, const char* prefix);

/** Removes one line end, CR LF, CR or LF. Of two characters only the last one goes, and a text of
 * one stays.
 *
 * @param[in,out] text edited in place; null is ignored
 * @param size         not consulted */
KORX_API void ORX_RemoveLastRn(char* text, uint32_t size);

/** Replaces a character everywhere.
 *
 * @param[in,out] text edited in place
 * @param from         what is replaced
 * @param to           by what; may be NUL: the text behind it is replaced too
 * @return how many were */
KORX_API uint32_t ORX_ReplaceChar(char* text, char from, char to);

/** Copies a text.
 *
 * @param source what is copied
 * @param count  how many characters at most; 0: all
 * @return the copy, for free(); null for a null source and when memory is short */
KORX_API char* ORX_StrNdup(const char* source, uint32_t count);

/** Appends copies of a text's tokens to a vector, which owns them.
 *
 * @param text      what is split; left alone
 * @param separator what parts tokens; several in a row part them once
 * @param max_count once so many tokens are in, the rest from the next token to the very end becomes
 * one further element; 0: no limit
 * @param vector    what takes them
 * @return 0; 0x0FFFFFFF when memory is short: then ORX_FreeVectorNodes() frees the vector's
 * elements, also those from before the call; behind an empty slot some stay */
KORX_API uint32_t ORX_SplitString2Vector(const char* text, char separator, uint32_t max_count,
                                         ORX_VEC_Vector* vector);

/** Looks for a '/' backwards.
 *
 * @param text     what is looked at
 * @param position before which; at most the text's length
 * @return the index of the nearest one; 0 when there is none */
KORX_API uint32_t ORX_FindPreGangStr(const char* text, uint32_t position);

/** Copies a text.
 *
 * @param source           what is copied
 * @param[out] destination left alone where source does not fit; its last byte is written, too
 * @param size             of destination
 * @return 0, also where source does not fit; else the copy's error code, logged */
KORX_API uint32_t ORX_StringLoop(const char* source, char* destination, uint32_t size);

/** Cleans a path of any length: "//" becomes "/", "/a/.." goes. "/./" stays, and so do names that
 * only begin with two dots. "/a/.." becomes the empty text, "a/../b" becomes "/b".
 *
 * @param[in,out] path edited in place */
KORX_API void ORX_CutPathStr(char* path);

/** Compares two texts.
 *
 * @param a one
 * @param b the other
 * @return 1 when both are given and equal, else 0 */
KORX_API uint32_t ORX_IsStringEqual(const char* a, const char* b);

/** Whether there is nothing to see in a text.
 *
 * @param text may be null
 * @return 1 for null, "" and a text of isspace() characters only, else 0 */
KORX_API uint32_t ORX_IsSpaceString(const char* text);

/** Removes isspace() characters at both ends; double quotes stay.
 *
 * @param[in,out] text edited in place
 * @return 0, or 0x0FFFFFFF for null */
KORX_API uint32_t ORX_StringTrim(char* text);

/** Whether a text is a number without a sign.
 *
 * @param text what is looked at
 * @return 1 for digits only with at least one of them, else 0 */
KORX_API uint32_t ORX_IsDigitString(const char* text);

/** Makes every missing directory along a path. Failures go to the system log at LOG_ERR, since the
 * diagnostic log makes its directory with this.
 *
 * @param path absolute, of at most 511 characters
 * @param mode permission bits of new directories, less the umask
 * @return 0, also for a path that ends in an existing file; 0x71000002 for a longer or relative
 * path; 0x71000004 when mkdir() fails */
KORX_API uint32_t ORX_MkDir(const char* path, uint32_t mode);

/** Writes all of some data, however often it is interrupted or would block: on a full non-blocking
 * descriptor it spins. What went out before a failure stays.
 *
 * @param fd     where to
 * @param data   what
 * @param length of data, below 2^31
 * @return length; the failing write's -1, with errno, or 0; -1 for null data */
KORX_API int32_t ORX_Write(int fd, const void* data, uint32_t length);

/** usleep().
 *
 * @param microseconds how long
 * @return its result, 0 or -1 */
KORX_API int ORX_Usleep(uint32_t microseconds);

/** sleep().
 *
 * @param seconds how long
 * @return its result: the seconds that a signal left over, else 0 */
KORX_API uint32_t ORX_Sleep(uint32_t seconds);

/** Writes an address as "192.168.0.1".
 *
 * @param address     its first number is the most significant byte
 * @param[out] buffer empty after a failure
 * @param size        of the buffer; 16 is always enough
 * @return the characters written, or -1 */
KORX_API int ORX_GetStrIpAddrByDig(uint32_t address, char* buffer, uint32_t size);

/** Reads such a text. Fields are not tested against 255: higher ones spill into their neighbours.
 *
 * @param text         what is read
 * @param[out] address written only when the whole address was read
 * @return the number of fields read, so test against #ORX_IP_ADDRESS_FIELDS; -1 for a whole address
 * that has no place to go, a null one */
KORX_API int ORX_GetDigIpAddrByStr(const char* text, uint32_t* address);

/** @} */

KORX_END_DECLS

#endif
