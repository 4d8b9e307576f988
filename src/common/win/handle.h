#pragma once

#include <utility>

#include <windows.h>

namespace win {

// Sole owner of one handle of a kind: `Close` releases it, and a null value
// (and INVALID_HANDLE_VALUE where `MinusOneIsEmpty` says so) holds nothing.
// Each kind is one alias below, so no function closes a handle by hand.
template <typename Pointer, auto Close, bool MinusOneIsEmpty = false>
class unique_any_t {
public:
    unique_any_t() noexcept = default;
    explicit unique_any_t(Pointer value) noexcept : value_(value) {}
    ~unique_any_t() { reset(); }
    unique_any_t(unique_any_t&& other) noexcept : value_(other.release()) {}
    unique_any_t& operator=(unique_any_t&& other) noexcept
    {
        if (this != &other)
            reset(other.release());
        return *this;
    }
    unique_any_t(const unique_any_t&) = delete;
    unique_any_t& operator=(const unique_any_t&) = delete;

    Pointer get() const noexcept { return value_; }
    bool valid() const noexcept
    {
        if (value_ == nullptr)
            return false;
        if constexpr (MinusOneIsEmpty)
            return value_ != reinterpret_cast<Pointer>(INVALID_HANDLE_VALUE);
        return true;
    }
    explicit operator bool() const noexcept { return valid(); }

    Pointer release() noexcept { return std::exchange(value_, nullptr); }
    void reset(Pointer value = nullptr) noexcept
    {
        if (valid())
            Close(value_);
        value_ = value;
    }
    // The address of the held value, emptied first, for a call that fills it.
    Pointer* put() noexcept
    {
        reset();
        return &value_;
    }

private:
    Pointer value_ = nullptr;
};

// A kernel object: a file, a thread, a process, an event.
using unique_handle_t = unique_any_t<HANDLE, &::CloseHandle, true>;
// An access token of a logon or of a thread.
using unique_token_t = unique_any_t<HANDLE, &::CloseHandle, true>;
using unique_hkey_t = unique_any_t<HKEY, &::RegCloseKey>;
// A connection to the service control manager, or a service opened through one.
using unique_schandle_t = unique_any_t<SC_HANDLE, &::CloseServiceHandle>;
// A module this code loaded and so must free.
using unique_hmodule_t = unique_any_t<HMODULE, &::FreeLibrary>;
// A listing of FindFirstFile.
using unique_find_t = unique_any_t<HANDLE, &::FindClose, true>;
// A buffer the system allocated for us with LocalAlloc.
template <typename Pointer>
using unique_local_t = unique_any_t<Pointer, &::LocalFree>;

// Runs a clean-up when the scope ends, unless dismissed: for the rare one-off
// release that no owner type covers.
template <typename Cleanup>
class scope_exit_t {
public:
    explicit scope_exit_t(Cleanup cleanup) noexcept : cleanup_(std::move(cleanup)) {}
    ~scope_exit_t()
    {
        if (armed_)
            cleanup_();
    }
    scope_exit_t(const scope_exit_t&) = delete;
    scope_exit_t& operator=(const scope_exit_t&) = delete;

    void dismiss() noexcept { armed_ = false; }

private:
    Cleanup cleanup_;
    bool armed_ = true;
};

template <typename Cleanup>
scope_exit_t<Cleanup> scope_exit(Cleanup cleanup) noexcept
{
    return scope_exit_t<Cleanup>(std::move(cleanup));
}

} // namespace win
