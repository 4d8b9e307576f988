#pragma once

#include <windows.h>

#include <string>

namespace host {

std::wstring Utf8ToWide(const std::string& text);
std::string WideToUtf8(const std::wstring& text);

// The system's text for a Win32 error code, with the code.
std::string SystemMessage(DWORD code);

// Whether the standard handle `stdHandle` (STD_INPUT_HANDLE, ...) is a console.
bool IsConsole(DWORD stdHandle);

// Writes `text` to a standard handle: as it is to a console, as UTF-8 to a file or pipe.
void Write(DWORD stdHandle, const std::wstring& text);

// Reads one line from the console on standard input with its echo turned off,
// after `prompt` on standard error.
std::wstring ReadHiddenLine(const std::wstring& prompt);

// The bytes of standard input up to its end.
std::string ReadStandardInput();

} // namespace host
