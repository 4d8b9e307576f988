#include "support/kept_documents.h"

#include <windows.h>

#include <atomic>
#include <fstream>
#include <stdexcept>

#include "support/temp_folder.h"

namespace test {

namespace {

std::atomic<unsigned> g_document_number{0};

std::wstring documents_folder()
{
    const DWORD size = GetEnvironmentVariableW(L"ORASNAP_TEST_DOCS", nullptr, 0);
    if (size == 0)
        return std::wstring();
    std::wstring folder(size, L'\0');
    folder.resize(GetEnvironmentVariableW(L"ORASNAP_TEST_DOCS", &folder[0], size));
    return folder;
}

} // namespace

void keep_document(const std::string& utf8Text)
{
    const size_t start = utf8Text.find_first_not_of(" \t\r\n");
    if (start == std::string::npos || utf8Text[start] != '<')
        return;
    const std::wstring folder = documents_folder();
    if (folder.empty())
        return;
    CreateDirectoryW(folder.c_str(), nullptr);
    // Test executables run side by side: the process id keeps their names apart.
    const std::wstring path = folder + L"\\" + std::to_wstring(GetCurrentProcessId()) + L"-" +
                              std::to_wstring(++g_document_number) + L".xml";
    std::ofstream file(path.c_str(), std::ios::binary);
    if (!(file << utf8Text))
        throw std::runtime_error("keep_document: cannot write into ORASNAP_TEST_DOCS");
}

void keep_document(const std::wstring& text)
{
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()),
                                         nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), &utf8[0], size,
                        nullptr, nullptr);
    keep_document(utf8);
}

std::string read_document_file(const std::wstring& path)
{
    std::string text = read_file_text(path);
    keep_document(text);
    return text;
}

} // namespace test
