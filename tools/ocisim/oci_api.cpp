// The exported OCI functions of the simulated client: the journal, faults, and the
// hand-over of statements to the engine (the handles themselves are in handles.*).
//
// Hangs and latencies wait on an event that is never set, holding no lock and
// allocating nothing while they wait: the library under test ends hung threads with
// TerminateThread, and a thread killed while holding a lock or inside the heap would
// take the process down with it.
#include "handles.h"
#include "journal.h"
#include "oci_abi.h"
#include "sql_engine.h"
#include "world.h"

#include <windows.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

using namespace ocisim;
using namespace ocisim::abi;
using namespace ocisim::handles;

namespace {

HANDLE g_neverSet = nullptr;  // created when the DLL loads; hangs and latencies wait on it

// ---------------------------------------------------------------------------------------
// Text and environment

std::wstring widen_utf8(const std::string& text) {
    if (text.empty()) return {};
    const int size = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(size), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), wide.data(), size);
    return wide;
}

std::string narrow_utf8(const std::wstring& text) {
    if (text.empty()) return {};
    const int size =
        WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), narrow.data(), size, nullptr, nullptr);
    return narrow;
}

// Read as a real client does: the process environment block first, then the C runtime's copy.
std::string environment(const wchar_t* name, const char* narrowName) {
    const DWORD size = GetEnvironmentVariableW(name, nullptr, 0);
    if (size > 0) {
        std::wstring value(size, L'\0');
        const DWORD length = GetEnvironmentVariableW(name, value.data(), size);
        value.resize(length);
        return narrow_utf8(value);
    }
#if defined(_MSC_VER)
    char* value = nullptr;
    std::size_t length = 0;
    if (_dupenv_s(&value, &length, narrowName) != 0 || !value) return {};
    const std::string copy(value);
    std::free(value);
    return copy;
#else
    const char* value = std::getenv(narrowName);
    return value ? value : "";
#endif
}

