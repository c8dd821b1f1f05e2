// Doubly linked list owning copies of its items, with a built-in walk cursor.
#pragma once

struct ListNode {
    ListNode *prev;
    ListNode *next;
    void *data;
    unsigned size;  ///< never set by ListPushItem (stays 0)
};

struct List {
    ListNode *first;
    ListNode *last;
    ListNode *walk;
    unsigned count;
    unsigned total;
    int pushFront;  ///< non-zero: new nodes go before `first`
};

List *ListCreate();
/// Copies `size` bytes of `data` (zeroes when null) into a new item; null for
/// a null list or a size of 0.
void *ListPushItem(List *list, const void *data, unsigned size);
void ListPushLink(List *list, ListNode *node);
void ListPopLink(List *list, ListNode *node);
/// Unlinks the node holding `data` (null: the first); with freeData releases
/// the item and returns null, else returns the item.
void *ListPopItem(List *list, void *data, int freeData);
void *ListPopFirstItem(List *list, int freeData);
void *ListPopLastItem(List *list, int freeData);
void *ListFindItemN(List *list, unsigned n);
unsigned ListGetItemPos(List *list, const void *data);
void ListMoveItem(void *data, List *fromList, List *toList);
void ListCopy(List *fromList, List *toList);
void ListDelAllItems(List *list);
void ListDel(List *list);
void ListDump(List *list);
void *ListWalk(List *list, int continueFlag);
void *ListWalkBackward(List *list, int continueFlag);
