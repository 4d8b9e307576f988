// Measures the archived-log operations through the exports of orasnap.dll,
// against the simulated client beside this executable, each beside the plain
// Windows calls that do the same file work:
//   1. OracleBackupLogs of 10,000 logs (staging off) against writing 10,000
//      description-sized files with CreateFileW/WriteFile;
//   2. OracleEnumLogs of those 10,000 description files against reading the
//      same files with FindFirstFileW/ReadFile;
//   3. a staged backup of 20 logs of 64 MiB against CopyFileW of the same files;
//   4. OracleDeleteLogsBySize over 10,000 logs: statements run and time per
//      deleted log.
// The configuration is read once per loaded library, so staging on and off are
// two private copies of orasnap.dll, each initialised under its own settings.

#include "bench_util.h"

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace bench;

constexpr int kManyLogs = 10000;
constexpr int kBigLogs = 20;
constexpr DWORD kBigLogSize = 64u << 20;
// Deletion by size keeps the first logs up to the limit and deletes the rest;
// every deletion makes the simulated server rewrite its whole state (about
// 40 ms with 10,000 logs), so the count is kept to what runs in seconds.
constexpr int kLogsToDelete = 200;
constexpr uint64_t kLogSize = 1024;  // what V$ARCHIVED_LOG gives by default
// The big copies are short and sensitive to the disk's write-back: best of
// three, in alternating order.
constexpr int kCopyRounds = 3;

const wchar_t kConfigKey[] = L"SOFTWARE\\Brelm\\Brelm Safeguard";
const wchar_t kHome[] = L"C:\\oracle\\home";

void write_file(const std::wstring& path, const std::string& data)
{
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                              nullptr);
    if (file == INVALID_HANDLE_VALUE)
        bench::fail("logs bench", "cannot create " + narrow(path));
    DWORD written = 0;
    const BOOL ok = WriteFile(file, data.data(), static_cast<DWORD>(data.size()), &written, nullptr);
    CloseHandle(file);
    if (!ok || written != data.size())
        bench::fail("logs bench", "cannot write " + narrow(path));
}

std::vector<std::wstring> list_files(const std::wstring& folder, const std::wstring& pattern)
{
    std::vector<std::wstring> names;
    WIN32_FIND_DATAW found;
    HANDLE search = FindFirstFileW((folder + L"\\" + pattern).c_str(), &found);
    if (search == INVALID_HANDLE_VALUE)
        return names;
    do {
        if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
            names.push_back(found.cFileName);
    } while (FindNextFileW(search, &found));
    FindClose(search);
    return names;
}

void empty_folder(const std::wstring& folder)
{
    for (const std::wstring& name : list_files(folder, L"*"))
        DeleteFileW((folder + L"\\" + name).c_str());
}

// Puts what was written to `folder` on the disk, so that the write-back of one
// side's copies doesn't slow down the next side's.
void flush_folder(const std::wstring& folder)
{
    for (const std::wstring& name : list_files(folder, L"*")) {
        HANDLE file = CreateFileW((folder + L"\\" + name).c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                  OPEN_EXISTING, 0, nullptr);
        if (file != INVALID_HANDLE_VALUE) {
            FlushFileBuffers(file);
            CloseHandle(file);
        }
    }
}

void remove_folder(const std::wstring& folder)
{
    empty_folder(folder);
    RemoveDirectoryW(folder.c_str());
}

void print_ratio(const char* measure, double orasnap, double baseline)
{
    std::printf("%s: ratio %.2f (orasnap %.3f s, baseline %.3f s)\n", measure, orasnap / baseline, orasnap,
                baseline);
    std::fflush(stdout);
}

// HKEY_LOCAL_MACHINE of this process redirected to a private key for the
// whole run, so the libraries read the bench's settings and the machine's
// keys are never written.
class CPrivateMachineKey {
public:
    CPrivateMachineKey()
        : path_(L"Software\\orasnap-bench\\" + std::to_wstring(GetCurrentProcessId()))
    {
        RegCreateKeyExW(HKEY_CURRENT_USER, path_.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &root_,
                        nullptr);
        RegCreateKeyExW(root_, kConfigKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &config_, nullptr);
        RegOverridePredefKey(HKEY_LOCAL_MACHINE, root_);
    }
    ~CPrivateMachineKey()
    {
        RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
        RegCloseKey(config_);
        RegCloseKey(root_);
        RegDeleteTreeW(HKEY_CURRENT_USER, path_.c_str());
    }
    CPrivateMachineKey(const CPrivateMachineKey&) = delete;
    CPrivateMachineKey& operator=(const CPrivateMachineKey&) = delete;