// One line per call, appended and closed at once, so the journal survives a killed thread or a crash.
void journal(const std::string& line) {
    const std::string path = environment(L"OCISIM_JOURNAL", "OCISIM_JOURNAL");
    if (path.empty()) return;
    HANDLE file = CreateFileW(widen_utf8(path).c_str(), FILE_APPEND_DATA,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return;
    const std::string data = line + "\n";
    DWORD written = 0;
    WriteFile(file, data.data(), static_cast<DWORD>(data.size()), &written, nullptr);
    CloseHandle(file);
}

// ---------------------------------------------------------------------------------------
// The world of this process

struct Simulator {
    std::mutex lock;
    World world;
    std::string statePath;
};

Simulator& simulator() {
    static Simulator instance;
    return instance;
}

// Saves the world after a change; the caller holds the lock.
void save_locked(Simulator& sim) {
    try {
        save_world(sim.statePath, sim.world);
    } catch (const ScenarioError& e) {
        journal(std::string("state-error ") + e.what());
    }
}

// Reloads the world for a new attach: a second process, or a test that wrote a new
// scenario, finds it as the state file or the scenario has it.
void load_world_for_attach() {
    const std::string scenario = environment(L"OCISIM_SCENARIO", "OCISIM_SCENARIO");
    if (scenario.empty()) throw OraError(12560, ora_text(12560) + " (OCISIM_SCENARIO is not set)");
    std::string state = environment(L"OCISIM_STATE", "OCISIM_STATE");
    if (state.empty()) state = state_path_for(scenario);
    Simulator& sim = simulator();
    std::lock_guard<std::mutex> guard(sim.lock);
    try {
        sim.world = load_state_or_scenario(scenario, state);
        sim.statePath = state;
    } catch (const ScenarioError& e) {
        throw OraError(12560, ora_text(12560) + " (" + e.what() + ")");
    }
}

std::uint32_t latency_of(const std::string& sid) {
    Simulator& sim = simulator();
    std::lock_guard<std::mutex> guard(sim.lock);
    const Instance* instance = sim.world.find(sid);
    return instance ? static_cast<std::uint32_t>(std::stoul(instance->get("latency_ms"))) : 0;
}

// A round trip to the server costs the instance's latency.
void round_trip(const std::string& sid) {
    const std::uint32_t latency = latency_of(sid);
    if (latency > 0) WaitForSingleObject(g_neverSet, latency);
}

FaultHit find_fault(const std::string& sid, const std::string& point, const std::string& statement) {
    Simulator& sim = simulator();
    std::lock_guard<std::mutex> guard(sim.lock);
    Instance* instance = sim.world.find(sid);
    if (!instance) return {};
    FaultHit hit = take_fault(*instance, point, statement);
    if (hit.changed) save_locked(sim);
    return hit;
}

// A call on a service context starts: an OCIBreak from before it doesn't touch it.
void start_call(const SvcCtx* svc) {
    if (svc) ResetEvent(svc->breakEvent);
}

// A hang inside a call on a service context ends as a real client ends it: at the call
// timeout (ORA-03156) or at an OCIBreak from another thread (ORA-01013). Without a
// service context, or with neither, it never ends.
void hang(const SvcCtx* svc) {
    if (!svc) {
        WaitForSingleObject(g_neverSet, INFINITE);
        return;
    }
    const DWORD waited = WaitForSingleObject(svc->breakEvent, svc->callTimeoutMs > 0 ? svc->callTimeoutMs : INFINITE);
    throw OraError(waited == WAIT_OBJECT_0 ? 1013 : 3156);
}

// Carries out a hang, a crash or an error, inside a call on `svc` when there is one; a
// fetch failure is left to the fetch.
void act_on(const FaultHit& hit, const std::string& sid, const SvcCtx* svc = nullptr) {
    if (!hit.hit) return;
    const std::string& kind = hit.fault.get("kind");
    journal("fault sid=" + sid + " kind=" + kind + " at=" + hit.fault.get("at"));
    if (kind == "hang") {
        hang(svc);
    } else if (kind == "av") {
        volatile std::uintptr_t address = 0;
        *reinterpret_cast<volatile int*>(address) = 1;
    } else if (kind == "error") {
        const int code = hit.fault.get("code").empty() ? 1013 : std::stoi(hit.fault.get("code"));
        const std::string& message = hit.fault.get("message");
        throw OraError(code, message.empty() ? ora_text(code) : message);
    }
}

// Records a server error on the error handle, as OCIErrorGet will give it: OCI keeps the
// trailing line feed of the server's text.
sword fail(Err* err, const std::string& sid, const OraError& e) {
    err->error.code = e.code();
    err->error.text = std::string(e.what()) + "\n";
    journal("error sid=" + sid + " code=" + std::to_string(e.code()));
    return OCI_ERROR;
}

// An instance can be served by an "old" client (call_timeout = no), one from before
// call timeouts: it refuses the attribute, so only OCIBreak can cut a hung call.
bool knows_call_timeouts(const SvcCtx* svc) {
    if (!svc->server || !svc->server->attached) return true;
    Simulator& sim = simulator();
    std::lock_guard<std::mutex> guard(sim.lock);
    const Instance* instance = sim.world.find(svc->server->sid);
    return !instance || instance->flag("call_timeout");
}

std::string mode_name(ub4 mode) {
    if (mode == OCI_DEFAULT) return "DEFAULT";
    std::string name;
    if (mode & OCI_SYSDBA) name += "SYSDBA";
    if (mode & OCI_SYSOPER) name += std::string(name.empty() ? "" : "|") + "SYSOPER";
    if (mode & OCI_PRELIM_AUTH) name += std::string(name.empty() ? "" : "|") + "PRELIM_AUTH";
    return name;
}

std::string shutdown_name(ub4 mode) {
    switch (mode) {
    case OCI_DEFAULT: return "DEFAULT";
    case OCI_DBSHUTDOWN_TRANSACTIONAL: return "TRANSACTIONAL";
    case OCI_DBSHUTDOWN_TRANSACTIONAL_LOCAL: return "TRANSACTIONAL_LOCAL";
    case OCI_DBSHUTDOWN_IMMEDIATE: return "IMMEDIATE";
    case OCI_DBSHUTDOWN_ABORT: return "ABORT";
    case OCI_DBSHUTDOWN_FINAL: return "FINAL";
    default: return std::to_string(mode);
    }
}

bool is_query(const std::string& text) {
    const auto start = text.find_first_not_of(" \t\r\n(");
    return start != std::string::npos && iequals(text.substr(start, 6), "SELECT");
}


// Puts one row into the caller's define buffers, as a real client does for each fetch.
sword deliver_row(Stmt* stmt, Err* err, const std::vector<std::string>& row) {
    sword status = OCI_SUCCESS;
    for (Define* define : stmt->defines) {
        if (define->position > row.size()) return fail(err, stmt->sid, OraError(1007));
        const std::string& value = row[define->position - 1];
        if (define->code) *define->code = 0;
        if (value.empty()) {
            if (!define->indicator) return fail(err, stmt->sid, OraError(1405));
            *define->indicator = -1;
            continue;
        }
        if (define->indicator) *define->indicator = 0;
        if (define->dty == SQLT_INT) {
            if (!is_integer(value)) return fail(err, stmt->sid, OraError(1722, "ORA-01722: invalid number"));
            Bind target;
            target.value = define->value;
            target.size = define->size;
            store_number(target, std::stoll(value));
            if (define->length) *define->length = static_cast<ub2>(define->size);
            continue;
        }
        const std::size_t room = define->dty == SQLT_STR ? static_cast<std::size_t>(std::max(define->size - 1, 0))
                                                         : static_cast<std::size_t>(std::max(define->size, 0));
        const std::size_t copied = std::min(room, value.size());
        char* buffer = static_cast<char*>(define->value);
        std::memcpy(buffer, value.data(), copied);
        if (define->dty == SQLT_STR && define->size > 0) buffer[copied] = '\0';
        if (define->length) *define->length = static_cast<ub2>(copied + (define->dty == SQLT_STR ? 1 : 0));
        if (copied < value.size()) {
            if (define->indicator)
                *define->indicator = value.size() > 32767 ? static_cast<sb2>(-2) : static_cast<sb2>(value.size());
            if (define->code) *define->code = 1406;
            err->error.code = 24345;
            err->error.text = "ORA-24345: A Truncation or null fetch error occurred\n";
            status = OCI_SUCCESS_WITH_INFO;
        }
    }
    return status;
}

// The fault a statement's fetch meets: a fetch_fail declared on the statement, or any
// fault declared at=fetch for it.
void arm_fetch_fault(Stmt* stmt, const FaultHit& hit) {
    stmt->fetchFault = hit.hit;
    if (!hit.hit) return;
    stmt->fetchFaultAfter = static_cast<std::size_t>(hit.fault.number("after"));
    stmt->fetchFaultRecord = hit.fault;
}

sword fetch_one(Stmt* stmt, Err* err) {
    if (stmt->fetchFault && stmt->next >= stmt->fetchFaultAfter) {
        const Record& fault = stmt->fetchFaultRecord;
        if (fault.get("kind") != "fetch_fail") {
            try {
                act_on(FaultHit{true, false, fault}, stmt->sid, as<SvcCtx>(stmt->svc, OCI_HTYPE_SVCCTX));
            } catch (const OraError& e) {
                return fail(err, stmt->sid, e);
            }
        } else {
            journal("fault sid=" + stmt->sid + " kind=fetch_fail at=fetch");
            const int code = fault.get("code").empty() ? 3113 : std::stoi(fault.get("code"));
            const std::string& message = fault.get("message");
            return fail(err, stmt->sid, OraError(code, message.empty() ? ora_text(code) : message));
        }
    }
    if (stmt->next >= stmt->result.rows.size()) return OCI_NO_DATA;
    return deliver_row(stmt, err, stmt->result.rows[stmt->next++]);
}

// Runs `operation` on an engine for the instance `sid` under the world's lock, and saves the
// world when the operation changed it.
template <class Operation>
void with_engine(const std::string& sid, SessionRights rights, Operation operation) {
    Simulator& sim = simulator();
    std::lock_guard<std::mutex> guard(sim.lock);
    Instance* instance = sim.world.find(sid);
    if (!instance) throw OraError(3113);
    Engine engine(*instance, rights);
    operation(engine, *instance);
    if (engine.changed()) save_locked(sim);
}

// A startup or shutdown call: journaled as `point` with `details`, refused with 24300 when
// its arguments aren't `valid`, then `operation` runs on the session's instance after the
// round trip and any fault declared for `point`.
template <class Operation>
sword instance_call(OCISvcCtx* svchp, OCIError* errhp, const std::string& point, const std::string& details,
                    bool valid, Operation operation) {
    SvcCtx* svc = as<SvcCtx>(svchp, OCI_HTYPE_SVCCTX);
    Err* err = as<Err>(errhp, OCI_HTYPE_ERROR);
    if (!svc || !err) return OCI_INVALID_HANDLE;
    clear(err->error);
    const std::string sid = svc->server ? svc->server->sid : "";
    journal(point + " sid=" + sid + details);
    try {
        if (!svc->server || !svc->server->attached) throw OraError(3114);
        if (!svc->session || !svc->session->begun) throw OraError(1012);
        if (!valid) throw OraError(24300);
        start_call(svc);
        round_trip(sid);
        act_on(find_fault(sid, point, ""), sid, svc);
        with_engine(sid, svc->session->rights, operation);
    } catch (const OraError& e) {
        return fail(err, sid, e);
    }
    return OCI_SUCCESS;
}

}  // namespace

