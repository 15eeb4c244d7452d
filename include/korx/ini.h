#ifndef KORX_INI_H
#define KORX_INI_H

#include <pthread.h>
#include <stdio.h>

#include "korx/common.h"

KORX_BEGIN_DECLS

typedef struct KORX_IniKey {
    char acKey[65];
    char acValue[258];
    struct KORX_IniKey* pstNext;
} KORX_IniKey;

typedef struct KORX_IniSection {
    char acName[65];
    KORX_IniKey* pstFirstKey;
    struct KORX_IniSection* pstNext;
} KORX_IniSection;

KORX_API extern pthread_mutex_t g_unKorxIniWriteLock;

KORX_API KORX_IniSection* KORX_IniLoadProfile(FILE* stream);
KORX_API void KORX_FreeProfile(KORX_IniSection* profile);
KORX_API uint32_t KORX_IniAnalysisTextLine(const char* line);
KORX_API void KORX_IniGetSectionName(const char* line, char* name, uint32_t size);
KORX_API uint32_t KORX_IniGetKeyInfo(const char* line, char* key, uint32_t key_size, char* value,
                                     uint32_t value_size);
KORX_API uint32_t KORX_IniReadProfile(const char* file, const char* section, const char* key,
                                      char* value, uint32_t size);
KORX_API uint32_t KORX_IniGetValue(const char* file, const char* section, const char* key,
                                   char* value, uint32_t size);
KORX_API uint32_t KORX_GetMidString(const char* text, const char* head, const char* tail, char* out,
                                    uint32_t size);

KORX_API uint32_t KORX_IniSaveFile(const char* file, const KORX_IniSection* profile);
KORX_API uint32_t KORX_IniSetValue(const char* file, const char* section, const char* key,
                                   const char* value);
KORX_API uint32_t KORX_IniSetOrAddValue(const char* file, const char* section, const char* key,
                                        const char* value);
KORX_API uint32_t KORX_CheckIniValuePara(const char* file, const char* section, const char* key,
                                         const char* value);

KORX_END_DECLS

#endif
