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
    void append_all() {
        for (KORX_DllNode& n : node)
            append(&n);
    }

    char names[4] = {'a', 'b', 'c', 'd'};
    KORX_DllNode node[4] = {};
    KORX_DllHead head = {};
};

TEST_F(List, LinksAtEveryPlace) {
    KORX_DllInsert(&head, nullptr, &node[0]);
    EXPECT_EQ(order(), "a");
    KORX_DllInsert(&head, nullptr, &node[1]);
    append(&node[2]);
    EXPECT_EQ(order(), "bac");
    KORX_DllInsertInMiddle(&head, &node[1], &node[3], &node[0]);
    KORX_DllInsertInMiddle(&head, &node[1], nullptr, &node[0]);
    KORX_DllInsert(&head, nullptr, nullptr);
    KORX_DllInsert(nullptr, &node[0], &node[1]);
    EXPECT_EQ(order(), "bdac");
}

TEST_F(List, UnlinksOnlyWhatIsLinked) {
    append_all();
    KORX_DllDelete(&head, &node[1]);
    EXPECT_EQ(order(), "acd");
    KORX_DllDelete(&head, &node[1]);
    KORX_DllDelete(&head, nullptr);
    KORX_DllDelete(nullptr, &node[0]);
    KORX_DllNode stranger = node[2];
    KORX_DllDelete(&head, &stranger);
    node[3].pstPrev = &stranger;  // one neighbour that points back is not enough
    KORX_DllDelete(&head, &stranger);
    KORX_DllDelete(&head, &node[2]);
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

uint32_t calls;

TEST_F(List, FindsTheFirstMatchAndVisitsAll) {
    append_all();
    names[2] = names[1];
    const auto find = [this](char name) {
        calls = 0;
        return KORX_DllFind(&head, &name, [](void* key, KORX_DllNode* n) -> uint32_t {
            ++calls;
            return *static_cast<char*>(key) != *static_cast<char*>(n->pData);
        });
    };
    EXPECT_EQ(find('b'), &node[1]);
    EXPECT_EQ(find('x'), nullptr);
    EXPECT_EQ(calls, 4u);

    static std::string seen;
    const auto visit = [](KORX_DllNode* n) { seen += *static_cast<char*>(n->pData); };
    EXPECT_EQ(KORX_DllWalk(&head, visit), 4u);
    EXPECT_EQ(seen, "abbd");
    node[1].pstNext = nullptr;  // a broken ring ends there
    EXPECT_EQ(KORX_DllWalk(&head, visit), 2u);
    EXPECT_EQ(find('d'), nullptr);
    for (uint32_t count : {0, 3}) {  // count 0 means empty, and so does a head without links
        head.uiCount = count;
        if (count != 0)
            head.stNode.pstNext = nullptr;
        EXPECT_EQ(KORX_DllWalk(&head, visit), 0u);
        EXPECT_EQ(find('a'), nullptr);
    }
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
