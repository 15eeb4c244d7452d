// The result codes of the public headers under their inner names.
#pragma once

#include "korx/common.h"

namespace korx {

constexpr uint32_t kOk = KORX_OK;
constexpr uint32_t kFailed = KORX_ERR_FAILED;
constexpr uint32_t kNullOutput = KORX_ERR_NULL_OUTPUT;
constexpr uint32_t kInvalidParam = KORX_ERR_INVALID_PARAM;
constexpr uint32_t kNoMemory = KORX_ERR_NO_MEMORY;
constexpr uint32_t kCreateDirFailed = KORX_ERR_CREATE_DIR;
constexpr uint32_t kBufferTooShort = KORX_ERR_BUFFER_TOO_SHORT;
constexpr uint32_t kAllBits = KORX_ERR_ALL_BITS;

}  // namespace korx
