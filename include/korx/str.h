/* Texts and paths as texts: trimming, splitting, comparing, the directories along a path, and small
 * conversions.
 *
 * Texts are edited in place or returned as copies for free(). Nothing is kept between calls. Failed
 * copies are logged at ERR. Arguments must not be null unless it is said what null does. */
#ifndef KORX_STR_H
#define KORX_STR_H

#include "korx/common.h"
#include "korx/container.h"

KORX_BEGIN_DECLS

#define ORX_IP_ADDRESS_FIELDS 4 /* what ORX_GetDigIpAddrByStr reads of a whole address */

/* Appends "/" to a path that is not empty and does not end in '/' or '\\'. Where size has no room
 * for it, that is logged and the path is empty afterwards. Null is ignored. */
KORX_API void ORX_EnSureExistPathSep(char* path, uint32_t size);

/* Splits a path behind its last '/' or '\\': "/opt/a" gives "/opt/" and "a", "a" gives "" and "a".
 * The separator stays with the directory. Either buffer may be null. Result: 1, or 0 for a null or
 * empty path and for a buffer that is too small, which is logged. Buffers of failed splits are
 * empty or hold their part; their last byte may be written. */
KORX_API uint32_t ORX_SplitPathFileName(const char* path, char* directory, uint32_t directory_size,
                                        char* name, uint32_t name_size);

/* Strips leading blanks, then leading double quotes, in place; despite the name it works on the
 * start. Tabs stay. Result: 0, 0x71000003 when memory is short, 0x0FFFFFFF. */
KORX_API uint32_t ORX_Strtrimr(char* text);

/* Strips trailing double quotes, then trailing blanks; despite the name it works on the end. */
KORX_API uint32_t ORX_Strtriml(char* text);

/* ORX_Strtriml, then ORX_Strtrimr if that worked. size is not used. The orders of the two ends
 * differ: blanks behind a closing quote hide it, blanks before an opening quote don't. */
KORX_API uint32_t ORX_Trim(char* text, uint32_t size);

/* 1 when text starts with prefix, else 0; also 0 when either is null. A prefix has at most 127
 * characters; where text is that long too, a longer one is logged. */
KORX_API uint32_t ORX_StrIsStartWith(const char* text, const char* prefix);

/* Removes one line end, CR LF, CR or LF, in place. Of two characters only the last one goes, and a
 * text of one stays. size is not used; null is ignored. */
KORX_API void ORX_RemoveLastRn(char* text, uint32_t size);

/* Replaces every from in text, in place, and returns their number. to may be NUL: the text behind
 * it is replaced too. */
KORX_API uint32_t ORX_ReplaceChar(char* text, char from, char to);

/* The first count characters of source, or all of it when count is 0, for free(). Null for a null
 * source and when memory is short. */
KORX_API char* ORX_StrNdup(const char* source, uint32_t count);

/* Appends copies of the text's tokens, which lie between runs of the separator, to the vector,
 * which owns them. Once max_count tokens are in, the rest from the next token to the very end
 * becomes one further element; 0 means no limit. Result: 0, or 0x0FFFFFFF when memory is short:
 * then ORX_FreeVectorNodes frees the vector's elements, also those from before the call; behind an
 * empty slot some stay. */
KORX_API uint32_t ORX_SplitString2Vector(const char* text, char separator, uint32_t max_count,
                                         ORX_VEC_Vector* vector);

/* Index of the nearest '/' before position, which is at most the text's length; 0 when there is
 * none. */
KORX_API uint32_t ORX_FindPreGangStr(const char* text, uint32_t position);

/* Copies source into destination, of size bytes. Where it does not fit nothing happens, and the
 * result is 0 all the same. Else 0 or the copy's error code, which is logged. The last byte of the
 * destination is written too. */
KORX_API uint32_t ORX_StringLoop(const char* source, char* destination, uint32_t size);

/* Cleans a path of any length in place: "//" becomes "/", "/a/.." goes. "/./" stays, and so do
 * names that only begin with two dots. "/a/.." becomes the empty text, "a/../b" becomes "/b". */
KORX_API void ORX_CutPathStr(char* path);

/* 1 when both are given and equal, else 0. */
KORX_API uint32_t ORX_IsStringEqual(const char* a, const char* b);

/* 1 for null, "" and a text of isspace characters only, else 0. */
KORX_API uint32_t ORX_IsSpaceString(const char* text);

/* Removes isspace characters at both ends, in place; double quotes stay. Result: 0, or 0x0FFFFFFF
 * for null. */
KORX_API uint32_t ORX_StringTrim(char* text);

/* 1 for a text of digits only with at least one of them, else 0. */
KORX_API uint32_t ORX_IsDigitString(const char* text);

/* Makes every missing directory along an absolute path of at most 511 characters, with the given
 * mode under the umask. Result: 0, 0x71000002 for a longer or relative path, 0x71000004 when mkdir
 * fails. Failures go to the system log at LOG_ERR, since the diagnostic log makes its directory
 * with this. A path that ends in an existing file gives 0, too. */
KORX_API uint32_t ORX_MkDir(const char* path, uint32_t mode);

/* Writes all of data, below 2^31 bytes, however often it is interrupted or would block: on a full
 * non-blocking descriptor it spins. Result: length, or the failing write's -1 or 0; -1 for null
 * data. What went out before a failure stays. */
KORX_API int32_t ORX_Write(int fd, const void* data, uint32_t length);

/* usleep and sleep with their results. */
KORX_API int ORX_Usleep(uint32_t microseconds);
KORX_API uint32_t ORX_Sleep(uint32_t seconds);

/* Writes an address whose first number is its most significant byte as "192.168.0.1"; 16 bytes are
 * always enough. Result: the characters written, or -1 with an empty text. */
KORX_API int ORX_GetStrIpAddrByDig(uint32_t address, char* buffer, uint32_t size);

/* Reads such a text. Result: the number of fields read; *address is written only when it is
 * ORX_IP_ADDRESS_FIELDS, so test against that; -1 for a whole address that has no place to go, a
 * null one. Fields are not tested against 255: higher ones spill into their neighbours. */
KORX_API int ORX_GetDigIpAddrByStr(const char* text, uint32_t* address);

KORX_END_DECLS

#endif
