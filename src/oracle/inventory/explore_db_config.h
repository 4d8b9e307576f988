#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace specific {
namespace oracle {

// What the caller tells the explore: databases to leave out, and for each
// database the newest archived log it already knows.
class CExploreDbConfig {
public:
    // Values stay text: they go into SQL as they stand.
    struct SDbLogRecInfo {
        std::wstring recId;
        std::wstring stamp;
        std::wstring firstPassRecId;
    };

    CExploreDbConfig() = default;
    // Never raises. A document that breaks off keeps what was read before the
    // break (logged): a bad dbrecids entry loses every exclude behind it.
    explicit CExploreDbConfig(const std::wstring& xmlText);

    // The entry of exactly that SID (case counts), or an empty pointer.
    std::shared_ptr<SDbLogRecInfo> FindRecInfo(const std::wstring& sid) const;

    std::map<std::wstring, std::shared_ptr<SDbLogRecInfo>> dbRecIds;
    std::vector<std::wstring> excludes;

private:
    void Parse(const std::wstring& xmlText);
};

} // namespace oracle
} // namespace specific
