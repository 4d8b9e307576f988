#include "oracle/inventory/sid_collector.h"

#include "common/strings/strings.h"

namespace specific {
namespace oracle {

CSidCollectionError CSidCollectionError::Success()
{
    CSidCollectionError verdict;
    verdict.isOpen = true;
    return verdict;
}

CSidCollectionError CSidCollectionError::Skipped()
{
    CSidCollectionError verdict = Success();
    verdict.isSkipped = true;
    return verdict;
}

CSidCollectionError CSidCollectionError::Failed(bool isOpen, std::string description)
{
    CSidCollectionError verdict;
    verdict.isError = true;
    verdict.isOpen = isOpen;
    verdict.description = std::move(description);
    return verdict;
}

COraSidCollector::COraSidCollector(std::shared_ptr<COracleSessionHolder> holder,
                                   const SOracleSid* sid)
    : holder(std::move(holder)), sid(sid)
{
}

bool IsTemporaryName(const std::wstring& name)
{
    return util::starts_with(name, L"BrelmTmp");
}

bool IsTemporarySid(const std::wstring& sid)
{
    return IsTemporaryName(sid);
}

} // namespace oracle
} // namespace specific
