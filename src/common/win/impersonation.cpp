#include "common/win/impersonation.h"

#define SECURITY_WIN32
#include <lm.h>
#include <security.h>
#include <userenv.h>

#include <cstring>
#include <vector>

#include "common/ctx/lib_ctx.h"
#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "common/win/file.h"
#include "common/win/last_error.h"

namespace win {

struct security_context_t {
    CtxtHandle handle;
};

namespace {

class system_logon_api_t : public ILogonApi {
public:
    BOOL logon_user(LPCWSTR user, LPCWSTR domain, LPCWSTR password, DWORD logon_type,
                    DWORD provider, PHANDLE token) const override
    {
        return LogonUserW(user, domain, password, logon_type, provider, token);
    }
};

bool is_valid_handle(HANDLE handle)
{
    return handle != nullptr && handle != INVALID_HANDLE_VALUE;
}

std::shared_ptr<impersonation_context_t> find_context(const std::wstring& path)
{
    const std::wstring share = share_of_path(path);
    if (share.empty())
        return nullptr;
    std::shared_ptr<impersonation_context_t> context = util::get_lib_ctx()->tokens.find(share);
    if (context)
        logging::log().info("Found impersonation context for share [%1].",
                            util::wide_to_ansi_safe(share));
    else
        logging::log().info("No impersonation context found for path [%1].",
                            util::wide_to_ansi_safe(share));
    return context;
}

std::shared_ptr<win_impersonation_session_t> start_session(
    const std::shared_ptr<impersonation_context_t>& context, const std::string& path)
{
    if (!context)
        return std::make_shared<win_impersonation_session_t>();
    logging::log().info(
        "File operations for path '%1' will be performed under impersonation context.", path);
    return std::make_shared<win_impersonation_session_t>(context);
}

// A failed security-context call raises `text` with its status in hex.
void check_security_status(SECURITY_STATUS status, const char* text)
{
    if (status != 0)
        throw exc::runtime_exc_t(text, util::hex_str(static_cast<int32_t>(status)));
}

bool is_zero(const GUID& id)
{
    static const GUID zero = GUID();
    return std::memcmp(&id, &zero, sizeof(GUID)) == 0;
}

USE_INFO_2* query_net_use(const std::wstring& share, NET_API_STATUS& status)
{
    LPBYTE buffer = nullptr;
    std::wstring name = share;
    status = NetUseGetInfo(nullptr, &name[0], 2, &buffer);
    return status == NERR_Success ? reinterpret_cast<USE_INFO_2*>(buffer) : nullptr;
}

} // namespace

shared_handle_t make_shared_handle(HANDLE handle)
{
    // The shared pointer holds the owner and hands out the raw handle.
    const auto owner = std::make_shared<unique_handle_t>(handle);
    return shared_handle_t(owner, owner->get());
}

CAccessToken::~CAccessToken()
{
    unload_profile();
}

void CAccessToken::attach(HANDLE token) noexcept
{
    unload_profile();
    token_.reset(token);
}

void CAccessToken::attach_profile(HANDLE profile) noexcept
{
    profile_ = profile;
}

void CAccessToken::unload_profile() noexcept
{
    if (profile_ != nullptr)
        UnloadUserProfile(token_.get(), profile_);
    profile_ = nullptr;
}

const ILogonApi& system_logon_api()
{
    static const system_logon_api_t api;
    return api;
}

user_name_parts_t split_user_name(const std::wstring& user)
{
    user_name_parts_t parts;
    const size_t slash = user.find(L'\\');
    if (slash != std::wstring::npos) {
        parts.domain = user.substr(0, slash);
        parts.name = user.substr(slash + 1);
    } else if (user.find(L'@') != std::wstring::npos) {
        parts.upn = true;
    } else {
        parts.domain = L".";
        parts.name = user;
    }
    return parts;
}

void logon_user(const std::wstring& user, const std::wstring& protected_password,
                CAccessToken& logon, const ILogonApi& api)
{
    const std::wstring password =
        util::ansi_to_wide(util::base64_decode(util::wide_to_ansi(protected_password)));
    const user_name_parts_t parts = split_user_name(user);
    const auto user_text = [&user] { return util::wide_to_ansi_safe(user); };
    unique_token_t token;
    if (parts.upn) {
        if (!api.logon_user(user.c_str(), nullptr, password.c_str(), LOGON32_LOGON_INTERACTIVE,
                            LOGON32_PROVIDER_DEFAULT, token.put()))
            throw_last_error("Failed to logon UPN user [%1]", user_text);
    } else {
        if (!api.logon_user(parts.name.c_str(), parts.domain.c_str(), password.c_str(),
                            LOGON32_LOGON_INTERACTIVE, LOGON32_PROVIDER_DEFAULT, token.put()))
            throw_last_error("Failed to logon user [%1]", user_text);
    }
    logon.attach(token.release());
}

void impersonate(HANDLE token)
{
    if (token == nullptr)
        throw exc::runtime_exc_t("User credentials not specified or logon error");
    if (!ImpersonateLoggedOnUser(token))
        throw_last_error("Failed to impersonate logged on user");
}

void revert() noexcept
{
    RevertToSelf();
}

std::wstring share_of_path(const std::wstring& path)
{
    if (path.compare(0, 2, L"\\\\") != 0)
        return std::wstring();
    std::vector<std::wstring> parts;
    split_path_parts(path.substr(2), parts);
    if (parts.size() < 2)
        return std::wstring();
    if (parts[0] != L"?")
        return L"\\\\" + parts[0] + L"\\" + parts[1];
    if (parts.size() < 3)
        return std::wstring();
    if (parts[1] != L"UNC")
        return L"\\\\" + parts[1] + L"\\" + parts[2];
    if (parts.size() > 3)
        return L"\\\\" + parts[2] + L"\\" + parts[3];
    return std::wstring();
}

void win_thread_use_counter_t::add()
{
    std::lock_guard<std::mutex> lock(mutex_);
    ++counts_[GetCurrentThreadId()];
}

bool win_thread_use_counter_t::release()
{
    std::lock_guard<std::mutex> lock(mutex_);
    const auto found = counts_.find(GetCurrentThreadId());
    if (found == counts_.end())
        return true;
    if (found->second > 1) {
        --found->second;
        return false;
    }
    counts_.erase(found);
    return true;
}

uint32_t win_thread_use_counter_t::count() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    const auto found = counts_.find(GetCurrentThreadId());
    return found == counts_.end() ? 0 : found->second;
}

