// Splitting and trimming against plain models. The first byte is the separator, the second the
// limit; the text follows.
#include <string.h>

#include "korx/str.h"
#include "support.h"

using namespace korx::fuzz;

namespace {

constexpr char kSpaces[] = " \t\n\v\f\r";

std::string Behind(const std::string& text, const char* set) {
    return text.substr(std::min(text.find_first_not_of(set), text.size()));
}

std::string Before(const std::string& text, const char* set) {
    return text.substr(0, text.find_last_not_of(set) + 1);
}

std::vector<std::string> Tokens(std::string text, char separator, size_t limit) {
    std::vector<std::string> tokens;
    const char set[] = {separator, '\0'};
    while (!(text = separator == '\0' ? text : Behind(text, set)).empty()) {
        const size_t end = tokens.size() == limit && limit != 0 ? text.npos : text.find(separator);
        tokens.push_back(text.substr(0, end));
        text.erase(0, tokens.back().size());
    }
    return tokens;
}

template <typename Trim>
void CheckTrim(Trim trim, const std::string& before, const std::string& expected) {
    std::string text = before;
    (void) trim(text.data());
    Require(expected == text.c_str());
}

void CheckSplit(const std::string& text, char separator, unsigned limit) {
    ORX_VEC_Vector* const vector = ORX_VEC_VectorInit(nullptr, 1);
    Require(vector != nullptr);
    Require(ORX_SplitString2Vector(text.c_str(), separator, limit, vector) == 0);
    const std::vector<std::string> expected = Tokens(text, separator, limit);
    Require(ORX_VEC_VectorCount(vector) == expected.size());
    for (size_t i = 0; i < expected.size(); ++i)
        Require(expected[i] == static_cast<const char*>(vector->ppSlots[i]));
    ORX_FreeVectorNodes(vector);
    ORX_VEC_VectorFree(vector);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view rest = View(data, size);
    const auto separator = static_cast<char>(TakeByte(&rest));
    const unsigned limit = TakeByte(&rest) % 8;
    const std::string text = TakeText(&rest);
    CheckSplit(text, separator, limit);
    const std::string start = Behind(Behind(text, " "), "\"");
    CheckTrim(ORX_Strtrimr, text, start);
    const std::string end = Before(Before(text, "\""), " ");
    CheckTrim(ORX_Strtriml, text, end);
    CheckTrim([](char* t) { return ORX_Trim(t, 0); }, text, Behind(Behind(end, " "), "\""));
    CheckTrim(ORX_StringTrim, text, Before(Behind(text, kSpaces), kSpaces));
    return 0;
}
