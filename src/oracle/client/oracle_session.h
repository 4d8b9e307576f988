#pragma once

#include "oracle/client/oracle_credentials.h"
#include "oracle/client/session_handles.h"

#include <memory>
#include <string>

namespace specific {
namespace oracle {

class COracleQuery;
class COracleCmdExec;

// One logged-on OCI session, with the few facts every user of it needs.
// Made on the init thread of a COracleSessionHolder, then used by one thread
// at a time. Its handles are a record of their own, the part that queries and
// commands are given.
class COracleSession : public SOracleSessionHandles {
public:
    explicit COracleSession(const SOracleCredentials& credentials);
    ~COracleSession();
    COracleSession(const COracleSession&) = delete;
    COracleSession& operator=(const COracleSession&) = delete;

    // Environment, service context, server attach, session handle and begin,
    // with `mode` (OCI_SYSDBA, OCI_PRELIM_AUTH, both, or OCI_DEFAULT). A down
    // instance (ORA-01034) still gives a valid session, with instanceShutdown.
    void Init(oci::ub4 mode);

    void GetDatabaseOptions(bool& isReadOnly, bool& isArchiveLog);
    std::wstring GetDbName();
    bool IsDbOnAsm();
    void LoadVersion();
    bool IsVersion12OrHigher();
    bool IsVersion10OrLower();
    void MountAndOpen();
    void Startup();
    void Shutdown();

    std::shared_ptr<COracleQuery> NewQuery() const;
    std::shared_ptr<COracleCmdExec> NewCmdExec(const std::string& command) const;

    bool valid = false;
    bool serverAttached = false;
    // An init or status thread was killed on this session: its handles are
    // never touched again.
    bool abandoned = false;
    bool instanceShutdown = false;
    std::shared_ptr<bool> version12OrHigher;
    std::shared_ptr<bool> version10OrLower;
    SOracleCredentials credentials;
    std::wstring dbName;

private:
    void InitServer();
    void InitSessionHandle();
};

} // namespace oracle
} // namespace specific
