#pragma once

#include "oracle/inventory/explore_db_config.h"
#include "oracle/inventory/sid_collector.h"

#include <memory>
#include <string>

namespace specific {
namespace oracle {

class COracleQuery;
class COracleSession;

// The collector of an ordinary database: a fixed series of statements, in a
// fixed order, fills one CDatabaseProps. Steps that only refine the picture
// (pluggable databases, restore points, cluster, reverted, password file) are
// swallowed with a warning; the others fail the database.
class CDbInfoCollector : public COraSidCollector {
public:
    CDbInfoCollector(std::shared_ptr<COracleSessionHolder> holder, const SOracleSid* sid,
                     std::shared_ptr<CExploreDbConfig::SDbLogRecInfo> recInfo, bool gatherLogs);

    COraclePropsPtr Gather() override;

    // Whether the database is a container; false below version 12 without a statement.
    static bool IsPluggableDb(const std::shared_ptr<COracleSession>& session);

private:
    void GatherDbFiles(CDatabaseProps& props);
    void GatherFileList(const std::string& sql, CDbFileList& files);
    void GatherLogFileGroups(CDatabaseProps& props);
    void GatherPdbs(CDatabaseProps& props);
    void GatherArchivedLogs(CDatabaseProps& props);
    bool CheckDbReverted();
    std::wstring GetGlobalName();
    void GetListeners(CDatabaseProps& props);
    void GetMaxLogRecord(CDatabaseProps& props);
    bool HasGuaranteedRestorePoints();
    bool IsClusterDb();

    // Parameter and password files (db_param_files.cpp).
    void GetPfileContent(CDatabaseProps& props);
    std::wstring GetPwdFilePath();
    bool GetAsmPwdFilePath(std::wstring& path);

    std::shared_ptr<COracleQuery> query;
    bool gatherLogs;
    std::shared_ptr<CExploreDbConfig::SDbLogRecInfo> recInfo;
};

} // namespace oracle
} // namespace specific
