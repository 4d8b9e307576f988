#pragma once

#include <string>

namespace specific {
namespace oracle {

// "OracleMeta.xml" in the log folder of the configuration: the file a snapshot
// carries into a restored system. Makes the folder when it is missing.
std::wstring GetRestoreMetaPath();

} // namespace oracle
} // namespace specific
