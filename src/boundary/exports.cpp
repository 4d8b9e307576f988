// The library's entry points. None of the operations is built yet: each one fails
// with a text that names it, so a caller never mistakes it for a success.
#include <windows.h>

#include <cstdlib>
#include <cwchar>
#include <string>

#include "orasnap/orasnap.h"

namespace {

wchar_t* allocate_text(const std::wstring& text) {
    const size_t bytes = (text.size() + 1) * sizeof(wchar_t);
    auto* copy = static_cast<wchar_t*>(std::malloc(bytes));
    if (copy != nullptr) {
        std::wmemcpy(copy, text.c_str(), text.size() + 1);
    }
    return copy;
}

HRESULT not_built(const wchar_t* exportName, wchar_t** errorText) {
    if (errorText != nullptr) {
        *errorText = allocate_text(std::wstring(exportName) + L" is not built yet.");
    }
    return E_FAIL;
}

}  // namespace

extern "C" {

HRESULT OracleVssInitLib(const wchar_t*, wchar_t** errorText) {
    return not_built(L"OracleVssInitLib", errorText);
}

HRESULT OracleVssStopLib(wchar_t** errorText) {
    return not_built(L"OracleVssStopLib", errorText);
}

HRESULT OracleGatherVssInfo(void*, void*, wchar_t**, wchar_t** errorText) {
    return not_built(L"OracleGatherVssInfo", errorText);
}

HRESULT OracleShouldSkipVssWriter(const wchar_t*, bool*, wchar_t** errorText) {
    return not_built(L"OracleShouldSkipVssWriter", errorText);
}

HRESULT OracleCheckVssFunctionality(bool*, wchar_t** errorText) {
    return not_built(L"OracleCheckVssFunctionality", errorText);
}

void OracleLibStrFree(wchar_t* text) {
    std::free(text);
}

HRESULT OracleExploreInstances(bool, const wchar_t*, const wchar_t*, const wchar_t*, wchar_t**,
                               wchar_t** errorText) {
    return not_built(L"OracleExploreInstances", errorText);
}

HRESULT OracleBackupLogs(const wchar_t*, const wchar_t*, const wchar_t*, const wchar_t*, const wchar_t*,
                         const wchar_t*, wchar_t**, wchar_t** errorText) {
    return not_built(L"OracleBackupLogs", errorText);
}

HRESULT OracleEnumLogs(wchar_t**, wchar_t** errorText) {
    return not_built(L"OracleEnumLogs", errorText);
}

HRESULT OraclePrepareDbsForBackup(const wchar_t*, const wchar_t*, const wchar_t*, const wchar_t*,
                                  const wchar_t*, const wchar_t*, wchar_t**, wchar_t** errorText) {
    return not_built(L"OraclePrepareDbsForBackup", errorText);
}

HRESULT OracleFinishDbsBackup(const wchar_t*, const wchar_t*, const wchar_t*, wchar_t** errorText) {
    return not_built(L"OracleFinishDbsBackup", errorText);
}

HRESULT OracleDeleteLogsByTime(const wchar_t*, const wchar_t*, int32_t, const wchar_t*, const wchar_t*,
                               wchar_t** errorText) {
    return not_built(L"OracleDeleteLogsByTime", errorText);
}

HRESULT OracleDeleteLogsBySize(const wchar_t*, const wchar_t*, uint64_t, const wchar_t*, const wchar_t*,
                               wchar_t** errorText) {
    return not_built(L"OracleDeleteLogsBySize", errorText);
}

HRESULT OracleRemoveLogsInTemp(const wchar_t*, wchar_t** errorText) {
    return not_built(L"OracleRemoveLogsInTemp", errorText);
}

HRESULT OracleIsRestoreRequired(bool*, wchar_t** errorText) {
    return not_built(L"OracleIsRestoreRequired", errorText);
}

HRESULT OracleDoRestore(wchar_t** errorText) {
    return not_built(L"OracleDoRestore", errorText);
}

HRESULT OracleGetLogsFolder(wchar_t**, wchar_t** errorText) {
    return not_built(L"OracleGetLogsFolder", errorText);
}

HRESULT OracleTest(void*, void*, const wchar_t*, wchar_t** errorText) {
    return not_built(L"OracleTest", errorText);
}

}  // extern "C"
