#pragma once

#include <string>
#include <vector>

namespace host {

// One-line accounts of what a call returned, for the operator; empty when the
// document is not what was expected.

// Prepare document: "databases by action: backup 1, vss 2, failure 1 (DOWN)".
std::wstring PrepareSummary(const std::wstring& document);
// The SIDs of the top-level `database` elements of a prepare document, in order.
std::vector<std::wstring> PreparedSids(const std::wstring& document);
// Logs document: "3 logs, 2 copied, 3072 bytes".
std::wstring LogsSummary(const std::wstring& document);
// The top-level elements of a document: "2 databases".
std::wstring CountSummary(const std::wstring& document, const char* noun);

} // namespace host
