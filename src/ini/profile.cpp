// Loading of profiles, and what their callers may ask about a line.
#include "ini/profile.h"

#include <errno.h>
#include <fcntl.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "base/alloc.h"
#include "base/bounded.h"
#include "base/codes.h"
#include "base/report.h"
#include "fs/resolve.h"
#include "korx/fs.h"

static_assert(sizeof(KORX_IniKey) == 336);
static_assert(offsetof(KORX_IniKey, acKey) == 0);
static_assert(offsetof(KORX_IniKey, acValue) == 65);
static_assert(offsetof(KORX_IniKey, pstNext) == 328);
static_assert(sizeof(KORX_IniSection) == 88);
static_assert(offsetof(KORX_IniSection, acName) == 0);
static_assert(offsetof(KORX_IniSection, pstFirstKey) == 72);
static_assert(offsetof(KORX_IniSection, pstNext) == 80);

namespace korx {
namespace {

template <typename Node>
Node* NewNode(Node*** link) {
    auto* const node = static_cast<Node*>(AllocateZeroed(sizeof(Node)));
    if (node != nullptr) {
        **link = node;
        *link = &node->pstNext;
    }
    return node;
}

// Whether a line has text that nobody reads, because it stands behind a NUL.
bool HidesText(std::string_view line) {
    const size_t hidden = line.find('\0');
    return hidden != line.npos &&
           line.find_first_not_of(std::string_view("\0\r\n", 3), hidden) != line.npos;
}

// Whether a save would write a key back as the line that it was loaded from. Blanks and comments
// are not minded; a line's own text is.
bool IsKept(const KORX_IniKey& key, const KeyLine& line) {
    // A carriage return in these places is taken for a line end.
    const bool loses_return = line.key.starts_with('\r') || line.value.ends_with('\r');
    return !line.is_cut() && !loses_return && !ReadsAsSection(key.acKey, key.acValue);
}

// Whether a key would be found no more. A save writes "=" behind a bare key, too, and then its name
// ends where its blanks began: it would stand before the key of that name below it.
bool WouldBeHidden(const KORX_IniKey* other, std::string_view key) {
    for (; other != nullptr; other = other->pstNext) {
        const char* const end = other->acKey + key.size();
        if (strncmp(other->acKey, key.data(), key.size()) == 0 && end[strspn(end, " \t")] == '\0')
            return *end != '\0';
    }
    return false;
}

// Builds a profile line by line, in file order.
class Loader : public LineTaker {
  public:
    explicit Loader(KORX_IniSection** head)
        : LineTaker{[](LineTaker* self, std::string_view line) {
              return static_cast<Loader*>(self)->add(line);
          }},
          next_section_(head) {}

  private:
    LoadStatus add(std::string_view line) {
        const LoadStatus status = add_text(TextOf(line));
        return status == LoadStatus::kLoaded && HidesText(line) ? LoadStatus::kLoadedInPart
                                                                : status;
    }

    LoadStatus add_text(std::string_view text) {
        switch (Classify(text)) {
            case KORX_INI_LINE_SECTION:
                return add_section(text);
            case KORX_INI_LINE_KEY:
                return next_key_ == nullptr ? LoadStatus::kLoaded : add_key(text);
            default:
                return LoadStatus::kLoaded;
        }
    }

    LoadStatus add_section(std::string_view text) {
        KORX_IniSection* const section = NewNode(&next_section_);
        if (section == nullptr)
            return LoadStatus::kOutOfMemory;
        const std::string_view name = SectionName(text);
        CopyCut(section->acName, kSectionSize, name);
        next_key_ = &section->pstFirstKey;
        first_bare_ = nullptr;
        return name.size() == SkipBlanks(text).size() ? LoadStatus::kLoaded
                                                      : LoadStatus::kLoadedInPart;
    }

    LoadStatus add_key(std::string_view text) {
        KORX_IniKey* const key = NewNode(&next_key_);
        if (key == nullptr)
            return LoadStatus::kOutOfMemory;
        const KeyLine line = KeyLine::Split(text);
        if (line.is_bad())
            return RefuseLine(text);
        CopyCut(key->acKey, kKeySize, line.key);
        CopyCut(key->acValue, kValueSize, line.value);
        if (line.is_bare && first_bare_ == nullptr && text.back() <= ' ')  // or it hides nothing
            first_bare_ = key;
        return IsKept(*key, line) && !WouldBeHidden(first_bare_, line.key)
                   ? LoadStatus::kLoaded
                   : LoadStatus::kLoadedInPart;
    }

