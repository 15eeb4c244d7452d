// The start log's header: whatever it says, records are read inside its sections alone. The input
// is the difference from the header of a new log.
#include <string.h>

#include "format/start.h"
#include "korx/reader.h"
#include "support.h"

using namespace korx::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string text(korx::kStartFileEnd, 'x');
    STLOG_HDR_S header = korx::kStartDefaults;
    auto* const bytes = reinterpret_cast<uint8_t*>(&header);
    for (size_t i = 0; i < std::min(size, sizeof header); ++i)
        bytes[i] ^= data[i];

    korx_reader_options options = {};
    options.header = &header;
    options.header_length = sizeof header;
    korx_reader* reader = nullptr;
    Require(korx_reader_open_memory(text.data(), text.size(), KORX_LOG_START, &options, &reader,
                                    nullptr) == KORX_READER_OK);
    korx_record record = {};
    while (korx_reader_next(reader, &record) == 1) {
        if ((record.flags & KORX_RECORD_DAMAGED) != 0)
            continue;
        const uint64_t end = record.offset + record.length;
        Require(std::any_of(std::begin(header.astSec), std::end(header.astSec),
                            [&](const STLOG_SEC_S& section) {
                                return record.offset >= section.uiStart && end <= section.uiEnd;
                            }));
    }
    for (size_t i = 0; i < korx::kSectionCount; ++i)
        for (size_t j = 0; j < i && korx::IsUsableSection(header, i); ++j)
            Require(header.astSec[i].uiStart >= header.astSec[j].uiEnd ||
                    header.astSec[j].uiStart >= header.astSec[i].uiEnd);
    korx_reader_close(reader);
    return 0;
}
