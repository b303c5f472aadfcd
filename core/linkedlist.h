// The intrusive, doubly linked list that holds every record of the provider core. A record
// carries its two links as its first members (by deriving from CListNode), so it can be in
// one list at a time and costs no allocation to link. The iteration cursor lives in the list:
// only one walk of a given list may be in progress at a time.
#pragma once

#include "pal/windef.h"

#include <type_traits>

class CListNode
{
public:
    CListNode() = default;
    CListNode(const CListNode&) = delete;
    CListNode& operator=(const CListNode&) = delete;

    CListNode* m_pNext = nullptr;
    CListNode* m_pPrev = nullptr;

protected:
    // Records are destroyed through their own type (the list knows it), never through a
    // pointer to the links.
    ~CListNode() = default;
};

template <typename TRecord>
class CLinkedList
{
    static_assert(std::is_base_of_v<CListNode, TRecord>,
                  "a record carries the list links by deriving from CListNode");

public:
    // An owning list destroys its records when it is cleared or destroyed; a non-owning one
    // only unlinks them.
    explicit CLinkedList(BOOL fOwnsRecords = TRUE) : m_fOwnsRecords(fOwnsRecords)
    {
        m_head.m_pNext = &m_head;
        m_head.m_pPrev = &m_head;
        m_pCursor = &m_head;
    }
    ~CLinkedList() { Clear(); }
    CLinkedList(const CLinkedList&) = delete;
    CLinkedList& operator=(const CLinkedList&) = delete;

    void AddTail(TRecord* pRecord)
    {
        CListNode* pNode = pRecord;
        pNode->m_pNext = &m_head;
        pNode->m_pPrev = m_head.m_pPrev;
        m_head.m_pPrev->m_pNext = pNode;
        m_head.m_pPrev = pNode;
        ++m_dwCount;
    }

    void MoveFirst() { m_pCursor = m_head.m_pNext; }
    void MoveNext() { m_pCursor = m_pCursor->m_pNext; }
    BOOL HasCurrent() const { return m_pCursor != &m_head; }
    TRecord* Current() const { return HasCurrent() ? static_cast<TRecord*>(m_pCursor) : nullptr; }

    // Unlinks the current record and hands it to the caller, who then owns it. The cursor
    // steps back to the record before it (the head for the first one), so that a following
    // MoveNext lands on the record that came after the removed one.
    TRecord* RemoveCurrent()
    {
        if (!HasCurrent())
            return nullptr;
        CListNode* pNode = m_pCursor;
        m_pCursor = pNode->m_pPrev;
        Unlink(pNode);
        return static_cast<TRecord*>(pNode);
    }

    DWORD GetCount() const { return m_dwCount; }
    BOOL OwnsRecords() const { return m_fOwnsRecords; }

    // Unlinks every record from the first on, destroying it when the list owns its records.
    void Clear()
    {
        while (m_head.m_pNext != &m_head) {
            CListNode* pNode = m_head.m_pNext;
            Unlink(pNode);
            if (m_fOwnsRecords)
                delete static_cast<TRecord*>(pNode);
        }
        m_pCursor = &m_head;
        m_dwCount = 0;
    }

private:
    void Unlink(CListNode* pNode)
    {
        pNode->m_pPrev->m_pNext = pNode->m_pNext;
        pNode->m_pNext->m_pPrev = pNode->m_pPrev;
        pNode->m_pNext = nullptr;
        pNode->m_pPrev = nullptr;
        --m_dwCount;
    }

    class CHead final : public CListNode
    {};

    // The sentinel: First is m_head.m_pNext and Last is m_head.m_pPrev; both are the head
    // itself when the list is empty.
    CHead m_head;
    CListNode* m_pCursor;
    DWORD m_dwCount = 0;
    BOOL m_fOwnsRecords;
};