// ---------------------------------------------------------------------------------------
// The exports

extern "C" {

BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) g_neverSet = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    return TRUE;
}

sword OCIEnvCreate(OCIEnv** envhpp, ub4 mode, const void* ctxp, void* (*malocfp)(void*, size_t),
                   void* (*ralocfp)(void*, void*, size_t), void (*mfreefp)(void*, void*), size_t xtramem_sz,
                   void** usrmempp) {
    (void)mode;
    (void)ctxp;
    (void)malocfp;
    (void)ralocfp;
    (void)mfreefp;
    if (!envhpp) return OCI_INVALID_HANDLE;
    Env* env = make<Env>();
    if (xtramem_sz > 0) {
        env->userMemory.resize(xtramem_sz);
        if (usrmempp) *usrmempp = env->userMemory.data();
    }
    *envhpp = reinterpret_cast<OCIEnv*>(env);
    return OCI_SUCCESS;
}

sword OCIHandleAlloc(const void* parenth, void** hndlpp, ub4 type, size_t xtramem_sz, void** usrmempp) {
    if (!as<Env>(parenth, OCI_HTYPE_ENV) || !hndlpp) return OCI_INVALID_HANDLE;
    Handle* handle = nullptr;
    switch (type) {
    case OCI_HTYPE_ERROR: handle = make<Err>(); break;
    case OCI_HTYPE_SVCCTX: handle = make<SvcCtx>(); break;
    case OCI_HTYPE_STMT: handle = make<Stmt>(); break;
    case OCI_HTYPE_SERVER: handle = make<Server>(); break;
    case OCI_HTYPE_SESSION: handle = make<Session>(); break;
    default: return OCI_INVALID_HANDLE;
    }
    if (xtramem_sz > 0) {
        handle->userMemory.resize(xtramem_sz);
        if (usrmempp) *usrmempp = handle->userMemory.data();
    }
    *hndlpp = handle;
    return OCI_SUCCESS;
}