    KORX_IniSection** next_section_;
    KORX_IniKey** next_key_ = nullptr;         // null before the first section
    const KORX_IniKey* first_bare_ = nullptr;  // of the section
};

// What was built is kept if all lines could be read.
LoadStatus Build(Lines* lines, Profile* profile) {
    KORX_IniSection* head = nullptr;
    Loader loader(&head);
    const LoadStatus status = TakeLines(lines, &loader);
    if (!IsLoaded(status))
        KORX_FreeProfile(std::exchange(head, nullptr));
    profile->reset(head);
    return status;
}

}  // namespace

// A name in the root resolves to one with two slashes, and names of the same profile are compared.
uint32_t OpenResolved(const char* file, int flags, mode_t mode, DirectoryText* path, UniqueFd* fd) {
    const char* const slash = strrchr(file, '/');
    const bool may_be_resolved = slash != nullptr && slash != file && path->format("%s", file);
    if (may_be_resolved)
        *fd = OpenAsNamed(file, flags, mode);
    if (*fd)
        return kOk;
    const uint32_t code = ORX_GetAbsolutePathAndFileName(file, path->data(), path->capacity());
    if (code == kOk)
        *fd = UniqueFd(open(path->c_str(), flags, mode));
    return code;
}

LoadStatus LoadProfile(int fd, Profile* profile) {
    Lines lines(fd);
    return Build(&lines, profile);
}

KORX_IniSection* FindSection(KORX_IniSection* profile, const char* name) {
    while (profile != nullptr && strcmp(profile->acName, name) != 0)
        profile = profile->pstNext;
    return profile;
}

KORX_IniKey* FindKey(KORX_IniSection* section, const char* name) {
    KORX_IniKey* key = section == nullptr ? nullptr : section->pstFirstKey;
    while (key != nullptr && strcmp(key->acKey, name) != 0)
        key = key->pstNext;
    return key;
}

bool ReadsAsSection(const char* key, const char* value) {
    return SkipBlanks(key).starts_with('[') && std::string_view(value).ends_with(']');
}

}  // namespace korx

using namespace korx;

KORX_IniSection* KORX_IniLoadProfile(FILE* stream) {
    if (stream == nullptr) {
        Log(kLevelErr, "[ORX]ORX_LoadProfile Open file unsuccessfully.errno=%d!", errno);
        return nullptr;
    }
    const UniqueFile owned(stream);
    Lines lines(owned.get());
    Profile profile;
    (void) Build(&lines, &profile);
    return profile.release();
}

void KORX_FreeProfile(KORX_IniSection* profile) {
    while (profile != nullptr) {
        for (KORX_IniKey* key = profile->pstFirstKey; key != nullptr;)
            free(std::exchange(key, key->pstNext));
        free(std::exchange(profile, profile->pstNext));
    }
}

uint32_t KORX_IniAnalysisTextLine(const char* line) {
    return Classify(line);
}

void KORX_IniGetSectionName(const char* line, char* name, uint32_t size) {
    if (size < 2)
        return Log(kLevelErr, "[ORX] Copy pszText unsuccessfully, uiSectionNameLen:%d.",
                   static_cast<int>(size));
    const char* const text = SkipBlanks(line).data();
    if (strncpy_s(name, size, text, size - 1) != 0)
        Log(kLevelErr, "[ORX] Copy pszText unsuccessfully, pszText=%s.", text);
}

uint32_t KORX_IniGetKeyInfo(const char* line, char* key, uint32_t key_size, char* value,
                            uint32_t value_size) {
    const char* const text = SkipBlanks(line).data();
    if (key == nullptr || key_size == 0 || value == nullptr || value_size == 0)
        return Fail(kFailed, "nRet=%d.Cope pszText unsuccessfully, pszText=%s", EINVAL, text);
    value[0] = '\0';
    key[key_size - 1] = '\0';
    const KeyLine parts = KeyLine::Split(text);
    CopyCut(key, key_size, parts.key);
    if (parts.is_bare)
        return kOk;
    if (parts.key.size() >= key_size)
        return Fail(kFailed, "Get key info unsuccessfully, KeyLen=%u, Text=%s", key_size, text);

    const size_t longest = std::min<size_t>(kMaxValue, value_size - 1);
    CopyCut(value, longest + 1, parts.value);
    if (parts.value.size() > longest)
        return Fail(kFailed, "Get key info unsuccessfully, ValueLen=%u, Text=%s",
                    static_cast<uint32_t>(kMaxValue), text + parts.key.size());
    return kOk;
}
