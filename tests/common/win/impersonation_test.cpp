#include <gtest/gtest.h>

#include <windows.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "common/ctx/lib_ctx.h"
#include "common/exc/exc.h"
#include "common/strings/strings.h"
#include "common/win/impersonation.h"
#include "support/capturing_receiver.h"

namespace {

using testing_support::log_capture_t;

// Records what the logon was asked for, and succeeds or fails as told.
class recording_logon_api_t : public win::ILogonApi {
public:
    BOOL logon_user(LPCWSTR user, LPCWSTR domain, LPCWSTR password, DWORD logon_type,
                    DWORD provider, PHANDLE token) const override
    {
        ++calls;
        this->user = user != nullptr ? user : L"<null>";
        this->domain = domain != nullptr ? domain : L"<null>";
        this->password = password;
        this->logon_type = logon_type;
        this->provider = provider;
        if (error != 0) {
            SetLastError(error);
            return FALSE;
        }
        *token = nullptr;
        return TRUE;
    }

    DWORD error = 0;
    mutable int calls = 0;
    mutable std::wstring user;
    mutable std::wstring domain;
    mutable std::wstring password;
    mutable DWORD logon_type = 99;
    mutable DWORD provider = 99;
};

std::wstring protect(const std::string& password)
{
    return util::ansi_to_wide(util::base64_encode(password));
}

bool thread_is_impersonating()
{
    HANDLE token = nullptr;
    if (!OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token))
        return false;
    CloseHandle(token);
    return true;
}

win::shared_handle_t process_token()
{
    HANDLE token = nullptr;
    EXPECT_TRUE(OpenProcessToken(GetCurrentProcess(),
                                 TOKEN_DUPLICATE | TOKEN_QUERY | TOKEN_IMPERSONATE, &token));
    return win::make_shared_handle(token);
}

std::shared_ptr<win::impersonation_context_t> register_token_context(const std::wstring& share,
                                                                     win::shared_handle_t token)
{
    auto context = std::make_shared<win::impersonation_context_t>();
    context->kind = win::impersonation_kind_t::token;
    context->share = share;
    context->token = std::move(token);
    util::get_lib_ctx()->tokens.insert(context);
    return context;
}

bool contains(const std::vector<std::string>& lines, const std::string& line)
{
    for (const auto& l : lines)
        if (l == line)
            return true;
    return false;
}

} // namespace

TEST(share_of_path, plain_and_long_unc_forms_name_the_same_share)
{
    EXPECT_EQ(L"\\\\server\\share", win::share_of_path(L"\\\\server\\share\\dir\\f.txt"));
    EXPECT_EQ(L"\\\\server\\share", win::share_of_path(L"\\\\?\\UNC\\server\\share\\dir\\f.txt"));
    EXPECT_EQ(L"\\\\server\\share", win::share_of_path(L"\\\\server/share/"));
    EXPECT_EQ(L"\\\\server\\share", win::share_of_path(L"\\\\\\server\\\\share"));
    EXPECT_EQ(L"\\\\host\\c$", win::share_of_path(L"\\\\?\\host\\c$\\x"));
}

TEST(share_of_path, local_and_incomplete_paths_have_no_share)
{
    EXPECT_EQ(L"", win::share_of_path(L"C:\\x"));
    EXPECT_EQ(L"", win::share_of_path(L"\\\\server"));
    EXPECT_EQ(L"", win::share_of_path(L"\\\\server\\"));
    EXPECT_EQ(L"", win::share_of_path(L"//server/share"));
    EXPECT_EQ(L"", win::share_of_path(L"\\\\?\\C:"));
    EXPECT_EQ(L"", win::share_of_path(L"\\\\?\\UNC\\server"));
}

TEST(split_user_name, domain_upn_and_local_forms)
{
    const auto domain = win::split_user_name(L"CORP\\bob");
    EXPECT_FALSE(domain.upn);
    EXPECT_EQ(L"CORP", domain.domain);
    EXPECT_EQ(L"bob", domain.name);

    const auto upn = win::split_user_name(L"bob@corp.example");
    EXPECT_TRUE(upn.upn);
    EXPECT_EQ(L"", upn.domain);
    EXPECT_EQ(L"", upn.name);

    const auto local = win::split_user_name(L"bob");
    EXPECT_FALSE(local.upn);
    EXPECT_EQ(L".", local.domain);
    EXPECT_EQ(L"bob", local.name);
}

TEST(split_user_name, a_name_with_backslash_and_at_sign_is_not_a_upn)
{
    const auto parts = win::split_user_name(L"CORP\\bob@corp.example");
    EXPECT_FALSE(parts.upn);
    EXPECT_EQ(L"CORP", parts.domain);
    EXPECT_EQ(L"bob@corp.example", parts.name);
}

