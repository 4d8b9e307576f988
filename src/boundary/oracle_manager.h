#pragma once

#include <cstdint>
#include <string>

#include "oracle/client/oracle_credentials.h"

namespace specific {
namespace oracle {

// The facade under the exported functions: it orders the big steps of each
// operation, brackets them in the log and puts its own line on any failure.
// It holds no data; each call is complete in itself.
class COracleManager {
public:
    static COracleManager& Instance();

    std::wstring ExploreInstances(bool exploreFlag, const SOracleCredentials& credentials,
                                  const std::wstring& exploreDbConfigXml);
    void DeleteLogsByTime(const std::wstring& homePath, const std::wstring& sid, int32_t minutes,
                          const SOracleCredentials& credentials);
    void DeleteLogsBySize(const std::wstring& homePath, const std::wstring& sid,
                          uint64_t sizeLimit, const SOracleCredentials& credentials);
    std::wstring PrepareDbsForBackup(const std::wstring& dbsXml,
                                     const std::wstring& exploreDbConfigXml,
                                     const SOracleCredentials& credentials,
                                     const std::wstring& osLogin, const std::wstring& osPassword);
    void FinishDbsBackup(const std::wstring& dbsXml, const SOracleCredentials& credentials);
    std::wstring BackupLogs(const std::wstring& homePath, const std::wstring& sid,
                            const std::wstring& usn, const std::wstring& lastRecId,
                            const SOracleCredentials& credentials);
    std::wstring GetLogsFolder();
    std::wstring EnumLogs();
    void RemoveLogsInTemp(const std::wstring& logsXml);
    bool IsRestoreRequired();
    void DoRestore();
    // The console check for a person at the machine; its failures carry no line of its own.
    void Test();

private:
    COracleManager() = default;
};

} // namespace oracle
} // namespace specific
