// The intrusive list: sentinel layout, insertion at every place, removal.
#include "zutil.h"

#include <gtest/gtest.h>
#include <vector>

namespace {

struct Rec {
    ZU_Node node;
    int value;
};

std::vector<int> values(const ZU_List &list)
{
    std::vector<int> out;
    for (ZU_Node *n = list.head; n->next; n = n->next)
        out.push_back(reinterpret_cast<Rec *>(n)->value);
    return out;
}

TEST(ZuList, EmptyListPointsAtItsOwnNullWord)
{
    ZU_List list;
    ZU_listInit(&list);
    EXPECT_EQ(list.head, reinterpret_cast<ZU_Node *>(&list.tail));
    EXPECT_EQ(list.tail, nullptr);
    EXPECT_EQ(list.tailPred, reinterpret_cast<ZU_Node *>(&list));
    EXPECT_TRUE(ZU_listIsEmpty(&list));
    EXPECT_EQ(ZU_listCount(&list), 0);
    EXPECT_EQ(ZU_listRemHead(&list), nullptr);
    EXPECT_EQ(ZU_listRemTail(&list), nullptr);
    EXPECT_EQ(ZU_listNth(&list, 0), nullptr);
}

TEST(ZuList, InsertsAtEveryPlaceInOrder)
{
    ZU_List list;
    ZU_listInit(&list);
    Rec r[5] = {{{}, 0}, {{}, 1}, {{}, 2}, {{}, 3}, {{}, 4}};
    ZU_listAddTail(&list, &r[2].node);
    ZU_listAddHead(&list, &r[0].node);
    ZU_listInsertAfter(&r[2].node, &r[4].node);
    ZU_listInsertBefore(&r[2].node, &r[1].node);
    ZU_listInsertBefore(&r[4].node, &r[3].node);
    EXPECT_EQ(values(list), (std::vector<int>{0, 1, 2, 3, 4}));
    EXPECT_EQ(ZU_listCount(&list), 5);
    EXPECT_EQ(ZU_listNth(&list, 0), &r[0].node);
    EXPECT_EQ(ZU_listNth(&list, 4), &r[4].node);
    EXPECT_EQ(ZU_listNth(&list, 5), nullptr);
    EXPECT_EQ(ZU_listNth(&list, -1), nullptr);
    EXPECT_EQ(list.tailPred, &r[4].node);
}

TEST(ZuList, RemovalUnlinksAndClearsLinks)
{
    ZU_List list;
    ZU_listInit(&list);
    Rec r[3] = {{{}, 0}, {{}, 1}, {{}, 2}};
    for (Rec &x : r)
        ZU_listAddTail(&list, &x.node);
    ZU_listRemove(&r[1].node);
    EXPECT_EQ(r[1].node.next, nullptr);
    EXPECT_EQ(r[1].node.prev, nullptr);
    ZU_listRemove(&r[1].node); // a second removal is harmless
    EXPECT_EQ(values(list), (std::vector<int>{0, 2}));
    EXPECT_EQ(ZU_listRemTail(&list), &r[2].node);
    EXPECT_EQ(ZU_listRemHead(&list), &r[0].node);
    EXPECT_TRUE(ZU_listIsEmpty(&list));
    EXPECT_EQ(list.tailPred, reinterpret_cast<ZU_Node *>(&list));
    // The emptied list works as a fresh one.
    ZU_listAddHead(&list, &r[1].node);
    EXPECT_EQ(values(list), (std::vector<int>{1}));
}

TEST(ZuList, NullArgumentsAreIgnored)
{
    ZU_listInit(nullptr);
    ZU_listAddTail(nullptr, nullptr);
    ZU_listRemove(nullptr);
    EXPECT_EQ(ZU_listCount(nullptr), 0);
    EXPECT_TRUE(ZU_listIsEmpty(nullptr));
    EXPECT_EQ(ZU_listRemHead(nullptr), nullptr);
}

} // namespace
