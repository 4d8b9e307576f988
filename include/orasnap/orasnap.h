/* orasnap: the library's exported functions (Windows x86-64, default calling convention).
 * Every text returned through a wchar_t** is allocated by the library with malloc and must be
 * released with OracleLibStrFree. */
#ifndef ORASNAP_ORASNAP_H
#define ORASNAP_ORASNAP_H

#include <stdint.h>
#include <wchar.h>
#ifndef __cplusplus
#include <stdbool.h>
#endif

/* The same guard <windows.h> uses, so either header may come first. */
#ifndef _HRESULT_DEFINED
#define _HRESULT_DEFINED
typedef long HRESULT;
#endif

/* Inside the DLL the module definition file is the one list of exports. */
#if defined(ORASNAP_BUILDING_DLL)
#define ORASNAP_API
#else
#define ORASNAP_API __declspec(dllimport)
#endif

#ifdef __cplusplus
extern "C" {
#endif

ORASNAP_API HRESULT OracleVssInitLib(const wchar_t* logName, wchar_t** errorText);
ORASNAP_API HRESULT OracleVssStopLib(wchar_t** errorText);
ORASNAP_API HRESULT OracleGatherVssInfo(void* reserved1, void* reserved2, wchar_t** result, wchar_t** errorText);
ORASNAP_API HRESULT OracleShouldSkipVssWriter(const wchar_t* sid, bool* skip, wchar_t** errorText);
ORASNAP_API HRESULT OracleCheckVssFunctionality(bool* functional, wchar_t** errorText);
ORASNAP_API void    OracleLibStrFree(wchar_t* text);
ORASNAP_API HRESULT OracleExploreInstances(bool exploreFlag, const wchar_t* login, const wchar_t* password,
                                           const wchar_t* exploreDbConfigXml, wchar_t** result, wchar_t** errorText);
ORASNAP_API HRESULT OracleBackupLogs(const wchar_t* homePath, const wchar_t* sid, const wchar_t* usn,
                                     const wchar_t* lastRecId, const wchar_t* login, const wchar_t* password,
                                     wchar_t** result, wchar_t** errorText);
ORASNAP_API HRESULT OracleEnumLogs(wchar_t** result, wchar_t** errorText);
ORASNAP_API HRESULT OraclePrepareDbsForBackup(const wchar_t* dbsXml, const wchar_t* exploreDbConfigXml,
                                              const wchar_t* login, const wchar_t* password,
                                              const wchar_t* osLogin, const wchar_t* osPassword,
                                              wchar_t** result, wchar_t** errorText);
ORASNAP_API HRESULT OracleFinishDbsBackup(const wchar_t* dbsXml, const wchar_t* login, const wchar_t* password,
                                          wchar_t** errorText);
ORASNAP_API HRESULT OracleDeleteLogsByTime(const wchar_t* homePath, const wchar_t* sid, int32_t minutes,
                                           const wchar_t* login, const wchar_t* password, wchar_t** errorText);
ORASNAP_API HRESULT OracleDeleteLogsBySize(const wchar_t* homePath, const wchar_t* sid, uint64_t sizeLimit,
                                           const wchar_t* login, const wchar_t* password, wchar_t** errorText);
ORASNAP_API HRESULT OracleRemoveLogsInTemp(const wchar_t* logsXml, wchar_t** errorText);
ORASNAP_API HRESULT OracleIsRestoreRequired(bool* required, wchar_t** errorText);
ORASNAP_API HRESULT OracleDoRestore(wchar_t** errorText);
ORASNAP_API HRESULT OracleGetLogsFolder(wchar_t** result, wchar_t** errorText);
ORASNAP_API HRESULT OracleTest(void* reserved1, void* reserved2, const wchar_t* logName, wchar_t** errorText);

#ifdef __cplusplus
}
#endif

#endif
