// The same from C++, with the reader beside it.
#include <korx/basic.h>
#include <korx/reader.h>

int main() {
    ORX_VEC_Vector* const words = ORX_VEC_VectorInit(nullptr, 0);
    const bool split = ORX_SplitString2Vector("a b c d", ' ', 2, words) == KORX_OK;
    const bool right = split && ORX_VEC_VectorCount(words) == 3;
    ORX_VEC_VectorClearAll(words);
    ORX_VEC_VectorFree(words);
    const bool known = korx_log_kind_of_name("/log/korx_safe.log") == KORX_LOG_SECURITY;
    return right && known ? 0 : 1;
}
