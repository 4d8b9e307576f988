#pragma once

#include <windows.h>

#include <cstdint>
#include <cwchar>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "common/win/access.h"
#include "common/win/handle.h"

namespace win {

// A kernel handle shared between owners, closed when the last one goes.
using shared_handle_t = std::shared_ptr<void>;
shared_handle_t make_shared_handle(HANDLE handle);

// The result of a logon: a primary token and the profile loaded for it, if
// any. The profile is unloaded before its token is closed.
class CAccessToken {
public:
    CAccessToken() = default;
    ~CAccessToken();

    // Takes ownership of a token, releasing the one held before.
    void attach(HANDLE token) noexcept;
    void attach_profile(HANDLE profile) noexcept;
    HANDLE handle() const { return token_.get(); }

private:
    void unload_profile() noexcept;

    unique_token_t token_;
    HANDLE profile_ = nullptr;
};

// The system call behind logon_user, replaceable so that the argument forms can
// be checked where no real logon is possible.
class ILogonApi {
public:
    virtual BOOL logon_user(LPCWSTR user, LPCWSTR domain, LPCWSTR password, DWORD logon_type,
                            DWORD provider, PHANDLE token) const = 0;
    virtual ~ILogonApi() = default;
};

const ILogonApi& system_logon_api();

struct user_name_parts_t {
    std::wstring domain;
    std::wstring name;
    bool upn = false;
};

// "domain\name", "name@domain" (a UPN: domain and name stay empty) or a local "name".
user_name_parts_t split_user_name(const std::wstring& user);

// Logs the user on interactively; `protected_password` is base 64 text.
void logon_user(const std::wstring& user, const std::wstring& protected_password,
                CAccessToken& logon, const ILogonApi& api = system_logon_api());
void impersonate(HANDLE token);
void revert() noexcept;

// "\\server\share" of a UNC path (plain or "\\?\UNC\" form), or empty.
std::wstring share_of_path(const std::wstring& path);

enum class impersonation_kind_t { token = 0, security_context = 1, net_use = 2 };

// How many sessions each thread holds on one context, so that nested sessions
// impersonate once and revert once.
class win_thread_use_counter_t {
public:
    void add();
    // Counts down the calling thread's sessions; true when it held the last one.
    bool release();
    uint32_t count() const;

private:
    mutable std::mutex mutex_;
    std::map<uint32_t, uint32_t> counts_;
};

struct net_use_credentials_t {
    std::wstring user;
    std::wstring domain;
    std::wstring password;
};

// The identity bound to one share; `kind` says which field counts.
struct impersonation_context_t {
    impersonation_kind_t kind = impersonation_kind_t::token;
    std::wstring share;
    shared_handle_t token;
    GUID context_id = GUID();
    std::shared_ptr<net_use_credentials_t> credentials;
    std::shared_ptr<win_thread_use_counter_t> users = std::make_shared<win_thread_use_counter_t>();
};

struct share_less_t {
    bool operator()(const std::wstring& a, const std::wstring& b) const
    {
        return _wcsicmp(a.c_str(), b.c_str()) < 0;
    }
};

// Contexts by share name, without regard to case.
class impersonation_tokens_map_t {
public:
    impersonation_tokens_map_t() = default;
    ~impersonation_tokens_map_t();
    impersonation_tokens_map_t(const impersonation_tokens_map_t&) = delete;
    impersonation_tokens_map_t& operator=(const impersonation_tokens_map_t&) = delete;

    // Registers a context under its share, in the form share_of_path gives.
    void insert(const std::shared_ptr<impersonation_context_t>& context);
    std::shared_ptr<impersonation_context_t> find(const std::wstring& share) const;

private:
    mutable std::recursive_mutex mutex_;
    std::map<std::wstring, std::shared_ptr<impersonation_context_t>, share_less_t> contexts_;
};

struct security_context_t;

struct guid_less_t {
    bool operator()(const GUID& a, const GUID& b) const;
};

// SSPI security contexts by id.
class security_contexts_t {
public:
    // Raises "Context '...' not found." for an unknown id.
    std::shared_ptr<security_context_t> get(const GUID& id) const;
    std::shared_ptr<security_context_t> find(const GUID& id) const;

private:
    mutable std::recursive_mutex mutex_;
    std::map<GUID, std::shared_ptr<security_context_t>, guid_less_t> contexts_;
};

// Runs the calling thread under the identity of a context for its lifetime.
// A session without a context does nothing.
class win_impersonation_session_t {
public:
    win_impersonation_session_t() = default;
    explicit win_impersonation_session_t(std::shared_ptr<impersonation_context_t> context);
    ~win_impersonation_session_t();
    win_impersonation_session_t(const win_impersonation_session_t&) = delete;
    win_impersonation_session_t& operator=(const win_impersonation_session_t&) = delete;

    bool active() const { return active_; }
    const std::shared_ptr<impersonation_context_t>& context() const { return context_; }

private:
    void start();
    void start_token();
    void start_security_context();
    void start_net_use();
    void end();

    std::shared_ptr<impersonation_context_t> context_;
    shared_handle_t thread_token_;
    bool active_ = false;
};

// Network connections of the local machine.
void log_net_use_state(const std::wstring& share) noexcept;
bool net_use_exists(const std::wstring& share);
void net_use_add(const std::wstring& share, const net_use_credentials_t& credentials);
void net_use_del(const std::wstring& share);

} // namespace win
