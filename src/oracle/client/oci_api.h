#pragma once

// The part of the Oracle Call Interface this library uses: opaque handle
// types, the numeric constants it passes, and the signatures of the entry
// points it resolves from the client library at run time.

#include <cstddef>
#include <cstdint>

namespace specific {
namespace oracle {
namespace oci {

using sword = int32_t;
using sb4 = int32_t;
using ub4 = uint32_t;
using ub2 = uint16_t;
using sb2 = int16_t;
using OraText = unsigned char;

struct OCIEnv;
struct OCIError;
struct OCISvcCtx;
struct OCIStmt;
struct OCIDefine;
struct OCIBind;
struct OCIServer;
struct OCISession;
struct OCISnapshot;
struct OCIAdmin;

// Results.
constexpr sword OCI_SUCCESS = 0;
constexpr sword OCI_SUCCESS_WITH_INFO = 1;
constexpr sword OCI_NO_DATA = 100;
constexpr sword OCI_ERROR = -1;
constexpr sword OCI_INVALID_HANDLE = -2;
constexpr sword OCI_NEED_DATA = 99;

// Handle types.
constexpr ub4 OCI_HTYPE_ENV = 1;
constexpr ub4 OCI_HTYPE_ERROR = 2;
constexpr ub4 OCI_HTYPE_SVCCTX = 3;
constexpr ub4 OCI_HTYPE_STMT = 4;
constexpr ub4 OCI_HTYPE_DEFINE = 6;
constexpr ub4 OCI_HTYPE_SERVER = 8;
constexpr ub4 OCI_HTYPE_SESSION = 9;

// Attributes.
constexpr ub4 OCI_ATTR_SERVER = 6;
constexpr ub4 OCI_ATTR_SESSION = 7;
constexpr ub4 OCI_ATTR_USERNAME = 22;
constexpr ub4 OCI_ATTR_PASSWORD = 23;
// Milliseconds that one round trip on a service context may take (0: no limit);
// clients from before call timeouts refuse it.
constexpr ub4 OCI_ATTR_CALL_TIMEOUT = 531;

// Modes and credential kinds.
constexpr ub4 OCI_DEFAULT = 0;
constexpr ub4 OCI_THREADED = 1;
constexpr ub4 OCI_SYSDBA = 2;
constexpr ub4 OCI_PRELIM_AUTH = 8;
constexpr ub4 OCI_CRED_RDBMS = 1;
constexpr ub4 OCI_CRED_EXT = 2;
constexpr ub4 OCI_NTV_SYNTAX = 1;
constexpr ub2 OCI_FETCH_NEXT = 2;
constexpr ub4 OCI_DBSHUTDOWN_IMMEDIATE = 3;
constexpr ub4 OCI_DBSHUTDOWN_FINAL = 5;

// External data types.
constexpr ub2 SQLT_INT = 3;
constexpr ub2 SQLT_STR = 5;

using OCIEnvCreate_t = sword (*)(OCIEnv** envp, ub4 mode, void* ctxp,
                                 void* (*malocfp)(void* ctxp, size_t size),
                                 void* (*ralocfp)(void* ctxp, void* memptr, size_t newsize),
                                 void (*mfreefp)(void* ctxp, void* memptr), size_t xtramem_sz,
                                 void** usrmempp);
using OCIHandleAlloc_t = sword (*)(const void* parenth, void** hndlpp, ub4 type, size_t xtramem_sz,
                                   void** usrmempp);
using OCIHandleFree_t = sword (*)(void* hndlp, ub4 type);
using OCIServerAttach_t = sword (*)(OCIServer* srvhp, OCIError* errhp, const OraText* dblink,
                                    sb4 dblink_len, ub4 mode);
using OCIAttrSet_t = sword (*)(void* trgthndlp, ub4 trghndltyp, void* attributep, ub4 size,
                               ub4 attrtype, OCIError* errhp);
using OCISessionBegin_t = sword (*)(OCISvcCtx* svchp, OCIError* errhp, OCISession* usrhp, ub4 credt,
                                    ub4 mode);
using OCISessionEnd_t = sword (*)(OCISvcCtx* svchp, OCIError* errhp, OCISession* usrhp, ub4 mode);
using OCIServerDetach_t = sword (*)(OCIServer* srvhp, OCIError* errhp, ub4 mode);
using OCIStmtPrepare_t = sword (*)(OCIStmt* stmtp, OCIError* errhp, const OraText* stmt,
                                   ub4 stmt_len, ub4 language, ub4 mode);
using OCIDefineByPos_t = sword (*)(OCIStmt* stmtp, OCIDefine** defnpp, OCIError* errhp,
                                   ub4 position, void* valuep, sb4 value_sz, ub2 dty, void* indp,
                                   ub2* rlenp, ub2* rcodep, ub4 mode);
using OCIBindByName_t = sword (*)(OCIStmt* stmtp, OCIBind** bindpp, OCIError* errhp,
                                  const OraText* placeholder, sb4 placeh_len, void* valuep,
                                  sb4 value_sz, ub2 dty, void* indp, ub2* alenp, ub2* rcodep,
                                  ub4 maxarr_len, ub4* curelep, ub4 mode);
using OCIStmtExecute_t = sword (*)(OCISvcCtx* svchp, OCIStmt* stmtp, OCIError* errhp, ub4 iters,
                                   ub4 rowoff, const OCISnapshot* snap_in, OCISnapshot* snap_out,
                                   ub4 mode);
using OCIStmtFetch2_t = sword (*)(OCIStmt* stmtp, OCIError* errhp, ub4 nrows, ub2 orientation,
                                  sb4 fetchOffset, ub4 mode);
using OCIErrorGet_t = sword (*)(void* hndlp, ub4 recordno, OraText* sqlstate, sb4* errcodep,
                                OraText* bufp, ub4 bufsiz, ub4 type);
using OCIDBStartup_t = sword (*)(OCISvcCtx* svchp, OCIError* errhp, OCIAdmin* admhp, ub4 mode,
                                 ub4 flags);
using OCIDBShutdown_t = sword (*)(OCISvcCtx* svchp, OCIError* errhp, OCIAdmin* admhp, ub4 mode);
using OCIBreak_t = sword (*)(void* hndlp, OCIError* errhp);

// The resolved entry points of one loaded client library.
struct SOciFunctions {
    OCIEnvCreate_t EnvCreate = nullptr;
    OCIHandleAlloc_t HandleAlloc = nullptr;
    OCIHandleFree_t HandleFree = nullptr;
    OCIServerAttach_t ServerAttach = nullptr;
    OCIAttrSet_t AttrSet = nullptr;
    OCISessionBegin_t SessionBegin = nullptr;
    OCISessionEnd_t SessionEnd = nullptr;
    OCIServerDetach_t ServerDetach = nullptr;
    OCIStmtPrepare_t StmtPrepare = nullptr;
    OCIDefineByPos_t DefineByPos = nullptr;
    OCIBindByName_t BindByName = nullptr;
    OCIStmtExecute_t StmtExecute = nullptr;
    OCIStmtFetch2_t StmtFetch2 = nullptr;
    OCIErrorGet_t ErrorGet = nullptr;
    OCIDBStartup_t DBStartup = nullptr;
    OCIDBShutdown_t DBShutdown = nullptr;
    // Optional: null for a client without it.
    OCIBreak_t Break = nullptr;
};

} // namespace oci
} // namespace oracle
} // namespace specific
