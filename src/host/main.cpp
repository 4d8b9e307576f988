// orasnap.exe: runs single library operations from a command line, for operators and support.
#include <windows.h>

#include <string>

#include "orasnap/orasnap.h"

namespace {

// Wide text reaches a console as it is; redirected output is written as UTF-8.
void write_line(DWORD stdHandle, const std::wstring& text) {
    const std::wstring line = text + L"\n";
    HANDLE out = GetStdHandle(stdHandle);
    DWORD mode = 0;
    DWORD written = 0;
    if (GetConsoleMode(out, &mode)) {
        WriteConsoleW(out, line.c_str(), static_cast<DWORD>(line.size()), &written, nullptr);
        return;
    }
    const int size = WideCharToMultiByte(CP_UTF8, 0, line.c_str(), static_cast<int>(line.size()), nullptr, 0,
                                         nullptr, nullptr);
    std::string bytes(static_cast<size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, line.c_str(), static_cast<int>(line.size()), &bytes[0], size, nullptr, nullptr);
    WriteFile(out, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
}

// Takes over a text the library allocated, prints it and gives it back.
void print_and_free(DWORD stdHandle, wchar_t* text) {
    if (text != nullptr) {
        write_line(stdHandle, text);
        OracleLibStrFree(text);
    }
}

int report(HRESULT hr, wchar_t* result, wchar_t* errorText) {
    print_and_free(STD_OUTPUT_HANDLE, result);
    print_and_free(STD_ERROR_HANDLE, errorText);
    return SUCCEEDED(hr) ? 0 : 1;
}

int run_test(const wchar_t* logName) {
    wchar_t* errorText = nullptr;
    const HRESULT hr = OracleTest(nullptr, nullptr, logName, &errorText);
    return report(hr, nullptr, errorText);
}

int run_folder() {
    wchar_t* result = nullptr;
    wchar_t* errorText = nullptr;
    const HRESULT hr = OracleGetLogsFolder(&result, &errorText);
    return report(hr, result, errorText);
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    const std::wstring command = argc > 1 ? argv[1] : L"";
    if (command == L"test" && argc <= 3) {
        return run_test(argc == 3 ? argv[2] : L"");
    }
    if (command == L"folder" && argc == 2) {
        return run_folder();
    }
    write_line(STD_ERROR_HANDLE, L"usage: orasnap test [logName]\n       orasnap folder");
    return 1;
}
