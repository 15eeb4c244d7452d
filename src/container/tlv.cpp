// Flat buffers of records: a 16-bit type, a 16-bit length and the value, in host byte order and
// without gaps. Fields may lie at odd addresses, so they move as bytes.
#include "korx/container.h"

#include <string.h>

#include "base/bounded.h"
#include "base/codes.h"

namespace korx {
namespace {

constexpr int kLengthOffset = 2;
constexpr int kHeaderSize = 4;

struct TwoWords {
    uint64_t words[2];
};

uint16_t LoadField(const uint8_t* field) {
    uint16_t value;
    memcpy(&value, field, sizeof value);
    return value;
}

void StoreField(uint8_t* field, uint16_t value) {
    memcpy(field, &value, sizeof value);
}

// Where the value of a record goes, its length stored and counted; null when it does not go. The
// 16-bit count holds values to 32763 bytes: no longer one has room. A null value with a length is a
// failed copy.
uint8_t* RoomForValue(uint8_t* record, int16_t* remaining, uint16_t length, const void* value) {
    if (record == nullptr || remaining == nullptr)
        return nullptr;
    const int record_size = kHeaderSize + length;
    if (*remaining < record_size)
        return nullptr;

    StoreField(record + kLengthOffset, length);
    if (length != 0 && value == nullptr)
        return nullptr;
    *remaining = static_cast<int16_t>(*remaining - record_size);
    return record + kHeaderSize;
}

// Copies a value as its first and its last block, which may overlap.
template <typename Block>
void CopyEnds(uint8_t* room, const uint8_t* value, size_t length) {
    Block first, last;
    memcpy(&first, value, sizeof first);
    memcpy(&last, value + length - sizeof last, sizeof last);
    memcpy(room, &first, sizeof first);
    memcpy(room + length - sizeof last, &last, sizeof last);
}

// The end of the copy. Values of a few words, the usual ones, are not worth the C library's call.
uint8_t* CopyValue(uint8_t* room, const void* value, size_t length) {
    const auto* const bytes = static_cast<const uint8_t*>(value);
    if (length >= sizeof(TwoWords) && length <= 2 * sizeof(TwoWords))
        CopyEnds<TwoWords>(room, bytes, length);
    else if (length >= sizeof(uint64_t) && length < sizeof(TwoWords))
        CopyEnds<uint64_t>(room, bytes, length);
    else if (length != 0)
        memcpy(room, bytes, length);
    return room + length;
}

// The first record of the type, if it lies in the buffer as a whole; else null.
const uint8_t* FindRecord(const void* buffer, int left, uint16_t type) {
    if (buffer == nullptr)
        return nullptr;
    const auto* record = static_cast<const uint8_t*>(buffer);
    while (left >= kHeaderSize) {
        const int record_size = kHeaderSize + LoadField(record + kLengthOffset);
        if (record_size > left)
            return nullptr;
        if (LoadField(record) == type)
            return record;
        record += record_size;
        left -= record_size;
    }
    return nullptr;
}

}  // namespace
}  // namespace korx

using namespace korx;

void* ORX_AppendTLV(void* position, int16_t* remaining, uint32_t type, uint16_t length,
                    const void* value) {
    auto* const record = static_cast<uint8_t*>(position);
    uint8_t* const room = RoomForValue(record, remaining, length, value);
    if (room == nullptr)
        return nullptr;
    StoreField(record, static_cast<uint16_t>(type));
    return CopyValue(room, value, length);
}

uint32_t ORX_SetValue(void* position, int16_t* remaining, uint16_t length, const void* value) {
    uint8_t* const room = RoomForValue(static_cast<uint8_t*>(position), remaining, length, value);
    if (room == nullptr)
        return kAllBits;
    (void) CopyValue(room, value, length);
    return kOk;
}

uint32_t ORX_GetVFromTLV(const void* buffer, int16_t buffer_length, uint16_t type, uint16_t* length,
                         const void** value) {
    if (length == nullptr || value == nullptr)
        return kAllBits;
    const uint8_t* const record = FindRecord(buffer, buffer_length, type);
    if (record == nullptr)
        return kAllBits;
    *length = LoadField(record + kLengthOffset);
    *value = record + kHeaderSize;
    return kOk;
}

uint32_t ORX_GetStrByTlvType(uint16_t type, const void* buffer, int16_t buffer_length, char* text,
                             uint32_t size) {
    const uint8_t* const record = FindRecord(buffer, buffer_length, type);
    if (record == nullptr || text == nullptr)
        return ORX_TLV_ERR_TEXT;
    const uint16_t length = LoadField(record + kLengthOffset);
    if (length >= size)
        return ORX_TLV_ERR_TEXT;
    if (memcpy_s(text, size, record + kHeaderSize, length) != 0)
        return ORX_TLV_ERR_TEXT;
    text[length] = '\0';
    return kOk;
}
