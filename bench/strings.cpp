// Texts and buffers. Their floors do the same with the C library's own searches and copies.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <span>
#include <vector>

#include "contest.h"
#include "korx/container.h"
#include "korx/str.h"

namespace bench {
namespace {

constexpr size_t kTimes = 200;  // in one operation: a call is shorter than asking for the time

template <typename Do>
Contestant Times(const char* name, Role role, Do act) {
    return {name, role, [=] {
                return [=] {
                    for (size_t i = 0; i < kTimes; ++i)
                        act();
                };
            }};
}

// --- Splitting ---

std::string Tokens(size_t count) {
    std::string text;
    for (size_t i = 0; i < count; ++i)
        text += "token" + std::to_string(i) + ",";
    return text;
}

void Split(const std::string& text, size_t count) {
    ORX_VEC_Vector* const vector = ORX_VEC_VectorInit(nullptr, 8);
    MUST(ORX_SplitString2Vector(text.c_str(), ',', 0, vector) == 0);
    MUST(ORX_VEC_VectorCount(vector) == count);
    ORX_FreeVectorNodes(vector);
    ORX_VEC_VectorFree(vector);
}

// Copies of the tokens in an array of pointers that grows by doubling.
void SplitFloor(const std::string& text, size_t count) {
    size_t used = 0;
    size_t capacity = 8;
    auto** tokens = static_cast<char**>(malloc(capacity * sizeof(char*)));
    for (const char* at = text.c_str(); *at != '\0';) {
        const size_t length = strcspn(at, ",");
        if (used == capacity)
            tokens = static_cast<char**>(realloc(tokens, (capacity *= 2) * sizeof(char*)));
        tokens[used++] = strndup(at, length);
        at += length;
        at += strspn(at, ",");
    }
    MUST(used == count);
    for (size_t i = 0; i < used; ++i)
        free(tokens[i]);
    free(tokens);
}

void SplitIntoStrings(const std::string& text, size_t count) {
    std::vector<std::string> tokens;
    for (size_t at = 0; at < text.size();) {
        const size_t end = text.find(',', at);
        tokens.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    MUST(tokens.size() == count);
}

Contest Splits(size_t count) {
    const std::string text = Tokens(count);
    return {.name = "ORX_SplitString2Vector, tokens",
            .size = count,
            .contestants = {
                Times("korx", Role::kOurs, [=] { Split(text, count); }),
                Times("floor", Role::kFloor, [=] { SplitFloor(text, count); }),
                Times("vector<string>", Role::kPeer, [=] { SplitIntoStrings(text, count); })}};
}

// --- Editing in place ---

const char kStripped[] = "a value of the usual length in a profile";

// Each gets a fresh copy of the text to edit.
template <typename Edit>
Contestant Editing(const char* name, Role role, const char* text, const char* result, Edit edit) {
    return Times(name, role, [=] {
        char buffer[128];
        strcpy(buffer, text);
        edit(buffer);
        MUST(strcmp(buffer, result) == 0);
    });
}

void StripFloor(char* text) {
    size_t end = strlen(text);
    while (end > 0 && text[end - 1] == ' ')
        --end;
    while (end > 0 && text[end - 1] == '"')
        --end;
    size_t begin = strspn(text, " ");
    begin += strspn(text + begin, "\"");
    memmove(text, text + begin, end - begin);
    text[end - begin] = '\0';
}

Contest Trims() {
    const char* const text = "  \"a value of the usual length in a profile\"";
    return {.name = "ORX_Trim",
            .operations = 100,
            .contestants = {Editing("korx", Role::kOurs, text, kStripped,
                                    [](char* at) { MUST(ORX_Trim(at, 128) == 0); }),
                            Editing("floor", Role::kFloor, text, kStripped, StripFloor),
                            Editing("std::string", Role::kPeer, text, kStripped, [](char* at) {
                                std::string copy(at);
                                copy.erase(copy.find_last_not_of("\" ") + 1);
                                copy.erase(0, copy.find_first_not_of(" \""));
                                strcpy(at, copy.c_str());
                            })}};
}

// One pass: components move down over what was cut.
void CutFloor(char* path) {
    char* to = path;
    for (const char* from = path; *from != '\0';) {
        from += strspn(from, "/");
        const size_t length = strcspn(from, "/");
        if (length == 2 && from[0] == '.' && from[1] == '.') {
            do
                --to;
            while (to > path && *to != '/');
        } else if (length > 0) {
            *to++ = '/';
            memmove(to, from, length);
            to += length;
        }
        from += length;
    }
    *to = '\0';
}

Contest Cuts() {
    const char* const path = "/opt/veltra//quarn/common/../common//log/../tmp/file.ini";
    const char* const cut = "/opt/veltra/quarn/common/tmp/file.ini";
    return {.name = "ORX_CutPathStr",
            .operations = 100,
            .contestants = {Editing("korx", Role::kOurs, path, cut, ORX_CutPathStr),
                            Editing("floor", Role::kFloor, path, cut, CutFloor)}};
}

// --- TLV ---

constexpr size_t kRecords = 20;
const char kValue[] = "a value of a record";

void BuildAndFind() {
    char buffer[1024];
    int16_t remaining = sizeof buffer;
    void* at = buffer;
    for (uint32_t type = 1; type <= kRecords; ++type)
        MUST((at = ORX_AppendTLV(at, &remaining, type, sizeof kValue, kValue)) != nullptr);
    uint16_t length = 0;
    const void* value = nullptr;
    MUST(ORX_GetVFromTLV(buffer, static_cast<int16_t>(sizeof buffer - remaining), kRecords, &length,
                         &value) == 0 &&
         length == sizeof kValue);
}

void BuildAndFindFloor() {
    char buffer[1024];
    char* at = buffer;
    for (uint16_t type = 1; type <= kRecords; ++type) {
        const uint16_t head[] = {type, sizeof kValue};
        MUST(static_cast<size_t>(buffer + sizeof buffer - at) >= sizeof head + sizeof kValue);
        memcpy(at, head, sizeof head);
        memcpy(at + sizeof head, kValue, sizeof kValue);
        at += sizeof head + sizeof kValue;
    }
    uint16_t head[2] = {};
    for (const char* from = buffer; from < at; from += sizeof head + head[1]) {
        memcpy(head, from, sizeof head);
        if (head[0] == kRecords)
            break;
    }
    MUST(head[0] == kRecords && head[1] == sizeof kValue);
}

void BuildAndFindInVector() {
    std::vector<char> buffer;
    const auto append = [&](auto bytes) {
        const auto raw = std::as_bytes(bytes);
        const auto* const begin = reinterpret_cast<const char*>(raw.data());
        buffer.insert(buffer.end(), begin, begin + raw.size());
    };
    for (uint16_t type = 1; type <= kRecords; ++type) {
        const uint16_t head[] = {type, sizeof kValue};
        append(std::span(head));
        append(std::span(kValue));
    }
    uint16_t head[2] = {};
    for (std::span<const char> rest(buffer); !rest.empty();
         rest = rest.subspan(sizeof head + head[1])) {
        memcpy(head, rest.data(), sizeof head);
        if (head[0] == kRecords)
            break;
    }
    MUST(head[0] == kRecords && head[1] == sizeof kValue);
}

Contest Tlvs() {
    return {.name = "ORX_AppendTLV of 20 and ORX_GetVFromTLV",
            .operations = 20,
            .contestants = {Times("korx", Role::kOurs, BuildAndFind),
                            Times("floor", Role::kFloor, BuildAndFindFloor),
                            Times("vector and span", Role::kPeer, BuildAndFindInVector)}};
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    using namespace bench;
    Begin(argc, argv);
    for (const size_t tokens : {16, 2000})
        Hold(Splits(tokens));
    Hold(Trims());
    Hold(Cuts());
    Hold(Tlvs());
}