TEST(logon_user, logs_on_interactively_with_domain_and_decoded_password)
{
    recording_logon_api_t api;
    win::CAccessToken token;
    win::logon_user(L"CORP\\bob", protect("s3cr\xe9t"), token, api);
    EXPECT_EQ(1, api.calls);
    EXPECT_EQ(L"bob", api.user);
    EXPECT_EQ(L"CORP", api.domain);
    EXPECT_EQ(L"s3cr\u00e9t", api.password);
    EXPECT_EQ(2u, api.logon_type);
    EXPECT_EQ(0u, api.provider);
}

TEST(logon_user, upn_logs_on_with_whole_name_and_null_domain)
{
    recording_logon_api_t api;
    win::CAccessToken token;
    win::logon_user(L"bob@corp.example", protect("pw"), token, api);
    EXPECT_EQ(L"bob@corp.example", api.user);
    EXPECT_EQ(L"<null>", api.domain);
    EXPECT_EQ(L"pw", api.password);
    EXPECT_EQ(2u, api.logon_type);
    EXPECT_EQ(0u, api.provider);
}

TEST(logon_user, plain_name_logs_on_with_local_domain)
{
    recording_logon_api_t api;
    win::CAccessToken token;
    win::logon_user(L"bob", protect(""), token, api);
    EXPECT_EQ(L"bob", api.user);
    EXPECT_EQ(L".", api.domain);
    EXPECT_EQ(L"", api.password);
}

TEST(logon_user, failures_name_the_user_as_given)
{
    recording_logon_api_t api;
    api.error = ERROR_LOGON_FAILURE;
    win::CAccessToken token;
    try {
        win::logon_user(L"CORP\\bob", protect("pw"), token, api);
        FAIL() << "no exception";
    } catch (const exc::win_sys_exc_t& e) {
        EXPECT_EQ(static_cast<uint32_t>(ERROR_LOGON_FAILURE), e.code());
        EXPECT_NE(std::string::npos, e.plain_text().find("Failed to logon user [CORP\\bob]"));
    }
    try {
        win::logon_user(L"bob@corp.example", protect("pw"), token, api);
        FAIL() << "no exception";
    } catch (const exc::win_sys_exc_t& e) {
        EXPECT_NE(std::string::npos,
                  e.plain_text().find("Failed to logon UPN user [bob@corp.example]"));
    }
    EXPECT_EQ(nullptr, token.handle());
}

TEST(impersonate, null_token_is_a_logon_error)
{
    try {
        win::impersonate(nullptr);
        FAIL() << "no exception";
    } catch (const exc::runtime_exc_t& e) {
        EXPECT_STREQ("User credentials not specified or logon error", e.what());
    }
}

TEST(impersonate, a_token_nothing_accepts_fails_with_the_system_code)
{
    win::CAccessToken token;
    try {
        win::logon_user(L"orasnap-no-such-user", protect("pw"), token);
    } catch (const exc::win_sys_exc_t& e) {
        // A real system refuses the unknown user already at logon.
        EXPECT_NE(std::string::npos, e.plain_text().find("Failed to logon user [orasnap-no-such-user]"));
        return;
    }
    ASSERT_NE(nullptr, token.handle());
    try {
        win::impersonate(token.handle());
        win::revert();
        FAIL() << "impersonation of an unknown user succeeded";
    } catch (const exc::win_sys_exc_t& e) {
        EXPECT_EQ(static_cast<uint32_t>(ERROR_INVALID_HANDLE), e.code());
        EXPECT_NE(std::string::npos, e.plain_text().find("Failed to impersonate logged on user"));
    }
    EXPECT_FALSE(thread_is_impersonating());
}

TEST(get_session, local_path_gives_an_empty_session_and_logs_nothing)
{
    log_capture_t capture;
    auto session = win::get_session(std::wstring(L"C:\\data\\f.txt"));
    ASSERT_TRUE(session);
    EXPECT_FALSE(session->context());
    EXPECT_FALSE(session->active());
    auto narrow = win::get_session(std::string("\\\\?\\C:\\data\\f.txt"));
    EXPECT_FALSE(narrow->context());
    EXPECT_TRUE(capture.receiver->blocks.empty());
}

TEST(get_session, unknown_share_logs_the_miss_and_runs_as_the_process)
{
    log_capture_t capture;
    auto session = win::get_session(std::wstring(L"\\\\?\\UNC\\nohost\\noshare\\f.txt"));
    EXPECT_FALSE(session->context());
    EXPECT_FALSE(session->active());
    EXPECT_EQ(std::vector<std::string>{"No impersonation context found for path [\\\\nohost\\noshare]."},
              std::vector<std::string>(capture.texts()));
}

