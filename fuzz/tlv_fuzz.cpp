// TLV buffers: appended records against a plain list of them, and any bytes against a plain parser.
#include <string.h>

#include "korx/container.h"
#include "support.h"

using namespace korx::fuzz;

namespace {

struct Record {
    uint16_t type;
    std::string_view value;
};

// The records up to the first that is not there as a whole.
std::vector<Record> Parse(std::string_view bytes) {
    std::vector<Record> records;
    while (bytes.size() >= 4) {
        uint16_t field[2];
        memcpy(field, bytes.data(), sizeof field);
        bytes.remove_prefix(sizeof field);
        if (field[1] > bytes.size())
            break;
        records.push_back({field[0], bytes.substr(0, field[1])});
        bytes.remove_prefix(field[1]);
    }
    return records;
}

void CompareLookups(std::string_view buffer, const std::vector<Record>& records, uint16_t type) {
    const auto found = std::find_if(records.begin(), records.end(),
                                    [type](const Record& record) { return record.type == type; });
    uint16_t length = 0xABCD;
    const void* value = nullptr;
    const uint32_t result =
        ORX_GetVFromTLV(buffer.data(), static_cast<int16_t>(buffer.size()), type, &length, &value);
    Require((result == 0) == (found != records.end()));
    if (result != 0) {
        Require(length == 0xABCD && value == nullptr);
        return;
    }
    Require(length == found->value.size() && value == found->value.data());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(View(data, std::min(size, size_t{32767})));
    for (const uint32_t type : {0u, 1u, 0x4141u})
        CompareLookups(input, Parse(input), static_cast<uint16_t>(type));

    std::string_view rest = View(data, size);
    std::string buffer(size_t{TakeByte(&rest)} * 16, '\0');
    auto remaining = static_cast<int16_t>(buffer.size());
    char* position = buffer.data();
    std::vector<Record> expected;
    while (!rest.empty()) {
        const uint32_t type = TakeByte(&rest) % 8;
        const std::string_view value = rest.substr(0, TakeByte(&rest) % 80);
        const bool fits = static_cast<size_t>(remaining) >= value.size() + 4;
        void* const next = ORX_AppendTLV(position, &remaining, type + 0x10000,
                                         static_cast<uint16_t>(value.size()), value.data());
        Require((next != nullptr) == fits);
        rest.remove_prefix(std::min(value.size(), rest.size()));
        if (!fits)
            continue;
        Require(next == position + 4 + value.size());
        position = static_cast<char*>(next);
        expected.push_back({static_cast<uint16_t>(type), value});
    }
    const std::string_view written(buffer.data(), static_cast<size_t>(position - buffer.data()));
    Require(written.size() + static_cast<size_t>(remaining) == buffer.size());
    const std::vector<Record> records = Parse(written);
    Require(std::equal(
        records.begin(), records.end(), expected.begin(), expected.end(),
        [](const Record& a, const Record& b) { return a.type == b.type && a.value == b.value; }));
    for (uint16_t type = 0; type < 8; ++type)
        CompareLookups(written, records, type);
    return 0;
}
