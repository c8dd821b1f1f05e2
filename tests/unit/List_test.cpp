// Linked lists: push order, walking both ways, popping, moving and copying,
// and that every node and item goes back to the memory manager.
#include "List.h"
#include "MemMgr.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

class ListTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(pMemB, nullptr);
        list = ListCreate();
        ASSERT_NE(list, nullptr);
    }
    void TearDown() override {
        ListDel(list);
        ListDel(other);
        EXPECT_EQ(pMemB, nullptr) << "a node, item or header leaked";
        while (pMemB) FreeBlock(pMemB);
    }

    long *Push(List *l, long v) { return static_cast<long *>(ListPushItem(l, &v, sizeof v)); }
    void PushAll(List *l, std::initializer_list<long> values) {
        for (long v : values) Push(l, v);
    }
    static long Value(void *item) { return item ? *static_cast<long *>(item) : -1; }

    static std::vector<long> Walk(List *l) {
        std::vector<long> out;
        for (void *p = ListWalk(l, 0); p; p = ListWalk(l, 1)) out.push_back(Value(p));
        return out;
    }
    static std::vector<long> WalkBack(List *l) {
        std::vector<long> out;
        for (void *p = ListWalkBackward(l, 0); p; p = ListWalkBackward(l, 1))
            out.push_back(Value(p));
        return out;
    }
    /// A node built by hand with a recorded size, as ListPushItem never makes.
    static ListNode *SizedNode(long v) {
        auto *n = static_cast<ListNode *>(GetMem(sizeof(ListNode)));
        n->data = GetMem(sizeof v);
        *static_cast<long *>(n->data) = v;
        n->size = sizeof v;
        return n;
    }

    List *list = nullptr;
    List *other = nullptr;
    using V = std::vector<long>;
};

TEST_F(ListTest, AppendsByDefaultAndWalksBothWays) {
    PushAll(list, {1, 2, 3});
    EXPECT_EQ(Walk(list), (V{1, 2, 3}));
    EXPECT_EQ(WalkBack(list), (V{3, 2, 1}));
    EXPECT_EQ(list->count, 3u);
    EXPECT_EQ(list->total, 0u) << "pushed items record no size";
}

TEST_F(ListTest, PushFrontStacks) {
    list->pushFront = 1;
    PushAll(list, {1, 2, 3});
    EXPECT_EQ(Walk(list), (V{3, 2, 1}));
    EXPECT_EQ(WalkBack(list), (V{1, 2, 3}));
}

TEST_F(ListTest, WalkContinuesOnlyWithFlag) {
    PushAll(list, {1, 2});
    EXPECT_EQ(Value(ListWalk(list, 0)), 1);
    EXPECT_EQ(Value(ListWalk(list, 0)), 1) << "flag 0 restarts";
    EXPECT_EQ(Value(ListWalk(list, 1)), 2);
    EXPECT_EQ(ListWalk(list, 1), nullptr);
    EXPECT_EQ(ListWalk(list, 1), nullptr);
    EXPECT_EQ(ListWalk(nullptr, 0), nullptr);
}

TEST_F(ListTest, PushCopiesDataOrZeroes) {
    long v = 7;
    auto *item = static_cast<long *>(ListPushItem(list, &v, sizeof v));
    ASSERT_NE(item, nullptr);
    EXPECT_NE(item, &v);
    v = 8;
    EXPECT_EQ(*item, 7);
    auto *zero = static_cast<char *>(ListPushItem(list, nullptr, 5));
    ASSERT_NE(zero, nullptr);
    EXPECT_EQ(std::string(zero, 5), std::string(5, '\0'));
}

TEST_F(ListTest, PushOfNothingAddsNothing) {
    long v = 1;
    EXPECT_EQ(ListPushItem(list, &v, 0), nullptr);
    EXPECT_EQ(ListPushItem(nullptr, &v, sizeof v), nullptr);
    EXPECT_EQ(list->count, 0u);
    EXPECT_EQ(list->first, nullptr);
}

TEST_F(ListTest, PopItemNullTakesFirstAndHandsItOver) {
    PushAll(list, {1, 2, 3});
    void *item = ListPopItem(list, nullptr, 0);
    EXPECT_EQ(Value(item), 1);
    PutMem(item);
    EXPECT_EQ(list->count, 2u);
    EXPECT_EQ(Walk(list), (V{2, 3}));
    EXPECT_EQ(list->first->prev, nullptr);
}

TEST_F(ListTest, PopItemFreesWhenLowByteOfFlagSet) {
    long *a = Push(list, 1);
    long *b = Push(list, 2);
    EXPECT_EQ(ListPopItem(list, b, 1), nullptr);
    EXPECT_EQ(list->count, 1u);
    void *kept = ListPopItem(list, a, 0x100);
    EXPECT_EQ(kept, a) << "only the low byte of the flag counts";
    PutMem(kept);
    EXPECT_EQ(list->first, nullptr);
    EXPECT_EQ(list->last, nullptr);
}

TEST_F(ListTest, PopOfAbsentItemOrEmptyListIsNull) {
    long stray = 5;
    EXPECT_EQ(ListPopItem(list, nullptr, 0), nullptr);
    EXPECT_EQ(ListPopFirstItem(list, 0), nullptr);
    EXPECT_EQ(ListPopLastItem(list, 0), nullptr);
    EXPECT_EQ(ListPopItem(nullptr, nullptr, 0), nullptr);
    PushAll(list, {1});
    EXPECT_EQ(ListPopItem(list, &stray, 1), nullptr);
    EXPECT_EQ(list->count, 1u);
}

