#pragma once

#include <windows.h>

#include <functional>
#include <string>

namespace host {

// How long a call took, and what it returned.
struct SCallTiming {
    HRESULT status = E_FAIL;
    double seconds = 0;
};

// Runs `call` on a worker thread. The library offers no progress of its own, so while
// the call runs, and only when standard error is a console, one status line shows
// `label` and the time spent; it is redrawn every half second and erased at the end.
SCallTiming RunWithProgress(const std::wstring& label, const std::function<HRESULT()>& call);

} // namespace host
