#pragma once

#include "oracle/client/oracle_env.h"

#include <memory>
#include <string>

namespace specific {
namespace oracle {

class COracleSession;

// Runs one PL/SQL block or DDL statement on a session, with bound
// parameters where a query has no way of binding.
class COracleCmdExec {
public:
    // Prepares `command`.
    COracleCmdExec(const COracleSession& session, const std::string& command);

    // Binds one placeholder to `value`, which the caller keeps alive until
    // Execute. The bind belongs to the statement and goes with it.
    void Bind(const std::string& name, void* value, oci::ub2 dty, oci::sb4 size);
    // Runs the statement once.
    void Execute();

private:
    std::shared_ptr<COracleEnv> env;
    std::shared_ptr<COracleHandle> serviceContext;
    std::shared_ptr<COracleHandle> statement;
    std::string command;
};

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
