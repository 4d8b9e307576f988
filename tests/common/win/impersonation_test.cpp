#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <string>
#include <vector>

#include "common/ctx/lib_ctx.h"
#include "common/exc/exc.h"
#include "common/strings/strings.h"
#include "common/win/impersonation.h"
#include "support/capturing_receiver.h"
#include "support/failure_lines.h"

namespace {

using test::failure_text;
using testing::Contains;
using testing::HasSubstr;
using test::log_capture_t;

// Records each logon as "user|domain|password|type|provider", and fails with
// `error` when it is set.
class recording_logon_api_t : public win::ILogonApi {
public:
    BOOL logon_user(LPCWSTR user, LPCWSTR domain, LPCWSTR password, DWORD logon_type,
                    DWORD provider, PHANDLE token) const override
    {
        calls.push_back(std::wstring(user) + L"|" + (domain != nullptr ? domain : L"<null>") + L"|" +
                        password + L"|" + util::int_to_wstr(static_cast<uint32_t>(logon_type)) +
                        L"|" + util::int_to_wstr(static_cast<uint32_t>(provider)));
        *token = nullptr;
        SetLastError(error);
        return error == 0;
    }

    DWORD error = 0;
    mutable std::vector<std::wstring> calls;
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

// Makes the process token the impersonation context of `share`.
std::shared_ptr<win::impersonation_context_t> register_token_context(const std::wstring& share)
{
    HANDLE token = nullptr;
    EXPECT_TRUE(OpenProcessToken(GetCurrentProcess(),
                                 TOKEN_DUPLICATE | TOKEN_QUERY | TOKEN_IMPERSONATE, &token));
    auto context = std::make_shared<win::impersonation_context_t>();
    context->kind = win::impersonation_kind_t::token;
    context->share = share;
    context->token = win::make_shared_handle(token);
    util::get_lib_ctx()->tokens.insert(context);
    return context;
}

TEST(ShareOfPath, PlainAndLongUncFormsNameTheSameShareAndLocalPathsNone)
{
    EXPECT_EQ(L"\\\\server\\share", win::share_of_path(L"\\\\server\\share\\dir\\f.txt"));
    EXPECT_EQ(L"\\\\server\\share", win::share_of_path(L"\\\\?\\UNC\\server\\share\\dir\\f.txt"));
    EXPECT_EQ(L"\\\\server\\share", win::share_of_path(L"\\\\\\server/share/"));
    EXPECT_EQ(L"\\\\host\\c$", win::share_of_path(L"\\\\?\\host\\c$\\x"));
    for (const wchar_t* path : {L"C:\\x", L"\\\\server\\", L"//server/share", L"\\\\?\\C:",
                                L"\\\\?\\UNC\\server"})
        EXPECT_EQ(L"", win::share_of_path(path)) << util::wide_to_utf8(path);
}

TEST(LogonUser, DomainUpnAndLocalNamesLogOnInteractivelyWithTheDecodedPasswordAndFailuresNameTheUser)
{
    recording_logon_api_t api;
    win::CAccessToken token;
    win::logon_user(L"CORP\\bob", protect("s3cr\xe9t"), token, api);
    win::logon_user(L"bob@corp.example", protect("pw"), token, api);
    win::logon_user(L"bob", protect(""), token, api);
    win::logon_user(L"CORP\\bob@corp.example", protect("pw"), token, api);
    EXPECT_EQ((std::vector<std::wstring>{L"bob|CORP|s3cr\u00e9t|2|0", L"bob@corp.example|<null>|pw|2|0",
                                         L"bob|.||2|0", L"bob@corp.example|CORP|pw|2|0"}),
              api.calls);

    api.error = ERROR_LOGON_FAILURE;
    const std::string domain_failure =
        failure_text([&] { win::logon_user(L"CORP\\bob", protect("pw"), token, api); });
    EXPECT_THAT(domain_failure, HasSubstr(exc::get_error_text(ERROR_LOGON_FAILURE)));
    EXPECT_THAT(domain_failure, HasSubstr("Failed to logon user [CORP\\bob]"));
    EXPECT_THAT(failure_text([&] { win::logon_user(L"bob@corp.example", protect("pw"), token, api); }),
                HasSubstr("Failed to logon UPN user [bob@corp.example]"));
}

TEST(GetSession, LocalPathsLogNothingAndUnknownSharesLogTheMiss)
{
    log_capture_t capture;
    for (auto session : {win::get_session(std::wstring(L"C:\\data\\f.txt")),
                         win::get_session(std::string("\\\\?\\C:\\data\\f.txt")),
                         win::get_session(std::wstring(L"\\\\?\\UNC\\nohost\\noshare\\f.txt"))}) {
        EXPECT_FALSE(session->context());
        EXPECT_FALSE(session->active());
    }
    EXPECT_EQ(std::vector<std::string>{"No impersonation context found for path [\\\\nohost\\noshare]."},
              capture.texts());
}

TEST(GetSession, NestedSessionsImpersonateOnceAndRevertWithTheOuterOne)
{
    auto context = register_token_context(L"\\\\nest-host\\Share");
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
    EXPECT_THAT(lines, Contains("Found impersonation context for share [\\\\NEST-HOST\\share]."));
    for (const char* path : {"\\\\NEST-HOST\\share\\a.txt", "\\\\nest-host\\share\\b.txt"})
        EXPECT_THAT(lines, Contains(std::string("File operations for path '") + path +
                                    "' will be performed under impersonation context."));
}

TEST(GetSession, NarrowPathFallsBackToUtf8WhenTheAnsiReadingFindsNothing)
{
    auto context = register_token_context(L"\\\\utf-host\\d\u00e9p\u00f4t");
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

TEST(ImpersonationSession, FailedTokenDuplicationIsInactiveWithoutErrorAndUnknownContextFails)
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

    context->kind = win::impersonation_kind_t::security_context;
    context->context_id = util::new_guid();
    const std::string id = util::wide_to_ansi(util::guid_to_str(context->context_id));
    EXPECT_EQ("Context '" + id + "' not found.\n--tr:Failed to impersonate user.",
              failure_text([&] { win::win_impersonation_session_t session(context); }));
    context->context_id = GUID();
    EXPECT_FALSE(win::win_impersonation_session_t(context).active());
}

TEST(AccessToken, ClosesItsTokenWhenReplacedAndWhenItGoesAndImpersonatesOnlyAToken)
{
    EXPECT_EQ("User credentials not specified or logon error",
              failure_text([] { win::impersonate(nullptr); }));
    HANDLE first = nullptr;
    HANDLE second = nullptr;
    ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &first));
    ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &second));
    DWORD flags = 0;
    {
        win::CAccessToken token;
        token.attach(first);
        token.attach(second);
        EXPECT_EQ(second, token.handle());
        EXPECT_FALSE(GetHandleInformation(first, &flags));
        EXPECT_TRUE(GetHandleInformation(second, &flags));
    }
    EXPECT_FALSE(GetHandleInformation(second, &flags));
}

} // namespace
