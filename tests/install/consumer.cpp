// The same from C++.
#include <korx/basic.h>

int main() {
    ORX_VEC_Vector* const words = ORX_VEC_VectorInit(nullptr, 0);
    const bool split = ORX_SplitString2Vector("a b c d", ' ', 2, words) == KORX_OK;
    const bool right = split && ORX_VEC_VectorCount(words) == 3;
    ORX_VEC_VectorClearAll(words);
    ORX_VEC_VectorFree(words);
    return right ? 0 : 1;
}
