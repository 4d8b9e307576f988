#include "logs_machine.h"

#include "common/strings/strings.h"
#include "orasnap/orasnap.h"
#include "support/kept_documents.h"
#include "support/process.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>

namespace test {

namespace {

const wchar_t kConfigKey[] = L"SOFTWARE\\Brelm\\Brelm Safeguard";
const wchar_t kHome[] = L"C:\\oracle\\home";

// Names each match of `pattern` by its rank among the distinct matches seen so far.
std::string MaskNames(const std::string& text, const char* pattern, const std::string& prefix,
                      const std::string& suffix, std::vector<std::string>& seen)
{
    std::string result;
    size_t last = 0;
    const std::regex expression(pattern, std::regex::icase);
    for (std::sregex_iterator it(text.begin(), text.end(), expression), end; it != end; ++it) {
        const std::string found = util::to_upper(it->str());
        const size_t rank = std::find(seen.begin(), seen.end(), found) - seen.begin();
        if (rank == seen.size())
            seen.push_back(found);
        result += text.substr(last, it->position() - last) + prefix + std::to_string(rank + 1) + suffix;
        last = it->position() + it->length();
    }
    return result + text.substr(last);
}

} // namespace

ocisim::InstanceSetup OrclWithLogs(const std::vector<ocisim::Fields>& logs, const ocisim::Fields& properties)
{
    ocisim::InstanceSetup orcl("ORCL", properties);
    for (const ocisim::Fields& log : logs)
        orcl.records.emplace_back("archived_log", log);
    return orcl;
}

CLogsMachine::CLogsMachine(ocisim::InstanceSetup orcl, bool stageLogs, const std::wstring& logsFolder)
    : arch_(root_.file(L"arch")), logs_(logsFolder.empty() ? root_.file(L"logs") : logsFolder)
{
    CreateDirectoryW(arch_.c_str(), nullptr);
    const std::string arch = util::wide_to_utf8(arch_);
    orcl.properties["archive_dest"] = arch;
    for (auto& [kind, fields] : orcl.records)
        if (kind == "archived_log")
            fields["name"] = replace_all(fields["name"], "@ARCH@", arch);
    world_.set_world(ocisim::make_world({orcl}));

    registry_.set_string(kConfigKey, L"LogDirectory", root_.path());
    registry_.set_string(kConfigKey, L"OracleTempLogPath", logs_);
    registry_.set_dword(kConfigKey, L"OracleStageLogsBeforeBackup", stageLogs ? 1 : 0);
    registry_.set_dword(kConfigKey, L"DeleteOracleAbsentLogFiles", 1);
    wchar_t* error = nullptr;
    ORASNAP_EXPORT(library_, OracleVssInitLib)(L"orasnap_logs_test.log", &error);
    library_.take(error);
}

namespace {

// Runs `call` with a result cell and an error cell; `text` gets the result, or else the error.
template <typename Call>
HRESULT Run(const library_t& library, std::wstring& text, Call call)
{
    wchar_t* result = nullptr;
    wchar_t* error = nullptr;
    const HRESULT status = call(&result, &error);
    text = result != nullptr ? result : (error != nullptr ? error : L"");
    if (result != nullptr)
        keep_document(text);
    ORASNAP_EXPORT(library, OracleLibStrFree)(result);
    ORASNAP_EXPORT(library, OracleLibStrFree)(error);
    return status;
}

} // namespace

HRESULT CLogsMachine::BackupLogs(const std::wstring& lastRecId, std::wstring& text) const
{
    return Run(library_, text, [&](wchar_t** result, wchar_t** error) {
        return ORASNAP_EXPORT(library_, OracleBackupLogs)(kHome, L"ORCL", L"usn-77", lastRecId.c_str(), L"", L"", result, error);
    });
}

HRESULT CLogsMachine::EnumLogs(std::wstring& text) const
{
    return Run(library_, text, ORASNAP_EXPORT(library_, OracleEnumLogs));
}

HRESULT CLogsMachine::RemoveLogsInTemp(const std::wstring& logsXml, std::wstring& text) const
{
    return Run(library_, text, [&](wchar_t**, wchar_t** error) {
        return ORASNAP_EXPORT(library_, OracleRemoveLogsInTemp)(logsXml.c_str(), error);
    });
}

HRESULT CLogsMachine::DeleteLogsByTime(int32_t minutes, std::wstring& text) const
{
    return Run(library_, text, [&](wchar_t**, wchar_t** error) {
        return ORASNAP_EXPORT(library_, OracleDeleteLogsByTime)(kHome, L"ORCL", minutes, L"", L"", error);
    });
}

HRESULT CLogsMachine::DeleteLogsBySize(uint64_t sizeLimit, std::wstring& text) const
{
    return Run(library_, text, [&](wchar_t**, wchar_t** error) {
        return ORASNAP_EXPORT(library_, OracleDeleteLogsBySize)(kHome, L"ORCL", sizeLimit, L"", L"", error);
    });
}

void CLogsMachine::WriteArchFile(const std::wstring& name, size_t size) const
{
    std::ofstream((arch_ + L"\\" + name).c_str(), std::ios::binary) << std::string(size, 'a');
}

std::vector<std::string> CLogsMachine::Files(const std::wstring& folder)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(Mask(entry.path().filename().wstring()));
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> CLogsMachine::Statements(const std::vector<std::string>& prefixes)
{
    std::vector<std::string> lines;
    for (const std::string& line : world_.journal())
        for (const std::string& prefix : prefixes)
            if (line.compare(0, prefix.size(), prefix) == 0)
                lines.push_back(Mask(line));
    return lines;
}

std::string CLogsMachine::LibraryLog() const
{
    return read_file_text(root_.file(L"orasnap_logs_test.log"));
}

std::string CLogsMachine::Mask(const std::wstring& text)
{
    return Mask(util::wide_to_utf8(text));
}

std::string CLogsMachine::Mask(const std::string& source)
{
    std::string text = replace_all(replace_all(source, util::wide_to_utf8(logs_), "<LOGS>"), util::wide_to_utf8(arch_), "<ARCH>");
    text = MaskNames(text, "\\{[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}\\}", "{G", "}", guids_);
    text = MaskNames(text, "D_[0-9A-F]{8}(_[0-9A-F]{4}){3}", "DIR", "", directories_);
    text = std::regex_replace(text, std::regex("creationTimeUtc=\"[0-9T:-]{19}\""), "creationTimeUtc=\"<CALL>\"");
    SYSTEMTIME now{};
    GetSystemTime(&now);
    char today[16];
    snprintf(today, sizeof(today), "%04d/%02d/%02d ", now.wYear, now.wMonth, now.wDay);
    return std::regex_replace(text, std::regex(std::string(today) + "[0-9:]{8}"), "<NOW>");
}

} // namespace test