impersonation_tokens_map_t::~impersonation_tokens_map_t()
{
    try {
        std::lock_guard<std::recursive_mutex> lock(mutex_);
        contexts_.clear();
    } catch (const std::exception& e) {
        logging::log().error_exc("Failed to destroy WinImpersonationTokensMap", e);
    }
}

void impersonation_tokens_map_t::insert(const std::shared_ptr<impersonation_context_t>& context)
{
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    contexts_[context->share] = context;
}

std::shared_ptr<impersonation_context_t> impersonation_tokens_map_t::find(
    const std::wstring& share) const
{
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    const auto found = contexts_.find(share);
    return found == contexts_.end() ? nullptr : found->second;
}

bool guid_less_t::operator()(const GUID& a, const GUID& b) const
{
    return std::memcmp(&a, &b, sizeof(GUID)) < 0;
}

std::shared_ptr<security_context_t> security_contexts_t::get(const GUID& id) const
{
    std::shared_ptr<security_context_t> context = find(id);
    if (!context)
        throw exc::runtime_exc_t("Context '%1' not found.",
                                 util::wide_to_ansi_safe(util::guid_to_str(id)));
    return context;
}

std::shared_ptr<security_context_t> security_contexts_t::find(const GUID& id) const
{
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    const auto found = contexts_.find(id);
    return found == contexts_.end() ? nullptr : found->second;
}

