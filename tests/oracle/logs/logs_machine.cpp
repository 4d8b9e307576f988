#include "logs_machine.h"

#include "common/strings/strings.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace logs_test {

namespace {

const wchar_t kConfigKey[] = L"SOFTWARE\\Brelm\\Brelm Safeguard";
const wchar_t kLogName[] = L"orasnap_logs_test.log";

std::wstring ExeFolder()
{
    wchar_t module[MAX_PATH];
    const DWORD length = GetModuleFileNameW(nullptr, module, MAX_PATH);
    const std::wstring path(module, length);
    return path.substr(0, path.find_last_of(L'\\') + 1);
}

std::string Replace(std::string text, const std::string& from, const std::string& to)
{
    for (size_t at = text.find(from); !from.empty() && at != std::string::npos;
         at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

} // namespace

std::string ReadFileText(const std::wstring& path)
{
    std::ifstream file(path.c_str(), std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

CLogsMachine::CLogsMachine(const std::string& properties, const std::vector<std::string>& logs,
                           const SLogsConfig& config)
    : arch_(root_.file(L"arch")), logs_(config.logsFolder.empty() ? root_.file(L"logs") : config.logsFolder),
      libraryPath_(root_.file(L"orasnap_logs.dll"))
{
    CreateDirectoryW(arch_.c_str(), nullptr);
    const std::string arch = util::wide_to_utf8(arch_);
    std::string scenario = "[instance ORCL]\narchive_dest = " + arch + "\n" + properties;
    for (const std::string& log : logs)
        scenario += "archived_log = " + Replace(log, "@ARCH@", arch) + "\n";
    world_.set_scenario(scenario);

    registry_.set_string(kConfigKey, L"LogDirectory", root_.path());
    registry_.set_string(kConfigKey, L"OracleTempLogPath", logs_);
    registry_.set_dword(kConfigKey, L"OracleStageLogsBeforeBackup", config.stageLogs ? 1 : 0);
    registry_.set_dword(kConfigKey, L"DeleteOracleAbsentLogFiles", config.deleteAbsentLogFiles ? 1 : 0);
    registry_.set_dword(kConfigKey, L"OracleConnectionTimeout", 20);
    if (!CopyFileW((ExeFolder() + L"orasnap.dll").c_str(), libraryPath_.c_str(), FALSE))
        throw std::runtime_error("cannot copy orasnap.dll");
    module_ = LoadLibraryW(libraryPath_.c_str());
    if (module_ == nullptr)
        throw std::runtime_error("cannot load the copy of orasnap.dll");
    using Init = HRESULT (*)(const wchar_t*, wchar_t**);
    wchar_t* error = nullptr;
    reinterpret_cast<Init>(reinterpret_cast<void (*)()>(GetProcAddress(module_, "OracleVssInitLib")))(
        kLogName, &error);
}

CLogsMachine::~CLogsMachine()
{
    FreeLibrary(module_);
}

namespace {

// Calls an export and takes its text out of the cell it filled.
template <typename Fn, typename... Args>
HRESULT CallExport(HMODULE module, const char* name, std::wstring& text, Args... args)
{
    using StrFree = void (*)(wchar_t*);
    const auto function = reinterpret_cast<Fn>(reinterpret_cast<void (*)()>(GetProcAddress(module, name)));
    const auto strFree =
        reinterpret_cast<StrFree>(reinterpret_cast<void (*)()>(GetProcAddress(module, "OracleLibStrFree")));
    wchar_t* result = nullptr;
    wchar_t* error = nullptr;
    const HRESULT status = function(args..., &result, &error);
    text = result != nullptr ? result : (error != nullptr ? error : L"");
    strFree(result);
    strFree(error);
    return status;
}

// Exports without a result cell: the text is the error text.
template <typename Fn, typename... Args>
HRESULT CallExportNoResult(HMODULE module, const char* name, std::wstring& text, Args... args)
{
    using StrFree = void (*)(wchar_t*);
    const auto function = reinterpret_cast<Fn>(reinterpret_cast<void (*)()>(GetProcAddress(module, name)));
    const auto strFree =
        reinterpret_cast<StrFree>(reinterpret_cast<void (*)()>(GetProcAddress(module, "OracleLibStrFree")));
    wchar_t* error = nullptr;
    const HRESULT status = function(args..., &error);
    text = error != nullptr ? error : L"";
    strFree(error);
    return status;
}

const wchar_t kHome[] = L"C:\\oracle\\home";

} // namespace

HRESULT CLogsMachine::BackupLogs(const std::wstring& lastRecId, std::wstring& text) const
{
    using Fn = HRESULT (*)(const wchar_t*, const wchar_t*, const wchar_t*, const wchar_t*, const wchar_t*,
                           const wchar_t*, wchar_t**, wchar_t**);
    return CallExport<Fn>(module_, "OracleBackupLogs", text, kHome, L"ORCL", L"usn-77", lastRecId.c_str(),
                          L"", L"");
}

HRESULT CLogsMachine::EnumLogs(std::wstring& text) const
{
    using Fn = HRESULT (*)(wchar_t**, wchar_t**);
    return CallExport<Fn>(module_, "OracleEnumLogs", text);
}

HRESULT CLogsMachine::RemoveLogsInTemp(const std::wstring& logsXml, std::wstring& text) const
{
    using Fn = HRESULT (*)(const wchar_t*, wchar_t**);
    return CallExportNoResult<Fn>(module_, "OracleRemoveLogsInTemp", text, logsXml.c_str());
}

HRESULT CLogsMachine::DeleteLogsByTime(int32_t minutes, std::wstring& text) const
{
    using Fn = HRESULT (*)(const wchar_t*, const wchar_t*, int32_t, const wchar_t*, const wchar_t*, wchar_t**);
    return CallExportNoResult<Fn>(module_, "OracleDeleteLogsByTime", text, kHome, L"ORCL", minutes, L"", L"");
}

HRESULT CLogsMachine::DeleteLogsBySize(uint64_t sizeLimit, std::wstring& text) const
{
    using Fn = HRESULT (*)(const wchar_t*, const wchar_t*, uint64_t, const wchar_t*, const wchar_t*, wchar_t**);
    return CallExportNoResult<Fn>(module_, "OracleDeleteLogsBySize", text, kHome, L"ORCL", sizeLimit, L"",
                                  L"");
}

void CLogsMachine::WriteArchFile(const std::wstring& name, size_t size) const
{
    std::ofstream file((arch_ + L"\\" + name).c_str(), std::ios::binary | std::ios::trunc);
    file << std::string(size, 'a');
}

std::vector<std::string> CLogsMachine::Files(const std::wstring& folder)
{
    std::vector<std::string> names;
    if (!std::filesystem::exists(folder))
        return names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(Mask(entry.path().filename().wstring()));
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> CLogsMachine::Statements()
{
    std::vector<std::string> lines;
    for (const std::string& line : world_.journal_starting({"sql ", "error "}))
        lines.push_back(Mask(line));
    return lines;
}

std::vector<std::string> CLogsMachine::LogLines() const
{
    std::vector<std::string> lines;
    std::istringstream text(ReadFileText(root_.file(kLogName)));
    std::string line;
    while (std::getline(text, line)) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        const size_t column = line.find("> ");
        lines.push_back(column == std::string::npos ? line : line.substr(column + 2));
    }
    return lines;
}

std::string CLogsMachine::MaskName(const std::string& text, const char* pattern, const char* prefix,
                                   const char* suffix, std::vector<std::string>& names)
{
    std::string result;
    const std::regex expression(pattern, std::regex::icase);
    auto last = text.cbegin();
    for (std::sregex_iterator it(text.begin(), text.end(), expression), end; it != end; ++it) {
        const std::string found = util::to_upper(it->str());
        auto known = std::find(names.begin(), names.end(), found);
        if (known == names.end())
            known = names.insert(names.end(), found);
        result.append(last, text.cbegin() + it->position());
        result += prefix + std::to_string(known - names.begin() + 1) + suffix;
        last = text.cbegin() + it->position() + it->length();
    }
    result.append(last, text.cend());
    return result;
}

std::string CLogsMachine::Mask(const std::wstring& text)
{
    return Mask(util::wide_to_utf8(text));
}

std::string CLogsMachine::Mask(const std::string& source)
{
    std::string text = Replace(source, util::wide_to_utf8(logs_), "<LOGS>");
    text = Replace(text, util::wide_to_utf8(arch_), "<ARCH>");
    text = MaskName(text, "\\{[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}\\}", "{G", "}",
                    guids_);
    text = MaskName(text, "D_[0-9A-F]{8}_[0-9A-F]{4}_[0-9A-F]{4}_[0-9A-F]{4}", "DIR", "", directories_);
    text = std::regex_replace(text, std::regex("creationTimeUtc=\"[0-9T:-]{19}\""), "creationTimeUtc=\"<CALL>\"");
    SYSTEMTIME now{};
    GetSystemTime(&now);
    char today[16];
    snprintf(today, sizeof(today), "%04d/%02d/%02d ", now.wYear, now.wMonth, now.wDay);
    text = std::regex_replace(text, std::regex(std::string(today) + "[0-9:]{8}"), "<NOW>");
    return text;
}

} // namespace logs_test
