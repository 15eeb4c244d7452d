// The lines of a profile: how they are read, and what stands in them. Both the loader and the
// lookup go by this, so that a line means the same to them.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <string_view>

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

// The lines of a profile, from where its descriptor or stream stands, which belongs to the caller.
// A descriptor is read in large blocks, a stream as it is published. Of the descriptors only those
// of regular files are read: a device may have no end.
class Lines {
  public:
    explicit Lines(int fd);
    explicit Lines(FILE* stream) : fd_(-1), stream_(stream) {}

    // The next line with its end; it lies in the block until the next call. False where there is
    // none: state tells why, after a failure with errno. What was read of a line before a failure
    // is none.
    bool next(std::string_view* line) {
        return stream_ == nullptr ? next_of_block(line) : next_of_stream(line);
    }
    Reading state() const { return state_; }

  private:
    bool next_of_block(std::string_view* line);
    bool next_of_stream(std::string_view* line);
    void refill();

    static constexpr size_t kBlockSize = 8192;
    const int fd_;
    FILE* const stream_;
    Reading state_ = Reading::kGoesOn;
    char block_[kBlockSize];
    const char* begin_ = block_;
    const char* end_ = block_;
};

// Whoever judges lines one by one. They are taken until he refuses one or all are read.
struct LineTaker {
    LoadStatus (*take)(LineTaker* self, std::string_view line);
};
LoadStatus TakeLines(Lines* lines, LineTaker* taker);

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
    std::string_view stored_key() const {
        return {key.data(), key.size() < kKeySize ? key.size() : kKeySize - 1};
    }
    bool is_cut() const { return is_bare && key.size() >= kKeySize; }
    bool is_bad() const { return !is_bare && (key.size() >= kKeySize || value.size() > kMaxValue); }
};

// Says why a line is bad.
LoadStatus RefuseLine(std::string_view text);

// Copies and terminates; what does not fit in size, at least 1, is left out.
void CopyCut(char* out, size_t size, std::string_view text);

}  // namespace korx
