#ifndef KORX_STR_H
#define KORX_STR_H

#include "korx/common.h"
#include "korx/container.h"

KORX_BEGIN_DECLS

KORX_API void ORX_EnSureExistPathSep(char* path, uint32_t size);
KORX_API uint32_t ORX_SplitPathFileName(const char* path, char* directory, uint32_t directory_size,
                                        char* name, uint32_t name_size);
KORX_API uint32_t ORX_Strtrimr(char* text);
KORX_API uint32_t ORX_Strtriml(char* text);
KORX_API uint32_t ORX_Trim(char* text, uint32_t size);
KORX_API uint32_t ORX_StrIsStartWith(const char* text, const char* prefix);
KORX_API void ORX_RemoveLastRn(char* text, uint32_t size);
KORX_API uint32_t ORX_ReplaceChar(char* text, char from, char to);
KORX_API char* ORX_StrNdup(const char* source, uint32_t count);
KORX_API uint32_t ORX_SplitString2Vector(const char* text, char separator, uint32_t max_count,
                                         ORX_VEC_Vector* vector);
KORX_API uint32_t ORX_FindPreGangStr(const char* text, uint32_t position);
KORX_API uint32_t ORX_StringLoop(const char* source, char* destination, uint32_t size);
KORX_API void ORX_CutPathStr(char* path);
KORX_API uint32_t ORX_IsStringEqual(const char* a, const char* b);
KORX_API uint32_t ORX_IsSpaceString(const char* text);
KORX_API uint32_t ORX_StringTrim(char* text);
KORX_API uint32_t ORX_IsDigitString(const char* text);
KORX_API uint32_t ORX_MkDir(const char* path, uint32_t mode);
KORX_API int32_t ORX_Write(int fd, const void* data, uint32_t length);
KORX_API int ORX_Usleep(uint32_t microseconds);
KORX_API uint32_t ORX_Sleep(uint32_t seconds);
KORX_API int ORX_GetStrIpAddrByDig(uint32_t address, char* buffer, uint32_t size);
KORX_API int ORX_GetDigIpAddrByStr(const char* text, uint32_t* address);

KORX_END_DECLS

#endif
