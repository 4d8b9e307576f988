#pragma once

#include <memory>
#include <string>

#include <windows.h>

namespace win {

// A connection to the service control manager of this machine. Only local
// managers are reached, so the failure texts of a service carry no host.
class win_scm_t {
public:
    win_scm_t();
    ~win_scm_t();
    win_scm_t(const win_scm_t&) = delete;
    win_scm_t& operator=(const win_scm_t&) = delete;

    SC_HANDLE handle() const { return handle_; }
    const std::wstring& host() const { return host_; }

private:
    SC_HANDLE handle_ = nullptr;
    std::wstring host_;
};

// One service, opened through a manager connection, asked for its state.
class win_svc_t {
public:
    win_svc_t(std::shared_ptr<win_scm_t> scm, const wchar_t* name);
    ~win_svc_t();
    win_svc_t(win_svc_t&& other) noexcept;
    win_svc_t(const win_svc_t&) = delete;
    win_svc_t& operator=(const win_svc_t&) = delete;
    win_svc_t& operator=(win_svc_t&&) = delete;

    // dwCurrentState of the service: SERVICE_STOPPED, SERVICE_RUNNING, ...
    DWORD query_state() const;

    const std::wstring& name() const { return name_; }

private:
    std::shared_ptr<win_scm_t> scm_;
    SC_HANDLE handle_ = nullptr;
    std::wstring name_;
};

} // namespace win
