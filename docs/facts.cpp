// Prints what the manual pages of section 5 say about bytes and limits, from where the code has it:
// the rows of their tables, column by column as far as the code knows them, and texts that stand in
// them. docs/check_pages.py compares.
#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include "format/board.h"
#include "format/kinds.h"
#include "ini/lines.h"

namespace {

using namespace korx;

const char* page = "";

// A row of a table begins so, or a text stands in the page: as the code prints it, if the format is
// one of the code's own. What ends in a line feed already gets no other.
[[gnu::format(printf, 3, 4)]] void Fact(const char* kind, const char* before, const char* format,
                                        ...) {
    char text[512];
    va_list args;
    va_start(args, format);
    (void) vsnprintf(text, sizeof text, format, args);
    va_end(args);
    printf("%s %s %s%.*s\n", page, kind, before, static_cast<int>(strcspn(text, "\r\n")), text);
}

#define Row(...) Fact("row", "", __VA_ARGS__)
#define Text(...) Fact("text", "", __VA_ARGS__)
#define Record(...) Fact("text", kStamp, __VA_ARGS__)
#define FIELD(type, field, kind) \
    Row("%zu\t%zu\t%s\t%s", offsetof(type, field), sizeof(type::field), kind, #field)

constexpr char kStamp[] = "[2024-03-05 14:07:09.004211]";
constexpr char kShortExample[] = "[240305-14:07:09.004211]";
constexpr char kCompactExample[] = "[20240305-14:07:09.004211]";
static_assert(sizeof kStamp == sizeof kDashedShape);
static_assert(sizeof kShortExample == sizeof kShortShape);
static_assert(sizeof kCompactExample == sizeof kCompactShape);

void Kinds() {
    page = "korx_log.5";
    const auto row = [](korx_log_kind number, const char* between, const char* more) {
        const LogKind& kind = KindOf(number);
        Row("%s\t%s%s%s\t%u\tkorx_", kind.name, kind.files[0], between, more, kind.limit);
    };
    row(KORX_LOG_TEXT, ", ", kTextFiles[1]);
    row(KORX_LOG_DIAG, "", "");
    row(KORX_LOG_SECURITY, "", "");
    row(KORX_LOG_LIFE, "", "");
    row(KORX_LOG_START, ", ", kStartHeaderFile);
    Row("process\t%s%s and the like\t%u\tkorx_", kComponents[ORX_PLOG_COMP_ZELK_AGENT],
        kProcessSuffix, KindOf(KORX_LOG_PROCESS).limit);
    row(KORX_LOG_SPACE, "", "");
    Text("limit of %u characters", kMaxRecord);
    Row("all others\t%s\t%zu", kStamp, kDashedStamp);
    Row("text\t%s\t%zu", kShortExample, kShortStamp);
    Row("space\t%s\t%zu", kCompactExample, kCompactStamp);
    Text(".IR %s/%s", kBaseDir, kLogDirName);
    Text("Section \"%s\", key \"%s\", of", kPathSection, kLogPathKey);
    Text(".I %s", kConfFile);
}

void Ring() {
    page = "korx_ring.5";
    for (const korx_log_kind number : {KORX_LOG_DIAG, KORX_LOG_SECURITY, KORX_LOG_LIFE}) {
        const LogKind& kind = KindOf(number);
        Row("%s\t%s\t%u\tare %s", kind.name, kind.files[0], kind.limit,
            kind.unread == Unread::kProtected ? "kept" : "written over");
    }
    FIELD(LOG_HEAD_S, uiLogLen, "uint32");
    FIELD(LOG_HEAD_S, uiDumpLen, "uint32");
    FIELD(LOG_HEAD_S, uiTotalLen, "uint32");
    Text("head of %u bytes", kRingHeadSize);
    Record(kEventFormat, kDiagIndex, 0u, "INFO", 80100u, 0u, 0u, "up");
    Text("index %#x", kDiagIndex);
    Text("at most %u bytes", kMaxRecord);
    Text("refused (%u)", ORX_PLOG_ERR_DISCARDED);
}

void TextLog() {
    page = "korx_text_log.5";
    Row("0\t%u\tuint32\tcount", kTextHeadSize);
    Text(kTextFormat, kShortExample, 1234, 80100u, "INFO", "up");
    Text("at most %zu bytes", kMaxTextLength);
    Text("limit (%u as set up)", KindOf(KORX_LOG_TEXT).limit);
    for (const char* file : kTextFiles)
        Text(".IR %s", file);
}

void ProcessLog() {
    page = "korx_process_log.5";
    for (const char* process : kComponents)
        Text("%s%s", process, kProcessSuffix);
    Record(kOwnProcessFormat, "INFO", 80100u, 3u, 120u, "package verified");
    Record(kNamedProcessFormat, 80100u, 3u, "INFO", 120u, "package verified");
    Text("limit (%u unless", KindOf(KORX_LOG_PROCESS).limit);
    Text("at most %u bytes", kMaxRecord);
}

void StartLog() {
    page = "korx_start_log.5";
    for (uint32_t s = 0; s < kSectionCount; ++s) {
        const STLOG_SEC_S& section = kStartDefaults.astSec[s];
        Row("%u\t%s\t%u\t%u\t%u\t%u", s, kModules[s], section.uiStart, section.uiEnd,
            section.uiEnd - section.uiStart, section.uiStart - kSeparatorLength);
        Row("%zu\t%zu\tsection\tastSec[%u]\t%s",
            offsetof(STLOG_HDR_S, astSec) + s * sizeof(STLOG_SEC_S), sizeof(STLOG_SEC_S), s,
            kModules[s]);
        Text("0x%X", section.uiMarker);
    }
    FIELD(STLOG_HDR_S, uiFlag, "uint32");
    FIELD(STLOG_HDR_S, uiMagic, "uint32");
    FIELD(STLOG_HDR_S, uiVersion, "uint32");
    FIELD(STLOG_SEC_S, uiMarker, "uint32");
    FIELD(STLOG_SEC_S, uiStart, "uint32");
    FIELD(STLOG_SEC_S, uiEnd, "uint32");
    FIELD(STLOG_SEC_S, uiCur, "uint32");
    Text("uiMagic\t0x%X", kStartDefaults.uiMagic);
    Text("uiVersion\t%u", kStartDefaults.uiVersion);
    Text("%zu bytes, in the byte order", sizeof(STLOG_HDR_S));
    Text("separator of %u bytes", kSeparatorLength);
    Text("%u and at least %d bytes", kStartFileEnd, kRecordRoom);
    Record(kStartFormat, "INFO", 80100u, kModules[1], 2u, "patch area mounted");
}

void SpaceLog() {
    page = "korx_space_log.5";
    const auto name = static_cast<uint32_t>(kCompactStamp);
    Row("0\t%zu", kCompactStamp);
    Row("%u\t%u", name, kSpaceNameField);
    Row("%u\t%u", name + kSpaceNameField, kSpaceValueField);
    Row("%u\t2", name + kSpaceNameField + kSpaceValueField);
    Text("%u blanks", kSpaceReserve);
    Text("more than %u bytes", kSpaceReserve);
    Text("%s", kSpaceHeader);
}

void Profile() {
    page = "korx_profile.5";
    Row("line\t%zu", kMaxLine);
    Row("section\t%zu", kSectionSize - 1);
    Row("key\t%zu", kKeySize - 1);
    Row("value\t%zu", kMaxValue);
}

}  // namespace

int main() {
    Kinds();
    Ring();
    TextLog();
    ProcessLog();
    StartLog();
    SpaceLog();
    Profile();
    return 0;
}
