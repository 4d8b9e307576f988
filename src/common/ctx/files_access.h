#pragma once

#include <string>

namespace security {

// Decides whether a file operation may touch a path; raises when it may not.
class IFilesAccessPermissions {
public:
    virtual void check_access(const std::wstring& path) = 0;
    virtual ~IFilesAccessPermissions() = default;
};

// Every path is allowed.
class CUnrestrictedFilesAccessPermissions : public IFilesAccessPermissions {
public:
    void check_access(const std::wstring&) override {}
};

} // namespace security
