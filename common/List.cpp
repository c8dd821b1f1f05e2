// Doubly linked list owning copies of its items.
#include "List.h"

#include "MemMgr.h"

#include <cstdio>
#include <cstring>

namespace {

ListNode *FindNode(List *list, const void *data) {
    for (ListNode *n = list->first; n; n = n->next)
        if (n->data == data) return n;
    return nullptr;
}

/// Releases an unlinked node. A walk standing on it moves on to the node's
/// old successor, so that a caller popping items while walking forward never
/// steps into released memory.
void ReleaseNode(List *list, ListNode *node) {
    if (list->walk == node) list->walk = node->next;
    PutMem(node);
}

/// Unlinks and releases `node`; the item is released too when the low byte
/// of `freeData` is set (then null), else returned.
void *PopNode(List *list, ListNode *node, int freeData) {
    if (!node) return nullptr;
    void *data = node->data;
    ListPopLink(list, node);
    ReleaseNode(list, node);
    if (freeData & 0xFF) {
        PutMem(data);
        return nullptr;
    }
    return data;
}

}  // namespace

List *ListCreate() {
    return static_cast<List *>(GetMem(sizeof(List)));
}

void *ListPushItem(List *list, const void *data, unsigned size) {
    if (!list || size == 0) return nullptr;
    auto *node = static_cast<ListNode *>(GetMem(sizeof(ListNode)));
    if (!node) return nullptr;
    void *item = GetMem(size);
    if (!item) {
        PutMem(node);
        return nullptr;
    }
    if (data) std::memcpy(item, data, size);
    node->data = item;
    ListPushLink(list, node);
    return item;
}

void ListPushLink(List *list, ListNode *node) {
    if (!list || !node) return;
    if (list->count == 0 || !list->first || !list->last) {
        node->prev = node->next = nullptr;
        list->first = list->last = node;
        list->count = 1;
        list->total = node->size;
        return;
    }
    if (list->pushFront) {
        node->prev = nullptr;
        node->next = list->first;
        list->first->prev = node;
        list->first = node;
    } else {
        node->next = nullptr;
        node->prev = list->last;
        list->last->next = node;
        list->last = node;
    }
    ++list->count;
    list->total += node->size;
}

void ListPopLink(List *list, ListNode *node) {
    if (!list || !node) return;
    if (list->count) --list->count;
    list->total -= node->size;
    bool wasFirst = list->first == node;
    bool wasLast = list->last == node;
    if (wasFirst) {
        list->first = node->next;
        if (list->first) list->first->prev = nullptr;
    }
    if (wasLast) {
        list->last = node->prev;
        if (list->last) list->last->next = nullptr;
    }
    if (!wasFirst && !wasLast) {
        if (node->prev) node->prev->next = node->next;
        if (node->next) node->next->prev = node->prev;
    }
    if (list->count == 0) list->first = list->last = nullptr;
}

void *ListPopItem(List *list, void *data, int freeData) {
    if (!list || !list->first) return nullptr;
    return PopNode(list, data ? FindNode(list, data) : list->first, freeData);
}

void *ListPopFirstItem(List *list, int freeData) {
    return list ? PopNode(list, list->first, freeData) : nullptr;
}

void *ListPopLastItem(List *list, int freeData) {
    return list ? PopNode(list, list->last, freeData) : nullptr;
}

void *ListFindItemN(List *list, unsigned n) {
    if (!list || n == 0) return nullptr;
    ListNode *node = list->first;
    for (unsigned i = 1; node && i < n; ++i) node = node->next;
    return node ? node->data : nullptr;
}

unsigned ListGetItemPos(List *list, const void *data) {
    if (!list) return 0;
    unsigned pos = 1;
    for (ListNode *n = list->first; n; n = n->next, ++pos)
        if (n->data == data) return pos;
    return 0;
}

void ListMoveItem(void *data, List *fromList, List *toList) {
    if (!fromList || !toList || !fromList->first) return;
    ListNode *node = FindNode(fromList, data);
    if (!node) return;
    ListPopLink(fromList, node);
    ListPushLink(toList, node);
}

void ListCopy(List *fromList, List *toList) {
    if (!fromList || !toList) return;
    // Items pushed by ListPushItem record size 0, so they are not copied.
    for (ListNode *n = fromList->first; n; n = n->next) ListPushItem(toList, n->data, n->size);
}

void ListDelAllItems(List *list) {
    if (!list) return;
    ListNode *node = list->first;
    while (node) {
        ListNode *next = node->next;
        ListPopLink(list, node);
        PutMem(node->data);
        PutMem(node);
        node = next;
    }
    list->walk = nullptr;
}

void ListDel(List *list) {
    if (!list) return;
    ListDelAllItems(list);
    PutMem(list);
}

void ListDump(List *list) {
    if (!list) return;
    int pos = 1;
    for (ListNode *n = list->first; n; n = n->next, ++pos) {
        long value = 0;
        // Every item is a block of at least one 32-byte node, so a whole
        // word can be read even from a shorter item.
        if (n->data) std::memcpy(&value, n->data, sizeof value);
        std::printf("%3i) %li\n", pos, value);
    }
}

void *ListWalk(List *list, int continueFlag) {
    if (!list) return nullptr;
    if (!continueFlag) list->walk = list->first;
    ListNode *node = list->walk;
    if (!node) return nullptr;
    list->walk = node->next;
    return node->data;
}

void *ListWalkBackward(List *list, int continueFlag) {
    if (!list) return nullptr;
    if (!continueFlag) list->walk = list->last;
    ListNode *node = list->walk;
    if (!node) return nullptr;
    list->walk = node->prev;
    return node->data;
}
