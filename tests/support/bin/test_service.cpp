// A service that does nothing but hold the state a test asks for, so that code
// reading service states can be tested against a real service manager.
//
//   test_service.exe            starts, reports RUNNING, pauses and continues
//                               on request, stops on STOP
//   test_service.exe pending    reports START_PENDING and stays there until
//                               it is stopped or killed
#include <windows.h>

#include <cwchar>

namespace {

SERVICE_STATUS_HANDLE g_statusHandle = nullptr;
HANDLE g_stopEvent = nullptr;
bool g_stayPending = false;
SERVICE_STATUS g_status = {};

void Report(DWORD state)
{
    g_status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    g_status.dwCurrentState = state;
    g_status.dwControlsAccepted =
        state == SERVICE_START_PENDING ? SERVICE_ACCEPT_STOP
                                       : SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_PAUSE_CONTINUE;
    g_status.dwWin32ExitCode = NO_ERROR;
    g_status.dwWaitHint = state == SERVICE_START_PENDING ? 600000 : 0;
    if (state == SERVICE_START_PENDING)
        ++g_status.dwCheckPoint;
    SetServiceStatus(g_statusHandle, &g_status);
}

DWORD WINAPI Control(DWORD control, DWORD, void*, void*)
{
    switch (control) {
    case SERVICE_CONTROL_STOP:
        Report(SERVICE_STOP_PENDING);
        SetEvent(g_stopEvent);
        return NO_ERROR;
    case SERVICE_CONTROL_PAUSE:
        Report(SERVICE_PAUSED);
        return NO_ERROR;
    case SERVICE_CONTROL_CONTINUE:
        Report(SERVICE_RUNNING);
        return NO_ERROR;
    case SERVICE_CONTROL_INTERROGATE:
        return NO_ERROR;
    default:
        return ERROR_CALL_NOT_IMPLEMENTED;
    }
}

void WINAPI ServiceMain(DWORD, wchar_t**)
{
    g_statusHandle = RegisterServiceCtrlHandlerExW(L"", Control, nullptr);
    if (g_statusHandle == nullptr)
        return;
    g_stopEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    Report(g_stayPending ? SERVICE_START_PENDING : SERVICE_RUNNING);
    WaitForSingleObject(g_stopEvent, INFINITE);
    Report(SERVICE_STOPPED);
}

} // namespace

int wmain(int argc, wchar_t** argv)
{
    g_stayPending = argc > 1 && std::wcscmp(argv[1], L"pending") == 0;
    wchar_t name[] = L"";
    SERVICE_TABLE_ENTRYW table[] = {{name, ServiceMain}, {nullptr, nullptr}};
    return StartServiceCtrlDispatcherW(table) ? 0 : 1;
}
