// The handle table, the object namespace and the one lock and condition variable of waits.
#include "pal/src/sync/handletable.h"

#include "pal/errhandlingapi.h"
#include "pal/src/base/internal.h"
#include "pal/winerror.h"

#include <condition_variable>
#include <deque>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace pal::detail {

namespace {

// A handle is ((slot + 1) << 6 | generation << 2): small, non-null, a multiple of four like a
// Windows handle, and a stale handle whose slot was reused fails instead of reaching the new
// object (until the four-bit generation comes round again).
constexpr ULONG_PTR kGenerationBits = 4;
constexpr ULONG_PTR kGenerationMask = (1u << kGenerationBits) - 1;
constexpr ULONG_PTR kSlotShift = 2 + kGenerationBits;
constexpr size_t kMaxSlots = (size_t(1) << 24) - 1;
// ERROR_NO_SYSTEM_RESOURCES: the handle table is full.
constexpr DWORD kErrorNoSystemResources = 1450;

struct Slot
{
    KernelObjectPtr pObject; // null when free
    DWORD dwAccess = 0;
    ULONG_PTR uGeneration = 0;
};

// Never destroyed: detached threads may still close handles while the process exits.
struct KernelState
{
    std::mutex lock;
    std::condition_variable wake;
    ULONG cSleeping = 0;
    std::vector<Slot> slots;
    // Freed slots are reused oldest first, which keeps a just-closed handle invalid longer.
    std::deque<size_t> freeSlots;
    ULONG cOpen = 0;
    std::unordered_map<std::u16string, KernelObjectPtr> names;
};

KernelState& State()
{
    static KernelState* s_pState = new KernelState;
    return *s_pState;
}

HANDLE EncodeHandle(size_t index, ULONG_PTR uGeneration)
{
    return reinterpret_cast<HANDLE>(((index + 1) << kSlotShift) | (uGeneration << 2));
}

// The slot `h` names while it is open, else nullptr.
Slot* FindSlotLocked(HANDLE h)
{
    auto value = reinterpret_cast<ULONG_PTR>(h);
    if (value == 0 || (value & 3) != 0)
        return nullptr;
    ULONG_PTR slotNumber = value >> kSlotShift;
    if (slotNumber == 0 || slotNumber > State().slots.size())
        return nullptr;
    Slot& slot = State().slots[slotNumber - 1];
    if (!slot.pObject || slot.uGeneration != ((value >> 2) & kGenerationMask))
        return nullptr;
    return &slot;
}

// The key of a kernel object name in the namespace, or false with *pdwError set. This process is
// a service in session 0, where the "Global\" and "Local\" namespaces are the same one.
bool NamespaceKey(LPCWSTR lpName, std::u16string* pKey, DWORD* pdwError)
{
    size_t cch = WideLength(lpName);
    if (cch > MAX_PATH) {
        *pdwError = ERROR_FILENAME_EXCED_RANGE;
        return false;
    }
    std::u16string_view name(lpName, cch);
    for (std::u16string_view prefix :
         {std::u16string_view(u"Global\\"), std::u16string_view(u"Local\\")}) {
        if (name.starts_with(prefix)) {
            name.remove_prefix(prefix.size());
            break;
        }
    }
    if (name.find(u'\\') != std::u16string_view::npos) {
        *pdwError = ERROR_PATH_NOT_FOUND;
        return false;
    }
    pKey->assign(name);
    return true;
}

} // namespace

// Reaches the private handle count and name of objects.
class HandleTable
{
public:
    static HANDLE Insert(KernelObjectPtr object, DWORD dwAccess)
    {
        KernelState& state = State();
        size_t index;
        if (!state.freeSlots.empty()) {
            index = state.freeSlots.front();
            state.freeSlots.pop_front();
        } else if (state.slots.size() < kMaxSlots) {
            index = state.slots.size();
            state.slots.emplace_back();
        } else {
            SetLastError(kErrorNoSystemResources);
            return nullptr;
        }
        Slot& slot = state.slots[index];
        ++object->m_cHandles;
        slot.pObject = std::move(object);
        slot.dwAccess = dwAccess;
        ++state.cOpen;
        return EncodeHandle(index, slot.uGeneration);
    }

    // Frees the slot and hands back the object so the caller can drop it outside the lock.
    static KernelObjectPtr Remove(Slot& slot)
    {
        KernelState& state = State();
        KernelObjectPtr object = std::move(slot.pObject);
        slot.dwAccess = 0;
        slot.uGeneration = (slot.uGeneration + 1) & kGenerationMask;
        state.freeSlots.push_back(static_cast<size_t>(&slot - state.slots.data()));
        --state.cOpen;
        // A named object leaves the namespace with its last handle, as on Windows.
        if (--object->m_cHandles == 0 && !object->m_name.empty()) {
            auto it = state.names.find(object->m_name);
            if (it != state.names.end() && it->second == object)
                state.names.erase(it);
        }
        return object;
    }

    static void SetName(KernelObject& object, std::u16string name)
    {
        object.m_name = std::move(name);
    }
};

const AccessMapping& KernelObject::Mapping() const
{
    static const AccessMapping mapping = {0x00020000, 0x00020000, 0x00020000 | kSynchronize,
                                          kStandardRightsRequired | kSynchronize | 0xFFFF};
    return mapping;
}