sword OCIHandleFree(void* hndlp, ub4 type) {
    Handle* handle = release(hndlp, type);
    if (!handle) {
        journal("free htype=" + std::to_string(type) + " invalid");
        return OCI_INVALID_HANDLE;
    }
    journal("free htype=" + std::to_string(type));
    delete handle;
    return OCI_SUCCESS;
}

sword OCIServerAttach(OCIServer* srvhp, OCIError* errhp, const OraText* dblink, sb4 dblink_len, ub4 mode) {
    Server* server = as<Server>(srvhp, OCI_HTYPE_SERVER);
    Err* err = as<Err>(errhp, OCI_HTYPE_ERROR);
    if (!server || !err) return OCI_INVALID_HANDLE;
    clear(err->error);
    const std::string sid = environment(L"ORACLE_SID", "ORACLE_SID");
    journal("attach sid=" + sid);
    try {
        if (server->attached) throw OraError(24309, "ORA-24309: already connected to a server");
        if (dblink && dblink_len != 0) throw OraError(12154);
        if (mode != OCI_DEFAULT) throw OraError(24300);
        load_world_for_attach();
        {
            Simulator& sim = simulator();
            std::lock_guard<std::mutex> guard(sim.lock);
            if (sid.empty() || !sim.world.find(sid)) throw OraError(12560);
        }
        round_trip(sid);
        act_on(find_fault(sid, "attach", ""), sid);
    } catch (const OraError& e) {
        return fail(err, sid, e);
    }
    server->sid = sid;
    server->attached = true;
    return OCI_SUCCESS;
}

