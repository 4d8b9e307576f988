#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "support/ocisim_world.h"
#include "support/registry_sandbox.h"
#include "support/temp_folder.h"

namespace logs_test {

struct SLogsConfig {
    bool stageLogs = false;
    bool deleteAbsentLogFiles = true;
    // Replaces the logs folder of the machine when set.
    std::wstring logsFolder;
};

// One database server as the agent sees it through the exports: the simulated
// instance ORCL, its archive folder on disk, the agent's configuration in a
// sandboxed registry, and a private copy of orasnap.dll that reads that
// configuration (a copy under another name keeps singletons of its own).
class CLogsMachine {
public:
    // `logs` are the scenario's archived_log lines of ORCL; `@ARCH@` in them
    // stands for the archive folder.
    CLogsMachine(const std::string& properties, const std::vector<std::string>& logs,
                 const SLogsConfig& config = SLogsConfig());
    ~CLogsMachine();
    CLogsMachine(const CLogsMachine&) = delete;
    CLogsMachine& operator=(const CLogsMachine&) = delete;

    // Each gives the result text (or the error text) and the HRESULT.
    HRESULT BackupLogs(const std::wstring& lastRecId, std::wstring& text) const;
    HRESULT EnumLogs(std::wstring& text) const;
    HRESULT RemoveLogsInTemp(const std::wstring& logsXml, std::wstring& text) const;
    HRESULT DeleteLogsByTime(int32_t minutes, std::wstring& text) const;
    HRESULT DeleteLogsBySize(uint64_t sizeLimit, std::wstring& text) const;

    const std::wstring& ArchFolder() const { return arch_; }
    const std::wstring& LogsFolder() const { return logs_; }
    // A file of `size` bytes in the archive folder.
    void WriteArchFile(const std::wstring& name, size_t size) const;
    // Names of the files in `folder`, sorted; GUIDs as {G1}, {G2}... in the
    // order of `Mask` calls so far.
    std::vector<std::string> Files(const std::wstring& folder);
    // The statements the server ran and the errors it answered, in order.
    std::vector<std::string> Statements();
    // The lines of the library's log with their time and thread columns cut.
    std::vector<std::string> LogLines() const;
    // `text` in UTF-8 with its variable parts named: folders as <ARCH> and
    // <LOGS>, GUIDs as {G1}..., directory objects as DIR1..., the call's time
    // as <CALL>, today's times as <NOW>.
    std::string Mask(const std::wstring& text);
    std::string Mask(const std::string& text);
    test::ocisim_world_t& World() { return world_; }

private:
    std::string MaskName(const std::string& text, const char* pattern, const char* prefix,
                         const char* suffix, std::vector<std::string>& names);

    test::registry_sandbox_t registry_;
    test::temp_folder_t root_;
    test::ocisim_world_t world_;
    std::wstring arch_;
    std::wstring logs_;
    std::wstring libraryPath_;
    HMODULE module_ = nullptr;
    std::vector<std::string> guids_;
    std::vector<std::string> directories_;
};

std::string ReadFileText(const std::wstring& path);

} // namespace logs_test
