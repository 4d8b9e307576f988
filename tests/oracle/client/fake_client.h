#pragma once

#include "oracle/client/oracle_env.h"
#include "oracle/client/oracle_session.h"
#include "oracle/client/win_ora_interface.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace oracle_client_test {

// An in-process stand-in for the client library, for the layers that only
// turn OCI results into values and exceptions. It writes every call to
// `calls` and plays back what the test scripted. One at a time per process.
struct SFakeClient {
    SFakeClient();
    ~SFakeClient();
    SFakeClient(const SFakeClient&) = delete;
    SFakeClient& operator=(const SFakeClient&) = delete;

    // A client with these entry points.
    std::shared_ptr<specific::oracle::CWinOraInterface> Ora() const;
    // A session whose handles come from this client, as Init would leave it.
    std::shared_ptr<specific::oracle::COracleSession> Session() const;

    // What OCIErrorGet reports.
    int32_t errorCode = 0;
    std::string errorText;

    // Rows of the next statement; an empty optional stands for NULL.
    std::vector<std::vector<std::optional<std::string>>> rows;
    // Fetch number (1-based) that fails with OCI_ERROR; 0 for none.
    size_t failFetchAt = 0;
    // Results of the next prepare and execute.
    int32_t prepareResult = 0;
    int32_t executeResult = 0;

    std::vector<std::string> calls;
    size_t liveHandles = 0;
};

} // namespace oracle_client_test