    void Set(const wchar_t* name, const std::wstring& value) const
    {
        RegSetValueExW(config_, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                       static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
    }
    void Set(const wchar_t* name, DWORD value) const
    {
        RegSetValueExW(config_, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof(value));
    }

private:
    std::wstring path_;
    HKEY root_ = nullptr;
    HKEY config_ = nullptr;
};

// A private copy of orasnap.dll, initialised under the settings of the moment.
class CLibrary {
public:
    CLibrary(const std::wstring& copyPath, const std::wstring& logName)
    {
        wchar_t self[MAX_PATH];
        const std::wstring exe(self, GetModuleFileNameW(nullptr, self, MAX_PATH));
        const std::wstring original = exe.substr(0, exe.find_last_of(L'\\') + 1) + L"orasnap.dll";
        if (!CopyFileW(original.c_str(), copyPath.c_str(), FALSE))
            bench::fail("logs bench", "cannot copy orasnap.dll");
        module_ = LoadLibraryW(copyPath.c_str());
        if (module_ == nullptr)
            bench::fail("logs bench", "cannot load " + narrow(copyPath));
        free_ = Get<void (*)(wchar_t*)>("OracleLibStrFree");
        wchar_t* error = nullptr;
        if (Get<HRESULT (*)(const wchar_t*, wchar_t**)>("OracleVssInitLib")(logName.c_str(), &error) != S_OK)
            Fail("OracleVssInitLib", error);
    }
    ~CLibrary() { FreeLibrary(module_); }
    CLibrary(const CLibrary&) = delete;
    CLibrary& operator=(const CLibrary&) = delete;

    std::wstring BackupLogs(const wchar_t* sid) const
    {
        using Fn = HRESULT (*)(const wchar_t*, const wchar_t*, const wchar_t*, const wchar_t*, const wchar_t*,
                               const wchar_t*, wchar_t**, wchar_t**);
        wchar_t* result = nullptr;
        wchar_t* error = nullptr;
        if (Get<Fn>("OracleBackupLogs")(kHome, sid, L"usn-1", L"", L"", L"", &result, &error) != S_OK)
            Fail("OracleBackupLogs", error);
        return Take(result);
    }
    std::wstring EnumLogs() const
    {
        wchar_t* result = nullptr;
        wchar_t* error = nullptr;
        if (Get<HRESULT (*)(wchar_t**, wchar_t**)>("OracleEnumLogs")(&result, &error) != S_OK)
            Fail("OracleEnumLogs", error);
        return Take(result);
    }
    void DeleteLogsBySize(const wchar_t* sid, uint64_t sizeLimit) const
    {
        using Fn = HRESULT (*)(const wchar_t*, const wchar_t*, uint64_t, const wchar_t*, const wchar_t*,
                               wchar_t**);
        wchar_t* error = nullptr;
        if (Get<Fn>("OracleDeleteLogsBySize")(kHome, sid, sizeLimit, L"", L"", &error) != S_OK)
            Fail("OracleDeleteLogsBySize", error);
    }

private:
    template <typename Fn>
    Fn Get(const char* name) const
    {
        const FARPROC address = GetProcAddress(module_, name);
        if (address == nullptr)
            bench::fail("logs bench", std::string("no export ") + name);
        return reinterpret_cast<Fn>(reinterpret_cast<void (*)()>(address));
    }
    std::wstring Take(wchar_t* text) const
    {
        std::wstring copy = text != nullptr ? text : L"";
        free_(text);
        return copy;
    }
    [[noreturn]] void Fail(const char* call, wchar_t* error) const
    {
        bench::fail("logs bench", std::string(call) + " failed: " + narrow(Take(error)));
    }

