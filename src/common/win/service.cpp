#include "common/win/service.h"

#include <stdexcept>

#include "common/exc/exc.h"
#include "common/strings/strings.h"

namespace win {

win_scm_t::win_scm_t() : host_(L"localhost")
{
    handle_ = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    if (handle_ == nullptr) {
        const DWORD code = GetLastError();
        throw exc::win_sys_exc_t("Cannot connect to service control manager. Host: '%1'.",
                                 util::wide_to_ansi_safe(host_), code);
    }
}

win_scm_t::~win_scm_t()
{
    CloseServiceHandle(handle_);
}

win_svc_t::win_svc_t(std::shared_ptr<win_scm_t> scm, const wchar_t* name) : scm_(std::move(scm))
{
    if (name == nullptr)
        throw std::invalid_argument("Bad argument: pszServiceName");
    name_ = name;
    handle_ = OpenServiceW(scm_->handle(), name, GENERIC_ALL);
    if (handle_ == nullptr) {
        const DWORD code = GetLastError();
        throw exc::win_sys_exc_t("Failed to open service '%1'. %2", util::wide_to_ansi_safe(name_),
                                 std::string(), code);
    }
}

win_svc_t::win_svc_t(win_svc_t&& other) noexcept
    : scm_(std::move(other.scm_)), handle_(other.handle_), name_(std::move(other.name_))
{
    other.handle_ = nullptr;
}

win_svc_t::~win_svc_t()
{
    if (handle_ != nullptr)
        CloseServiceHandle(handle_);
}

DWORD win_svc_t::query_state() const
{
    if (handle_ == nullptr)
        throw std::logic_error("Bad state: service not opened or created");
    SERVICE_STATUS status = {};
    if (!QueryServiceStatus(handle_, &status)) {
        const DWORD code = GetLastError();
        throw exc::win_sys_exc_t("Failed to query state of the service '%1'. %2",
                                 util::wide_to_ansi_safe(name_), std::string(), code);
    }
    return status.dwCurrentState;
}

} // namespace win
