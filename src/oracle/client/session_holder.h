#pragma once

#include "common/exc/exc.h"
#include "oracle/client/oracle_credentials.h"
#include "oracle/client/oracle_session.h"

#include <memory>
#include <mutex>
#include <string>

namespace specific {
namespace oracle {

class COracleQuery;
struct SOracleSid;

// Makes one COracleSession on a thread of its own and waits for it no longer
// than the connection timeout: a logon to a hung instance can block inside
// the client for ever. The only place that sets ORACLE_HOME and ORACLE_SID.
class COracleSessionHolder {
public:
    // Does everything: on return the session is usable, or this raises.
    COracleSessionHolder(const std::wstring& sid, const std::wstring& homePath,
                         const SOracleCredentials& credentials, bool prelimAuth);
    COracleSessionHolder(const COracleSessionHolder&) = delete;
    COracleSessionHolder& operator=(const COracleSessionHolder&) = delete;

    std::shared_ptr<COracleSession> GetSession() const { return session; }
    std::wstring GetSid() const { return sid; }
    std::wstring GetHomePath() const { return homePath; }
    std::shared_ptr<COracleQuery> NewQuery() const;

private:
    void InitThread();
    void InitSession();
    static void InitSessionGuarded(void* init);

    std::shared_ptr<COracleSession> session;
    std::wstring homePath;
    std::wstring sid;
    SOracleCredentials credentials;
    bool prelimAuth;
};

// The forgiving factory: a holder for the instance, or an empty pointer when
// it can't be made (the failure is logged).
std::shared_ptr<COracleSessionHolder> MakeSessionHolder(const SOracleSid& sidRecord,
                                                        const SOracleCredentials& credentials);

// Sessions are made strictly one at a time in the process, because the
// environment variables that name the instance are process-wide.
std::recursive_mutex& g_sessionInitLock();

// Sets a variable for the client library, in the C runtime and in the
// process environment.
void SetEnvVariable(const std::wstring& name, const std::wstring& value);

} // namespace oracle
} // namespace specific
