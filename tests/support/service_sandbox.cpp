#include "support/service_sandbox.h"

#include "support/process.h"

#include <stdexcept>
#include <string>

namespace test {

namespace {

[[noreturn]] void fail(const std::string& what, const std::wstring& name)
{
    const DWORD code = GetLastError();
    throw std::runtime_error("test service " + std::string(name.begin(), name.end()) + ": " + what +
                             " failed with code " + std::to_string(code));
}

DWORD query_state(SC_HANDLE service)
{
    SERVICE_STATUS status = {};
    if (!QueryServiceStatus(service, &status))
        return 0;
    return status.dwCurrentState;
}

bool wait_for_state(SC_HANDLE service, DWORD wanted)
{
    for (int attempt = 0; attempt < 500; ++attempt) {
        if (query_state(service) == wanted)
            return true;
        Sleep(20);
    }
    return false;
}

void kill_process_of(SC_HANDLE service)
{
    SERVICE_STATUS_PROCESS status = {};
    DWORD needed = 0;
    if (!QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                              sizeof(status), &needed) ||
        status.dwProcessId == 0)
        return;
    HANDLE process = OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, status.dwProcessId);
    if (process == nullptr)
        return;
    TerminateProcess(process, 1);
    WaitForSingleObject(process, 5000);
    CloseHandle(process);
}

// Stops a service by request, or by killing its process, and deletes it.
void remove_service(SC_HANDLE service)
{
    if (query_state(service) != SERVICE_STOPPED) {
        SERVICE_STATUS status = {};
        ControlService(service, SERVICE_CONTROL_STOP, &status);
        if (!wait_for_state(service, SERVICE_STOPPED)) {
            kill_process_of(service);
            wait_for_state(service, SERVICE_STOPPED);
        }
    }
    DeleteService(service);
}

} // namespace

test_service_t::test_service_t(const std::wstring& name, mode_t mode) : name_(name), mode_(mode)
{
    scm_ = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    if (scm_ == nullptr)
        fail("OpenSCManagerW", name_);

    SC_HANDLE leftover = OpenServiceW(scm_, name_.c_str(), SERVICE_ALL_ACCESS);
    if (leftover != nullptr) {
        remove_service(leftover);
        CloseServiceHandle(leftover);
    }

    // The helper program beside the running executable.
    std::wstring command = L"\"" + exe_folder() + L"test_service.exe\"";
    if (mode_ == mode_t::start_pending)
        command += L" pending";
    service_ = CreateServiceW(scm_, name_.c_str(), name_.c_str(), SERVICE_ALL_ACCESS,
                              SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START,
                              SERVICE_ERROR_IGNORE, command.c_str(), nullptr, nullptr, nullptr,
                              nullptr, nullptr);
    if (service_ == nullptr) {
        const DWORD code = GetLastError();
        CloseServiceHandle(scm_);
        SetLastError(code);
        fail("CreateServiceW", name_);
    }
}

test_service_t::~test_service_t()
{
    remove_service(service_);
    CloseServiceHandle(service_);
    CloseServiceHandle(scm_);
}

void test_service_t::start()
{
    if (!StartServiceW(service_, 0, nullptr))
        fail("StartServiceW", name_);
    const DWORD wanted = mode_ == mode_t::start_pending ? SERVICE_START_PENDING : SERVICE_RUNNING;
    if (!wait_for_state(service_, wanted))
        fail("waiting for the started state", name_);
}

void test_service_t::pause()
{
    control(SERVICE_CONTROL_PAUSE, SERVICE_PAUSED, "ControlService(PAUSE)");
}

void test_service_t::stop()
{
    control(SERVICE_CONTROL_STOP, SERVICE_STOPPED, "ControlService(STOP)");
}

void test_service_t::control(DWORD code, DWORD wanted, const char* call)
{
    SERVICE_STATUS status = {};
    if (!ControlService(service_, code, &status))
        fail(call, name_);
    if (!wait_for_state(service_, wanted))
        fail(std::string("waiting after ") + call, name_);
}

std::wstring unique_sid(const std::wstring& stem)
{
    return stem + std::to_wstring(GetCurrentProcessId());
}

} // namespace test
