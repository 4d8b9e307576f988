#include "support/temp_folder.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include <windows.h>

namespace test {

namespace {

std::atomic<unsigned> g_folder_number{0};

std::string to_utf8(const std::wstring& text)
{
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()),
                                         nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), &result[0], size,
                        nullptr, nullptr);
    return result;
}

} // namespace

temp_folder_t::temp_folder_t()
{
    wchar_t base[MAX_PATH + 1] = {};
    if (GetTempPathW(MAX_PATH + 1, base) == 0)
        throw std::runtime_error("temp_folder_t: GetTempPathW failed");
    path_ = std::wstring(base) + L"orasnap-test-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
            std::to_wstring(GetTickCount64()) + L"-" + std::to_wstring(++g_folder_number);
    std::filesystem::create_directories(path_);
}

temp_folder_t::~temp_folder_t()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string temp_folder_t::file_utf8(const std::string& name) const
{
    return to_utf8(path_) + "\\" + name;
}

std::string read_file_text(const std::wstring& path)
{
    std::ostringstream text;
    text << std::ifstream(path.c_str(), std::ios::binary).rdbuf();
    return text.str();
}

} // namespace test
