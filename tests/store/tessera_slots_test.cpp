// The storage service's interfaces in slot order: every method at its vtable index.
//
// A pointer to a virtual member function holds, under the Itanium C++ ABI, 1 plus the byte
// offset of its vtable entry, so the slot of each method can be read off it. The recording
// objects below check the same order by calling through the raw vtable.
#include "store/tessera.h"
#include "tests/support/paltest.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

template <class TMember>
long SlotOf(TMember pfn)
{
    static_assert(sizeof(TMember) == 2 * sizeof(void*));
    struct
    {
        uintptr_t ptr;
        ptrdiff_t adj;
    } rep;
    std::memcpy(&rep, &pfn, sizeof(rep));
    EXPECT_EQ(1u, rep.ptr & 1) << "not a virtual function";
    EXPECT_EQ(0, rep.adj);
    return static_cast<long>((rep.ptr - 1) / sizeof(void*));
}

TEST(TesseraSlots, IUnknownTakesSlotsZeroToTwo)
{
    EXPECT_EQ(0, SlotOf(&IVSSSupport::QueryInterface));
    EXPECT_EQ(1, SlotOf(&IVSSSupport::AddRef));
    EXPECT_EQ(2, SlotOf(&IVSSSupport::Release));
}

TEST(TesseraSlots, IVSSSupport)
{
    EXPECT_EQ(3, SlotOf(&IVSSSupport::CreateSnapShot));
    EXPECT_EQ(4, SlotOf(&IVSSSupport::CreateSnapShot1));
    EXPECT_EQ(5, SlotOf(&IVSSSupport::GetTargetLunInfo));
    EXPECT_EQ(6, SlotOf(&IVSSSupport::CreateTargetLun));
    EXPECT_EQ(7, SlotOf(&IVSSSupport::DeleteTargetLun));
    EXPECT_EQ(8, SlotOf(&IVSSSupport::DeleteSnapShot));
    EXPECT_EQ(9, SlotOf(&IVSSSupport::EnumVirtualDisks));
    EXPECT_EQ(10, SlotOf(&IVSSSupport::SetDatasetAttrib));
    EXPECT_EQ(11, SlotOf(&IVSSSupport::IsUnlockedCloneSupported));
}

TEST(TesseraSlots, AsyncIVSSSupportPairsEveryMethodInOrder)
{
    EXPECT_EQ(0, SlotOf(&AsyncIVSSSupport::QueryInterface));
    EXPECT_EQ(3, SlotOf(&AsyncIVSSSupport::Begin_CreateSnapShot));
    EXPECT_EQ(4, SlotOf(&AsyncIVSSSupport::Finish_CreateSnapShot));
    EXPECT_EQ(5, SlotOf(&AsyncIVSSSupport::Begin_CreateSnapShot1));
    EXPECT_EQ(6, SlotOf(&AsyncIVSSSupport::Finish_CreateSnapShot1));
    EXPECT_EQ(7, SlotOf(&AsyncIVSSSupport::Begin_GetTargetLunInfo));
    EXPECT_EQ(8, SlotOf(&AsyncIVSSSupport::Finish_GetTargetLunInfo));
    EXPECT_EQ(9, SlotOf(&AsyncIVSSSupport::Begin_CreateTargetLun));
    EXPECT_EQ(10, SlotOf(&AsyncIVSSSupport::Finish_CreateTargetLun));
    EXPECT_EQ(11, SlotOf(&AsyncIVSSSupport::Begin_DeleteTargetLun));
    EXPECT_EQ(12, SlotOf(&AsyncIVSSSupport::Finish_DeleteTargetLun));
    EXPECT_EQ(13, SlotOf(&AsyncIVSSSupport::Begin_DeleteSnapShot));
    EXPECT_EQ(14, SlotOf(&AsyncIVSSSupport::Finish_DeleteSnapShot));
    EXPECT_EQ(15, SlotOf(&AsyncIVSSSupport::Begin_EnumVirtualDisks));
    EXPECT_EQ(16, SlotOf(&AsyncIVSSSupport::Finish_EnumVirtualDisks));
    EXPECT_EQ(17, SlotOf(&AsyncIVSSSupport::Begin_SetDatasetAttrib));
    EXPECT_EQ(18, SlotOf(&AsyncIVSSSupport::Finish_SetDatasetAttrib));
    EXPECT_EQ(19, SlotOf(&AsyncIVSSSupport::Begin_IsUnlockedCloneSupported));
    EXPECT_EQ(20, SlotOf(&AsyncIVSSSupport::Finish_IsUnlockedCloneSupported));
}

