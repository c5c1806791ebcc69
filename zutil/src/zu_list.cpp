/*
 * zu_list.cpp - the intrusive doubly linked list.
 *
 * A list's three words form two sentinel nodes: (head, tail) at the start
 * and (tail, tailPred) one word on, where `tail` is always null. So every
 * real node has a non-null next and prev, insertion and removal never test
 * for the ends, and a walk stops at the node whose next is null.
 */
#include "zutil.h"

namespace {

ZU_Node *headSentinel(const ZU_List *list)
{
    return reinterpret_cast<ZU_Node *>(const_cast<ZU_List *>(list));
}

ZU_Node *tailSentinel(const ZU_List *list)
{
    return reinterpret_cast<ZU_Node *>(const_cast<ZU_Node **>(&list->tail));
}

void linkBetween(ZU_Node *before, ZU_Node *node, ZU_Node *after)
{
    node->prev = before;
    node->next = after;
    before->next = node;
    after->prev = node;
}

} // namespace

extern "C" {

void ZU_listInit(ZU_List *list)
{
    if (!list)
        return;
    list->head = tailSentinel(list);
    list->tail = nullptr;
    list->tailPred = headSentinel(list);
}

void ZU_listAddTail(ZU_List *list, ZU_Node *node)
{
    if (list && node)
        linkBetween(list->tailPred, node, tailSentinel(list));
}

void ZU_listAddHead(ZU_List *list, ZU_Node *node)
{
    if (list && node)
        linkBetween(headSentinel(list), node, list->head);
}

void ZU_listInsertAfter(ZU_Node *at, ZU_Node *node)
{
    if (at && node && at->next)
        linkBetween(at, node, at->next);
}

void ZU_listInsertBefore(ZU_Node *at, ZU_Node *node)
{
    if (at && node && at->prev)
        linkBetween(at->prev, node, at);
}

void ZU_listRemove(ZU_Node *node)
{
    if (!node || !node->next || !node->prev)
        return;
    node->prev->next = node->next;
    node->next->prev = node->prev;
    node->next = nullptr;
    node->prev = nullptr;
}

ZU_Node *ZU_listRemHead(ZU_List *list)
{
    if (!list || ZU_listIsEmpty(list))
        return nullptr;
    ZU_Node *node = list->head;
    ZU_listRemove(node);
    return node;
}

ZU_Node *ZU_listRemTail(ZU_List *list)
{
    if (!list || ZU_listIsEmpty(list))
        return nullptr;
    ZU_Node *node = list->tailPred;
    ZU_listRemove(node);
    return node;
}

int ZU_listIsEmpty(const ZU_List *list)
{
    return !list || list->head == tailSentinel(list);
}

int ZU_listCount(const ZU_List *list)
{
    if (!list)
        return 0;
    int count = 0;
    for (ZU_Node *n = list->head; n->next; n = n->next)
        ++count;
    return count;
}

ZU_Node *ZU_listNth(const ZU_List *list, int index)
{
    if (!list || index < 0)
        return nullptr;
    ZU_Node *n = list->head;
    for (; n->next && index > 0; n = n->next)
        --index;
    return n->next ? n : nullptr;
}

} // extern "C"
