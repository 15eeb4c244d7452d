#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "korx/container.h"

namespace korx::test {
namespace {

// Nodes whose data is their name, in an empty list.
struct List : ::testing::Test {
    List() {
        head.stNode.pstNext = head.stNode.pstPrev = &head.stNode;
        for (int i = 0; i < 4; ++i)
            node[i].pData = &names[i];
    }

    // The names from the front, which the way back and the count must confirm.
    std::string order() {
        std::string there, back;
        for (KORX_DllNode* n = head.stNode.pstNext; n != &head.stNode; n = n->pstNext)
            there += *static_cast<char*>(n->pData);
        for (KORX_DllNode* n = head.stNode.pstPrev; n != &head.stNode; n = n->pstPrev)
            back.insert(back.begin(), *static_cast<char*>(n->pData));
        EXPECT_EQ(there, back);
        EXPECT_EQ(there.size(), head.uiCount);
        return there;
    }
    void append(KORX_DllNode* n) { KORX_DllInsert(&head, head.stNode.pstPrev, n); }

    char names[4] = {'a', 'b', 'c', 'd'};
    KORX_DllNode node[4] = {};
    KORX_DllHead head = {};
};

TEST_F(List, LinksAtEveryPlaceAndUnlinksOnlyWhatIsLinked) {
    KORX_DllInsert(&head, nullptr, &node[1]);
    EXPECT_EQ(order(), "b");
    KORX_DllInsert(&head, nullptr, &node[0]);
    append(&node[3]);
    EXPECT_EQ(order(), "abd");
    KORX_DllInsertInMiddle(&head, &node[1], &node[2], &node[3]);
    KORX_DllInsertInMiddle(&head, &node[1], nullptr, &node[3]);
    KORX_DllInsert(&head, reinterpret_cast<KORX_DllNode*>(alignof(KORX_DllNode)), nullptr);
    KORX_DllInsert(nullptr, &node[0], &node[1]);
    EXPECT_EQ(order(), "abcd");

    KORX_DllNode stranger = node[2];
    for (KORX_DllNode* n : {&node[1], &node[1], static_cast<KORX_DllNode*>(nullptr), &stranger})
        KORX_DllDelete(&head, n);
    KORX_DllDelete(nullptr, &node[0]);
    stranger = node[2];
    node[3].pstPrev = &stranger;  // one neighbour that points back is not enough
    for (KORX_DllNode* n : {&stranger, &node[2]})
        KORX_DllDelete(&head, n);
    EXPECT_EQ(stranger.pstNext, &node[3]);
    node[3].pstPrev = &node[2];
    EXPECT_EQ(order(), "acd");

    KORX_DllDeleteInMiddle(&head, &node[0], &node[2], &node[3]);
    EXPECT_EQ(KORX_DllGet(&head), &node[0]);
    EXPECT_EQ(order(), "d");
    for (int i : {0, 1, 2})
        EXPECT_TRUE(node[i].pstNext == nullptr && node[i].pstPrev == nullptr) << i;
    EXPECT_EQ(KORX_DllGet(&head), &node[3]);
    EXPECT_EQ(KORX_DllGet(&head), nullptr);
    EXPECT_EQ(order(), "");
}

TEST_F(List, FindsTheFirstMatchAndVisitsAll) {
    for (KORX_DllNode& n : node)
        append(&n);
    names[2] = names[1];
    const auto find = [this](char name) {
        return KORX_DllFind(&head, &name, [](void* key, KORX_DllNode* n) -> uint32_t {
            return *static_cast<char*>(key) != *static_cast<char*>(n->pData);
        });
    };
    EXPECT_EQ(find('b'), &node[1]);
    EXPECT_EQ(find('x'), nullptr);
    EXPECT_EQ(find('d'), &node[3]);

    static std::string seen;
    const auto visit = [](KORX_DllNode* n) { seen += *static_cast<char*>(n->pData); };
    EXPECT_EQ(KORX_DllWalk(&head, visit), 4u);
    EXPECT_EQ(seen, "abbd");
    node[1].pstNext = nullptr;  // a broken ring ends there
    EXPECT_EQ(KORX_DllWalk(&head, visit), 2u);
    EXPECT_EQ(find('d'), nullptr);
    head.uiCount = 0;  // means empty, and so does a head without links
    EXPECT_EQ(KORX_DllWalk(&head, visit), 0u);
    head = {{}, 3};
    EXPECT_EQ(find('a'), nullptr);
    EXPECT_EQ(KORX_DllWalk(&head, visit), 0u);
}

TEST_F(List, FreesDataThenNodeWhateverTheCount) {
    static std::vector<void*> freed;
    std::vector<void*> expected;
    for (int i = 0; i < 2; ++i) {
        auto* const n = static_cast<KORX_DllNode*>(calloc(1, sizeof(KORX_DllNode)));
        expected.insert(expected.end(), {n->pData = malloc(1), n});
        append(n);
    }
    head.uiCount = 0;
    KORX_DllFreeAll(&head, [](void* memory) {
        freed.push_back(memory);
        free(memory);
    });
    EXPECT_EQ(freed, expected);
    EXPECT_EQ(order(), "");
    append(&node[0]);
    EXPECT_EQ(order(), "a");
}

}  // namespace
}  // namespace korx::test
