#include "boundary/console_check.h"

#include <windows.h>

#include <cstdlib>
#include <memory>
#include <vector>

#include "common/strings/strings.h"
#include "oracle/client/instance_status.h"
#include "oracle/client/oracle_query.h"
#include "oracle/client/oracle_session.h"
#include "oracle/client/session_holder.h"
#include "oracle/inventory/oracle_homes.h"

namespace specific {
namespace oracle {

namespace {

// A service or a pipe has no one to press a key: waiting there would block
// the caller for ever.
bool standard_input_is_console()
{
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    DWORD mode = 0;
    return input != nullptr && input != INVALID_HANDLE_VALUE &&
           GetFileType(input) == FILE_TYPE_CHAR && GetConsoleMode(input, &mode) != 0;
}

void check_instance(std::ostream& out, const SOracleSid& sid)
{
    const std::shared_ptr<COracleSessionHolder> holder =
        MakeSessionHolder(sid, SOracleCredentials());
    if (!holder)
        return;
    const std::shared_ptr<COracleSession> session = holder->GetSession();
    COracleInstanceStatus status;
    if (!status.IsInstanceOpen(session, sid.isAsm))
        return;

    out << "Checking SID: " << util::wide_to_ansi(holder->GetSid()) << std::endl;
    if (!sid.isAsm) {
        bool isReadOnly = false;
        bool isArchiveLog = true;
        session->GetDatabaseOptions(isReadOnly, isArchiveLog);
        out << "ARCHIVE LOGS: " << (isArchiveLog ? "ON" : "OFF") << std::endl;
        const std::shared_ptr<COracleQueryResult> logs =
            holder->NewQuery()->Exec("SELECT SEQUENCE#, NAME FROM V$ARCHIVED_LOG", 2, true);
        // The first column is the sequence number, printed under the word
        // "path" as operators have always seen it.
        COracleRow row;
        while (logs->Next(row))
            out << "Log path: " << util::wide_to_ansi(row[0]) << std::endl;
    }
    out << "LOCAL: " << 0 << ", ASM: " << 0 << std::endl;
    out << "ok" << std::endl;
}

} // namespace

void RunConsoleCheck(std::ostream& out)
{
    const COracleHomes homes(std::vector<std::wstring>{});
    for (const SOracleSid& sid : homes.Sids())
        check_instance(out, sid);
    if (standard_input_is_console())
        std::system("pause");
}

} // namespace oracle
} // namespace specific
