// The lines of a profile: how they are read, and what stands in them. Both the loader and the
// lookup go by this, so that a line means the same to them.
#pragma once

#include <errno.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/stat.h>

#include <string_view>

#include "base/report.h"
#include "korx/ini.h"

namespace korx {

constexpr size_t kSectionSize = sizeof(KORX_IniSection::acName);
constexpr size_t kKeySize = sizeof(KORX_IniKey::acKey);
constexpr size_t kValueSize = sizeof(KORX_IniKey::acValue);

// The field would hold one character more, but a line with it would make the file unreadable.
constexpr size_t kMaxValue = 256;

// What a longer line has more counts as a line of its own.
constexpr size_t kMaxLine = 399;

// How a load ended. A file without any section is a loaded, empty profile: whoever rewrites it must
// be able to tell it from a file that could not be read.
enum class LoadStatus {
    kLoaded,
    kLoadedInPart,  // a save would cut a line of the file, or make it another one
    kBadLine,
    kReadError,
    kOutOfMemory,
};

inline bool IsLoaded(LoadStatus status) {
    return status == LoadStatus::kLoaded || status == LoadStatus::kLoadedInPart;
}

enum class Reading { kGoesOn, kAtEnd, kBroken };

// Lines of a descriptor, read in large blocks.
class BlockLines {
  public:
    explicit BlockLines(int fd) : fd_(fd) {}

    // The next line with its end; it lies in the block until the next call. False where there is
    // none: state tells why, after a failure with errno. What was read of a line before a failure
    // is none.
    bool next(std::string_view* line);
    Reading state() const { return state_; }

  private:
    void refill();

    static constexpr size_t kBlockSize = 8192;
    const int fd_;
    Reading state_ = Reading::kGoesOn;
    char block_[kBlockSize];
    const char* begin_ = block_;
    const char* end_ = block_;
};

// The same of a stream, which belongs to the caller.
class StreamLines {
  public:
    explicit StreamLines(FILE* stream) : stream_(stream) {}

    bool next(std::string_view* line);
    Reading state() const { return feof(stream_) ? Reading::kAtEnd : Reading::kBroken; }

  private:
    FILE* const stream_;
    char line_[kMaxLine + 1];
};

// Hands line by line to take, which judges it, until it refuses one or all are read.
template <typename Lines, typename Take>
LoadStatus TakeLines(Lines* lines, Take take) {
    LoadStatus result = LoadStatus::kLoaded;
    std::string_view line;
    while (lines->next(&line)) {
        const LoadStatus status = take(line);
        if (!IsLoaded(status))
            return status;
        if (status != LoadStatus::kLoaded)
            result = status;
    }
    if (lines->state() != Reading::kAtEnd)
        return Fail(LoadStatus::kReadError, "[ORX] Can't get line from file, errno=%d", errno);
    return result;
}

// The same for a profile that is open at its start. Only a regular file is read: a device may have
// no end.
template <typename Take>
LoadStatus TakeFileLines(int fd, Take take) {
    struct stat st;
    if (fstat(fd, &st) == 0 && !S_ISREG(st.st_mode))
        return Fail(LoadStatus::kReadError, "[ORX] Can't get line from file, errno=%d", EINVAL);
    BlockLines lines(fd);
    return TakeLines(&lines, take);
}

std::string_view SkipBlanks(std::string_view text);

// What of a line as it was read is text: what stands before the first NUL, without the line end.
// Empty also where the line starts with a line end, whatever is behind it.
std::string_view TextOf(std::string_view line);

// KORX_INI_LINE_...
uint32_t Classify(std::string_view text);

// The name of a section, from the text that is classified as one.
std::string_view SectionName(std::string_view text);

// A key line in its parts, of which the loader stores what it can hold.
struct KeyLine {
    std::string_view key;
    std::string_view value;
    bool is_bare;  // has no "="; then the key is cut if it is too long

    static KeyLine Split(std::string_view text);
    std::string_view stored_key() const { return key.substr(0, kKeySize - 1); }
    bool is_cut() const { return is_bare && key.size() >= kKeySize; }
    bool is_bad() const { return !is_bare && (key.size() >= kKeySize || value.size() > kMaxValue); }
};

// Says why a line is bad.
LoadStatus RefuseLine(std::string_view text);

// Copies and terminates; what does not fit in size, at least 1, is left out.
void CopyCut(char* out, size_t size, std::string_view text);

}  // namespace korx