win_impersonation_session_t::win_impersonation_session_t(
    std::shared_ptr<impersonation_context_t> context)
    : context_(std::move(context))
{
    try {
        start();
    } catch (const std::exception& e) {
        exc::throw_nested_trace("Failed to impersonate user.", e);
    }
}

win_impersonation_session_t::~win_impersonation_session_t()
{
    if (!context_ || !active_)
        return;
    try {
        try {
            end();
        } catch (const std::exception& e) {
            exc::throw_nested_trace("Impersonation session failed to revert to self.", e);
        }
    } catch (const std::exception& e) {
        logging::log().error_exc(e);
    }
}

void win_impersonation_session_t::start()
{
    switch (context_->kind) {
    case impersonation_kind_t::token:
        start_token();
        break;
    case impersonation_kind_t::security_context:
        start_security_context();
        break;
    case impersonation_kind_t::net_use:
        start_net_use();
        break;
    }
}

void win_impersonation_session_t::start_token()
{
    if (!is_valid_handle(context_->token.get()))
        return;
    unique_token_t duplicate;
    if (!DuplicateToken(context_->token.get(), SecurityImpersonation, duplicate.put()))
        return;
    const HANDLE thread_token = duplicate.get();
    thread_token_ = make_shared_handle(duplicate.release());
    if (!ImpersonateLoggedOnUser(thread_token)) {
        const DWORD code = GetLastError();
        logging::log().error_exc("Failed to impersonate thread.", exc::win_sys_exc_t(code));
        return;
    }
    active_ = true;
    context_->users->add();
}

void win_impersonation_session_t::start_security_context()
{
    if (is_zero(context_->context_id))
        return;
    std::shared_ptr<security_context_t> entry =
        util::get_lib_ctx()->security_contexts.get(context_->context_id);
    logging::log_operation_t operation(logging::log(), "Impersonating security context.");
    check_security_status(ImpersonateSecurityContext(&entry->handle),
                          "Security context failed to impersonate: %1.");
    operation.ok();
    active_ = true;
    context_->users->add();
}

void win_impersonation_session_t::start_net_use()
{
    if (!context_->credentials)
        return;
    log_net_use_state(context_->share);
    if (!net_use_exists(context_->share))
        net_use_add(context_->share, *context_->credentials);
}

void win_impersonation_session_t::end()
{
    const bool last = context_->users->release();
    switch (context_->kind) {
    case impersonation_kind_t::token:
        if (thread_token_ && is_valid_handle(thread_token_.get()) && last)
            RevertToSelf();
        break;
    case impersonation_kind_t::security_context:
        if (!is_zero(context_->context_id) && last) {
            std::shared_ptr<security_context_t> entry =
                util::get_lib_ctx()->security_contexts.find(context_->context_id);
            if (!entry)
                throw exc::runtime_exc_t("Security context is null.");
            logging::log_operation_t operation(logging::log(), "Reverting security context.");
            check_security_status(RevertSecurityContext(&entry->handle),
                                  "Security context failed to revert to self: %1.");
            operation.ok();
        }
        break;
    case impersonation_kind_t::net_use:
        if (context_->credentials && last) {
            log_net_use_state(context_->share);
            if (net_use_exists(context_->share))
                net_use_del(context_->share);
        }
        break;
    }
}

std::shared_ptr<win_impersonation_session_t> get_session(const std::wstring& path)
{
    if (!is_network_path(path))
        return std::make_shared<win_impersonation_session_t>();
    return start_session(find_context(path), util::wide_to_ansi_safe(path));
}

std::shared_ptr<win_impersonation_session_t> get_session(const std::string& path)
{
    if (!is_network_path(path))
        return std::make_shared<win_impersonation_session_t>();
    std::shared_ptr<impersonation_context_t> context;
    try {
        context = find_context(util::ansi_to_wide(path));
    } catch (const std::exception& e) {
        logging::log().error_exc(e);
    }
    if (!context) {
        try {
            context = find_context(util::utf8_to_wide(path));
        } catch (const std::exception& e) {
            logging::log().error_exc(e);
        }
    }
    return start_session(context, path);
}

