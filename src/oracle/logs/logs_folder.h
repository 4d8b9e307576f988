#pragma once

#include <string>

namespace specific {
namespace oracle {

// The document of every description file in `folder` (top level only, names
// ending exactly in ".xml"); a bare list when the folder doesn't exist. One
// unreadable description fails the whole call.
std::wstring EnumLogs(const std::wstring& folder);

// Deletes the copies and description files that a logs document names, in
// document order, stopping at the first failure. A log the library didn't
// copy (isLogCopied "false") is the database's own file and stays.
void RemoveLogs(const std::wstring& logsXml);

} // namespace oracle
} // namespace specific
