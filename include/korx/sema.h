#ifndef KORX_SEMA_H
#define KORX_SEMA_H

#include "korx/common.h"

KORX_BEGIN_DECLS

KORX_API uint32_t KORX_MutexSemaGetKey(const char* path, uint32_t project_id, uint32_t* key);
KORX_API uint32_t KORX_MutexSemaCreate(uint32_t key, uint32_t* sema_id);
KORX_API uint32_t KORX_MutexSemaDestroy(uint32_t sema_id);
KORX_API uint32_t KORX_MutexSemaP(uint32_t sema_id);
KORX_API uint32_t KORX_MutexSemaV(uint32_t sema_id);

KORX_END_DECLS

#endif
