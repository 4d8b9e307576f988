#pragma once

#include <memory>
#include <string>

namespace specific {
namespace oracle {

class COracleSession;

// A file on an ASM disk group has no path in the Windows file system: these
// reach it through the database. All paths are narrow.

// Whether DBMS_DISKGROUP knows the ASM file; false too when the call fails
// for any other reason (logged).
bool GetAsmFileAttr(const std::shared_ptr<COracleSession>& session, const std::string& path);

// Copies a file through two directory objects made for the occasion. A step
// that fails leaves the objects made so far in the database.
void CopyAsmFile(const std::shared_ptr<COracleSession>& session, const std::string& source,
                 const std::string& destination);

// A fresh directory object name: a letter and the first 25 characters of a
// new GUID's text, with "{", "}" and "-" as "_" and the rest upper-cased.
std::string MakeDirectoryObjectName();

} // namespace oracle
} // namespace specific
