#include "host/inputs.h"

#include "host/console.h"

namespace host {

namespace {

std::string read_file(const std::string& path, const char* option)
{
    HANDLE file = CreateFileW(Utf8ToWide(path).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        throw CUsageError(std::string("Cannot read the ") + option + " file '" + path +
                          "': " + SystemMessage(GetLastError()));
    std::string bytes;
    char buffer[65536];
    DWORD count = 0;
    BOOL read = TRUE;
    while ((read = ReadFile(file, buffer, sizeof(buffer), &count, nullptr)) && count > 0)
        bytes.append(buffer, count);
    const DWORD error = GetLastError();
    CloseHandle(file);
    if (!read)
        throw CUsageError(std::string("Cannot read the ") + option + " file '" + path + "': " + SystemMessage(error));
    return bytes;
}

std::wstring env_value(const wchar_t* name, bool& isSet)
{
    const DWORD size = GetEnvironmentVariableW(name, nullptr, 0);
    isSet = size > 0;
    if (!isSet)
        return std::wstring();
    std::wstring value(size, L'\0');
    value.resize(GetEnvironmentVariableW(name, &value[0], size));
    return value;
}

} // namespace

std::wstring ReadDocument(const std::string& path, const char* option)
{
    if (path.empty())
        return std::wstring();
    std::string bytes = path == "-" ? ReadStandardInput() : read_file(path, option);
    if (bytes.compare(0, 3, "\xEF\xBB\xBF") == 0)
        bytes.erase(0, 3);
    return Utf8ToWide(bytes);
}

std::wstring PasswordFor(const std::string& login, const wchar_t* variable, const char* option)
{
    if (login.empty())
        return std::wstring();
    bool isSet = false;
    std::wstring password = env_value(variable, isSet);
    if (isSet)
        return password;
    if (!IsConsole(STD_INPUT_HANDLE))
        throw CUsageError(std::string(option) + " " + login + " needs a password: standard input is not a console, " +
                          "so set it in the environment variable " + WideToUtf8(variable));
    return ReadHiddenLine(L"Password for " + Utf8ToWide(login) + L": ");
}

COutput::COutput(const std::string& path) : path_(Utf8ToWide(path))
{
    if (path_.empty())
        return;
    file_ = CreateFileW(path_.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file_ == INVALID_HANDLE_VALUE)
        throw CUsageError("Cannot write the --out file '" + path + "': " + SystemMessage(GetLastError()));
}

COutput::~COutput()
{
    if (file_ != INVALID_HANDLE_VALUE)
        CloseHandle(file_);
}

void COutput::Put(const std::wstring& document) const
{
    if (file_ == INVALID_HANDLE_VALUE) {
        Write(STD_OUTPUT_HANDLE, document.empty() || document.back() != L'\n' ? document + L"\n" : document);
        return;
    }
    const std::string bytes = WideToUtf8(document);
    DWORD written = 0;
    if (!WriteFile(file_, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr))
        throw std::runtime_error("Cannot write the --out file '" + WideToUtf8(path_) +
                                 "': " + SystemMessage(GetLastError()));
}

void COutput::Discard()
{
    if (file_ == INVALID_HANDLE_VALUE)
        return;
    CloseHandle(file_);
    file_ = INVALID_HANDLE_VALUE;
    DeleteFileW(path_.c_str());
}

} // namespace host
