// orasnap.exe: runs single library operations from a command line, for operators and support.
#include <windows.h>

#include <fstream>
#include <sstream>
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

// Runs an export that hands back a result text and an error text.
template <typename Call>
int run_with_result(Call call) {
    wchar_t* result = nullptr;
    wchar_t* errorText = nullptr;
    const HRESULT hr = call(&result, &errorText);
    return report(hr, result, errorText);
}

// Documents come from files (UTF-8): they are too long for a command line.
std::wstring read_document(const wchar_t* documentPath) {
    std::ifstream file(documentPath, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    const std::string text = bytes.str();
    std::wstring document(text.size(), L'\0');
    document.resize(static_cast<size_t>(MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()),
                                                            &document[0], static_cast<int>(document.size()))));
    return document;
}

int run_remove_logs(const wchar_t* documentPath) {
    wchar_t* errorText = nullptr;
    const HRESULT hr = OracleRemoveLogsInTemp(read_document(documentPath).c_str(), &errorText);
    return report(hr, nullptr, errorText);
}

int run_finish(const wchar_t* documentPath) {
    wchar_t* errorText = nullptr;
    const HRESULT hr = OracleFinishDbsBackup(read_document(documentPath).c_str(), L"", L"", &errorText);
    return report(hr, nullptr, errorText);
}

// A bool answer is printed as "true" or "false".
template <typename Call>
int run_with_flag(Call call) {
    bool flag = false;
    wchar_t* errorText = nullptr;
    const HRESULT hr = call(&flag, &errorText);
    if (SUCCEEDED(hr))
        write_line(STD_OUTPUT_HANDLE, flag ? L"true" : L"false");
    return report(hr, nullptr, errorText);
}

int run_delete_logs_by_time(const wchar_t* home, const wchar_t* sid, const wchar_t* minutes) {
    wchar_t* errorText = nullptr;
    const HRESULT hr = OracleDeleteLogsByTime(home, sid, _wtoi(minutes), L"", L"", &errorText);
    return report(hr, nullptr, errorText);
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    const std::wstring command = argc > 1 ? argv[1] : L"";
    if (command == L"test" && argc <= 3) {
        return run_test(argc == 3 ? argv[2] : L"");
    }
    if (command == L"explore" && argc <= 3) {
        const bool exploreFlag = argc == 3 ? _wtoi(argv[2]) != 0 : true;
        return run_with_result([exploreFlag](wchar_t** result, wchar_t** errorText) {
            return OracleExploreInstances(exploreFlag, L"", L"", L"", result, errorText);
        });
    }
    if (command == L"folder" && argc == 2) {
        return run_with_result(OracleGetLogsFolder);
    }
    if (command == L"backup-logs" && argc == 6) {
        return run_with_result([argv](wchar_t** result, wchar_t** errorText) {
            return OracleBackupLogs(argv[2], argv[3], argv[4], argv[5], L"", L"", result, errorText);
        });
    }
    if (command == L"enum-logs" && argc == 2) {
        return run_with_result(OracleEnumLogs);
    }
    if (command == L"remove-logs" && argc == 3) {
        return run_remove_logs(argv[2]);
    }
    if (command == L"delete-logs-by-time" && argc == 5) {
        return run_delete_logs_by_time(argv[2], argv[3], argv[4]);
    }
    if (command == L"vss" && argc == 2) {
        return run_with_flag(OracleCheckVssFunctionality);
    }
    if (command == L"prepare" && argc == 3) {
        return run_with_result([argv](wchar_t** result, wchar_t** errorText) {
            return OraclePrepareDbsForBackup(argv[2], L"", L"", L"", L"", L"", result, errorText);
        });
    }
    if (command == L"finish" && argc == 3) {
        return run_finish(argv[2]);
    }
    if (command == L"restore-required" && argc == 2) {
        return run_with_flag(OracleIsRestoreRequired);
    }
    if (command == L"restore" && argc == 2) {
        wchar_t* errorText = nullptr;
        const HRESULT hr = OracleDoRestore(&errorText);
        return report(hr, nullptr, errorText);
    }
    write_line(STD_ERROR_HANDLE, L"usage: orasnap test [logName]\n       orasnap explore [exploreFlag 0|1]\n"
                                 L"       orasnap folder\n"
                                 L"       orasnap backup-logs <home> <sid> <usn> <lastRecId>\n"
                                 L"       orasnap enum-logs\n       orasnap remove-logs <logsDocumentFile>\n"
                                 L"       orasnap delete-logs-by-time <home> <sid> <minutes>\n"
                                 L"       orasnap vss\n       orasnap prepare <enabledWritersDocument>\n"
                                 L"       orasnap finish <prepareDocumentFile>\n"
                                 L"       orasnap restore-required\n       orasnap restore");
    return 1;
}
