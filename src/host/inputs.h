#pragma once

#include <windows.h>

#include <stdexcept>
#include <string>

namespace host {

// A mistake on the command line or an input that cannot be had: exit code 2.
class CUsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A password, overwritten when it goes.
class CSecret {
public:
    CSecret() = default;
    explicit CSecret(std::wstring text) : text_(std::move(text)) {}
    ~CSecret() { SecureZeroMemory(&text_[0], text_.size() * sizeof(wchar_t)); }
    CSecret(const CSecret&) = delete;
    CSecret& operator=(const CSecret&) = delete;

    const wchar_t* c_str() const { return text_.c_str(); }

private:
    std::wstring text_;
};

// The document in the file at `path` (UTF-8, a byte order mark is dropped), or on
// standard input for "-"; empty for an empty `path`. `option` names it in the error.
std::wstring ReadDocument(const std::string& path, const char* option);

// The password for `login`: from the environment variable `variable` when it is set,
// else typed at the console without echo. Empty for an empty `login`.
std::wstring PasswordFor(const std::string& login, const wchar_t* variable, const char* option);

// Where a document goes: the file at `path`, created at once so that a call whose
// result could not be kept is never made, or standard output for an empty `path`.
class COutput {
public:
    explicit COutput(const std::string& path);
    ~COutput();
    COutput(const COutput&) = delete;
    COutput& operator=(const COutput&) = delete;

    // Writes the document; on standard output a line break ends it.
    void Put(const std::wstring& document) const;
    // The call failed: a file made for its result is removed.
    void Discard();

private:
    std::wstring path_;
    HANDLE file_ = INVALID_HANDLE_VALUE;
};

} // namespace host