DWORD MapAccess(DWORD dwDesired, const AccessMapping& mapping)
{
    DWORD dwAccess = dwDesired & ~(kGenericRead | kGenericWrite | kGenericExecute | kGenericAll |
                                   kMaximumAllowed);
    if (dwDesired & kGenericRead)
        dwAccess |= mapping.dwRead;
    if (dwDesired & kGenericWrite)
        dwAccess |= mapping.dwWrite;
    if (dwDesired & kGenericExecute)
        dwAccess |= mapping.dwExecute;
    if (dwDesired & (kGenericAll | kMaximumAllowed))
        dwAccess |= mapping.dwAll;
    return dwAccess;
}

std::mutex& KernelLock()
{
    return State().lock;
}

void NotifyWaitersLocked()
{
    KernelState& state = State();
    if (state.cSleeping != 0)
        state.wake.notify_all();
}

bool SleepUntilNotifiedLocked(std::unique_lock<std::mutex>& lock,
                              std::optional<std::chrono::steady_clock::time_point> deadline)
{
    KernelState& state = State();
    ++state.cSleeping;
    bool fInTime = true;
    if (deadline)
        fInTime = state.wake.wait_until(lock, *deadline) == std::cv_status::no_timeout ||
                  std::chrono::steady_clock::now() < *deadline;
    else
        state.wake.wait(lock);
    --state.cSleeping;
    return fInTime;
}

ULONG SleepingWaiterCount()
{
    std::lock_guard lock(KernelLock());
    return State().cSleeping;
}

HANDLE InsertHandleLocked(KernelObjectPtr object, DWORD dwAccess)
{
    return HandleTable::Insert(std::move(object), dwAccess);
}

HANDLE InsertHandle(KernelObjectPtr object, DWORD dwAccess)
{
    std::lock_guard lock(KernelLock());
    return InsertHandleLocked(std::move(object), dwAccess);
}

KernelObject* LookupHandleLocked(HANDLE h, DWORD dwAccess, DWORD* pdwError)
{
    return LookupHandleOfTypeLocked(
        h, dwAccess, [](const KernelObject&) { return true; }, pdwError);
}

KernelObject* LookupHandleOfTypeLocked(HANDLE h, DWORD dwAccess, ObjectTypeTest isType,
                                       DWORD* pdwError)
{
    Slot* pSlot = FindSlotLocked(h);
    if (!pSlot || !isType(*pSlot->pObject)) {
        *pdwError = ERROR_INVALID_HANDLE;
        return nullptr;
    }
    if ((pSlot->dwAccess & dwAccess) != dwAccess) {
        *pdwError = ERROR_ACCESS_DENIED;
        return nullptr;
    }
    return pSlot->pObject.get();
}

std::shared_ptr<KernelObject> ReferenceHandleOfType(HANDLE h, DWORD dwAccess, ObjectTypeTest isType)
{
    DWORD dwError = 0;
    {
        std::lock_guard lock(KernelLock());
        if (KernelObject* pObject = LookupHandleOfTypeLocked(h, dwAccess, isType, &dwError))
            return pObject->shared_from_this();
    }
    SetLastError(dwError);
    return nullptr;
}

BOOL CloseKernelHandle(HANDLE h)
{
    if (IsPseudoHandle(h))
        return TRUE;
    KernelObjectPtr object;
    {
        std::lock_guard lock(KernelLock());
        Slot* pSlot = FindSlotLocked(h);
        if (pSlot)
            object = HandleTable::Remove(*pSlot);
    }
    if (!object) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    // The object may die here, outside the lock.
    return TRUE;
}

ULONG OpenHandleCount()
{
    std::lock_guard lock(KernelLock());
    return State().cOpen;
}

HANDLE CreateNamedObjectOfType(LPCWSTR lpName, DWORD dwAccess, ObjectTypeTest isType,
                               const std::function<KernelObjectPtr()>& make)
{
    std::u16string key;
    if (lpName && *lpName) {
        DWORD dwError = 0;
        if (!NamespaceKey(lpName, &key, &dwError)) {
            SetLastError(dwError);
            return nullptr;
        }
    }
    // Made before the lock is taken and dropped after it is released when the name turns out
    // to exist: objects are built and destroyed outside the kernel lock.
    KernelObjectPtr created = make();
    if (!created)
        return nullptr;
    std::lock_guard lock(KernelLock());
    KernelState& state = State();
    if (!key.empty()) {
        auto it = state.names.find(key);
        if (it != state.names.end()) {
            if (!isType(*it->second)) {
                SetLastError(ERROR_INVALID_HANDLE);
                return nullptr;
            }
            HANDLE h = InsertHandleLocked(it->second, dwAccess);
            if (h)
                SetLastError(ERROR_ALREADY_EXISTS);
            return h;
        }
    }
    HANDLE h = InsertHandleLocked(created, dwAccess);
    if (!h)
        return nullptr;
    if (!key.empty()) {
        HandleTable::SetName(*created, key);
        state.names.emplace(std::move(key), std::move(created));
    }
    SetLastError(ERROR_SUCCESS);
    return h;
}

HANDLE OpenNamedObjectOfType(LPCWSTR lpName, DWORD dwDesiredAccess, ObjectTypeTest isType)
{
    if (!lpName) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    std::u16string key;
    DWORD dwError = 0;
    if (!NamespaceKey(lpName, &key, &dwError)) {
        SetLastError(dwError);
        return nullptr;
    }
    std::lock_guard lock(KernelLock());
    auto it = State().names.find(key);
    if (it == State().names.end()) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return nullptr;
    }
    if (!isType(*it->second)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return InsertHandleLocked(it->second, MapAccess(dwDesiredAccess, it->second->Mapping()));
}

} // namespace pal::detail
