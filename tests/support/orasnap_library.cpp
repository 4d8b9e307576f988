#include "support/orasnap_library.h"

#include <stdexcept>

#include "support/kept_documents.h"
#include "support/process.h"

namespace test {

wchar_t untouched_text[] = L"untouched";

library_t::library_t(bool private_copy)
{
    std::wstring path = L"orasnap.dll";
    if (private_copy) {
        path = folder_.file(L"orasnap_copy.dll");
        if (!CopyFileW((exe_folder() + L"orasnap.dll").c_str(), path.c_str(), FALSE))
            throw std::runtime_error("cannot copy orasnap.dll");
    }
    module_ = LoadLibraryW(path.c_str());
    if (module_ == nullptr)
        throw std::runtime_error("cannot load orasnap.dll");
}

library_t::~library_t()
{
    FreeLibrary(module_);
}

std::wstring library_t::take(wchar_t* text) const
{
    if (text == untouched_text)
        return L"<untouched>";
    if (text == nullptr)
        return L"<null>";
    std::wstring copy(text);
    keep_document(copy);
    ORASNAP_EXPORT(*this, OracleLibStrFree)(text);
    return copy;
}

bool call_with_deadline(const library_t& library, DWORD deadline_ms,
                        const std::function<HRESULT(wchar_t**, wchar_t**)>& call, export_call_t& done)
{
    struct job_t {
        std::function<HRESULT(wchar_t**, wchar_t**)> call;
        wchar_t* result = nullptr;
        wchar_t* error = nullptr;
        HRESULT status = E_FAIL;
    };
    // On the heap: a thread that doesn't return in time may still write it.
    auto* job = new job_t;
    job->call = call;
    HANDLE thread = CreateThread(
        nullptr, 0,
        [](LPVOID param) -> DWORD {
            auto* running = static_cast<job_t*>(param);
            running->status = running->call(&running->result, &running->error);
            return 0;
        },
        job, 0, nullptr);
    if (thread == nullptr || WaitForSingleObject(thread, deadline_ms) != WAIT_OBJECT_0)
        return false;
    CloseHandle(thread);
    done.status = job->status;
    done.result = job->result != nullptr ? library.take(job->result) : std::wstring();
    done.error = job->error != nullptr ? library.take(job->error) : std::wstring();
    delete job;
    return true;
}

} // namespace test
