#include "ini/lines.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "base/report.h"
#include "str/line_end.h"

namespace korx {
namespace {

bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

// Not substr: where that is not inlined, its exception is, and the C++ library with it.
std::string_view First(std::string_view text, size_t length) {
    return {text.data(), length};
}

std::string_view TrimEnd(std::string_view text) {
    while (!text.empty() && IsBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

}  // namespace

Lines::Lines(int fd) : fd_(fd), stream_(nullptr) {
    struct stat st;
    if (fstat(fd, &st) == 0 && !S_ISREG(st.st_mode)) {
        state_ = Reading::kBroken;
        errno = EINVAL;
    }
}

bool Lines::next_of_block(std::string_view* line) {
    for (;;) {
        const size_t reach = std::min(static_cast<size_t>(end_ - begin_), kMaxLine);
        const void* const newline = memchr(begin_, '\n', reach);
        const size_t length =
            newline == nullptr
                ? reach
                : static_cast<size_t>(static_cast<const char*>(newline) + 1 - begin_);
        const bool is_whole =
            newline != nullptr || reach == kMaxLine || (state_ == Reading::kAtEnd && reach != 0);
        if (is_whole) {
            *line = {begin_, length};
            begin_ += length;
            return true;
        }
        if (state_ != Reading::kGoesOn)
            return false;
        refill();
    }
}

void Lines::refill() {
    const auto left = static_cast<size_t>(end_ - begin_);
    memmove(block_, begin_, left);
    const ssize_t count = read(fd_, block_ + left, sizeof block_ - left);
    begin_ = block_;
    end_ = block_ + left + std::max<ssize_t>(count, 0);
    if (count <= 0)
        state_ = count == 0 ? Reading::kAtEnd : Reading::kBroken;
}

// fgets tells no length, but the last NUL in the buffer is the one that it put behind what it read.
bool Lines::next_of_stream(std::string_view* line) {
    memset(block_, '\n', kMaxLine + 1);
    if (fgets(block_, kMaxLine + 1, stream_) == nullptr) {
        state_ = feof(stream_) ? Reading::kAtEnd : Reading::kBroken;
        return false;
    }
    const auto* const end = static_cast<const char*>(memrchr(block_, '\0', kMaxLine + 1));
    *line = {block_, static_cast<size_t>(end - block_)};
    return true;
}

LoadStatus TakeLines(Lines* lines, LineTaker* taker) {
    LoadStatus result = LoadStatus::kLoaded;
    std::string_view line;
    while (lines->next(&line)) {
        const LoadStatus status = taker->take(taker, line);
        if (!IsLoaded(status))
            return status;
        if (status != LoadStatus::kLoaded)
            result = status;
    }
    if (lines->state() == Reading::kAtEnd)
        return result;
    Log(kLevelErr, "[ORX] Can't get line from file, errno=%d", errno);
    return LoadStatus::kReadError;
}

std::string_view SkipBlanks(std::string_view text) {
    size_t blanks = 0;
    while (blanks < text.size() && IsBlank(text[blanks]))
        ++blanks;
    text.remove_prefix(blanks);
    return text;
}

std::string_view TextOf(std::string_view line) {
    std::string_view text = First(line, strnlen(line.data(), line.size()));
    if (text.starts_with('\n') || text.starts_with('\r'))
        return First(text, 0);
    text.remove_suffix(LineEndLength(text));
    return text;
}

uint32_t Classify(std::string_view text) {
    text = SkipBlanks(text);
    if (text.empty() || text[0] == ';')
        return KORX_INI_LINE_BLANK;
    if (text[0] == '#')
        return KORX_INI_LINE_COMMENT;
    return text[0] == '[' && text.back() == ']' ? KORX_INI_LINE_SECTION : KORX_INI_LINE_KEY;
}

std::string_view SectionName(std::string_view text) {
    text = SkipBlanks(text);
    return First(text, std::min(text.size(), kSectionSize - 1));
}

KeyLine KeyLine::Split(std::string_view text) {
    text = SkipBlanks(text);
    const size_t split = text.rfind('=');
    if (split == text.npos)
        return {text, {text.data() + text.size(), 0}, true};
    std::string_view value = text;
    value.remove_prefix(split + 1);
    return {TrimEnd(First(text, split)), TrimEnd(SkipBlanks(value)), false};
}

LoadStatus RefuseLine(std::string_view text) {
    char line[kMaxLine + 1];
    char key[kKeySize];
    char value[kValueSize];
    CopyCut(line, sizeof line, text);
    (void) KORX_IniGetKeyInfo(line, key, sizeof key, value, sizeof value);
    return LoadStatus::kBadLine;
}

void CopyCut(char* out, size_t size, std::string_view text) {
    const size_t copied = std::min(text.size(), size - 1);
    memcpy(out, text.data(), copied);
    out[copied] = '\0';
}

}  // namespace korx