    HMODULE module_ = nullptr;
    void (*free_)(wchar_t*) = nullptr;
};

size_t count_elements(const std::wstring& document)
{
    size_t count = 0;
    for (size_t at = document.find(L"<archived_log "); at != std::wstring::npos;
         at = document.find(L"<archived_log ", at + 1))
        ++count;
    return count;
}

size_t count_journal_lines(const std::wstring& journal, const std::string& prefix)
{
    std::ifstream in(journal.c_str());
    size_t count = 0;
    std::string line;
    while (std::getline(in, line))
        if (line.compare(0, prefix.size(), prefix) == 0)
            ++count;
    return count;
}

struct SFolders {
    std::wstring root;
    std::wstring bulkArch;
    std::wstring stageArch;
    std::wstring logs;
    std::wstring staged;
    std::wstring baseline;
};

// BULK: 10,000 logs of 1 KiB; STAGE: 20 logs of 64 MiB. The server's defaults
// number the logs and give each an hour.
void write_world(const SFolders& folders, const std::wstring& scenarioPath)
{
    std::ostringstream scenario;
    scenario << "[instance BULK]\narchive_dest = " << narrow(folders.bulkArch) << "\n";
    const std::string logBytes(kLogSize, 'l');
    for (int i = 1; i <= kManyLogs; ++i) {
        const std::wstring name = folders.bulkArch + L"\\ARC" + std::to_wstring(i) + L".ARC";
        scenario << "archived_log = name=" << narrow(name) << "\n";
        write_file(name, logBytes);
    }
    scenario << "[instance STAGE]\narchive_dest = " << narrow(folders.stageArch) << "\n";
    std::string bigBytes(kBigLogSize, '\0');
    for (size_t i = 0; i < bigBytes.size(); ++i)
        bigBytes[i] = static_cast<char>(i * 2654435761u >> 24);
    for (int i = 1; i <= kBigLogs; ++i) {
        const std::wstring name = folders.stageArch + L"\\BIG" + std::to_wstring(i) + L".ARC";
        scenario << "archived_log = name=" << narrow(name) << " | blocks=" << kBigLogSize / 512 << "\n";
        write_file(name, bigBytes);
    }
    flush_folder(folders.stageArch);
    std::ofstream(scenarioPath.c_str(), std::ios::binary) << scenario.str();
    DeleteFileW((scenarioPath + L".state").c_str());
    set_env(L"OCISIM_SCENARIO", scenarioPath);
}

size_t description_size(const SFolders& folders)
{
    const std::vector<std::wstring> descriptions = list_files(folders.logs, L"*.xml");
    HANDLE one = CreateFileW((folders.logs + L"\\" + descriptions.front()).c_str(), GENERIC_READ, FILE_SHARE_READ,
                             nullptr, OPEN_EXISTING, 0, nullptr);
    LARGE_INTEGER size;
    GetFileSizeEx(one, &size);
    CloseHandle(one);
    return static_cast<size_t>(size.QuadPart);
}

double time_backup_of_many(const CLibrary& library, const SFolders& folders)
{
    empty_folder(folders.logs);
    const double start = now_seconds();
    const std::wstring document = library.BackupLogs(L"BULK");
    const double elapsed = now_seconds() - start;
    if (count_elements(document) < static_cast<size_t>(kManyLogs))
        bench::fail("logs bench", "OracleBackupLogs described " + std::to_string(count_elements(document)) + " logs");
    return elapsed;
}

double time_baseline_writes(const SFolders& folders, size_t descriptionSize)
{
    empty_folder(folders.baseline);
    const std::string text(descriptionSize, 'd');
    const double start = now_seconds();
    for (int i = 0; i < kManyLogs; ++i)
        write_file(folders.baseline + L"\\" + std::to_wstring(i) + L".xml", text);
    return now_seconds() - start;
}

double time_baseline_reads(const SFolders& folders)
{
    const double start = now_seconds();
    size_t bytes = 0;
    std::vector<char> buffer;
    for (const std::wstring& name : list_files(folders.logs, L"*.xml")) {
        HANDLE file = CreateFileW((folders.logs + L"\\" + name).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file == INVALID_HANDLE_VALUE)
            bench::fail("logs bench", "cannot open " + narrow(name));
        LARGE_INTEGER size;
        GetFileSizeEx(file, &size);
        buffer.resize(static_cast<size_t>(size.QuadPart));
        DWORD read = 0;
        ReadFile(file, buffer.data(), static_cast<DWORD>(buffer.size()), &read, nullptr);
        CloseHandle(file);
        bytes += read;
    }
    const double elapsed = now_seconds() - start;
    if (bytes == 0)
        bench::fail("logs bench", "no description was read");
    return elapsed;
}

double time_enum(const CLibrary& library)
{
    const double start = now_seconds();
    const std::wstring document = library.EnumLogs();
    const double elapsed = now_seconds() - start;
    if (count_elements(document) < static_cast<size_t>(kManyLogs))
        bench::fail("logs bench", "OracleEnumLogs listed " + std::to_string(count_elements(document)) + " logs");
    return elapsed;
}

double time_staged_backup(const CLibrary& library, const SFolders& folders)
{
    empty_folder(folders.staged);
    const double start = now_seconds();
    const std::wstring document = library.BackupLogs(L"STAGE");
    const double elapsed = now_seconds() - start;
    flush_folder(folders.staged);
    if (count_elements(document) < static_cast<size_t>(kBigLogs) ||
        document.find(L"isLogCopied=\"false\"") != std::wstring::npos)
        bench::fail("logs bench", "the staged backup did not copy every log");
    return elapsed;
}

double time_copy_file(const SFolders& folders)
{
    empty_folder(folders.baseline);
    const double start = now_seconds();
    for (const std::wstring& name : list_files(folders.stageArch, L"BIG*.ARC"))
        if (!CopyFileW((folders.stageArch + L"\\" + name).c_str(), (folders.baseline + L"\\" + name).c_str(),
                       FALSE))
            bench::fail("logs bench", "CopyFileW failed for " + narrow(name));
    const double elapsed = now_seconds() - start;
    flush_folder(folders.baseline);
    return elapsed;
}

void measure_delete_by_size(const CLibrary& library, const SFolders& folders)
{
    const std::wstring journal = folders.root + L"\\journal.txt";
    DeleteFileW(journal.c_str());
    set_env(L"OCISIM_JOURNAL", journal);
    const size_t before = list_files(folders.bulkArch, L"*.ARC").size();
    // Logs are kept while the sizes before them add up to no more than the limit.
    const uint64_t limit = (before - kLogsToDelete - 1) * kLogSize;
    const double start = now_seconds();
    library.DeleteLogsBySize(L"BULK", limit);
    const double elapsed = now_seconds() - start;
    set_env(L"OCISIM_JOURNAL", L"");
    const size_t deleted = before - list_files(folders.bulkArch, L"*.ARC").size();
    if (deleted != static_cast<size_t>(kLogsToDelete))
        bench::fail("logs bench", "OracleDeleteLogsBySize deleted " + std::to_string(deleted) + " logs");
    std::printf("OracleDeleteLogsBySize over %u logs, %u deleted: %u statements run, %.3f s, %.2f ms per "
                "deleted log\n",
                static_cast<unsigned>(before), static_cast<unsigned>(deleted),
                static_cast<unsigned>(count_journal_lines(journal, "sql ")), elapsed,
                elapsed * 1000.0 / static_cast<double>(deleted));
}

} // namespace

