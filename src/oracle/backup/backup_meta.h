#pragma once

#include "oracle/client/oracle_credentials.h"

#include <string>

namespace specific {
namespace oracle {

// "OracleMeta.xml" in the log folder of the configuration: the file a snapshot
// carries into a restored system. Makes the folder when it is missing.
std::wstring GetRestoreMetaPath();

// Writes the prepare document into the metadata file, replacing an older one.
// Nothing is written for an empty document. Failures are only logged: the
// metadata never fails a backup.
void SaveBackupMeta(const std::wstring& path, const std::wstring& dbPrepareXml,
                    const SOracleCredentials& credentials, const std::wstring& osLogin,
                    const std::wstring& osPassword);

// Reads the metadata file into the out parameters. An absent or empty file
// leaves them as they are; failures are only logged, with the outputs as far
// as they got.
void GetRestoreMeta(const std::wstring& path, std::wstring& dbPrepareXml,
                    SOracleCredentials& credentials, std::wstring& osLogin,
                    std::wstring& osPassword);

// Deletes the file if it is there; failures are only logged.
void RemoveRestoreMeta(const std::wstring& path);

// The credential envelope of the metadata file. It keeps the shape of the
// format and never its content: no user name or password is ever written, and
// reading gives empty strings whatever the file holds.
bool SerializeProtectedCredentials(const std::string& user, const std::string& password,
                                   std::string& result);
bool DeserializeProtectedCredentials(const std::string& text, std::string& user,
                                     std::string& password);

} // namespace oracle
} // namespace specific