sword OCIServerDetach(OCIServer* srvhp, OCIError* errhp, ub4 mode) {
    Server* server = as<Server>(srvhp, OCI_HTYPE_SERVER);
    Err* err = as<Err>(errhp, OCI_HTYPE_ERROR);
    if (!server || !err) return OCI_INVALID_HANDLE;
    clear(err->error);
    journal("detach sid=" + server->sid);
    if (!server->attached) return fail(err, server->sid, OraError(3114));
    if (mode != OCI_DEFAULT) return fail(err, server->sid, OraError(24300));
    server->attached = false;
    return OCI_SUCCESS;
}

sword OCIAttrSet(void* trgthndlp, ub4 trghndltyp, void* attributep, ub4 size, ub4 attrtype, OCIError* errhp) {
    Err* err = as<Err>(errhp, OCI_HTYPE_ERROR);
    if (!err) return OCI_INVALID_HANDLE;
    clear(err->error);
    if (trghndltyp == OCI_HTYPE_SVCCTX) {
        SvcCtx* svc = as<SvcCtx>(trgthndlp, OCI_HTYPE_SVCCTX);
        if (!svc) return OCI_INVALID_HANDLE;
        if (attrtype == OCI_ATTR_SERVER) {
            Server* server = as<Server>(attributep, OCI_HTYPE_SERVER);
            if (!server) return OCI_INVALID_HANDLE;
            svc->server = server;
            return OCI_SUCCESS;
        }
        if (attrtype == OCI_ATTR_SESSION) {
            Session* session = as<Session>(attributep, OCI_HTYPE_SESSION);
            if (!session) return OCI_INVALID_HANDLE;
            svc->session = session;
            return OCI_SUCCESS;
        }
        if (attrtype == OCI_ATTR_CALL_TIMEOUT) {
            if (!attributep || size != sizeof(ub4)) return fail(err, "", OraError(24300));
            if (!knows_call_timeouts(svc)) return fail(err, "", OraError(24315));
            svc->callTimeoutMs = *static_cast<const ub4*>(attributep);
            return OCI_SUCCESS;
        }
    } else if (trghndltyp == OCI_HTYPE_SESSION) {
        Session* session = as<Session>(trgthndlp, OCI_HTYPE_SESSION);
        if (!session) return OCI_INVALID_HANDLE;
        if (attrtype == OCI_ATTR_USERNAME || attrtype == OCI_ATTR_PASSWORD) {
            const std::string value = attributep ? std::string(static_cast<const char*>(attributep), size) : "";
            (attrtype == OCI_ATTR_USERNAME ? session->user : session->password) = value;
            return OCI_SUCCESS;
        }
    } else if (!as<Handle>(trgthndlp, trghndltyp)) {
        return OCI_INVALID_HANDLE;
    }
    return fail(err, "", OraError(24315));
}

sword OCISessionBegin(OCISvcCtx* svchp, OCIError* errhp, OCISession* usrhp, ub4 credt, ub4 mode) {
    SvcCtx* svc = as<SvcCtx>(svchp, OCI_HTYPE_SVCCTX);
    Err* err = as<Err>(errhp, OCI_HTYPE_ERROR);
    Session* session = as<Session>(usrhp, OCI_HTYPE_SESSION);
    if (!svc || !err || !session) return OCI_INVALID_HANDLE;
    clear(err->error);
    if (!svc->server || !svc->server->attached) return fail(err, "", OraError(3114));
    const std::string sid = svc->server->sid;
    const bool external = credt == OCI_CRED_EXT;
    journal("logon sid=" + sid + " mode=" + mode_name(mode) + " cred=" +
            (external ? std::string("EXT") : credt == OCI_CRED_RDBMS ? "RDBMS login=" + session->user
                                                                     : std::to_string(credt)));
    const bool sysdba = (mode & OCI_SYSDBA) != 0;
    const bool prelim = (mode & OCI_PRELIM_AUTH) != 0;
    try {
        if (mode & ~(OCI_SYSDBA | OCI_PRELIM_AUTH)) throw OraError(24300);
        if (credt != OCI_CRED_EXT && credt != OCI_CRED_RDBMS) throw OraError(1017);
        round_trip(sid);
        act_on(find_fault(sid, "session_begin", ""), sid);
        Simulator& sim = simulator();
        std::lock_guard<std::mutex> guard(sim.lock);
        const Instance* instance = sim.world.find(sid);
        if (!instance) throw OraError(3113);
        check_logon(*instance, external, session->user, session->password, sysdba, prelim);
    } catch (const OraError& e) {
        return fail(err, sid, e);
    }
    session->begun = true;
    session->rights = SessionRights{sysdba, prelim};
    svc->session = session;
    return OCI_SUCCESS;
}

