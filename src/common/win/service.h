#pragma once

#include <memory>
#include <string>

#include <windows.h>

#include "common/win/handle.h"

namespace win {

// A connection to the service control manager of this machine. Only local
// managers are reached, so the failure texts of a service carry no host.
class win_scm_t {
public:
    win_scm_t();

    SC_HANDLE handle() const { return handle_.get(); }
    const std::wstring& host() const { return host_; }

private:
    unique_schandle_t handle_;
    std::wstring host_;
};

// One service, opened through a manager connection, asked for its state.
class win_svc_t {
public:
    win_svc_t(std::shared_ptr<win_scm_t> scm, const wchar_t* name);

    // dwCurrentState of the service: SERVICE_STOPPED, SERVICE_RUNNING, ...
    DWORD query_state() const;

    const std::wstring& name() const { return name_; }

private:
    std::shared_ptr<win_scm_t> scm_;
    unique_schandle_t handle_;
    std::wstring name_;
};

} // namespace win
