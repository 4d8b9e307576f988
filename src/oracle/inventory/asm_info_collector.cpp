#include "oracle/inventory/asm_info_collector.h"

#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "oracle/client/oracle_query.h"
#include "oracle/client/oracle_sid.h"
#include "oracle/client/session_holder.h"

namespace specific {
namespace oracle {

COraclePropsPtr CAsmInfoCollector::Gather()
{
    try {
        logging::log_operation_t operation(logging::oralib(), "Gathering ASM properties for SID: [%1]",
                                           util::wide_to_ansi(sid->sid));
        auto props = std::make_shared<CAsmInstanceProps>(sid->sid);
        const auto result = holder->NewQuery()->Exec(
            "SELECT D.PATH,DG.NAME,D.MODE_STATUS FROM V$ASM_DISK D, V$ASM_DISKGROUP DG "
            "WHERE DG.GROUP_NUMBER=D.GROUP_NUMBER",
            3, false);
        // The element's name is the group's, not the disk's.
        for (const COracleRow& row : result->rows)
            if (row.size() == 3)
                props->disks.push_back(std::make_shared<CAsmDiskProps>(row[1], row[0], row[2]));
        operation.ok();
        return props;
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Failed to gather ASM properties.", caught);
    }
}

} // namespace oracle
} // namespace specific
