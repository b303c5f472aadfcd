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

// An owning list of records 1..count.
void Fill(CLinkedList<CRecord>& lst, int count)
{
    for (int i = 1; i <= count; ++i)
        lst.AddTail(new CRecord(i));
}

TEST_F(LinkedListTest, StartsEmptyWithNoCurrentRecord)
{
    CLinkedList<CRecord> lst;
    EXPECT_EQ(0u, lst.GetCount());
    EXPECT_FALSE(lst.HasCurrent());
    EXPECT_EQ(nullptr, lst.Current());
    lst.MoveFirst();
    EXPECT_FALSE(lst.HasCurrent());
    EXPECT_EQ(nullptr, lst.RemoveCurrent());
    EXPECT_TRUE(lst.OwnsRecords());
}

TEST_F(LinkedListTest, AddTailKeepsOrderAndCount)
{
    CLinkedList<CRecord> lst;
    Fill(lst, 3);
    EXPECT_EQ(3u, lst.GetCount());
    EXPECT_EQ((std::vector<int>{1, 2, 3}), Walk(lst));
    EXPECT_FALSE(lst.HasCurrent()) << "a finished walk leaves the cursor on the head";
    EXPECT_EQ(nullptr, lst.Current());
}

TEST_F(LinkedListTest, RecordsCarryTheLinksAsTheirFirstMembers)
{
    CRecord record(1);
    EXPECT_EQ(static_cast<void*>(&record), static_cast<void*>(&record.m_pNext));
    EXPECT_EQ(nullptr, record.m_pNext);
    EXPECT_EQ(nullptr, record.m_pPrev);
}

TEST_F(LinkedListTest, RemoveCurrentOnTheFirstRecordMovesTheCursorToTheHead)
{
    CLinkedList<CRecord> lst;
    Fill(lst, 3);
    lst.MoveFirst();
    CRecord* pRemoved = lst.RemoveCurrent();
    ASSERT_NE(nullptr, pRemoved);
    EXPECT_EQ(1, pRemoved->m_n);
    EXPECT_EQ(nullptr, pRemoved->m_pNext);
    EXPECT_EQ(nullptr, pRemoved->m_pPrev);
    EXPECT_EQ(2u, lst.GetCount());
    EXPECT_FALSE(lst.HasCurrent());
    lst.MoveNext();
    ASSERT_TRUE(lst.HasCurrent());
    EXPECT_EQ(2, lst.Current()->m_n) << "MoveNext lands on the record that was second";
    delete pRemoved;
    EXPECT_EQ((std::vector<int>{2, 3}), Walk(lst));
}

TEST_F(LinkedListTest, RemoveCurrentInTheMiddleAndAtTheEndStepsBack)
{
    CLinkedList<CRecord> lst;
    Fill(lst, 4);
    lst.MoveFirst();
    lst.MoveNext();
    lst.MoveNext();
    CRecord* pThird = lst.RemoveCurrent();
    ASSERT_NE(nullptr, pThird);
    EXPECT_EQ(3, pThird->m_n);
    ASSERT_TRUE(lst.HasCurrent());
    EXPECT_EQ(2, lst.Current()->m_n);
    lst.MoveNext();
    EXPECT_EQ(4, lst.Current()->m_n);
    CRecord* pLast = lst.RemoveCurrent();
    EXPECT_EQ(4, pLast->m_n);
    EXPECT_EQ(2, lst.Current()->m_n);
    lst.MoveNext();
    EXPECT_FALSE(lst.HasCurrent());
    delete pThird;
    delete pLast;
    EXPECT_EQ(2u, lst.GetCount());
    EXPECT_EQ((std::vector<int>{1, 2}), Walk(lst));
    // New records still go after the last one.
    lst.AddTail(new CRecord(5));
    EXPECT_EQ((std::vector<int>{1, 2, 5}), Walk(lst));
}

TEST_F(LinkedListTest, RemoveCurrentOnTheHeadChangesNothing)
{
    CLinkedList<CRecord> lst;
    Fill(lst, 2);
    lst.MoveFirst();
    lst.MoveNext();
    lst.MoveNext();
    ASSERT_FALSE(lst.HasCurrent());
    EXPECT_EQ(nullptr, lst.RemoveCurrent());
    EXPECT_EQ(2u, lst.GetCount());
    EXPECT_EQ((std::vector<int>{1, 2}), Walk(lst));
}

TEST_F(LinkedListTest, RemovingEveryRecordInAWalkEmptiesTheList)
{
    CLinkedList<CRecord> lst;
    Fill(lst, 5);
    int cRemoved = 0;
    for (lst.MoveFirst(); lst.HasCurrent(); lst.MoveNext()) {
        if (lst.Current()->m_n % 2 == 1) {
            delete lst.RemoveCurrent();
            ++cRemoved;
        }
    }
    EXPECT_EQ(3, cRemoved);
    EXPECT_EQ((std::vector<int>{2, 4}), Walk(lst));
    for (lst.MoveFirst(); lst.HasCurrent(); lst.MoveNext())
        delete lst.RemoveCurrent();
    EXPECT_EQ(0u, lst.GetCount());
    EXPECT_TRUE(Walk(lst).empty());
}

TEST_F(LinkedListTest, AnOwningListDestroysItsRecordsOnClearAndDestruction)
{
    g_cDestroyed = 0;
    {
        CLinkedList<CRecord> lst(TRUE);
        Fill(lst, 3);
        lst.MoveFirst();
        lst.Clear();
        EXPECT_EQ(3, g_cDestroyed);
        EXPECT_EQ(0u, lst.GetCount());
        EXPECT_FALSE(lst.HasCurrent());
        Fill(lst, 2);
        EXPECT_EQ((std::vector<int>{1, 2}), Walk(lst));
    }
    EXPECT_EQ(5, g_cDestroyed);
}

TEST_F(LinkedListTest, ANonOwningListOnlyUnlinks)
{
    g_cDestroyed = 0;
    CRecord first(1);
    CRecord second(2);
    {
        CLinkedList<CRecord> lst(FALSE);
        EXPECT_FALSE(lst.OwnsRecords());
        lst.AddTail(&first);
        lst.AddTail(&second);
        EXPECT_EQ((std::vector<int>{1, 2}), Walk(lst));
        lst.Clear();
        EXPECT_EQ(0u, lst.GetCount());
        EXPECT_EQ(nullptr, first.m_pNext);
        // A record can move to another list once unlinked.
        lst.AddTail(&second);
        EXPECT_EQ((std::vector<int>{2}), Walk(lst));
    }
    EXPECT_EQ(0, g_cDestroyed);
    EXPECT_EQ(nullptr, second.m_pNext);
    EXPECT_EQ(nullptr, second.m_pPrev);
}

} // namespace