int main()
{
    SFolders folders;
    folders.root = bench::make_temp_folder(L"orasnap-logs-bench-");
    folders.bulkArch = folders.root + L"\\bulk_arch";
    folders.stageArch = folders.root + L"\\stage_arch";
    folders.logs = folders.root + L"\\logs";
    folders.staged = folders.root + L"\\staged";
    folders.baseline = folders.root + L"\\baseline";
    for (const std::wstring* folder : {&folders.bulkArch, &folders.stageArch, &folders.logs,
                                       &folders.staged, &folders.baseline})
        CreateDirectoryW(folder->c_str(), nullptr);
    const std::wstring scenario = folders.root + L"\\scenario.txt";
    write_world(folders, scenario);

    {
        CPrivateMachineKey machine;
        machine.Set(L"LogDirectory", folders.root);
        machine.Set(L"OracleTempLogPath", folders.logs);
        machine.Set(L"OracleStageLogsBeforeBackup", 0);
        const CLibrary plain(folders.root + L"\\orasnap_plain.dll", L"orasnap_plain.log");
        machine.Set(L"OracleTempLogPath", folders.staged);
        machine.Set(L"OracleStageLogsBeforeBackup", 1);
        const CLibrary staging(folders.root + L"\\orasnap_staged.dll", L"orasnap_staged.log");

        // Each side twice, in the order A B B A, so that a change in the
        // machine's load during the run weighs on both alike; the best of each.
        double backup = 1e9;
        double writes = 1e9;
        for (int turn = 0; turn < 4; ++turn) {
            if (turn == 0 || turn == 3)
                backup = std::min(backup, time_backup_of_many(plain, folders));
            else
                writes = std::min(writes, time_baseline_writes(folders, description_size(folders)));
        }
        print_ratio("OracleBackupLogs of 10,000 logs, staging off, vs 10,000 CreateFileW/WriteFile", backup,
                    writes);

        double enumeration = 1e9;
        double reads = 1e9;
        for (int turn = 0; turn < 4; ++turn) {
            if (turn == 0 || turn == 3)
                enumeration = std::min(enumeration, time_enum(plain));
            else
                reads = std::min(reads, time_baseline_reads(folders));
        }
        print_ratio("OracleEnumLogs of 10,000 descriptions vs reading them directly", enumeration, reads);

        empty_folder(folders.baseline);
        double staged = 1e9;
        double copies = 1e9;
        for (int round = 0; round < kCopyRounds; ++round) {
            if (round % 2 == 0) {
                staged = std::min(staged, time_staged_backup(staging, folders));
                copies = std::min(copies, time_copy_file(folders));
            } else {
                copies = std::min(copies, time_copy_file(folders));
                staged = std::min(staged, time_staged_backup(staging, folders));
            }
        }
        print_ratio("Staged backup of 20 logs of 64 MiB vs CopyFileW", staged, copies);

        measure_delete_by_size(plain, folders);
    }

    for (const std::wstring* folder :
         {&folders.bulkArch, &folders.stageArch, &folders.logs, &folders.staged, &folders.baseline})
        remove_folder(*folder);
    remove_folder(folders.root);
    return 0;
}