sword OCISessionEnd(OCISvcCtx* svchp, OCIError* errhp, OCISession* usrhp, ub4 mode) {
    SvcCtx* svc = as<SvcCtx>(svchp, OCI_HTYPE_SVCCTX);
    Err* err = as<Err>(errhp, OCI_HTYPE_ERROR);
    Session* session = usrhp ? as<Session>(usrhp, OCI_HTYPE_SESSION) : (svc ? svc->session : nullptr);
    if (!svc || !err || !session) return OCI_INVALID_HANDLE;
    clear(err->error);
    const std::string sid = svc->server ? svc->server->sid : "";
    journal("logoff sid=" + sid);
    if (mode != OCI_DEFAULT) return fail(err, sid, OraError(24300));
    if (!session->begun) return fail(err, sid, OraError(1012));
    try {
        act_on(find_fault(sid, "logoff", ""), sid);
    } catch (const OraError& e) {
        return fail(err, sid, e);
    }
    round_trip(sid);
    session->begun = false;
    return OCI_SUCCESS;
}

sword OCIStmtPrepare(OCIStmt* stmtp, OCIError* errhp, const OraText* stmt, ub4 stmt_len, ub4 language, ub4 mode) {
    Stmt* statement = as<Stmt>(stmtp, OCI_HTYPE_STMT);
    Err* err = as<Err>(errhp, OCI_HTYPE_ERROR);
    if (!statement || !err) return OCI_INVALID_HANDLE;
    clear(err->error);
    if (!stmt || stmt_len == 0) return fail(err, "", OraError(24373, "ORA-24373: invalid length specified for statement"));
    if (language != OCI_NTV_SYNTAX || mode != OCI_DEFAULT) return fail(err, "", OraError(24300));
    statement->text.assign(reinterpret_cast<const char*>(stmt), stmt_len);
    statement->prepared = true;
    statement->executed = false;
    statement->result = ResultSet{};
    statement->next = 0;
    return OCI_SUCCESS;
}

sword OCIDefineByPos(OCIStmt* stmtp, OCIDefine** defnpp, OCIError* errhp, ub4 position, void* valuep, sb4 value_sz,
                     ub2 dty, void* indp, ub2* rlenp, ub2* rcodep, ub4 mode) {
    Stmt* stmt = as<Stmt>(stmtp, OCI_HTYPE_STMT);
    Err* err = as<Err>(errhp, OCI_HTYPE_ERROR);
    if (!stmt || !err || !defnpp) return OCI_INVALID_HANDLE;
    clear(err->error);
    if (!stmt->prepared) return fail(err, "", OraError(24337));
    if (position == 0) return fail(err, "", OraError(1007));
    if (dty != SQLT_STR && dty != SQLT_CHR && dty != SQLT_INT)
        return fail(err, "", OraError(932, "ORA-00932: inconsistent datatypes"));
    if (mode != OCI_DEFAULT) return fail(err, "", OraError(24300));
    Define* define = point_at(stmt, stmt->defines, &Define::position, position, valuep, value_sz, dty);
    define->indicator = static_cast<sb2*>(indp);
    define->length = rlenp;
    define->code = rcodep;
    *defnpp = reinterpret_cast<OCIDefine*>(define);
    return OCI_SUCCESS;
}