TEST(TesseraSlots, SnapShotHyperVAndEvents)
{
    EXPECT_EQ(3, SlotOf(&ISnapShot::CreateSnapShot));
    EXPECT_EQ(3, SlotOf(&IHyperVSupport::IsHyperVInstalled));
    EXPECT_EQ(4, SlotOf(&IHyperVSupport::IsHyperVRoleEnabled));
    EXPECT_EQ(3, SlotOf(&_ISnapShotEvents::OnKVXSnapOpProgress));
    EXPECT_EQ(4, SlotOf(&_ISnapShotEvents::OnKVXSnapReady));
}

TEST(TesseraSlots, PlatformInterfacesTheServiceUses)
{
    EXPECT_EQ(3, SlotOf(&ICallFactory::CreateCall));
    EXPECT_EQ(3, SlotOf(&IConnectionPointContainer::EnumConnectionPoints));
    EXPECT_EQ(4, SlotOf(&IConnectionPointContainer::FindConnectionPoint));
    EXPECT_EQ(5, SlotOf(&IConnectionPoint::Advise));
    EXPECT_EQ(6, SlotOf(&IConnectionPoint::Unadvise));
    EXPECT_EQ(3, SlotOf(&ISupportErrorInfo::InterfaceSupportsErrorInfo));
    EXPECT_EQ(3, SlotOf(&IClassFactory::CreateInstance));
}

// Objects whose methods record their own name, called through the raw vtable by index, the
// way a caller compiled against the service's own headers reaches them.
class CRecordingEvents final : public _ISnapShotEvents
{
public:
    STDMETHODIMP QueryInterface(REFIID, void**) override { return Record("QueryInterface"); }
    STDMETHODIMP_(ULONG) AddRef() override { return 1; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP OnKVXSnapOpProgress(LPCWSTR, LPCWSTR, LONG lProgress) override
    {
        m_lProgress = lProgress;
        return Record("OnKVXSnapOpProgress");
    }
    STDMETHODIMP OnKVXSnapReady(ULONG_PTR, ULONG_PTR, ULONG_PTR ulArg3) override
    {
        m_lProgress = static_cast<LONG>(ulArg3);
        return Record("OnKVXSnapReady");
    }
    HRESULT Record(const char* name)
    {
        m_calls.push_back(name);
        return S_OK;
    }
    std::vector<std::string> m_calls;
    LONG m_lProgress = 0;
};

class CRecordingHyperV final : public IHyperVSupport
{
public:
    STDMETHODIMP QueryInterface(REFIID, void**) override { return E_NOTIMPL; }
    STDMETHODIMP_(ULONG) AddRef() override { return 1; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP IsHyperVInstalled(BOOLEAN* pf) override
    {
        *pf = 3;
        return S_OK;
    }
    STDMETHODIMP IsHyperVRoleEnabled(BOOLEAN* pf) override
    {
        *pf = 4;
        return S_OK;
    }
};

void* const* VtableOf(void* pInterface)
{
    return *static_cast<void* const* const*>(pInterface);
}

TEST(TesseraSlots, EventSlotsDispatchToTheirMethods)
{
    CRecordingEvents events;
    _ISnapShotEvents* pEvents = &events;
    using ProgressFn = HRESULT (*)(_ISnapShotEvents*, LPCWSTR, LPCWSTR, LONG);
    using ReadyFn = HRESULT (*)(_ISnapShotEvents*, ULONG_PTR, ULONG_PTR, ULONG_PTR);
    reinterpret_cast<ProgressFn>(VtableOf(pEvents)[3])(pEvents, u"snap", u"host", 43);
    EXPECT_EQ(43, events.m_lProgress);
    reinterpret_cast<ReadyFn>(VtableOf(pEvents)[4])(pEvents, 0, 0, 7);
    EXPECT_EQ(7, events.m_lProgress);
    EXPECT_EQ((std::vector<std::string>{"OnKVXSnapOpProgress", "OnKVXSnapReady"}), events.m_calls);
}

TEST(TesseraSlots, HyperVSlotsDispatchToTheirMethods)
{
    CRecordingHyperV hyperV;
    IHyperVSupport* p = &hyperV;
    using Fn = HRESULT (*)(IHyperVSupport*, BOOLEAN*);
    BOOLEAN f = 0;
    reinterpret_cast<Fn>(VtableOf(p)[3])(p, &f);
    EXPECT_EQ(3, f);
    reinterpret_cast<Fn>(VtableOf(p)[4])(p, &f);
    EXPECT_EQ(4, f);
}

} // namespace