TEST_F(ListTest, PopFirstAndLastKeepEndsConsistent) {
    PushAll(list, {1, 2, 3});
    EXPECT_EQ(ListPopLastItem(list, 1), nullptr);
    EXPECT_EQ(list->last->next, nullptr);
    EXPECT_EQ(Value(list->last->data), 2);
    EXPECT_EQ(ListPopFirstItem(list, 1), nullptr);
    EXPECT_EQ(list->first, list->last);
    EXPECT_EQ(ListPopFirstItem(list, 1), nullptr);
    EXPECT_EQ(list->count, 0u);
    EXPECT_EQ(list->first, nullptr);
    EXPECT_EQ(list->last, nullptr);
    PushAll(list, {9});
    EXPECT_EQ(Walk(list), (V{9})) << "an emptied list takes new items";
}

TEST_F(ListTest, PopLinkOfMiddleNodeJoinsNeighboursAndKeepsItsLinks) {
    PushAll(list, {1, 2, 3});
    ListNode *mid = list->first->next;
    ListPopLink(list, mid);
    EXPECT_EQ(Walk(list), (V{1, 3}));
    EXPECT_EQ(WalkBack(list), (V{3, 1}));
    EXPECT_EQ(mid->prev, list->first) << "the unlinked node's links are left";
    EXPECT_EQ(mid->next, list->last);
    PutMem(mid->data);
    PutMem(mid);
}

TEST_F(ListTest, PoppingTheNextNodeWhileWalkingMovesOn) {
    PushAll(list, {1});
    long *b = Push(list, 2);
    PushAll(list, {3});
    EXPECT_EQ(Value(ListWalk(list, 0)), 1);
    ListPopItem(list, b, 1);
    EXPECT_EQ(Value(ListWalk(list, 1)), 3);
}

TEST_F(ListTest, FindItemNAndPosition) {
    long *a = Push(list, 10);
    long *b = Push(list, 20);
    EXPECT_EQ(ListFindItemN(list, 1), a);
    EXPECT_EQ(ListFindItemN(list, 2), b);
    EXPECT_EQ(ListFindItemN(list, 0), nullptr);
    EXPECT_EQ(ListFindItemN(list, 3), nullptr);
    EXPECT_EQ(ListFindItemN(nullptr, 1), nullptr);
    EXPECT_EQ(ListGetItemPos(list, a), 1u);
    EXPECT_EQ(ListGetItemPos(list, b), 2u);
    long stray = 0;
    EXPECT_EQ(ListGetItemPos(list, &stray), 0u);
    EXPECT_EQ(ListGetItemPos(nullptr, a), 0u);
}

TEST_F(ListTest, MoveReusesTheItem) {
    other = ListCreate();
    PushAll(other, {100});
    long *a = Push(list, 1);
    PushAll(list, {2});
    ListMoveItem(a, list, other);
    EXPECT_EQ(ListGetItemPos(list, a), 0u);
    EXPECT_EQ(ListGetItemPos(other, a), 2u);
    EXPECT_EQ(ListFindItemN(other, 2), a) << "same allocation, nothing copied";
    EXPECT_EQ(Walk(list), (V{2}));
    EXPECT_EQ(WalkBack(other), (V{1, 100}));
    EXPECT_EQ(list->count, 1u);
    EXPECT_EQ(other->count, 2u);
}

TEST_F(ListTest, MoveOfAbsentItemOrNullListDoesNothing) {
    other = ListCreate();
    long *a = Push(list, 1);
    long stray = 0;
    ListMoveItem(&stray, list, other);
    ListMoveItem(a, list, nullptr);
    ListMoveItem(a, nullptr, other);
    ListMoveItem(a, other, list);
    EXPECT_EQ(list->count, 1u);
    EXPECT_EQ(other->count, 0u);
    EXPECT_EQ(ListGetItemPos(list, a), 1u);
}

TEST_F(ListTest, CopyTakesOnlyNodesWithRecordedSize) {
    other = ListCreate();
    PushAll(list, {1});
    ListPushLink(list, SizedNode(2));
    ListPushLink(list, SizedNode(3));
    EXPECT_EQ(list->total, 2 * sizeof(long));
    ListCopy(list, other);
    EXPECT_EQ(Walk(other), (V{2, 3}));
    EXPECT_NE(ListFindItemN(other, 1), ListFindItemN(list, 2)) << "items are copies";
    EXPECT_EQ(other->total, 0u);
    ListPopLastItem(list, 1);
    EXPECT_EQ(list->total, sizeof(long));
}

TEST_F(ListTest, PushLinkTreatsInconsistentHeaderAsEmpty) {
    PushAll(list, {1});
    ListNode *stale = list->first;
    list->count = 0;  // first and last still set
    ListNode *n = SizedNode(5);
    ListPushLink(list, n);
    EXPECT_EQ(list->first, n);
    EXPECT_EQ(list->last, n);
    EXPECT_EQ(list->count, 1u);
    EXPECT_EQ(n->prev, nullptr);
    EXPECT_EQ(n->next, nullptr);
    PutMem(stale->data);
    PutMem(stale);
}

TEST_F(ListTest, DelAllItemsKeepsUsableHeader) {
    PushAll(list, {1, 2, 3});
    ListWalk(list, 0);
    ListDelAllItems(list);
    EXPECT_EQ(list->count, 0u);
    EXPECT_EQ(list->first, nullptr);
    EXPECT_EQ(ListWalk(list, 1), nullptr);
    PushAll(list, {4});
    EXPECT_EQ(Walk(list), (V{4}));
    ListDelAllItems(nullptr);
    ListDel(nullptr);
}

TEST_F(ListTest, DumpPrintsPositionAndFirstWord) {
    PushAll(list, {42, -7});
    testing::internal::CaptureStdout();
    ListDump(list);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "  1) 42\n  2) -7\n");
}

}  // namespace
