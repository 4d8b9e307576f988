#include "oracle/client/win_ora_interface.h"

#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "oracle/client/guarded_thread.h"
#include "common/win/handle.h"
#include "oracle/client/oracle_exc.h"
#include "oracle/client/seh_guard.h"

#include <mutex>
#include <type_traits>
#include <utility>

namespace specific {
namespace oracle {

namespace {

template <typename F>
void resolve(HMODULE module, const std::wstring& path, const char* name, F& target)
{
    FARPROC address = GetProcAddress(module, name);
    if (address == nullptr) {
        const std::string where = util::wide_to_ansi_safe(path);
        throw COracleClientLoadExc(
            util::format_msg("The function %1 is missing in [%2].", name, where), where);
    }
    target = reinterpret_cast<F>(reinterpret_cast<void*>(address));
}

// One LoadLibraryW, run under the structured-exception guard: the library's
// DllMain runs inside it, and a client that faults there must fail this load,
// not end the process. Nothing here has a destructor that a fault would skip.
struct SGuardedLoad {
    const wchar_t* name;
    HMODULE module;
    DWORD error;
};

void LoadGuarded(void* param)
{
    auto* load = static_cast<SGuardedLoad*>(param);
    load->module = LoadLibraryW(load->name);
    load->error = load->module == nullptr ? GetLastError() : ERROR_SUCCESS;
}

[[noreturn]] void throw_client_crash(const char* function, unsigned long code)
{
    const std::string codeText = util::hex_str(static_cast<uint32_t>(code));
    logging::oralib().error("The Oracle client crashed in %1 with the exception %2; the process may be unstable.",
                            function, codeText);
    throw COracleClientCrashExc(
        util::format_msg("The Oracle client crashed in %1 with the exception %2.", function, codeText),
        static_cast<uint32_t>(code));
}

// The frame that a guarded call runs in: a lambda over plain values, so no
// frame between a fault and the guard has anything to destroy.
template <typename F>
struct SGuardedCall {
    F* call;
    oci::sword result;

