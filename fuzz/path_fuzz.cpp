// Paths as texts against plain models: cleaning, splitting off the name, appending a component, the
// parent, the absolute form. The input is a path and a component, with a NUL between.
#include <filesystem>
#include <optional>

#include "korx/fs.h"
#include "korx/str.h"
#include "support.h"

using namespace korx::fuzz;

namespace {

constexpr size_t kSize = 512;

// Component by component, with a text that grows.
std::string Cut(const std::string& path) {
    size_t begin = std::min(path.find('/'), path.size());
    std::string result = path.substr(0, begin);
    while (begin < path.size()) {
        const size_t end = std::min(path.find('/', begin + 1), path.size());
        const std::string component = path.substr(begin + 1, end - begin - 1);
        if (component == "..")
            result.resize(result.rfind('/') == result.npos ? 0 : result.rfind('/'));
        else if (!component.empty() || end == path.size())
            result += "/" + component;
        begin = end;
    }
    return result;
}

std::string Parent(std::string path) {
    if (!path.empty() && path.back() == '/')
        path.pop_back();
    return path.substr(0, path.rfind('/') + 1);
}

void CheckSplit(const std::string& path) {
    char directory[256];
    char name[128];
    const size_t split = path.find_last_of("/\\") + 1;
    const bool fits = split < sizeof directory && path.size() - split < sizeof name;
    const bool is_done =
        ORX_SplitPathFileName(path.c_str(), directory, sizeof directory, name, sizeof name) == 1;
    Require(is_done == (fits && !path.empty()));
    if (is_done)
        Require(path.substr(0, split) == directory && path.substr(split) == name);
}

void CheckCat(const std::string& path, const std::string& component) {
    if (path.size() >= kSize || component.empty() || component.find('/') != component.npos)
        return;
    char buffer[kSize];
    buffer[path.copy(buffer, kSize)] = '\0';
    std::string expected = path;
    if (component == "..")
        expected = Parent(path);
    else if (component != ".")
        expected += (path.empty() || path.back() != '/' ? "/" : "") + component;
    const bool is_done = ORX_PathCat(component.c_str(), buffer, kSize) == 0;
    Require(is_done ? expected == buffer : path == buffer);
    Require(is_done || expected.empty() || expected.size() >= kSize);
}

// None where a component is too long, leads above the root or does not fit.
std::optional<std::string> Absolute(const std::string& path, std::string result) {
    for (size_t begin = 0; begin < path.size();) {
        const size_t end = std::min(path.find('/', begin), path.size());
        const std::string component = path.substr(begin, end - begin);
        if (component.size() > 127 || (component == ".." && Parent(result).empty()))
            return std::nullopt;
        if (component == "..")
            result = Parent(result);
        else if (!component.empty() && component != ".")
            result += (result.back() != '/' ? "/" : "") + component;
        if (result.size() >= kSize)
            return std::nullopt;
        begin = end + 1;
    }
    return result;
}

void CheckAbsolute(const std::string& path) {
    static const std::string here = std::filesystem::current_path().string();
    char buffer[kSize];
    const bool is_done = KORX_Trans2AbsolutePath(path.c_str(), buffer, sizeof buffer) == 0;
    const auto expected = Absolute(path, path.starts_with('/') ? "/" : here);
    Require(is_done ? expected == buffer : !expected);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view rest = View(data, size);
    const std::string path = TakeText(&rest);
    std::string cut = path;
    ORX_CutPathStr(cut.data());
    Require(Cut(path) == cut.c_str());
    CheckSplit(path);
    CheckAbsolute(path);
    CheckCat(path, TakeText(&rest));
    return 0;
}
