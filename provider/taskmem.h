// A local holder of one COM task allocator block: the block is freed on every exit path of the
// operation that holds it unless the operation hands it on with Detach.
#pragma once

#include "pal/combaseapi.h"

template <typename T>
class CTaskMemPtr
{
public:
    CTaskMemPtr() = default;
    explicit CTaskMemPtr(T* p) : m_p(p) {}
    ~CTaskMemPtr() { CoTaskMemFree(m_p); }
    CTaskMemPtr(const CTaskMemPtr&) = delete;
    CTaskMemPtr& operator=(const CTaskMemPtr&) = delete;

    T* Get() const { return m_p; }
    T* operator->() const { return m_p; }
    explicit operator bool() const { return m_p != nullptr; }

    // Frees the block held so far and keeps `p` instead.
    void Reset(T* p = nullptr)
    {
        CoTaskMemFree(m_p);
        m_p = p;
    }

    // The caller owns the block from now on.
    T* Detach()
    {
        T* p = m_p;
        m_p = nullptr;
        return p;
    }

private:
    T* m_p = nullptr;
};
