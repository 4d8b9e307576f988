#pragma once

#include <memory>
#include <string>

namespace specific {
namespace oracle {

class COracleSession;

// Whether a log file exists. A path on ASM ("+...") counts as present unless
// `checkAsm`, and then ASM is asked. When the test itself fails the answer is
// true: a file in doubt is treated as present.
bool IsFileExists(const std::wstring& path, const std::shared_ptr<COracleSession>& session,
                  bool checkAsm);

// Deletes a file when it goes out of scope. A file that the library's own
// account may not delete is removed through the database when a session is
// given. Never raises.
class COracleFileRemover {
public:
    // `path` in UTF-8; `session` may be empty.
    COracleFileRemover(std::string path, std::shared_ptr<COracleSession> session);
    ~COracleFileRemover();
    COracleFileRemover(const COracleFileRemover&) = delete;
    COracleFileRemover& operator=(const COracleFileRemover&) = delete;

private:
    void RemoveThroughDatabase() const;

    std::string path;
    std::shared_ptr<COracleSession> session;
};

} // namespace oracle
} // namespace specific