    static void Run(void* arg)
    {
        auto* current = static_cast<SGuardedCall*>(arg);
        current->result = (*current->call)();
    }
};

std::wstring module_path(HMODULE module)
{
    wchar_t buffer[MAX_PATH + 1] = {};
    const DWORD length = GetModuleFileNameW(module, buffer, MAX_PATH);
    return std::wstring(buffer, length);
}

} // namespace

std::shared_ptr<CWinOraInterface> CWinOraInterface::Instance()
{
    // Asked before the lock: the thread of a hung load holds it for ever.
    RefuseHungLoad();
    static std::mutex guard;
    static std::shared_ptr<CWinOraInterface> instance;
    std::lock_guard<std::mutex> lock(guard);
    if (!instance) {
        std::shared_ptr<CWinOraInterface> loaded;
        {
            CClientLoadMark mark;
            loaded = Load(L"OCI.dll");
        }
        // A load that was given up as hung stays given up, even if it ends later.
        RefuseHungLoad();
        instance = loaded;
        logging::oralib().detail("OCI library loaded: %1",
                                 util::wide_to_ansi_safe(instance->LibraryPath()));
    }
    return instance;
}

void CWinOraInterface::RefuseHungLoad()
{
    if (CClientLoadMark::LoadHung())
        throw COracleClientLoadExc("The Oracle client [OCI.dll] hung as it started, holding the "
                                   "loader lock: it is not loaded again in this process.",
                                   "OCI.dll");
}

std::shared_ptr<CWinOraInterface> CWinOraInterface::Load(const std::wstring& libraryName)
{
    const std::string name = util::wide_to_ansi_safe(libraryName);
    SGuardedLoad load{libraryName.c_str(), nullptr, ERROR_SUCCESS};
    const unsigned long fault = orasnap_seh_guarded_call(&LoadGuarded, &load);
    if (fault != 0)
        throw COracleClientLoadExc(
            util::format_msg("Loading [%1] raised the structured exception %2.", name,
                             util::hex_str(static_cast<uint32_t>(fault))),
            name);
    if (load.module == nullptr)
        throw COracleClientLoadExc(util::format_msg("Cannot load [%1]: %2 Error code: %3", name,
                                                    exc::get_error_text(load.error),
                                                    exc::error_code_text(load.error)),
                                   name);
    // A library without the entry points is let go again. A client that has
    // them is never freed: its entry points stay valid for the life of the
    // process, as abandoned sessions may still be in it.
    win::unique_hmodule_t module(load.module);
    const std::wstring path = module_path(module.get());
    oci::SOciFunctions fn;
    resolve(module.get(), path, "OCIEnvCreate", fn.EnvCreate);
    resolve(module.get(), path, "OCIHandleAlloc", fn.HandleAlloc);
    resolve(module.get(), path, "OCIHandleFree", fn.HandleFree);
    resolve(module.get(), path, "OCIServerAttach", fn.ServerAttach);
    resolve(module.get(), path, "OCIAttrSet", fn.AttrSet);
    resolve(module.get(), path, "OCISessionBegin", fn.SessionBegin);
    resolve(module.get(), path, "OCISessionEnd", fn.SessionEnd);
    resolve(module.get(), path, "OCIServerDetach", fn.ServerDetach);
    resolve(module.get(), path, "OCIStmtPrepare", fn.StmtPrepare);
    resolve(module.get(), path, "OCIDefineByPos", fn.DefineByPos);
    resolve(module.get(), path, "OCIBindByName", fn.BindByName);
    resolve(module.get(), path, "OCIStmtExecute", fn.StmtExecute);
    resolve(module.get(), path, "OCIStmtFetch2", fn.StmtFetch2);
    resolve(module.get(), path, "OCIErrorGet", fn.ErrorGet);
    resolve(module.get(), path, "OCIDBStartup", fn.DBStartup);
    resolve(module.get(), path, "OCIDBShutdown", fn.DBShutdown);
    // Older clients may lack it; statements on them are then bounded only by a
    // call timeout, if the client has that.
    fn.Break = reinterpret_cast<oci::OCIBreak_t>(
        reinterpret_cast<void*>(GetProcAddress(module.get(), "OCIBreak")));
    module.release();
    return std::make_shared<CWinOraInterface>(fn, path);
}

std::string ClientLoadHint(const COracleClientLoadExc& failure)
{
    return util::format_msg("Hint: the Oracle client was looked for as [%1]. It must be a 64-bit "
                            "client, and the folders on PATH decide which OCI.dll is found.",
                            failure.Tried());
}

CWinOraInterface::CWinOraInterface(const oci::SOciFunctions& functions, std::wstring libraryPath)
    : fn_(functions), libraryPath_(std::move(libraryPath))
{
}

template <typename F>
oci::sword CWinOraInterface::Guarded(const char* function, const void* key, F&& call) const
{
    SGuardedCall<std::remove_reference_t<F>> frame{&call, oci::OCI_ERROR};
    const unsigned long fault = orasnap_seh_guarded_call(&decltype(frame)::Run, &frame);
    if (fault == 0)
        return frame.result;
    if (key != nullptr) {
        std::lock_guard<std::mutex> lock(crashLock_);
        crashed_.insert(key);
    }
    throw_client_crash(function, fault);
}

bool CWinOraInterface::Crashed(const void* handle) const
{
    if (handle == nullptr)
        return false;
    std::lock_guard<std::mutex> lock(crashLock_);
    return crashed_.count(handle) != 0;
}

oci::sword CWinOraInterface::EnvCreate(oci::OCIEnv** env, oci::ub4 mode) const
{
    CClientCallMark mark;
    return Guarded("OCIEnvCreate", nullptr, [&] { return fn_.EnvCreate(env, mode, nullptr, nullptr, nullptr, nullptr, 0, nullptr); });
}

oci::sword CWinOraInterface::HandleAlloc(const void* parent, void** handle, oci::ub4 type) const
{
    CClientCallMark mark;
    return Guarded("OCIHandleAlloc", parent, [&] { return fn_.HandleAlloc(parent, handle, type, 0, nullptr); });
}

oci::sword CWinOraInterface::HandleFree(void* handle, oci::ub4 type) const
{
    CClientCallMark mark;
    // Called by destructors: a crash is logged and reported as an error, never raised.
    try {
        return Guarded("OCIHandleFree", handle, [&] { return fn_.HandleFree(handle, type); });
    } catch (...) {
        return oci::OCI_ERROR;
    }
}

oci::sword CWinOraInterface::ServerAttach(oci::OCIServer* server, oci::OCIError* error,
                                          oci::ub4 mode) const
{
    CClientCallMark mark;
    return Guarded("OCIServerAttach", error, [&] { return fn_.ServerAttach(server, error, nullptr, 0, mode); });
}

oci::sword CWinOraInterface::AttrSet(void* target, oci::ub4 targetType, void* value, oci::ub4 size,
                                     oci::ub4 attribute, oci::OCIError* error) const
{
    CClientCallMark mark;
    return Guarded("OCIAttrSet", error, [&] { return fn_.AttrSet(target, targetType, value, size, attribute, error); });
}

oci::sword CWinOraInterface::SessionBegin(oci::OCISvcCtx* serviceContext, oci::OCIError* error,
                                          oci::OCISession* session, oci::ub4 credentials,
                                          oci::ub4 mode) const
{
    CClientCallMark mark;
    return Guarded("OCISessionBegin", error, [&] { return fn_.SessionBegin(serviceContext, error, session, credentials, mode); });
}

oci::sword CWinOraInterface::SessionEnd(oci::OCISvcCtx* serviceContext, oci::OCIError* error,
                                        oci::OCISession* session) const
{
    CClientCallMark mark;
    return Guarded("OCISessionEnd", error, [&] { return fn_.SessionEnd(serviceContext, error, session, oci::OCI_DEFAULT); });
}

oci::sword CWinOraInterface::ServerDetach(oci::OCIServer* server, oci::OCIError* error) const
{
    CClientCallMark mark;
    return Guarded("OCIServerDetach", error, [&] { return fn_.ServerDetach(server, error, oci::OCI_DEFAULT); });
}

oci::sword CWinOraInterface::StmtPrepare(oci::OCIStmt* statement, oci::OCIError* error,
                                         const std::string& text) const
{
    CClientCallMark mark;
    return Guarded("OCIStmtPrepare", error, [&] { return fn_.StmtPrepare(statement, error, reinterpret_cast<const oci::OraText*>(text.c_str()),
                           static_cast<oci::ub4>(text.size()), oci::OCI_NTV_SYNTAX,
                           oci::OCI_DEFAULT); });
}

oci::sword CWinOraInterface::DefineByPos(oci::OCIStmt* statement, oci::OCIDefine** define,
                                         oci::OCIError* error, oci::ub4 position, void* buffer,
                                         oci::sb4 size, oci::ub2 dty, oci::sb2* indicator) const
{
    CClientCallMark mark;
    return Guarded("OCIDefineByPos", error, [&] { return fn_.DefineByPos(statement, define, error, position, buffer, size, dty, indicator,
                           nullptr, nullptr, oci::OCI_DEFAULT); });
}

oci::sword CWinOraInterface::BindByName(oci::OCIStmt* statement, oci::OCIBind** bind,
                                        oci::OCIError* error, const std::string& name, void* value,
                                        oci::sb4 size, oci::ub2 dty) const
{
    CClientCallMark mark;
    return Guarded("OCIBindByName", error, [&] { return fn_.BindByName(statement, bind, error,
                          reinterpret_cast<const oci::OraText*>(name.c_str()), -1, value, size,
                          dty, nullptr, nullptr, nullptr, 0, nullptr, oci::OCI_DEFAULT); });
}

oci::sword CWinOraInterface::StmtExecute(oci::OCISvcCtx* serviceContext, oci::OCIStmt* statement,
                                         oci::OCIError* error, oci::ub4 iters) const
{
    CClientCallMark mark;
    return Guarded("OCIStmtExecute", error, [&] { return fn_.StmtExecute(serviceContext, statement, error, iters, 0, nullptr, nullptr,
                           oci::OCI_DEFAULT); });
}

oci::sword CWinOraInterface::StmtFetch2(oci::OCIStmt* statement, oci::OCIError* error) const
{
    CClientCallMark mark;
    return Guarded("OCIStmtFetch2", error, [&] { return fn_.StmtFetch2(statement, error, 1, oci::OCI_FETCH_NEXT, 0, oci::OCI_DEFAULT); });
}

oci::sword CWinOraInterface::ErrorGet(oci::OCIError* error, oci::sb4* code, oci::OraText* buffer,
                                      oci::ub4 size) const
{
    CClientCallMark mark;
    return Guarded("OCIErrorGet", error, [&] { return fn_.ErrorGet(error, 1, nullptr, code, buffer, size, oci::OCI_HTYPE_ERROR); });
}

oci::sword CWinOraInterface::DBStartup(oci::OCISvcCtx* serviceContext, oci::OCIError* error) const
{
    CClientCallMark mark;
    return Guarded("OCIDBStartup", error, [&] { return fn_.DBStartup(serviceContext, error, nullptr, oci::OCI_DEFAULT, 0); });
}

oci::sword CWinOraInterface::DBShutdown(oci::OCISvcCtx* serviceContext, oci::OCIError* error,
                                        oci::ub4 mode) const
{
    CClientCallMark mark;
    return Guarded("OCIDBShutdown", error, [&] { return fn_.DBShutdown(serviceContext, error, nullptr, mode); });
}

bool CWinOraInterface::HasBreak() const
{
    return fn_.Break != nullptr;
}

oci::sword CWinOraInterface::Break(oci::OCISvcCtx* serviceContext, oci::OCIError* error) const
{
    CClientCallMark mark;
    return Guarded("OCIBreak", error, [&] { return fn_.Break(serviceContext, error); });
}

} // namespace oracle
} // namespace specific
