#pragma once

#include "oracle/client/oci_api.h"

#include <windows.h>

#include <memory>
#include <mutex>
#include <set>
#include <string>

namespace specific {
namespace oracle {

// The process-wide token for the Oracle client library. The first Instance()
// loads OCI.dll by the ordinary search order and resolves its entry points;
// once loaded it stays for the life of the process, so the first session
// decides which client serves all later ones. Every call into the client goes
// through one of the wrappers below, which mark the thread as being inside
// the client for the time of the call, and run it under the structured
// exception guard: a crash in the client raises COracleClientCrashExc (logged
// with a warning that the process may be unstable), except in HandleFree,
// which only reports it as OCI_ERROR, as destructors call it.
class CWinOraInterface {
public:
    // The shared token; raises COracleClientLoadExc when the library or one of
    // its entry points can't be found (and tries again on the next call).
    static std::shared_ptr<CWinOraInterface> Instance();

    // Raises COracleClientLoadExc, at once, when an earlier Instance() hung
    // in the library's start and was given up: the loader lock stays held by
    // that thread, so no later load, and no thread start, could get through.
    static void RefuseHungLoad();

    // Loads a client library by name, without touching the shared token.
    static std::shared_ptr<CWinOraInterface> Load(const std::wstring& libraryName);

    // A token over entry points that are already at hand (no library is
    // loaded or held).
    explicit CWinOraInterface(const oci::SOciFunctions& functions, std::wstring libraryPath = {});

    const std::wstring& LibraryPath() const { return libraryPath_; }

    oci::sword EnvCreate(oci::OCIEnv** env, oci::ub4 mode) const;
    oci::sword HandleAlloc(const void* parent, void** handle, oci::ub4 type) const;
    oci::sword HandleFree(void* handle, oci::ub4 type) const;
    oci::sword ServerAttach(oci::OCIServer* server, oci::OCIError* error, oci::ub4 mode) const;
    oci::sword AttrSet(void* target, oci::ub4 targetType, void* value, oci::ub4 size,
                       oci::ub4 attribute, oci::OCIError* error) const;
    oci::sword SessionBegin(oci::OCISvcCtx* serviceContext, oci::OCIError* error,
                            oci::OCISession* session, oci::ub4 credentials, oci::ub4 mode) const;
    oci::sword SessionEnd(oci::OCISvcCtx* serviceContext, oci::OCIError* error,
                          oci::OCISession* session) const;
    oci::sword ServerDetach(oci::OCIServer* server, oci::OCIError* error) const;
    oci::sword StmtPrepare(oci::OCIStmt* statement, oci::OCIError* error, const std::string& text) const;
    oci::sword DefineByPos(oci::OCIStmt* statement, oci::OCIDefine** define, oci::OCIError* error,
                           oci::ub4 position, void* buffer, oci::sb4 size, oci::ub2 dty,
                           oci::sb2* indicator) const;
    oci::sword BindByName(oci::OCIStmt* statement, oci::OCIBind** bind, oci::OCIError* error,
                          const std::string& name, void* value, oci::sb4 size, oci::ub2 dty) const;
    oci::sword StmtExecute(oci::OCISvcCtx* serviceContext, oci::OCIStmt* statement,
                           oci::OCIError* error, oci::ub4 iters) const;
    oci::sword StmtFetch2(oci::OCIStmt* statement, oci::OCIError* error) const;
    oci::sword ErrorGet(oci::OCIError* error, oci::sb4* code, oci::OraText* buffer,
                        oci::ub4 size) const;
    oci::sword DBStartup(oci::OCISvcCtx* serviceContext, oci::OCIError* error) const;
    oci::sword DBShutdown(oci::OCISvcCtx* serviceContext, oci::OCIError* error,
                          oci::ub4 mode) const;
    // OCIBreak is optional: call Break only when HasBreak.
    bool HasBreak() const;
    oci::sword Break(oci::OCISvcCtx* serviceContext, oci::OCIError* error) const;

    // Whether the client crashed in a call made with this error handle (or, for
    // a handle allocation, this environment): the session it belongs to must
    // not be touched again.
    bool Crashed(const void* handle) const;

private:
    template <typename F>
    oci::sword Guarded(const char* function, const void* key, F&& call) const;

    oci::SOciFunctions fn_;
    std::wstring libraryPath_;
    mutable std::mutex crashLock_;
    mutable std::set<const void*> crashed_;
};

class COracleClientLoadExc;

// The operator's line under a failed load: what was looked for, and what
// decides which client is found.
std::string ClientLoadHint(const COracleClientLoadExc& failure);

} // namespace oracle
} // namespace specific