void check_access(const std::wstring& path)
{
    util::get_lib_ctx()->check_access(path);
}

void check_access(const std::string& utf8_path)
{
    util::get_lib_ctx()->check_access(util::utf8_to_wide(utf8_path));
}

void log_net_use_state(const std::wstring& share) noexcept
{
    try {
        NET_API_STATUS status = 0;
        USE_INFO_2* info = query_net_use(share, status);
        const auto free_info = scope_exit([info] {
            if (info != nullptr)
                NetApiBufferFree(info);
        });
        if (info != nullptr) {
            logging::log().info("Share: '%1', Status: '%2', RefCount: '%3', UseCount: '%4'.",
                                util::wide_to_ansi_safe(info->ui2_remote),
                                util::int_to_str(static_cast<uint32_t>(info->ui2_status)),
                                util::int_to_str(static_cast<uint32_t>(info->ui2_refcount)),
                                util::int_to_str(static_cast<uint32_t>(info->ui2_usecount)));
        } else if (status == NERR_UseNotFound) {
            logging::log().info("Connection to share '%1' not found.",
                                util::wide_to_ansi_safe(share));
        } else {
            logging::log().error_exc(
                "Failed to get information about connection to share '" +
                    util::wide_to_ansi_safe(share) + "'",
                exc::win_sys_exc_t(static_cast<uint32_t>(status)));
        }
    } catch (const std::exception& e) {
        logging::log().error_exc(e);
    }
}

bool net_use_exists(const std::wstring& share)
{
    const std::string name = util::wide_to_ansi_safe(share);
    logging::log_operation_t operation(
        logging::log(),
        util::format_msg("Checking that NetUse connection to share '%1' is exist.", name));
    NET_API_STATUS status = 0;
    USE_INFO_2* info = query_net_use(share, status);
    if (info != nullptr)
        NetApiBufferFree(info);
    if (status != NERR_Success && status != NERR_UseNotFound)
        throw exc::win_sys_exc_t("Failed to get information about connection to share '%1'", name,
                                 static_cast<uint32_t>(status));
    operation.ok();
    return status == NERR_Success;
}

void net_use_add(const std::wstring& share, const net_use_credentials_t& credentials)
{
    const std::string name = util::wide_to_ansi_safe(share);
    logging::log_operation_t operation(
        logging::log(), util::format_msg("Creating NetUse connection to share '%1'", name));
    std::wstring local;
    std::wstring remote = share;
    std::wstring password = credentials.password;
    std::wstring user = credentials.user;
    std::wstring domain = credentials.domain;
    USE_INFO_2 info = {};
    info.ui2_local = &local[0];
    info.ui2_remote = &remote[0];
    info.ui2_password = &password[0];
    info.ui2_username = &user[0];
    info.ui2_domainname = &domain[0];
    info.ui2_asg_type = 0;
    const NET_API_STATUS status =
        NetUseAdd(nullptr, 2, reinterpret_cast<LPBYTE>(&info), nullptr);
    if (status != NERR_Success)
        throw exc::win_sys_exc_t("Failed to create NetUse connection to share '%1'", name,
                                 static_cast<uint32_t>(status));
    operation.ok();
}

void net_use_del(const std::wstring& share)
{
    const std::string name = util::wide_to_ansi_safe(share);
    logging::log_operation_t operation(
        logging::log(), util::format_msg("Deleting NetUse connection to share '%1'.", name));
    std::wstring remote = share;
    const NET_API_STATUS status = NetUseDel(nullptr, &remote[0], 0);
    if (status != NERR_Success)
        throw exc::win_sys_exc_t("Failed to delete connection to share '%1'", name,
                                 static_cast<uint32_t>(status));
    operation.ok();
}

} // namespace win
