// Command lines: the filter for text that would reach a shell, the splitting into arguments, and
// the two ways to run one.
#include "korx/cmd.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string_view>

#include "base/alloc.h"
#include "base/arguments.h"
#include "base/bounded.h"
#include "base/codes.h"
#include "base/directory.h"
#include "base/report.h"
#include "base/unique.h"
#include "cmd/run.h"

namespace korx {
namespace {

constexpr char kRefusedCharacters[] = "|;&$<>()[]`\\\"'~?*!\n";
static_assert(sizeof kRefusedCharacters == 20);

constexpr std::string_view kForbiddenPrograms[] = {"sh", "bash", "tcsh", "sash", "ksh", "zsh"};

constexpr size_t kCommandSize = 2048;
constexpr size_t kBlockSize = 2048;
constexpr size_t kSlots = 30;  // at the start of the block; one of them ends the vector
static_assert(kSlots * sizeof(char*) < kBlockSize);

// The terminating NUL is a member of the set: a length that reaches it refuses the text.
bool HoldsRefused(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](char character) {
        return memchr(kRefusedCharacters, character, sizeof kRefusedCharacters) != nullptr;
    });
}

size_t CountTokens(const char* text, const char* separators) {
    size_t count = 0;
    for (text += strspn(text, separators); *text != '\0'; text += strspn(text, separators)) {
        text += strcspn(text, separators);
        ++count;
    }
    return count;
}

// The memory of an argument vector: pointer slots, then the texts of the tokens.
struct BlockLayout {
    size_t text;
    size_t size;
};

// A vector that outgrows the slots gets as many as it needs, and room for all that a command line
// can hold behind them.
BlockLayout LayoutFor(size_t tokens) {
    if (tokens < kSlots)
        return {kSlots * sizeof(char*), kBlockSize};
    const size_t text = (tokens + 1) * sizeof(char*);
    return {text, text + kCommandSize};
}

// Splits command into block. The slots behind the last token stay null.
uint32_t FillBlock(char* command, const char* separators, char* block, BlockLayout layout) {
    char** slot = static_cast<char**>(static_cast<void*>(block));  // as malloc aligns it
    size_t position = layout.text;
    char* rest = nullptr;
    for (char* token = strtok_r(command, separators, &rest); token != nullptr;
         token = strtok_r(nullptr, separators, &rest)) {
        const size_t room = layout.size - position;
        const int length =
            room == 0 ? -1 : snprintf_s(block + position, room, room - 1, "%s", token);
        if (length <= 0)
            return Fail(kAllBits, "Print pcToken = %s unsuccessfully", token);
        *slot++ = block + position;
        position += static_cast<size_t>(length) + 1;
    }
    return kOk;
}

}  // namespace
}  // namespace korx

using namespace korx;

uint32_t ORX_IsCommandForbidden(const char* program) {
    if (program == nullptr || program[0] == '\0')
        return KORX_TRUE;
    const std::string_view name = NameOf(program);
    const auto* const end = std::end(kForbiddenPrograms);
    return std::find(std::begin(kForbiddenPrograms), end, name) != end ? KORX_TRUE : KORX_FALSE;
}

uint32_t ORX_CommandConstructArgv(const char* command, const char* separators, char*** argv) {
    if (command == nullptr || separators == nullptr || argv == nullptr)
        return Fail(kAllBits, "pcCommand or split is NULL.");

    const MallocPtr<char> copy(static_cast<char*>(malloc(kCommandSize)));
    if (!copy)
        return Fail(kAllBits, "Malloc acCommand unsuccessfully.");
    if (snprintf_s(copy.get(), kCommandSize, kCommandSize - 1, "%s", command) <= 0)
        return Fail(kAllBits, "Print pcCommand = %s unsuccessfully", command);

    const BlockLayout layout = LayoutFor(CountTokens(copy.get(), separators));
    MallocPtr<char> block(static_cast<char*>(AllocateZeroed(layout.size)));
    if (!block)
        return Fail(kAllBits, "Malloc pcBuf unsuccessfully.");
    const uint32_t result = FillBlock(copy.get(), separators, block.get(), layout);
    if (result != kOk)
        return result;

    *argv = static_cast<char**>(static_cast<void*>(block.release()));
    return kOk;
}

uint32_t ORX_CommandFilter(const char* text, uint32_t length) {
    if (text == nullptr)
        return kAllBits;
    if (length == 0 || text[0] == '\0')
        return kOk;
    return HoldsRefused({text, length}) ? kAllBits : kOk;
}

uint32_t KORX_Execvp(const char* command, const char* separators) {
    if (command == nullptr || separators == nullptr)
        return Fail(kAllBits, "pcCommand or split is NULL.");
    if (HoldsRefused(command))
        return Fail(kAllBits, "Command is illegal, cmd=%s, split='%s', uiRet=%u.", command,
                    separators, kAllBits);

    char** argv = nullptr;
    const uint32_t built = ORX_CommandConstructArgv(command, separators, &argv);
    if (built != kOk)
        return Fail(built, "Command can't construct argv, cmd=%s, split='%s'.", command,
                    separators);
    const MallocPtr<char*> block(argv);
    const uint32_t result = KORX_SystemExecvp(argv);
    if (result != kOk)
        return Fail(result, "Command can't execvp, cmd=%s, split='%s', uiRet=%u.", command,
                    separators, result);
    return kOk;
}

uint32_t ORX_IsStrParaHasInvalidChar(uint32_t count, va_list texts) {
    for (uint32_t i = 0; i < count; ++i) {
        const char* const text = va_arg(texts, const char*);
        if (text == nullptr || HoldsRefused(text))
            return kAllBits;
    }
    return kOk;
}

uint32_t KORX_SystemWithFilter(const char* command, uint32_t count, ...) {
    if (command == nullptr)
        return Fail(kAllBits, "pcCommand is NULL.");

    Arguments texts;
    va_start(texts.list, count);
    if (ORX_IsStrParaHasInvalidChar(count, texts.list) != kOk)
        return Fail(kAllBits, "Command has illegal char, cmd=%s.", command);

    const int status = RunShell(command);
    if (status < 0)
        return Fail(kAllBits, "Command can't system with filter, cmd=%s, errno=%d.", command,
                    errno);
    return KORX_GetExitStatus(status);
}
