#pragma once

#include <string>

namespace specific {
namespace oracle {

// False only for a database that hangs (its logon or its status query times
// out) or that is open but not active. A refused logon, a missing client or a
// shut-down instance is no reason for concern and gives true.
bool CheckDbActiveForVss(const std::wstring& sid, const std::wstring& homePath);

// Whether the Oracle VSS writer service of `sid` runs. Stopped and paused
// count as not running, and so does a service that cannot be read at all.
bool IsVssWriterServiceEnabled(const std::wstring& sid);

// The verdict over every instance of the machine, exclusions not applied.
// VSS must be disabled when some non-ASM database hangs or isn't active while
// its writer service runs. The first such database ends the search, so no
// further database is contacted; ASM instances are never contacted.
// Failures of discovery leave it.
bool ComputeVssEnabled();

} // namespace oracle
} // namespace specific
