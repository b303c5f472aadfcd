// CLinkedList: order, count, the cursor and its behaviour on removal, owning and non-owning.
#include "core/linkedlist.h"
#include "tests/support/paltest.h"

#include <vector>

namespace {

using LinkedListTest = orvtest::PalTest;

int g_cDestroyed = 0;

struct CRecord : public CListNode
{
    explicit CRecord(int n) : m_n(n) {}
    ~CRecord() { ++g_cDestroyed; }
    int m_n;
};

std::vector<int> Walk(CLinkedList<CRecord>& lst)
{
    std::vector<int> values;
    for (lst.MoveFirst(); lst.HasCurrent(); lst.MoveNext())
        values.push_back(lst.Current()->m_n);
    return values;
}

void Fill(CLinkedList<CRecord>& lst, int count)
{
    for (int i = 1; i <= count; ++i)
        lst.AddTail(new CRecord(i));
}

TEST_F(LinkedListTest, EmptyThenInOrderWithTheLinksFirst)
{
    CLinkedList<CRecord> lst;
    EXPECT_EQ(0u, lst.GetCount());
    lst.MoveFirst();
    EXPECT_FALSE(lst.HasCurrent());
    EXPECT_EQ(nullptr, lst.Current());
    EXPECT_EQ(nullptr, lst.RemoveCurrent());
    Fill(lst, 3);
    EXPECT_EQ(3u, lst.GetCount());
    EXPECT_EQ((std::vector<int>{1, 2, 3}), Walk(lst));
    EXPECT_FALSE(lst.HasCurrent()) << "a finished walk leaves the cursor on the head";
    lst.MoveFirst();
    EXPECT_EQ(static_cast<void*>(lst.Current()), static_cast<void*>(&lst.Current()->m_pNext));
}

TEST_F(LinkedListTest, RemoveCurrentOnTheFirstRecordOrOnTheHead)
{
    CLinkedList<CRecord> lst;
    Fill(lst, 3);
    lst.MoveFirst();
    CRecord* pRemoved = lst.RemoveCurrent();
    ASSERT_NE(nullptr, pRemoved);
    EXPECT_EQ(1, pRemoved->m_n);
    EXPECT_EQ(nullptr, pRemoved->m_pNext);
    EXPECT_EQ(nullptr, pRemoved->m_pPrev);
    delete pRemoved;
    EXPECT_EQ(2u, lst.GetCount());
    EXPECT_FALSE(lst.HasCurrent()) << "the cursor moves to the head";
    lst.MoveNext();
    ASSERT_TRUE(lst.HasCurrent());
    EXPECT_EQ(2, lst.Current()->m_n) << "MoveNext lands on the record that was second";

    lst.MoveNext();
    lst.MoveNext();
    ASSERT_FALSE(lst.HasCurrent());
    EXPECT_EQ(nullptr, lst.RemoveCurrent()) << "the head is not removed";
    EXPECT_EQ(2u, lst.GetCount());
    EXPECT_EQ((std::vector<int>{2, 3}), Walk(lst));
}

TEST_F(LinkedListTest, RemovingDuringAWalkKeepsTheWalkGoing)
{
    CLinkedList<CRecord> lst;
    Fill(lst, 5);
    for (lst.MoveFirst(); lst.HasCurrent(); lst.MoveNext()) {
        if (lst.Current()->m_n % 2 == 1)
            delete lst.RemoveCurrent();
    }
    EXPECT_EQ((std::vector<int>{2, 4}), Walk(lst));
    lst.MoveFirst();
    lst.MoveNext();
    delete lst.RemoveCurrent();
    EXPECT_EQ(2, lst.Current()->m_n) << "removing the last steps back to the one before";
    lst.AddTail(new CRecord(6));
    EXPECT_EQ((std::vector<int>{2, 6}), Walk(lst)) << "new records still go last";
    EXPECT_EQ(2u, lst.GetCount());
}

TEST_F(LinkedListTest, AnOwningListDestroysItsRecordsANonOwningOneOnlyUnlinks)
{
    g_cDestroyed = 0;
    {
        CLinkedList<CRecord> lst;
        EXPECT_TRUE(lst.OwnsRecords());
        Fill(lst, 3);
        lst.Clear();
        EXPECT_EQ(3, g_cDestroyed);
        EXPECT_EQ(0u, lst.GetCount());
        Fill(lst, 2);
    }
    EXPECT_EQ(5, g_cDestroyed) << "destruction clears";

    g_cDestroyed = 0;
    CRecord first(1);
    CRecord second(2);
    {
        CLinkedList<CRecord> lst(FALSE);
        lst.AddTail(&first);
        lst.AddTail(&second);
        lst.Clear();
        EXPECT_EQ(0u, lst.GetCount());
        lst.AddTail(&second);
        EXPECT_EQ((std::vector<int>{2}), Walk(lst)) << "an unlinked record can be linked again";
    }
    EXPECT_EQ(0, g_cDestroyed);
    EXPECT_EQ(nullptr, first.m_pNext);
    EXPECT_EQ(nullptr, second.m_pPrev);
}

} // namespace
