#ifndef KORX_CMD_H
#define KORX_CMD_H

#include <stdarg.h>

#include "korx/common.h"

KORX_BEGIN_DECLS

KORX_API uint32_t KORX_GetExitStatus(int32_t wait_status);
KORX_API uint32_t ORX_IsCommandForbidden(const char* program);
KORX_API uint32_t ORX_CommandConstructArgv(const char* command, const char* separators,
                                           char*** argv);
KORX_API uint32_t KORX_SystemExecvp(char** argv);
KORX_API uint32_t ORX_CommandFilter(const char* text, uint32_t length);
KORX_API uint32_t KORX_Execvp(const char* command, const char* separators);
KORX_API uint32_t ORX_IsStrParaHasInvalidChar(uint32_t count, va_list texts);
KORX_API uint32_t KORX_SystemWithFilter(const char* command, uint32_t count, ...);

KORX_END_DECLS

#endif
