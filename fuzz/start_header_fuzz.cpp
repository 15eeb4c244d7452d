// The start log's header: whatever it says, records are read inside its sections alone. The input
// is the difference from the header of a small log, which is full of sound records.
#include <string.h>

#include "format/start.h"
#include "korx/reader.h"
#include "support.h"

using namespace korx::fuzz;

namespace {

constexpr size_t kSectionSize = 1024;

// The smaller the log, the more headers in a second; a header's own bounds lead beyond its end.
std::string Records() {
    std::string text;
    while (text.size() < korx::kSectionCount * kSectionSize)
        text += "[2024-03-05 12:34:56.000001][INFO][L:1 FRAME][2]record " +
                std::to_string(text.size()) + "\n";
    return text;
}

STLOG_HDR_S SmallHeader() {
    STLOG_HDR_S header = korx::kStartDefaults;
    uint32_t start = 1;
    for (STLOG_SEC_S& section : header.astSec) {
        section.uiStart = section.uiCur = start;
        section.uiEnd = start += uint32_t{kSectionSize};
    }
    return header;
}

bool IsUsable(const STLOG_HDR_S& header) {
    bool usable = header.uiMagic == korx::kStartDefaults.uiMagic &&
                  header.uiVersion == korx::kStartDefaults.uiVersion;
    for (size_t i = 0; i < korx::kSectionCount; ++i)
        usable = usable && korx::IsUsableSection(header, i);
    return usable;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string text = Records();
    STLOG_HDR_S header = SmallHeader();
    uint8_t bytes[sizeof header];
    memcpy(bytes, &header, sizeof header);
    for (size_t i = 0; i < std::min(size, sizeof bytes); ++i)
        bytes[i] ^= data[i];
    memcpy(&header, bytes, sizeof header);

    const STLOG_HDR_S& used = IsUsable(header) ? header : korx::kStartDefaults;

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
        Require(std::any_of(std::begin(used.astSec), std::end(used.astSec),
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
