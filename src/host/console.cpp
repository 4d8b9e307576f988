#include "host/console.h"

#include <stdexcept>

namespace host {

std::wstring Utf8ToWide(const std::string& text)
{
    if (text.empty())
        return std::wstring();
    const int size = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    std::wstring wide(static_cast<size_t>(size), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), &wide[0], size);
    return wide;
}

std::string WideToUtf8(const std::wstring& text)
{
    if (text.empty())
        return std::string();
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0,
                                         nullptr, nullptr);
    std::string bytes(static_cast<size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), &bytes[0], size, nullptr, nullptr);
    return bytes;
}

std::string SystemMessage(DWORD code)
{
    wchar_t* buffer = nullptr;
    const DWORD length = FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code,
        0, reinterpret_cast<wchar_t*>(&buffer), 0, nullptr);
    std::wstring message(buffer != nullptr ? buffer : L"", length);
    LocalFree(buffer);
    while (!message.empty() && (message.back() == L'\n' || message.back() == L'\r' || message.back() == L' '))
        message.pop_back();
    return WideToUtf8(message) + " (error " + std::to_string(code) + ")";
}

bool IsConsole(DWORD stdHandle)
{
    DWORD mode = 0;
    return GetConsoleMode(GetStdHandle(stdHandle), &mode) != 0;
}

void Write(DWORD stdHandle, const std::wstring& text)
{
    HANDLE handle = GetStdHandle(stdHandle);
    DWORD written = 0;
    if (IsConsole(stdHandle)) {
        WriteConsoleW(handle, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
        return;
    }
    const std::string bytes = WideToUtf8(text);
    WriteFile(handle, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
}

namespace {

// Turns the console's echo off for its life and puts the mode back.
class CEchoOff {
public:
    explicit CEchoOff(HANDLE input) : input_(input)
    {
        if (!GetConsoleMode(input_, &mode_))
            throw std::runtime_error("Cannot read the console mode: " + SystemMessage(GetLastError()));
        SetConsoleMode(input_, (mode_ & ~static_cast<DWORD>(ENABLE_ECHO_INPUT)) | ENABLE_LINE_INPUT);
    }
    ~CEchoOff() { SetConsoleMode(input_, mode_); }
    CEchoOff(const CEchoOff&) = delete;
    CEchoOff& operator=(const CEchoOff&) = delete;

private:
    HANDLE input_;
    DWORD mode_ = 0;
};

} // namespace

std::wstring ReadHiddenLine(const std::wstring& prompt)
{
    Write(STD_ERROR_HANDLE, prompt);
    HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    std::wstring line;
    {
        const CEchoOff echoOff(input);
        wchar_t buffer[256];
        DWORD count = 0;
        while (ReadConsoleW(input, buffer, 256, &count, nullptr) && count > 0) {
            line.append(buffer, count);
            if (line.back() == L'\n')
                break;
        }
    }
    Write(STD_ERROR_HANDLE, L"\n");
    while (!line.empty() && (line.back() == L'\n' || line.back() == L'\r'))
        line.pop_back();
    return line;
}

std::string ReadStandardInput()
{
    HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    std::string bytes;
    char buffer[65536];
    DWORD count = 0;
    while (ReadFile(input, buffer, sizeof(buffer), &count, nullptr) && count > 0)
        bytes.append(buffer, count);
    return bytes;
}

} // namespace host