TEST(get_session, nested_sessions_impersonate_once_and_revert_with_the_outer_one)
{
    auto context = register_token_context(L"\\\\nest-host\\Share", process_token());
    log_capture_t capture;
    {
        auto outer = win::get_session(std::wstring(L"\\\\NEST-HOST\\share\\a.txt"));
        ASSERT_TRUE(outer->active());
        EXPECT_EQ(context, outer->context());
        EXPECT_EQ(1u, context->users->count());
        EXPECT_TRUE(thread_is_impersonating());
        {
            auto inner = win::get_session(std::string("\\\\nest-host\\share\\b.txt"));
            EXPECT_TRUE(inner->active());
            EXPECT_EQ(2u, context->users->count());
        }
        EXPECT_EQ(1u, context->users->count());
        EXPECT_TRUE(thread_is_impersonating());
    }
    EXPECT_EQ(0u, context->users->count());
    EXPECT_FALSE(thread_is_impersonating());
    const auto lines = capture.texts();
    EXPECT_TRUE(contains(lines, "Found impersonation context for share [\\\\NEST-HOST\\share]."));
    EXPECT_TRUE(contains(lines, "File operations for path '\\\\NEST-HOST\\share\\a.txt' will be "
                                "performed under impersonation context."));
    EXPECT_TRUE(contains(lines, "File operations for path '\\\\nest-host\\share\\b.txt' will be "
                                "performed under impersonation context."));
}

TEST(get_session, narrow_path_falls_back_to_utf8_when_the_ansi_reading_finds_nothing)
{
    auto context = register_token_context(L"\\\\utf-host\\d\u00e9p\u00f4t", process_token());
    log_capture_t capture;
    {
        auto session = win::get_session(std::string("\\\\utf-host\\d\xc3\xa9p\xc3\xb4t\\f.txt"));
        EXPECT_EQ(context, session->context());
        EXPECT_TRUE(session->active());
    }
    const auto lines = capture.texts();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(0u, lines[0].find("No impersonation context found for path [\\\\utf-host\\d"));
    EXPECT_EQ(0u, lines[1].find("Found impersonation context for share [\\\\utf-host\\d"));
}

TEST(impersonation_session, failed_token_duplication_leaves_the_session_inactive_without_error)
{
    auto context = std::make_shared<win::impersonation_context_t>();
    context->token = win::shared_handle_t(reinterpret_cast<HANDLE>(0x1234), [](HANDLE) {});
    log_capture_t capture;
    {
        win::win_impersonation_session_t session(context);
        EXPECT_FALSE(session.active());
        EXPECT_FALSE(thread_is_impersonating());
    }
    EXPECT_EQ(0u, context->users->count());
    EXPECT_TRUE(capture.receiver->blocks.empty());
}

TEST(impersonation_session, unknown_security_context_fails_the_start)
{
    auto context = std::make_shared<win::impersonation_context_t>();
    context->kind = win::impersonation_kind_t::security_context;
    context->context_id = util::new_guid();
    const std::string id = util::wide_to_ansi(util::guid_to_str(context->context_id));
    try {
        win::win_impersonation_session_t session(context);
        FAIL() << "no exception";
    } catch (const exc::runtime_exc_t& e) {
        EXPECT_EQ("Context '" + id + "' not found.\n--tr:Failed to impersonate user.", e.text());
    }
    context->context_id = GUID();
    win::win_impersonation_session_t inert(context);
    EXPECT_FALSE(inert.active());
}

TEST(thread_use_counter, counts_each_thread_on_its_own)
{
    win::win_thread_use_counter_t users;
    users.add();
    users.add();
    std::atomic<bool> other_released_last{false};
    std::thread other([&] {
        users.add();
        other_released_last = users.release();
    });
    other.join();
    EXPECT_TRUE(other_released_last);
    EXPECT_EQ(2u, users.count());
    EXPECT_FALSE(users.release());
    EXPECT_TRUE(users.release());
    EXPECT_EQ(0u, users.count());
}

TEST(net_use, state_of_an_unknown_share_is_logged_without_raising)
{
    log_capture_t capture;
    win::log_net_use_state(L"\\\\nohost\\share");
    const auto lines = capture.texts();
    ASSERT_FALSE(lines.empty());
    // A real system has no such connection; Wine does not support the query.
    EXPECT_TRUE(lines[0] == "Connection to share '\\\\nohost\\share' not found." ||
                lines[0] == "ERR |Failed to get information about connection to share '\\\\nohost\\share'")
        << lines[0];
}

TEST(net_use, session_on_an_unreachable_share_fails_its_start)
{
    auto context = std::make_shared<win::impersonation_context_t>();
    context->kind = win::impersonation_kind_t::net_use;
    context->share = L"\\\\nohost\\share";
    log_capture_t capture;
    {
        win::win_impersonation_session_t without_credentials(context);
        EXPECT_FALSE(without_credentials.active());
    }
    EXPECT_TRUE(capture.receiver->blocks.empty());
    context->credentials = std::make_shared<win::net_use_credentials_t>();
    context->credentials->user = L"bob";
    try {
        win::win_impersonation_session_t session(context);
        // Only where connections are simulated does the start get through.
        EXPECT_FALSE(session.active());
    } catch (const exc::exc_base_t& e) {
        ASSERT_FALSE(e.lines().empty());
        EXPECT_EQ("Failed to impersonate user.", e.lines().back().text);
        EXPECT_TRUE(e.lines().back().is_trace);
    }
    EXPECT_TRUE(contains(capture.texts(),
                         "Checking that NetUse connection to share '\\\\nohost\\share' is exist."));
}
