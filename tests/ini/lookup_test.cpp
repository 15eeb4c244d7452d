#include <errno.h>

#include <random>

#include "ini/ini_room.h"
#include "ini/plain_lookup.h"
#include "korx/ini.h"

namespace korx::test {
namespace {

// Contents that come close to every rule about lines, limits and block ends.
class Contents {
  public:
    explicit Contents(unsigned seed) : random_(seed) {}

    size_t below(size_t limit) { return random_() % limit; }
    std::string piece() {
        const std::string_view pieces[] = {
            {"\0", 1}, "=",     " ",       "\t",         "\r",          "\n",   "\r\n", ";",
            "#",       "\"",    "[",       "]",          "[S]\n",       "[T]",  "[",    "k",
            "k=1\n",   "k = 2", "\nk=3\r", "]\n\r\nkk=", "[]\n=4\nk\n", "k=k=5"};
        const size_t lengths[] = {61, 255, 396};
        const size_t kind = below(std::size(pieces) + std::size(lengths));
        if (kind < std::size(pieces))
            return std::string(pieces[kind]);
        return std::string(lengths[kind - std::size(pieces)] + below(5), "kS"[below(2)]);
    }
    std::string next() {
        std::string content = below(4) == 0 ? ";" + std::string(8180 + below(30), 'x') : "";
        content += below(8) == 0 ? "" : "\n[S]\n";
        for (size_t count = below(12); count > 0; --count)
            content += piece();
        return content;
    }

  private:
    std::mt19937 random_;
};

FILE* OpenPlainly(const char* file) {
    const Untapped untapped;
    return fopen(file, "r");
}

using Lookup = RoomTest;

TEST_F(Lookup, AnswersWhatALoadWould) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    Contents contents(seed);
    const std::string k64(64, 'k'), s64 = "[" + std::string(63, 'S');
    const std::string sections[] = {"[S]", "[T]", "[]", "", "[S", s64};
    const std::string keys[] = {"k", "", "kk", "k=k", "]", k64};
    size_t answers[2] = {}, found = 0;
    for (int i = 0; i < 500; ++i) {
        const std::string content = contents.next();
        WriteFile("p", content);
        const char* const section = sections[contents.below(12) % 6 * contents.below(2)].c_str();
        const char* const key = keys[contents.below(6)].c_str();
        syslog.clear();
        const Answer expected = LoadAndLookUp(OpenPlainly("p"), section, key);
        const Lines lines = syslog.lines();
        syslog.clear();
        const auto count = contents.below(3) == 0 ? Fault::kAll : 0;
        const Fault fault = Fault::Short("read", 1, 1 + contents.below(500), count);
        const Answer answer = LookUp("./p", section, key);
        ASSERT_TRUE(answer == expected && syslog.lines() == lines)
            << testing::PrintToString(content) << section << key << "\n"
            << answer.result << answer.value << "\n"
            << expected.result << expected.value;
        ++answers[expected.result];
        found += expected.result == KORX_INI_READ && expected.value != "\"\"";
    }
    EXPECT_TRUE(answers[0] > 20 && answers[1] > 100 && found > 2)
        << answers[0] << " " << answers[1] << " " << found;
}

TEST_F(Lookup, AnUnreadableEndMakesTheWholeFileUnreadable) {
    WriteFile("p", "[S]\nk=1\n");
    const Lines lines = {Err("[ORX] Can't get line from file, errno=5")};
    for (const unsigned nth : {1u, 2u}) {
        const Fault fault("read", nth, EIO);
        syslog.clear();
        EXPECT_EQ(LookUp("./p", "[S]", "k").result, KORX_INI_NOT_LOADED) << nth;
        EXPECT_EQ(syslog.lines(), lines) << nth;
    }
}

TEST_F(Lookup, FindsTheFirstSectionAndPiecesOfLongLinesHoweverTheyAreRead) {
    WriteFile("p", "[S]\n" + std::string(399, 'c') + "k=9\n[T]\n[S]\nkk=1\n");
    for (unsigned read = 1; read < 420; ++read) {
        const Fault fault = Fault::Short("read", 1, read, Fault::kAll);
        ASSERT_EQ(LookUp("./p", "[S]", "k").value, "9") << read;
        ASSERT_EQ(LookUp("./p", "[S]", "kk").value, "\"\"") << read;
    }
    const std::string name = "[" + std::string(63, 'S');
    WriteFile("p", name + "]\nk=9\n[T]\n" + name + "]\nkk=1\n");
    EXPECT_EQ(LookUp("./p", name.c_str(), "kk").value, "\"\"");
}

}  // namespace
}  // namespace korx::test
