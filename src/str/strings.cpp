// Tests, copies and conversions of texts, and the small waits and writes that callers share.
#include "korx/str.h"

#include <ctype.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string_view>

#include "base/bounded.h"
#include "base/codes.h"
#include "base/report.h"
#include "base/text.h"
#include "base/unique.h"
#include "base/write_all.h"
#include "container/slots.h"

namespace korx {
namespace {

constexpr size_t kPrefixSize = 128;

// A text with its terminator, in room + 1 bytes of their own.
MallocPtr<char> CopyOf(std::string_view text, size_t room) {
    MallocPtr<char> copy(static_cast<char*>(malloc(room + 1)));
    if (copy) {
        memcpy(copy.get(), text.data(), text.size());
        copy.get()[text.size()] = '\0';
        copy.get()[room] = '\0';
    }
    return copy;
}

// Appends to a vector, which takes the first empty slot each time.
class TokenAppender {
  public:
    explicit TokenAppender(ORX_VEC_Vector* vector) : vector_(vector) {}

    bool append(std::string_view token) {
        MallocPtr<char> copy = CopyOf(token, token.size());
        if (!copy || vector_ == nullptr)
            return false;
        slot_ = EmptySlotFrom(vector_, slot_);
        if (ORX_VEC_VectorSetIndex(vector_, slot_, copy.get()) == kAllBits)
            return false;
        (void) copy.release();  // the vector owns it now
        return true;
    }

  private:
    ORX_VEC_Vector* const vector_;
    uint32_t slot_ = 0;
};

bool AppendTokens(ORX_VEC_Vector* vector, const char* text, char separator, uint32_t max_count) {
    // The end is known by its place: the separator may be NUL.
    const char* const end = text + strlen(text);
    TokenAppender tokens(vector);
    uint32_t appended = 0;
    for (const char* token = text;; ++appended) {
        while (token != end && *token == separator)
            ++token;
        const auto left = static_cast<size_t>(end - token);
        if (left == 0)
            return true;
        if (max_count != 0 && appended == max_count)
            return tokens.append({token, left});

        const void* const found = memchr(token, separator, left);
        const char* const token_end = found == nullptr ? end : static_cast<const char*>(found);
        if (!tokens.append({token, static_cast<size_t>(token_end - token)}))
            return false;
        token = token_end;
    }
}

}  // namespace
}  // namespace korx

using namespace korx;

uint32_t ORX_StrIsStartWith(const char* text, const char* prefix) {
    if (text == nullptr || prefix == nullptr)
        return KORX_FALSE;
    const size_t length = strlen(prefix);
    char start[kPrefixSize] = {};
    if (const int code = strncpy_s(start, sizeof start, text, length); code != 0)
        return Fail(KORX_FALSE, "nRet=%d.Copy pcStr unsuccessfully, pcStr=%s, pcStrLen=%u.", code,
                    text, static_cast<uint32_t>(length));
    return strcmp(start, prefix) == 0 ? KORX_TRUE : KORX_FALSE;
}

uint32_t ORX_ReplaceChar(char* text, char from, char to) {
    const char* const end = text + strlen(text);
    uint32_t replaced = 0;
    for (; text != end; ++text) {
        if (*text == from) {
            *text = to;
            ++replaced;
        }
    }
    return replaced;
}

char* ORX_StrNdup(const char* source, uint32_t count) {
    if (source == nullptr)
        return nullptr;
    const size_t room = count == 0 ? strlen(source) : size_t{count};
    return CopyOf({source, strnlen(source, room)}, room).release();
}

uint32_t ORX_SplitString2Vector(const char* text, char separator, uint32_t max_count,
                                ORX_VEC_Vector* vector) {
    if (AppendTokens(vector, text, separator, max_count))
        return kOk;
    ORX_FreeVectorNodes(vector);
    return kFailed;
}

uint32_t ORX_StringLoop(const char* source, char* destination, uint32_t size) {
    if (strlen(source) >= size)
        return kOk;
    if (const int code = strncpy_s(destination, size, source, size - 1); code != 0)
        return Fail(static_cast<uint32_t>(code), "nRet=%d.Copy StrLoop unsuccessfully, StrLoop=%s.",
                    code, source);
    destination[size - 1] = '\0';
    return kOk;
}

uint32_t ORX_IsStringEqual(const char* a, const char* b) {
    return a != nullptr && b != nullptr && strcmp(a, b) == 0 ? KORX_TRUE : KORX_FALSE;
}

uint32_t ORX_IsDigitString(const char* text) {
    if (text == nullptr || *text == '\0')
        return KORX_FALSE;
    while (isdigit(static_cast<unsigned char>(*text)))
        ++text;
    return *text == '\0' ? KORX_TRUE : KORX_FALSE;
}

int32_t ORX_Write(int fd, const void* data, uint32_t length) {
    if (data == nullptr)
        return -1;
    return static_cast<int32_t>(WriteAll(fd, data, length));
}

int ORX_Usleep(uint32_t microseconds) {
    return usleep(microseconds);
}

uint32_t ORX_Sleep(uint32_t seconds) {
    return sleep(seconds);
}

int ORX_GetStrIpAddrByDig(uint32_t address, char* buffer, uint32_t size) {
    return sprintf_s(buffer, size, "%u.%u.%u.%u", address >> 24, (address >> 16) & 255,
                     (address >> 8) & 255, address & 255);
}

int ORX_GetDigIpAddrByStr(const char* text, uint32_t* address) {
    unsigned a = 0, b = 0, c = 0, d = 0;
    const int fields = sscanf_s(text, "%u.%u.%u.%u", &a, &b, &c, &d);
    // Fields above 255 spill into their neighbours: the sum is all that is promised.
    if (fields != ORX_IP_ADDRESS_FIELDS)
        return fields;
    if (address == nullptr)
        return -1;  // a caller that tests for all fields must not go on without the address
    *address = (a << 24) + (b << 16) + (c << 8) + d;
    return fields;
}
