// Lookups in profiles. Each reads the file once, line by line, and builds nothing: a value counts
// only if every line of the file is one that the loader takes. Readers take no lock: a writer
// replaces the file as a whole, so they see the old content or the new one.
#include "korx/ini.h"

#include <errno.h>
#include <string.h>

#include "base/bounded.h"
#include "base/codes.h"
#include "base/report.h"
#include "base/text.h"
#include "base/unique.h"
#include "ini/lines.h"
#include "ini/profile.h"
#include "korx/fs.h"

namespace korx {
namespace {

constexpr char kNoValue[] = "\"\"";  // what a lookup finds where there is no such key
constexpr size_t kMaxLookupName = 63;
constexpr size_t kLookupSize = 256;  // of a value that is looked up, with its quotes

// Looks for the first key of a name in the first section of a name, and at every line.
class Lookup : public LineTaker {
  public:
    Lookup(const char* section, const char* key)
        : LineTaker{[](LineTaker* self, std::string_view line) {
              return static_cast<Lookup*>(self)->take_line(line);
          }},
          section_(section),
          key_(key) {}

    bool has_section() const { return place_ != Place::kBeforeSections; }
    const char* value() const { return found_ ? value_ : kNoValue; }

  private:
    enum class Place { kBeforeSections, kBeforeSection, kInSection, kBehind };

    LoadStatus take_line(std::string_view line);
    bool may_matter(std::string_view line) const;
    void enter_section(std::string_view name);
    LoadStatus take_key(const KeyLine& line, std::string_view text);

    const std::string_view section_;
    const std::string_view key_;
    Place place_ = Place::kBeforeSections;
    bool found_ = false;
    char value_[kMaxValue + 1];
};

LoadStatus Lookup::take_line(std::string_view line) {
    if (!may_matter(line))
        return LoadStatus::kLoaded;
    const std::string_view text = TextOf(line);
    const uint32_t kind = Classify(text);
    if (kind == KORX_INI_LINE_SECTION)
        enter_section(SectionName(text));
    return kind == KORX_INI_LINE_KEY && has_section() ? take_key(KeyLine::Split(text), text)
                                                      : LoadStatus::kLoaded;
}

// Most lines are too short to be bad ones, and neither start a section nor begin like the key: they
// need not be taken apart.
bool Lookup::may_matter(std::string_view line) const {
    if (line.size() >= kKeySize)
        return true;
    if (place_ == Place::kBehind)
        return false;
    const std::string_view text = SkipBlanks(line);
    return text.starts_with('[') || (place_ == Place::kInSection && text.starts_with(key_));
}

// A second section of the name is not searched.
void Lookup::enter_section(std::string_view name) {
    if (place_ == Place::kInSection)
        place_ = Place::kBehind;
    else if (place_ != Place::kBehind)
        place_ = name == section_ ? Place::kInSection : Place::kBeforeSection;
}

LoadStatus Lookup::take_key(const KeyLine& line, std::string_view text) {
    if (line.is_bad())
        return RefuseLine(text);
    if (place_ == Place::kInSection && line.stored_key() == key_) {
        CopyCut(value_, sizeof value_, line.value);
        found_ = true;
        place_ = Place::kBehind;
    }
    return LoadStatus::kLoaded;
}

// Opens the file that the name leads to, or says why it cannot.
UniqueFd OpenByName(const char* file) {
    DirectoryText path;
    UniqueFd fd;
    if (OpenResolved(file, kOpenProfile, 0, &path, &fd) != kOk) {
        Log(kLevelErr, "Get the abolute path of file %s unsuccessfully when read profile.", file);
    } else if (!fd) {
        // What can be opened is there: only a failure is looked into.
        const int error = errno;
        if (KORX_IsFileExist(path.c_str()) == KORX_FALSE)
            Log(kLevelInfo, "File %s is not exist.", file);
        else
            Log(kLevelErr, "Can't Read File %s, errno=%d.", file, error);
    }
    return fd;
}

uint32_t CopyMissing(const char* text, char* out, uint32_t size) {
    const int copied = strncpy_s(out, size, text, size - 1);
    out[size - 1] = '\0';
    if (copied != 0)
        return Fail(KORX_FALSE, "nRet=%d.Copy pszStr unsuccessfully,pszStr=%s.", copied, text);
    return KORX_FALSE;
}

}  // namespace
}  // namespace korx

using namespace korx;

uint32_t KORX_IniReadProfile(const char* file, const char* section, const char* key, char* value,
                             uint32_t size) {
    if (value == nullptr || size < 2)
        return Fail(kFailed, "ini read file unsuccessfully retStrLen:%d.", static_cast<int>(size));
    const UniqueFd fd = OpenByName(file);
    if (!fd)
        return kFailed;
    Lookup lookup(section, key);
    Lines lines(fd.get());
    const LoadStatus status = TakeLines(&lines, &lookup);
    if (!IsLoaded(status) || !lookup.has_section())
        return KORX_INI_NOT_LOADED;
    CopyCut(value, size, lookup.value());
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
