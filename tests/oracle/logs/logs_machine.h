#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "support/ocisim_world.h"
#include "support/orasnap_library.h"
#include "support/registry_sandbox.h"
#include "support/temp_folder.h"

namespace test {

// One database server as the agent sees it through the exports: the simulated
// instance ORCL (its archived_log lines say @ARCH@ for the archive folder), the
// agent's settings in a sandboxed registry, and a private copy of orasnap.dll
// that reads them (a copy under another name keeps singletons of its own).
class CLogsMachine {
public:
    // `orcl` gets the archive folder as its destination and in place of @ARCH@ in
    // the names of its archived logs. Logs whose files are gone are deleted too.
    explicit CLogsMachine(ocisim::InstanceSetup orcl, bool stageLogs = false,
                          const std::wstring& logsFolder = std::wstring());
    CLogsMachine(const CLogsMachine&) = delete;
    CLogsMachine& operator=(const CLogsMachine&) = delete;

    // Each gives the result text, or else the error text, and the HRESULT.
    HRESULT BackupLogs(const std::wstring& lastRecId, std::wstring& text) const;
    HRESULT EnumLogs(std::wstring& text) const;
    HRESULT RemoveLogsInTemp(const std::wstring& logsXml, std::wstring& text) const;
    HRESULT DeleteLogsByTime(int32_t minutes, std::wstring& text) const;
    HRESULT DeleteLogsBySize(uint64_t sizeLimit, std::wstring& text) const;

    const std::wstring& ArchFolder() const { return arch_; }
    const std::wstring& LogsFolder() const { return logs_; }
    void WriteArchFile(const std::wstring& name, size_t size) const;
    // Masked names of the files in `folder`, sorted.
    std::vector<std::string> Files(const std::wstring& folder);
    // The journal lines that begin with one of `prefixes`, masked; by default the
    // statements the server ran and the errors it answered.
    std::vector<std::string> Statements(const std::vector<std::string>& prefixes = {"sql ", "error "});
    std::string LibraryLog() const;
    // `text` in UTF-8 with its variable parts named: the folders as <ARCH> and
    // <LOGS>, GUIDs as {G1}... and directory objects as DIR1... in order of
    // first sight, the call's stamp as <CALL>, times of today as <NOW>.
    std::string Mask(const std::string& text);
    std::string Mask(const std::wstring& text);
    const test::ocisim_world_t& World() const { return world_; }

private:
    test::registry_sandbox_t registry_;
    test::temp_folder_t root_;
    test::ocisim_world_t world_;
    std::wstring arch_;
    std::wstring logs_;
    library_t library_{true};
    std::vector<std::string> guids_;
    std::vector<std::string> directories_;
};

// The simulated ORCL with `logs` as its archived logs and `properties`.
ocisim::InstanceSetup OrclWithLogs(const std::vector<ocisim::Fields>& logs, const ocisim::Fields& properties = {});

} // namespace test
