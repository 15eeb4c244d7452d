// One key changed or taken out by the command's editor, judged by the library's loader. The input
// is a byte that says what to do, the section's name, the key, the value and the file, with NULs
// between.
#include "changed_profile.h"
#include "ini_edit.h"

using namespace korx::fuzz;
using namespace korx::tool;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view rest = View(data, size);
    const unsigned what = TakeByte(&rest);
    IniChange change{TakeText(&rest), TakeText(&rest), TakeText(&rest)};
    if ((what & 1) != 0)
        change.value.reset();
    const bool at_top = (what & 2) != 0;
    const Profile before = Load(FileOf(rest));

    const auto edited =
        EditProfileText(rest, change, at_top ? NewSection::kAtTop : NewSection::kAtEnd);
    if (edited && !before.empty())
        Require(Load(FileOf(*edited)) == Changed(before, change.section, change.key, change.value,
                                                 at_top ? Top::kOfFileToo : Top::kOfSectionOnly));
    if (const auto plain = PlainProfileText(rest); plain && !before.empty())
        Require(Load(FileOf(*plain)) == before);
    return 0;
}
