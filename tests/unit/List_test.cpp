// Linked lists: push order, walks both ways, pops, positions; nothing may leak.
#include "List.h"
#include "MemMgr.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

class ListTest : public ::testing::Test {
  protected:
    using V = std::vector<long>;
    void TearDown() override {
        ListDel(list);
        ListDel(other);
        EXPECT_EQ(pMemB, nullptr) << "a node, item or header leaked";
        while (pMemB) FreeBlock(pMemB);
    }
    static long *Push(List *l, long v) {
        return static_cast<long *>(ListPushItem(l, &v, sizeof v));
    }
    static V Walk(List *l, void *(*walk)(List *, int)) {
        V out;
        for (void *p = walk(l, 0); p; p = walk(l, 1)) out.push_back(*static_cast<long *>(p));
        return out;
    }
    List *list = ListCreate();
    List *other = ListCreate();
};

TEST_F(ListTest, PushOrderBothWaysAndBackwardWalk) {
    long v = 1;
    EXPECT_EQ(ListPushItem(list, &v, 0), nullptr);
    EXPECT_EQ(ListPushItem(nullptr, &v, sizeof v), nullptr);
    other->pushFront = 1;
    for (long n : {1, 2, 3}) Push(list, n), Push(other, n);
    EXPECT_EQ(Walk(list, ListWalk), (V{1, 2, 3}));
    EXPECT_EQ(Walk(list, ListWalkBackward), (V{3, 2, 1}));
    EXPECT_EQ(Walk(other, ListWalk), (V{3, 2, 1}));
    EXPECT_EQ(Walk(other, ListWalkBackward), (V{1, 2, 3}));
}

TEST_F(ListTest, PopItemNullTakesFirstAndOnlyLowByteOfFlagFrees) {
    EXPECT_EQ(ListPopItem(list, nullptr, 0), nullptr);
    long *a = Push(list, 1);
    long *b = Push(list, 2);
    EXPECT_EQ(ListPopItem(list, nullptr, 0x100), a);
    PutMem(a);
    EXPECT_EQ(list->first->prev, nullptr);
    EXPECT_EQ(ListPopItem(list, b, 1), nullptr);
    EXPECT_EQ(list->first, nullptr);
    EXPECT_EQ(list->last, nullptr);
}

TEST_F(ListTest, FindByPositionAndMoveLeavesPositionZero) {
    long *a = Push(list, 10);
    long *b = Push(list, 20);
    Push(other, 100);
    EXPECT_EQ(ListFindItemN(list, 0), nullptr);
    EXPECT_EQ(ListFindItemN(list, 2), b);
    EXPECT_EQ(ListFindItemN(list, 3), nullptr);
    ListMoveItem(a, list, other);
    EXPECT_EQ(ListGetItemPos(list, a), 0u);
    EXPECT_EQ(ListFindItemN(other, 2), a) << "same allocation, nothing copied";
    EXPECT_EQ(ListGetItemPos(list, b), 1u);
    EXPECT_EQ(Walk(other, ListWalkBackward), (V{10, 100}));
}

TEST_F(ListTest, DelAllItemsFreesEveryNodeAndKeepsHeader) {
    int headersOnly = pMemB->freeNodes;
    for (long v : {1, 2, 3}) Push(list, v);
    ListDelAllItems(list);
    EXPECT_EQ(pMemB->freeNodes, headersOnly);
    EXPECT_EQ(list->count, 0u);
    EXPECT_EQ(ListWalk(list, 1), nullptr);
}

}  // namespace