sword OCIBindByName(OCIStmt* stmtp, OCIBind** bindpp, OCIError* errhp, const OraText* placeholder, sb4 placeh_len,
                    void* valuep, sb4 value_sz, ub2 dty, void* indp, ub2* alenp, ub2* rcodep, ub4 maxarr_len,
                    ub4* curelep, ub4 mode) {
    (void)indp;
    (void)alenp;
    (void)rcodep;
    (void)curelep;
    Stmt* stmt = as<Stmt>(stmtp, OCI_HTYPE_STMT);
    Err* err = as<Err>(errhp, OCI_HTYPE_ERROR);
    if (!stmt || !err || !bindpp || !placeholder) return OCI_INVALID_HANDLE;
    clear(err->error);
    if (!stmt->prepared) return fail(err, "", OraError(24337));
    const char* raw = reinterpret_cast<const char*>(placeholder);
    const std::string given = placeh_len < 0 ? std::string(raw) : std::string(raw, static_cast<std::size_t>(placeh_len));
    const std::string name = to_upper(given.empty() || given[0] != ':' ? ":" + given : given);
    const auto names = placeholders(stmt->text);
    if (std::find(names.begin(), names.end(), name) == names.end()) return fail(err, "", OraError(1036));
    if (dty != SQLT_STR && dty != SQLT_INT) return fail(err, "", OraError(932, "ORA-00932: inconsistent datatypes"));
    if (maxarr_len != 0 || mode != OCI_DEFAULT) return fail(err, "", OraError(24300));
    Bind* bind = point_at(stmt, stmt->binds, &Bind::name, name, valuep, value_sz, dty);
    journal("bind name=" + given + " value=" +
            (dty == SQLT_STR ? journal_escape(bound_text(*bind)) : std::to_string(bound_number(*bind))));
    *bindpp = reinterpret_cast<OCIBind*>(bind);
    return OCI_SUCCESS;
}

sword OCIStmtExecute(OCISvcCtx* svchp, OCIStmt* stmtp, OCIError* errhp, ub4 iters, ub4 rowoff,
                     const OCISnapshot* snap_in, OCISnapshot* snap_out, ub4 mode) {
    (void)snap_in;
    (void)snap_out;
    SvcCtx* svc = as<SvcCtx>(svchp, OCI_HTYPE_SVCCTX);
    Stmt* stmt = as<Stmt>(stmtp, OCI_HTYPE_STMT);
    Err* err = as<Err>(errhp, OCI_HTYPE_ERROR);
    if (!svc || !stmt || !err) return OCI_INVALID_HANDLE;
    clear(err->error);
    const std::string sid = svc->server ? svc->server->sid : "";
    stmt->sid = sid;
    stmt->executed = false;
    if (!stmt->prepared) return fail(err, sid, OraError(24337));
    if (!svc->server || !svc->server->attached) return fail(err, sid, OraError(3114));
    if (!svc->session || !svc->session->begun) return fail(err, sid, OraError(1012));
    journal("sql sid=" + sid + " text=" + journal_escape(stmt->text));

    const bool query = is_query(stmt->text);
    Binds binds;
    try {
        if (mode != OCI_DEFAULT || rowoff != 0) throw OraError(24300);
        if (!query && iters == 0) throw OraError(24333);
        for (const std::string& name : placeholders(stmt->text)) {
            const auto bind = std::find_if(stmt->binds.begin(), stmt->binds.end(),
                                           [&name](const Bind* b) { return b->name == name; });
            if (bind == stmt->binds.end()) throw OraError(1008);
            BindValue value;
            value.isInteger = (*bind)->dty == SQLT_INT;
            if (value.isInteger)
                value.number = bound_number(**bind);
            else
                value.text = bound_text(**bind);
            binds[name] = value;
        }
        start_call(svc);
        stmt->svc = svc;
        round_trip(sid);
        const FaultHit hit = find_fault(sid, "sql", stmt->text);
        if (hit.hit && hit.fault.get("kind") == "fetch_fail") {
            arm_fetch_fault(stmt, hit);
        } else {
            act_on(hit, sid, svc);
            arm_fetch_fault(stmt, query ? find_fault(sid, "fetch", stmt->text) : FaultHit{});
        }
        with_engine(sid, svc->session->rights,
                    [&](Engine& engine, const Instance&) { stmt->result = engine.execute(stmt->text, binds); });
    } catch (const OraError& e) {
        return fail(err, sid, e);
    }

    stmt->executed = true;
    stmt->next = 0;
    for (Bind* bind : stmt->binds)
        if (bind->dty == SQLT_INT && binds.count(bind->name)) store_number(*bind, binds[bind->name].number);
    if (!stmt->result.isQuery) return OCI_SUCCESS;
    for (const Define* define : stmt->defines)
        if (define->position > stmt->result.columns) return fail(err, sid, OraError(1007));
    return iters == 0 ? OCI_SUCCESS : fetch_one(stmt, err);
}

