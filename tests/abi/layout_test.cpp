#include <gtest/gtest.h>

#include "korx/basic.h"

namespace korx::test {
namespace {

// What no source can assert at build time: what is in a variable before anybody sets the library
// up.
TEST(Abi, KeepsTheVariablesThatOthersRead) {
    EXPECT_EQ(g_stLogInfo.uiLogLevel, 4u);
    EXPECT_EQ(g_stLogInfo.uiLogMode, 2u);
}

}  // namespace
}  // namespace korx::test
