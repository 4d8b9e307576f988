#pragma once

#include "oracle/client/oci_api.h"
#include "oracle/client/win_ora_interface.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace specific {
namespace oracle {

// Owner of one OCI error handle.
class COracleError {
public:
    COracleError(std::shared_ptr<CWinOraInterface> ora, oci::OCIError* handle);
    ~COracleError();
    COracleError(const COracleError&) = delete;
    COracleError& operator=(const COracleError&) = delete;

    oci::OCIError* handle;

private:
    std::shared_ptr<CWinOraInterface> ora_;
};

// Owner of one OCI environment, and the error channel of one session.
class COracleEnv {
public:
    // A new environment (OCI_THREADED) with its error handle, on the shared
    // client library.
    static std::shared_ptr<COracleEnv> Create();
    // The same on a given client.
    static std::shared_ptr<COracleEnv> Create(const std::shared_ptr<CWinOraInterface>& ora);

    COracleEnv(std::shared_ptr<CWinOraInterface> ora, oci::OCIEnv* handle,
               std::shared_ptr<COracleError> error);
    ~COracleEnv();
    COracleEnv(const COracleEnv&) = delete;
    COracleEnv& operator=(const COracleEnv&) = delete;

    // The one place where an OCI result becomes an exception. Returns 0 for
    // success, success with info and no data; returns the server's code when
    // it equals `ignoredCode`; raises COracleExc for any other OCI_ERROR and
    // exc::runtime_exc_t for any other result.
    int32_t Check(oci::sword status, int32_t ignoredCode = 0);

    oci::OCIError* ErrorHandle() const { return error ? error->handle : nullptr; }

    // Gives the session of this environment up: a call of it timed out, and
    // none of its handles is touched again, not even to be freed. `reason`
    // tells a later user why.
    void GiveUp(const std::string& reason);
    // Given up, or the client crashed in a call of this session.
    bool GivenUp() const;
    std::string GiveUpReason() const;
    const CWinOraInterface& Ora() const { return *ora_; }
    const std::shared_ptr<CWinOraInterface>& OraPtr() const { return ora_; }

    oci::OCIEnv* handle;
    std::shared_ptr<COracleError> error;
    std::wstring lastError;
    // Set for an abandoned session: the environment is then never freed.
    bool leakHandle = false;

private:
    std::shared_ptr<CWinOraInterface> ora_;
    mutable std::mutex fateLock_;
    std::string giveUpReason_;
};

// Owner of any other OCI handle.
class COracleHandle {
public:
    // Allocates a handle of `type` in the environment, through Check.
    static std::shared_ptr<COracleHandle> Alloc(const std::shared_ptr<COracleEnv>& env,
                                                oci::ub4 type);
    // Takes over a handle that OCI made itself (a define or a bind).
    static std::shared_ptr<COracleHandle> Wrap(const std::shared_ptr<COracleEnv>& env,
                                               void* handle, oci::ub4 type);

    // `owner`, when given, is the environment whose session the handle
    // belongs to: a handle of a given-up session is never freed.
    COracleHandle(std::shared_ptr<CWinOraInterface> ora, void* handle, oci::ub4 type,
                  std::shared_ptr<const COracleEnv> owner = nullptr);
    ~COracleHandle();
    COracleHandle(const COracleHandle&) = delete;
    COracleHandle& operator=(const COracleHandle&) = delete;

    template <typename T>
    T* As() const
    {
        return static_cast<T*>(handle);
    }

    void* handle;
    oci::ub4 type;
    // When set the destructor doesn't free the handle.
    bool leakHandle = false;

private:
    std::shared_ptr<CWinOraInterface> ora_;
    std::shared_ptr<const COracleEnv> owner_;
};

} // namespace oracle
} // namespace specific
