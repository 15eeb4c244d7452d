// Loading of profiles, and lookups in them. Readers take no lock: a writer replaces the file as a
// whole, so they see the old content or the new one.
#include "ini/profile.h"

#include <errno.h>
#include <fcntl.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "base/alloc.h"
#include "base/codes.h"
#include "base/report.h"
#include "base/text.h"
#include "korx/fs.h"
#include "korx/str.h"

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

constexpr size_t kLineSize = 400;
constexpr char kNoValue[] = "\"\"";  // what a lookup finds where there is no such key
constexpr size_t kMaxLookupName = 63;
constexpr size_t kLookupSize = 256;  // of a value that is looked up, with its quotes

bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

const char* SkipBlanks(const char* text) {
    return text + strspn(text, " \t");
}

std::string_view TrimEnd(std::string_view text) {
    while (!text.empty() && IsBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

uint32_t Classify(const char* line) {
    const char* const text = SkipBlanks(line);
    if (text[0] == '\0' || text[0] == ';')
        return KORX_INI_LINE_BLANK;
    if (text[0] == '#')
        return KORX_INI_LINE_COMMENT;
    return text[0] == '[' && text[strlen(text) - 1] == ']' ? KORX_INI_LINE_SECTION
                                                           : KORX_INI_LINE_KEY;
}

// Copies and terminates; what does not fit in size, at least 1, is left out.
void CopyCut(char* out, uint32_t size, std::string_view text) {
    const size_t copied = std::min<size_t>(text.size(), size - 1);
    memcpy(out, text.data(), copied);
    out[copied] = '\0';
}

template <typename Node>
Node* NewNode(Node*** link) {
    auto* const node = static_cast<Node*>(AllocateZeroed(sizeof(Node)));
    if (node != nullptr) {
        **link = node;
        *link = &node->pstNext;
    }
    return node;
}

// Whether a save would write a key back as the line that it was loaded from. Blanks and comments
// are not minded; a line's own text is.
bool IsKept(const KORX_IniKey& key, const char* line) {
    const bool is_cut = strchr(line, '=') == nullptr && strlen(SkipBlanks(line)) >= kKeySize;
    // A carriage return in these places is taken for a line end.
    const bool loses_return = key.acKey[0] == '\r' || std::string_view(key.acValue).ends_with('\r');
    return !is_cut && !loses_return && !ReadsAsSection(key.acKey, key.acValue);
}

// Builds a profile line by line, in file order.
class Loader {
  public:
    explicit Loader(KORX_IniSection** head) : next_section_(head) {}

    LoadStatus add(const char* line) {
        switch (Classify(line)) {
            case KORX_INI_LINE_SECTION:
                return add_section(line);
            case KORX_INI_LINE_KEY:
                return next_key_ == nullptr ? LoadStatus::kLoaded : add_key(line);
            default:
                return LoadStatus::kLoaded;
        }
    }

  private:
    LoadStatus add_section(const char* line) {
        KORX_IniSection* const section = NewNode(&next_section_);
        if (section == nullptr)
            return LoadStatus::kOutOfMemory;
        KORX_IniGetSectionName(line, section->acName, kSectionSize);
        next_key_ = &section->pstFirstKey;
        return strlen(SkipBlanks(line)) < kSectionSize ? LoadStatus::kLoaded
                                                       : LoadStatus::kLoadedInPart;
    }

    LoadStatus add_key(const char* line) {
        KORX_IniKey* const key = NewNode(&next_key_);
        if (key == nullptr)
            return LoadStatus::kOutOfMemory;
        const uint32_t split =
            KORX_IniGetKeyInfo(line, key->acKey, kKeySize, key->acValue, kValueSize);
        if (split != kOk)
            return LoadStatus::kBadLine;
        return IsKept(*key, line) ? LoadStatus::kLoaded : LoadStatus::kLoadedInPart;
    }

    KORX_IniSection** next_section_;
    KORX_IniKey** next_key_ = nullptr;  // null before the first section
};

bool IsLoaded(LoadStatus status) {
    return status == LoadStatus::kLoaded || status == LoadStatus::kLoadedInPart;
}

bool ReadLine(FILE* stream, char (&line)[kLineSize]) {
    memset(line, '\n', sizeof line);  // see HidesText
    return fgets(line, sizeof line, stream) != nullptr;
}

// Whether a line has text that nobody reads, because it stands behind a NUL. fgets tells no length,
// but the last NUL in the buffer is the one that it put behind what it read.
bool HidesText(const char (&line)[kLineSize]) {
    const auto* const end = static_cast<const char*>(memrchr(line, '\0', sizeof line));
    const char* const hidden = line + strlen(line);
    return std::string_view(hidden, static_cast<size_t>(end - hidden))
               .find_first_not_of(std::string_view("\0\r\n", 3)) != std::string_view::npos;
}

LoadStatus LoadLines(FILE* stream, KORX_IniSection** head) {
    Loader loader(head);
    LoadStatus result = LoadStatus::kLoaded;
    char line[kLineSize];
    while (ReadLine(stream, line)) {
        if (HidesText(line))
            result = LoadStatus::kLoadedInPart;
        if (line[0] == '\n' || line[0] == '\r')
            continue;
        ORX_RemoveLastRn(line, sizeof line);
        const LoadStatus status = loader.add(line);
        if (!IsLoaded(status))
            return status;
        if (status != LoadStatus::kLoaded)
            result = status;
    }
    if (!feof(stream))
        return Fail(LoadStatus::kReadError, "[ORX] Can't get line from file, errno=%d", errno);
    return result;
}

LoadStatus LoadStream(FILE* stream, Profile* profile) {
    KORX_IniSection* head = nullptr;
    const LoadStatus status = LoadLines(stream, &head);
    profile->reset(head);
    if (!IsLoaded(status))
        profile->reset();
    return status;
}

uint32_t CopyMissing(const char* text, char* out, uint32_t size) {
    const int copied = strncpy_s(out, size, text, size - 1);
    out[size - 1] = '\0';
    if (copied != 0)
        return Fail(KORX_FALSE, "nRet=%d.Copy pszStr unsuccessfully,pszStr=%s.", copied, text);
    return KORX_FALSE;
}

}  // namespace

UniqueFile OpenProfile(const char* path) {
    UniqueFd fd(open(path, O_RDWR | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    UniqueFile stream(fd ? fdopen(fd.get(), "r+") : nullptr);
    if (stream)
        (void) fd.release();
    return stream;
}

LoadStatus LoadProfile(FILE* stream, Profile* profile) {
    struct stat st;
    if (fstat(fileno(stream), &st) == 0 && !S_ISREG(st.st_mode))
        return Fail(LoadStatus::kReadError, "[ORX] Can't get line from file, errno=%d", EINVAL);
    return LoadStream(stream, profile);
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
    return SkipBlanks(key)[0] == '[' && std::string_view(value).ends_with(']');
}

}  // namespace korx

using namespace korx;

KORX_IniSection* KORX_IniLoadProfile(FILE* stream) {
    if (stream == nullptr)
        return Fail(static_cast<KORX_IniSection*>(nullptr),
                    "[ORX]ORX_LoadProfile Open file unsuccessfully.errno=%d!", errno);
    const UniqueFile owned(stream);
    Profile profile;
    (void) LoadStream(owned.get(), &profile);
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
    const char* const text = SkipBlanks(line);
    if (strncpy_s(name, size, text, size - 1) != 0)
        Log(kLevelErr, "[ORX] Copy pszText unsuccessfully, pszText=%s.", text);
}

uint32_t KORX_IniGetKeyInfo(const char* line, char* key, uint32_t key_size, char* value,
                            uint32_t value_size) {
    const char* const text = SkipBlanks(line);
    if (key == nullptr || key_size == 0 || value == nullptr || value_size == 0)
        return Fail(kFailed, "nRet=%d.Cope pszText unsuccessfully, pszText=%s", EINVAL, text);
    value[0] = '\0';
    key[key_size - 1] = '\0';
    const char* const split = strrchr(text, '=');
    if (split == nullptr) {
        CopyCut(key, key_size, text);
        return kOk;
    }

    const std::string_view key_text = TrimEnd({text, static_cast<size_t>(split - text)});
    CopyCut(key, key_size, key_text);
    if (key_text.size() >= key_size)
        return Fail(kFailed, "Get key info unsuccessfully, KeyLen=%u, Text=%s", key_size, text);

    const std::string_view value_text = TrimEnd(SkipBlanks(split + 1));
    const size_t longest = std::min<size_t>(kMaxValue, value_size - 1);
    CopyCut(value, static_cast<uint32_t>(longest + 1), value_text);
    if (value_text.size() > longest)
        return Fail(kFailed, "Get key info unsuccessfully, ValueLen=%u, Text=%s",
                    static_cast<uint32_t>(kMaxValue), text + key_text.size());
    return kOk;
}

uint32_t KORX_IniReadProfile(const char* file, const char* section, const char* key, char* value,
                             uint32_t size) {
    if (value == nullptr || size < 2)
        return Fail(kFailed, "ini read file unsuccessfully retStrLen:%d.", static_cast<int>(size));
    DirectoryText path;
    if (ORX_GetAbsolutePathAndFileName(file, path.data(), path.capacity()) != kOk)
        return Fail(kFailed, "Get the abolute path of file %s unsuccessfully when read profile.",
                    file);
    if (KORX_IsFileExist(path.c_str()) == KORX_FALSE) {
        Log(kLevelInfo, "File %s is not exist.", file);
        return kFailed;
    }
    const UniqueFile stream = OpenProfile(path.c_str());
    if (!stream)
        return Fail(kFailed, "Can't Read File %s, errno=%d.", file, errno);
    Profile profile;
    (void) LoadProfile(stream.get(), &profile);
    if (!profile)
        return KORX_INI_NOT_LOADED;

    const KORX_IniKey* const found = FindKey(FindSection(profile.get(), section), key);
    CopyCut(value, size, found == nullptr ? kNoValue : found->acValue);
    return KORX_INI_READ;
}

__attribute__((weak)) uint32_t KORX_IniGetValue(const char* file, const char* section,
                                                const char* key, char* value, uint32_t size) {
    if (file == nullptr || section == nullptr || key == nullptr || value == nullptr)
        return Fail(KORX_INI_ERR_NULL_PARA, "Input para is invalid.");
    if (strlen(key) > kMaxLookupName || strlen(section) > kMaxLookupName ||
        strlen(file) >= kDirectorySize)
        return Fail(KORX_INI_ERR_TOO_LONG,
                    "Input para len is invalid, filename %s, section %s, key %s.", file, section,
                    key);
    // Only a profile that does not load is a failure. A file that is not there or may not be opened
    // has no value: the caller gets an empty text.
    FixedText<kLookupSize> stored;
    if (KORX_IniReadProfile(file, section, key, stored.data(), stored.capacity()) ==
        KORX_INI_NOT_LOADED)
        return Warn(KORX_INI_ERR_LOAD, "[ORX] Load file %s unsuccessfully, section '%s', key '%s'",
                    file, section, key);

    if (stored.c_str()[0] == '"') {
        if (KORX_GetMidString(stored.c_str(), "\"", "\"", value, size) == KORX_TRUE)
            return kOk;
        return Fail(KORX_INI_ERR_QUOTE,
                    "[ORX] GetMidString unsuccessfully. file %s section %s key %s value %s", file,
                    section, key, stored.c_str());
    }
    if (strncpy_s(value, size, stored.c_str(), strlen(stored.c_str())) != 0)
        return Fail(kFailed, "[ORX]copy Value unsuccessfully, Value=%s.", stored.c_str());
    value[size - 1] = '\0';
    return kOk;
}

uint32_t KORX_GetMidString(const char* text, const char* head, const char* tail, char* out,
                           uint32_t size) {
    if (size == 0)
        return KORX_FALSE;
    out[0] = '\0';
    if (text == nullptr)
        return KORX_FALSE;
    const char* const at_head = strstr(text, head);
    const char* const begin = at_head == nullptr ? nullptr : at_head + strlen(head);
    const char* const end = begin == nullptr ? nullptr : strstr(begin, tail);
    if (end == nullptr)
        return CopyMissing(text, out, size);

    const auto length = static_cast<size_t>(end - begin);
    if (length + 1 > size)
        return Fail(KORX_FALSE, "BufSize is not long enough.");
    const int copied = strncpy_s(out, length + 1, begin, length);
    if (copied != 0)
        return Fail(KORX_FALSE, "nRet=%d.Copy HeadSize unsuccessfully,HeadSize=%s.", copied, begin);
    return KORX_TRUE;
}
