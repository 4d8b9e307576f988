#pragma once

#include <string>
#include <vector>

#include <windows.h>

#include "oracle/client/oracle_sid.h"

namespace specific {
namespace oracle {

// The Oracle instances of this machine, read from the registry alone: the
// homes under SOFTWARE\ORACLE, the Oracle services, and a pairing of the two
// by the executable path of the service. Each construction reads afresh.
//
// The pairing is deliberately literal: an image path is cut at its first
// blank and compared, upper-cased, with "<ORACLE_HOME>\BIN\ORACLE.EXE". No
// quotes are stripped, no backslashes folded, nothing is expanded, so a home
// below a path with a blank never yields an instance.
class COracleHomes {
public:
    // `excludes`: SIDs to leave out, compared without regard to case. The
    // autostart option comes from the process configuration.
    explicit COracleHomes(const std::vector<std::wstring>& excludes);
    COracleHomes(const std::vector<std::wstring>& excludes, bool useAutostartOption);

    // Homes in registry enumeration order, and within a home its services in
    // enumeration order. Nothing sorts it.
    const std::vector<SOracleSid>& Sids() const { return sids; }

private:
    struct SOracleHome {
        std::wstring path;
        // Read and kept, though nothing consumes it.
        std::wstring rdbmsControl;
        std::wstring name;
        bool isAutostart = true;
    };

    struct SOracleService {
        std::wstring sid;
        std::wstring imagePath;
        bool isAsm = false;
    };

    static std::vector<SOracleHome> FindHomes(bool useAutostartOption);
    static std::vector<SOracleService> FindServices();
    static std::vector<SOracleSid> FindInstances(const std::vector<SOracleHome>& homes,
                                                 const std::vector<SOracleService>& services,
                                                 const std::vector<std::wstring>& excludes);

    static void EnumRegSubkeys(HKEY key, std::vector<std::wstring>& names);
    static std::wstring GetRegKeyValue(HKEY key, const std::wstring& valueName);
    static void ReadHomeAutostart(HKEY homeKey, bool& isAutostart);
    static bool IsExcluded(const std::vector<std::wstring>& excludes, const std::wstring& sid);

    std::vector<SOracleSid> sids;
};

} // namespace oracle
} // namespace specific
