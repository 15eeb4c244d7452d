// What the command's start may cost: most of it is relocation.
#include "run.h"

namespace korx::test {
namespace {

struct Budget : RoomTest {};

#ifdef KORX_TAPPED  // a sanitizer's libraries have their own
TEST_F(Budget, OfTheCommandsStart) {
    setenv("LD_DEBUG", "statistics", 1);
    const Result result = Korx("--version");
    unsetenv("LD_DEBUG");
    const auto number = [&](const std::string& what) {
        const size_t at = result.err.find(what);
        return at == std::string::npos ? 0 : std::stoi(result.err.substr(at + what.size()));
    };
    const int by_name = number(" number of relocations: ");
    const int relative = number(" number of relative relocations: ");
    EXPECT_GT(by_name * relative, 0) << result.err;
    EXPECT_LE(by_name, 640);  // all of them: what is looked up later could be exchanged till then
    EXPECT_LE(relative, 6000);
}
#endif

}  // namespace
}  // namespace korx::test
