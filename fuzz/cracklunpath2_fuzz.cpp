// CrackLunPath2 on arbitrary UTF-16 input. Checks, besides the sanitizers' findings, that a
// success splits at the first two ':' and rebuilds the input, that a malformed input is
// E_INVALIDARG, that a failing allocation is E_OUTOFMEMORY, and that a failure never touches
// the out-parameters.
#include "diag/trace.h"
#include "pal/combaseapi.h"
#include "pal/palcontrol.h"
#include "pal/winerror.h"
#include "provider/lunpath.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

void Check(bool fCondition)
{
    if (!fCondition)
        std::abort();
}

LPWSTR Sentinel(int i)
{
    return reinterpret_cast<LPWSTR>(static_cast<uintptr_t>(0x1000 + i * 0x10));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static bool fInitialised = [] {
        // The scope's entered/exited lines are formatted but go nowhere.
        TraceInit(TRACE_LEVEL_VERBOSE, nullptr, nullptr, 0);
        return true;
    }();
    (void)fInitialised;
    if (size < 1)
        return 0;

    // The first byte picks which allocation fails (0: none, 1 to 3: that one).
    ULONG ulFailAt = data[0] % 4;
    std::u16string input;
    for (size_t i = 1; i + 1 < size; i += 2)
        input.push_back(static_cast<char16_t>(data[i] | (data[i + 1] << 8)));
    // CrackLunPath2 sees the text up to the first NUL.
    std::u16string text = input.substr(0, input.find(u'\0'));
    size_t first = text.find(u':');
    size_t second = first == std::u16string::npos ? first : text.find(u':', first + 1);
    bool fWellFormed = second != std::u16string::npos;

    LPWSTR pszFiler = Sentinel(1);
    LPWSTR pszLunPath = Sentinel(2);
    LPWSTR pszSnapshot = Sentinel(3);
    pal::FailTaskAllocAt(ulFailAt);
    HRESULT hr = CrackLunPath2(input.c_str(), &pszFiler, &pszLunPath, &pszSnapshot);
    pal::FailTaskAllocAt(0);

    if (hr == S_OK) {
        Check(fWellFormed && ulFailAt == 0);
        Check(text.substr(0, first) == pszFiler);
        Check(text.substr(first + 1, second - first - 1) == pszLunPath);
        Check(text.substr(second + 1) == pszSnapshot);
        CoTaskMemFree(pszFiler);
        CoTaskMemFree(pszLunPath);
        CoTaskMemFree(pszSnapshot);
        return 0;
    }
    Check(pszFiler == Sentinel(1) && pszLunPath == Sentinel(2) && pszSnapshot == Sentinel(3));
    if (hr == E_INVALIDARG)
        Check(!fWellFormed);
    else
        Check(hr == E_OUTOFMEMORY && fWellFormed && ulFailAt != 0);
    return 0;
}