sword OCIStmtFetch2(OCIStmt* stmthp, OCIError* errhp, ub4 nrows, ub2 orientation, sb4 fetchOffset, ub4 mode) {
    Stmt* stmt = as<Stmt>(stmthp, OCI_HTYPE_STMT);
    Err* err = as<Err>(errhp, OCI_HTYPE_ERROR);
    if (!stmt || !err) return OCI_INVALID_HANDLE;
    clear(err->error);
    if (!stmt->executed || !stmt->result.isQuery)
        return fail(err, stmt->sid, OraError(24338, "ORA-24338: statement handle not executed"));
    if (nrows == 0) {
        stmt->next = stmt->result.rows.size();
        return OCI_SUCCESS;
    }
    if (nrows != 1 || (orientation != OCI_FETCH_NEXT && orientation != OCI_DEFAULT) || fetchOffset != 0 ||
        mode != OCI_DEFAULT)
        return fail(err, stmt->sid, OraError(24300));
    start_call(as<SvcCtx>(stmt->svc, OCI_HTYPE_SVCCTX));
    round_trip(stmt->sid);
    return fetch_one(stmt, err);
}

sword OCIErrorGet(void* hndlp, ub4 recordno, OraText* sqlstate, sb4* errcodep, OraText* bufp, ub4 bufsiz, ub4 type) {
    (void)sqlstate;
    const ErrorRecord* error = nullptr;
    if (type == OCI_HTYPE_ERROR) {
        if (const Err* err = as<Err>(hndlp, OCI_HTYPE_ERROR)) error = &err->error;
    } else if (type == OCI_HTYPE_ENV) {
        if (const Env* env = as<Env>(hndlp, OCI_HTYPE_ENV)) error = &env->error;
    }
    if (!error) return OCI_INVALID_HANDLE;
    if (recordno != 1 || error->code == 0) return OCI_NO_DATA;
    if (errcodep) *errcodep = error->code;
    if (bufp && bufsiz > 0) {
        const std::size_t copied = std::min<std::size_t>(bufsiz - 1, error->text.size());
        std::memcpy(bufp, error->text.data(), copied);
        bufp[copied] = '\0';
    }
    return OCI_SUCCESS;
}

sword OCIDBStartup(OCISvcCtx* svchp, OCIError* errhp, OCIAdmin* admhp, ub4 mode, ub4 flags) {
    const bool valid =
        !admhp && mode == OCI_DEFAULT && !(flags & ~(OCI_DBSTARTUPFLAG_FORCE | OCI_DBSTARTUPFLAG_RESTRICT));
    return instance_call(svchp, errhp, "startup", "", valid, [flags](Engine& engine, const Instance& instance) {
        if ((flags & OCI_DBSTARTUPFLAG_FORCE) && to_upper(instance.get("status")) != "DOWN")
            engine.shutdown(OCI_DBSHUTDOWN_ABORT);
        engine.startup();
    });
}

sword OCIDBShutdown(OCISvcCtx* svchp, OCIError* errhp, OCIAdmin* admhp, ub4 mode) {
    return instance_call(svchp, errhp, "shutdown", " mode=" + shutdown_name(mode), !admhp,
                         [mode](Engine& engine, const Instance&) { engine.shutdown(mode); });
}

// Cancels the call running on the service context, from any thread: the call fails
// with ORA-01013. Holds no lock while the other thread waits.
sword OCIBreak(void* hndlp, OCIError* errhp) {
    SvcCtx* svc = as<SvcCtx>(hndlp, OCI_HTYPE_SVCCTX);
    if (!svc || !as<Err>(errhp, OCI_HTYPE_ERROR)) return OCI_INVALID_HANDLE;
    journal("break sid=" + (svc->server ? svc->server->sid : std::string()));
    SetEvent(svc->breakEvent);
    return OCI_SUCCESS;
}

}  // extern "C"
