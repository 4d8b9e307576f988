#pragma once

#include <memory>
#include <string>

namespace specific {
namespace oracle {

class COracleSession;

// Asks a session whether its instance is open or its database active. The
// query runs on a thread of its own, and the caller waits no longer than the
// connection timeout: even this small query can hang on a sick instance.
class COracleInstanceStatus {
public:
    enum StatusQueryType { InstanceStatus = 0, DatabaseStatus = 1 };

    // False for a session to a down instance; true without a query when
    // `assumeOpen` (an ASM instance has no open state).
    bool IsInstanceOpen(const std::shared_ptr<COracleSession>& session, bool assumeOpen);
    bool IsDbActive(const std::shared_ptr<COracleSession>& session);
    // The threaded core: the status text, upper-cased, "" when there is no row.
    void GetStatus(std::wstring& status, const std::shared_ptr<COracleSession>& session,
                   StatusQueryType type);

private:
    static std::wstring StatusThread(COracleSession& session, StatusQueryType type);
    static std::wstring GetStatusImpl(COracleSession& session, StatusQueryType type);
};

} // namespace oracle
} // namespace specific
