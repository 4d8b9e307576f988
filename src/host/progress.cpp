#include "host/progress.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <future>

#include "host/console.h"

namespace host {

namespace {

using CClock = std::chrono::steady_clock;

double seconds_since(CClock::time_point start)
{
    return std::chrono::duration<double>(CClock::now() - start).count();
}

// The status line on the console; erased when it goes, if it was ever drawn.
class CStatusLine {
public:
    explicit CStatusLine(std::wstring label) : label_(std::move(label)) {}
    ~CStatusLine()
    {
        if (width_ > 0)
            Write(STD_ERROR_HANDLE, L"\r" + std::wstring(width_, L' ') + L"\r");
    }
    CStatusLine(const CStatusLine&) = delete;
    CStatusLine& operator=(const CStatusLine&) = delete;

    void Show(double seconds)
    {
        wchar_t elapsed[32];
        swprintf(elapsed, 32, L"%.1f s", seconds);
        const std::wstring text = label_ + L": running, " + elapsed;
        width_ = std::max(width_, text.size());
        Write(STD_ERROR_HANDLE, L"\r" + text + std::wstring(width_ - text.size(), L' '));
    }

private:
    std::wstring label_;
    size_t width_ = 0;
};

} // namespace

SCallTiming RunWithProgress(const std::wstring& label, const std::function<HRESULT()>& call)
{
    const CClock::time_point start = CClock::now();
    std::future<HRESULT> pending = std::async(std::launch::async, call);
    if (IsConsole(STD_ERROR_HANDLE)) {
        CStatusLine line(label);
        while (pending.wait_for(std::chrono::milliseconds(500)) != std::future_status::ready)
            line.Show(seconds_since(start));
    }
    SCallTiming timing;
    timing.status = pending.get();
    timing.seconds = seconds_since(start);
    return timing;
}

} // namespace host
