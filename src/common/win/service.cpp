#include "common/win/service.h"

#include <stdexcept>

#include "common/exc/exc.h"
#include "common/strings/strings.h"
#include "common/win/last_error.h"

namespace win {

win_scm_t::win_scm_t() : host_(L"localhost")
{
    handle_.reset(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!handle_)
        throw_last_error("Cannot connect to service control manager. Host: '%1'.",
                         [this] { return util::wide_to_ansi_safe(host_); });
}

win_svc_t::win_svc_t(std::shared_ptr<win_scm_t> scm, const wchar_t* name) : scm_(std::move(scm))
{
    if (name == nullptr)
        throw std::invalid_argument("Bad argument: pszServiceName");
    name_ = name;
    handle_.reset(OpenServiceW(scm_->handle(), name, GENERIC_ALL));
    if (!handle_)
        throw_last_error("Failed to open service '%1'. %2",
                         [this] { return util::wide_to_ansi_safe(name_); }, "");
}

DWORD win_svc_t::query_state() const
{
    if (!handle_)
        throw std::logic_error("Bad state: service not opened or created");
    SERVICE_STATUS status = {};
    if (!QueryServiceStatus(handle_.get(), &status))
        throw_last_error("Failed to query state of the service '%1'. %2",
                         [this] { return util::wide_to_ansi_safe(name_); }, "");
    return status.dwCurrentState;
}

} // namespace win
