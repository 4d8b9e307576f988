// Types and constants of the Oracle Call Interface as its public documentation gives
// them, for the x64 ABI. Private to the simulator: the library has its own.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {

typedef std::int32_t sword;
typedef std::int32_t sb4;
typedef std::uint32_t ub4;
typedef std::int16_t sb2;
typedef std::uint16_t ub2;
typedef unsigned char OraText;

typedef struct OCIEnv OCIEnv;
typedef struct OCIError OCIError;
typedef struct OCISvcCtx OCISvcCtx;
typedef struct OCIStmt OCIStmt;
typedef struct OCIBind OCIBind;
typedef struct OCIDefine OCIDefine;
typedef struct OCIServer OCIServer;
typedef struct OCISession OCISession;
typedef struct OCISnapshot OCISnapshot;
typedef struct OCIAdmin OCIAdmin;

}  // extern "C"

namespace ocisim::abi {

// Return codes
constexpr sword OCI_SUCCESS = 0;
constexpr sword OCI_SUCCESS_WITH_INFO = 1;
constexpr sword OCI_NEED_DATA = 99;
constexpr sword OCI_NO_DATA = 100;
constexpr sword OCI_ERROR = -1;
constexpr sword OCI_INVALID_HANDLE = -2;
constexpr sword OCI_STILL_EXECUTING = -3123;

// Handle types
constexpr ub4 OCI_HTYPE_ENV = 1;
constexpr ub4 OCI_HTYPE_ERROR = 2;
constexpr ub4 OCI_HTYPE_SVCCTX = 3;
constexpr ub4 OCI_HTYPE_STMT = 4;
constexpr ub4 OCI_HTYPE_BIND = 5;
constexpr ub4 OCI_HTYPE_DEFINE = 6;
constexpr ub4 OCI_HTYPE_DESCRIBE = 7;
constexpr ub4 OCI_HTYPE_SERVER = 8;
constexpr ub4 OCI_HTYPE_SESSION = 9;

// Attributes
constexpr ub4 OCI_ATTR_SERVER = 6;
constexpr ub4 OCI_ATTR_SESSION = 7;
constexpr ub4 OCI_ATTR_USERNAME = 22;
constexpr ub4 OCI_ATTR_PASSWORD = 23;
constexpr ub4 OCI_ATTR_CALL_TIMEOUT = 531;

// Modes
constexpr ub4 OCI_DEFAULT = 0x0;
constexpr ub4 OCI_THREADED = 0x1;
constexpr ub4 OCI_OBJECT = 0x2;
constexpr ub4 OCI_SYSDBA = 0x2;
constexpr ub4 OCI_SYSOPER = 0x4;
constexpr ub4 OCI_PRELIM_AUTH = 0x8;
constexpr ub4 OCI_CRED_RDBMS = 1;
constexpr ub4 OCI_CRED_EXT = 2;
constexpr ub4 OCI_NTV_SYNTAX = 1;
constexpr ub2 OCI_FETCH_NEXT = 0x02;

// Database startup and shutdown
constexpr ub4 OCI_DBSTARTUPFLAG_FORCE = 0x1;
constexpr ub4 OCI_DBSTARTUPFLAG_RESTRICT = 0x2;
constexpr ub4 OCI_DBSHUTDOWN_TRANSACTIONAL = 1;
constexpr ub4 OCI_DBSHUTDOWN_TRANSACTIONAL_LOCAL = 2;
constexpr ub4 OCI_DBSHUTDOWN_IMMEDIATE = 3;
constexpr ub4 OCI_DBSHUTDOWN_ABORT = 4;
constexpr ub4 OCI_DBSHUTDOWN_FINAL = 5;

// External data types
constexpr ub2 SQLT_CHR = 1;
constexpr ub2 SQLT_INT = 3;
constexpr ub2 SQLT_STR = 5;

}  // namespace ocisim::abi
