// Generated and mutated inputs through the exports, against the simulated
// client in a sandboxed registry: the explore config, the databases document
// of the prepare and of the finish, the logs document of the clean-up,
// OracleMeta.xml and description files in the log folder, and the agent's
// registry settings. The seeds are the documents a clean cycle of the same
// world writes.
//
// Checks per input: no crash, no call past its deadline, every failure E_FAIL
// with a text, every success with its result, and no file or folder gone that
// the input does not name.
//
// The inputs run in batches, each in a child process of this program, so that
// a crash or a hang ends a batch and is counted, and the run goes on after it.
// The registry settings are read once per process: every kConfigEvery-th input
// is a set of settings, run as a clean cycle in a process of its own.
//
// Input N of a seed is the same edits of the same seeds in every run; only the
// GUIDs, times and the process number in the world's paths differ.
//
// Usage:
//   fuzz.exe [--seed S] [--inputs N]   inputs 0..N-1, then the closing line
//   fuzz.exe --seed S --only N         input N alone in this process, shown
//   fuzz.exe --seed S --batch A B      inputs A..B-1 in this process (a child)

#include "inputs.h"

#include "common/strings/strings.h"
#include "ocisim/scenario_builder.h"
#include "orasnap/orasnap.h"
#include "support/ocisim_world.h"
#include "support/orasnap_library.h"
#include "support/process.h"
#include "support/registry_sandbox.h"
#include "support/temp_folder.h"

#include <tinyxml.h>
#include <windows.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr uint64_t kDefaultSeed = 20261212;
// Every kConfigEvery-th input is a set of registry settings; the inputs
// between two of them make one batch.
constexpr int64_t kConfigEvery = 2000;
// No call may take longer; a restore of a database that won't start sleeps
// for 25 s by design, so the allowance is wide.
constexpr DWORD kDeadlineMs = 90000;
// A child that writes nothing for this long is stuck beyond its own deadlines.
constexpr DWORD kSilenceMs = 240000;
const wchar_t kConfigKey[] = L"SOFTWARE\\Brelm\\Brelm Safeguard";
const wchar_t kLogin[] = L"fuzz";
const wchar_t kPassword[] = L"Fuzz-Db-Secret";
const std::vector<std::string> kSids = {"FZ1", "FZ2"};

enum class ETarget { Explore, Prepare, Finish, RemoveLogs, Meta, Descriptions, Registry };

const char* target_name(ETarget target)
{
    switch (target) {
    case ETarget::Explore: return "explore config";
    case ETarget::Prepare: return "prepare dbsXml";
    case ETarget::Finish: return "finish dbsXml";
    case ETarget::RemoveLogs: return "logsXml";
    case ETarget::Meta: return "OracleMeta.xml";
    case ETarget::Descriptions: return "description files";
    default: return "registry settings";
    }
}

// The input under way, for the crash report.
std::atomic<int64_t> g_index{-1};
std::atomic<const char*> g_where{"setup"};

// One line to the parent: "failure <index> <crash|hang|other> <text>".
void report(const char* kind, const std::string& text)
{
    std::string line = text;
    for (char& c : line)
        c = c == '\n' || c == '\r' ? ' ' : c;
    std::printf("failure %lld %s %s: %s\n", static_cast<long long>(g_index.load()), kind, g_where.load(), line.c_str());
    std::fflush(stdout);
}

LONG WINAPI on_crash(EXCEPTION_POINTERS* info)
{
    char code[32];
    std::snprintf(code, sizeof code, "exception 0x%08lX", info->ExceptionRecord->ExceptionCode);
    report("crash", code);
    TerminateProcess(GetCurrentProcess(), 3);
    return EXCEPTION_EXECUTE_HANDLER;
}

void on_abort(int)
{
    report("crash", "abort");
    TerminateProcess(GetCurrentProcess(), 3);
}

std::wstring loose_wide(const std::string& utf8)
{
    std::wstring text(utf8.size(), L'\0');
    text.resize(static_cast<size_t>(
        MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), &text[0], static_cast<int>(text.size()))));
    return text;
}

std::wstring canonical(std::wstring path)
{
    if (path.rfind(L"\\\\?\\", 0) == 0)
        path.erase(0, 4);
    wchar_t full[4096];
    const DWORD size = GetFullPathNameW(path.c_str(), 4096, full, nullptr);
    if (size > 0 && size < 4096)
        path = full;
    for (wchar_t& c : path)
        c = c == L'/' ? L'\\' : static_cast<wchar_t>(towlower(c));
    while (path.size() > 3 && (path.back() == L'\\' || path.back() == L'.' || path.back() == L' '))
        path.pop_back();
    return path;
}

// The paths an input names: every attribute value of its document, and each
// with its extension replaced by "xml", as the clean-up derives a description.
std::vector<std::wstring> named_paths(const std::wstring& input)
{
    std::vector<std::wstring> named;
    const std::string utf8 = fuzz::loose_utf8(input);
    // Deeper than the library's parser goes, nothing is read.
    if (std::count(utf8.begin(), utf8.end(), '<') > 5000)
        return named;
    TiXmlDocument document;
    document.Parse(utf8.c_str());
    std::vector<const TiXmlElement*> elements = {document.RootElement()};
    while (!elements.empty()) {
        const TiXmlElement* element = elements.back();
        elements.pop_back();
        if (element == nullptr)
            continue;
        for (const TiXmlAttribute* attribute = element->FirstAttribute(); attribute; attribute = attribute->Next()) {
            const std::wstring value = loose_wide(attribute->ValueStr());
            named.push_back(canonical(value));
            named.push_back(canonical(fs::path(value).replace_extension(L"xml").wstring()));
        }
        for (const TiXmlElement* child = element->FirstChildElement(); child; child = child->NextSiblingElement())
            elements.push_back(child);
        elements.push_back(element->NextSiblingElement());
    }
    return named;
}

struct SOutcome {
    HRESULT status = E_FAIL;
    std::wstring result;
    std::wstring error;
};

// Removes `path` and everything in it. Fuzzed settings make the library
// create folders with reserved names (NUL, CON) under Wine, where a plain path
// to them stands for the device and hangs: the \\?\ form takes names as they are.
void remove_tree(const std::wstring& path)
{
    std::error_code failed;
    fs::remove_all(path.rfind(L"\\\\?\\", 0) == 0 ? path : L"\\\\?\\" + path, failed);
}

// The world of one child: the registry, the simulated databases, the library,
// and the files a clean cycle left, which every input starts from.
class CWorld {
public:
    CWorld(uint64_t seed, int64_t configIndex)
        : root_(fixed_root()), logs_(root_ + L"\\logs"), config_(configIndex >= 0)
    {
        remove_tree(root_);
        for (const wchar_t* folder : {L"\\logs", L"\\liblog", L"\\cwd\\a\\b"})
            fs::create_directories(root_ + folder);
        SetCurrentDirectoryW((root_ + L"\\cwd\\a\\b").c_str());
        registry_.set_string(kConfigKey, L"LogDirectory", root_ + L"\\liblog");
        registry_.set_string(kConfigKey, L"OracleTempLogPath", logs_);
        registry_.set_dword(kConfigKey, L"OracleConnectionTimeout", 10);
        registry_.set_dword(kConfigKey, L"OracleRestoreWaitInSec", 0);
        registry_.set_dword(kConfigKey, L"OracleWaitDbStartedAttemptCount", 1);
        registry_.set_dword(kConfigKey, L"OracleStageLogsBeforeBackup", 1);
        registry_.set_string(L"SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Parameters", L"Hostname", L"fuzzhost");
        registry_.set_string(L"SOFTWARE\\ORACLE\\KEY_FuzzHome", L"ORACLE_HOME", home_);
        registry_.set_string(L"SOFTWARE\\ORACLE\\KEY_FuzzHome", L"ORACLE_HOME_NAME", L"FuzzHome");
        ocisim::World world;
        for (const std::string& sid : kSids) {
            registry_.set_string(L"SYSTEM\\CurrentControlSet\\Services\\OracleService" + util::utf8_to_wide(sid),
                                 L"ImagePath", home_ + L"\\bin\\oracle.exe " + util::utf8_to_wide(sid), REG_EXPAND_SZ);
            ocisim::Instance& instance = ocisim::add_typical_database(world, sid, util::wide_to_utf8(root_) + "\\" + sid);
            instance.add("user", {{"name", util::wide_to_utf8(kLogin)}, {"password", util::wide_to_utf8(kPassword)},
                                  {"sysdba", "yes"}});
            if (sid == "FZ2")
                instance.set("log_mode", "NOARCHIVELOG");
            ocisim::create_log_files(instance);
        }
        world_.set_world(world);
        test::set_process_env(L"OCISIM_JOURNAL", L"");
        scenario_ = world_.folder().file_utf8("scenario.txt");
        vocabulary_ = {{L"a"}, {L"sid"}, {L"x"}, {root_ + L"\\cwd", root_ + L"\\FZ1\\arch"}, root_};
        if (config_) {
            fuzz::CInputMaker maker(seed, configIndex, vocabulary_);
            restoreShort_ = FuzzSettings(maker);
        }
        library_ = std::make_unique<test::library_t>();
        Check("OracleVssInitLib", false, [&](wchar_t**, wchar_t** error) {
            return ORASNAP_EXPORT(*library_, OracleVssInitLib)(L"fuzz.log", error);
        });
    }

    ~CWorld()
    {
        library_.reset();
        wchar_t temp[MAX_PATH + 1] = {};
        GetTempPathW(MAX_PATH + 1, temp);
        SetCurrentDirectoryW(temp);
        remove_tree(root_);
    }
    CWorld(const CWorld&) = delete;
    CWorld& operator=(const CWorld&) = delete;

    // Explore, prepare, finish, hand over and enumerate the logs: the seeds of
    // the inputs, and under fuzzed settings the input itself.
    void CleanCycle()
    {
        const std::map<std::wstring, std::string> before = Files(true);
        const SOutcome explored = Check("OracleExploreInstances", true, [&](wchar_t** result, wchar_t** error) {
            return ORASNAP_EXPORT(*library_, OracleExploreInstances)(true, kLogin, kPassword, L"", result, error);
        });
        const SOutcome prepared = Prepare(L"<databases><database sid=\"FZ1\"/></databases>", L"");
        const std::string meta = test::read_file_text(logs_ + L"\\OracleMeta.xml");
        Finish(prepared.result);
        std::wstring excludes;
        for (const std::string& sid : kSids)
            excludes += L"<database name=\"" + util::utf8_to_wide(sid) + L"\"/>";
        seeds_[ETarget::Explore] = {L"<config><excludes>" + excludes + L"</excludes></config>"};
        for (const std::string& sid : kSids) {
            const SOutcome logs = Check("OracleBackupLogs", true, [&](wchar_t** result, wchar_t** error) {
                return ORASNAP_EXPORT(*library_, OracleBackupLogs)(home_.c_str(), util::utf8_to_wide(sid).c_str(),
                                                                  L"usn-1", L"", kLogin, kPassword, result, error);
            });
            if (logs.status == S_OK)
                seeds_[ETarget::RemoveLogs].push_back(logs.result);
            const size_t recId = logs.result.find(L"recId=\"");
            if (recId != std::wstring::npos)
                seeds_[ETarget::Explore].push_back(L"<config><dbrecids><database sid=\"" + util::utf8_to_wide(sid) +
                                                   L"\" recId=\"" + logs.result.substr(recId + 7, logs.result.find(L'"', recId + 7) - recId - 7) +
                                                   L"\" stamp=\"1\" firstPassRecId=\"1\"/></dbrecids><excludes>" + excludes +
                                                   L"</excludes></config>");
        }
        const SOutcome enumerated = EnumLogs();
        if (enumerated.status == S_OK)
            seeds_[ETarget::RemoveLogs].push_back(enumerated.result);
        if (config_) {
            std::vector<std::wstring> named;
            for (const std::wstring& logs : seeds_[ETarget::RemoveLogs]) {
                const std::vector<std::wstring> paths = named_paths(logs);
                named.insert(named.end(), paths.begin(), paths.end());
                RemoveLogs(logs);
            }
            if (restoreShort_)
                Check("OracleDoRestore", false, [&](wchar_t**, wchar_t** error) {
                    return ORASNAP_EXPORT(*library_, OracleDoRestore)(error);
                });
            CheckGone(before, named);
            return;
        }
        // The prepare document with actions that leave the databases alone: a
        // restore that must start a database or end its backup waits for it for
        // many seconds by design, so the stream of restores keeps away from it.
        std::wstring calm = prepared.result;
        for (size_t at = calm.find(L"action=\""); at != std::wstring::npos; at = calm.find(L"action=\"", at + 1))
            calm[at + 8] = L'1';
        seeds_[ETarget::Prepare] = {L"<databases><database sid=\"FZ1\"/><database sid=\"FZ2\"/></databases>", L"<databases/>"};
        seeds_[ETarget::Finish] = {prepared.result};
        seeds_[ETarget::Meta] = {util::utf8_to_wide(meta), calm};
        for (const auto& entry : fs::directory_iterator(logs_))
            if (entry.path().extension() == L".xml")
                seeds_[ETarget::Descriptions].push_back(util::utf8_to_wide(test::read_file_text(entry.path().wstring())));
        Learn(explored.result + prepared.result + enumerated.result);
        for (const auto& [target, seeds] : seeds_)
            for (const std::wstring& seed : seeds)
                Learn(seed);
        for (std::vector<std::wstring>* words : {&vocabulary_.elements, &vocabulary_.attributes, &vocabulary_.values}) {
            std::sort(words->begin(), words->end());
            words->erase(std::unique(words->begin(), words->end()), words->end());
        }
        for (const auto& entry : before)
            vocabulary_.paths.push_back(entry.first);
        baseline_ = Files(true);
        world_.take_journal();
        state_ = ocisim::read_state(scenario_);
    }

    // One input: made, run, checked, and the world put back as it was.
    void Run(uint64_t seed, int64_t index, bool show)
    {
        fuzz::CInputMaker maker(seed, index, vocabulary_);
        const int draw = maker.Below(100);
        const ETarget target = draw < 30 ? ETarget::RemoveLogs : draw < 50 ? ETarget::Descriptions
                             : draw < 62 ? ETarget::Meta : draw < 74 ? ETarget::Finish
                             : draw < 87 ? ETarget::Prepare : ETarget::Explore;
        g_where = target_name(target);
        const std::vector<std::wstring>& seeds = seeds_[target];
        std::wstring input = maker.Document(seeds);
        std::vector<std::wstring> named;
        switch (target) {
        case ETarget::Explore:
            Check("OracleExploreInstances", true, [&](wchar_t** result, wchar_t** error) {
                return ORASNAP_EXPORT(*library_, OracleExploreInstances)(maker.Chance(50), kLogin, kPassword,
                                                                         input.c_str(), result, error);
            });
            break;
        case ETarget::Prepare: Prepare(input, maker.Chance(90) ? seeds_[ETarget::Explore].front() : L""); break;
        case ETarget::Finish: Finish(input); break;
        case ETarget::RemoveLogs:
            named = named_paths(input);
            RemoveLogs(input);
            break;
        case ETarget::Meta: {
            if (maker.Chance(60))
                input = L"<restore dbPrepareXml=\"" +
                        util::utf8_to_wide(util::base64_encode(fuzz::loose_utf8(maker.Mutate(seeds.back())))) +
                        L"\"" + (maker.Chance(30) ? L" conn=\"" + maker.Nasty() + L"\"" : L"") + L"/>";
            WriteFile(logs_ + L"\\OracleMeta.xml", maker.FileBytes(input));
            bool required = false;
            Check("OracleIsRestoreRequired", false, [&](wchar_t**, wchar_t** error) {
                return ORASNAP_EXPORT(*library_, OracleIsRestoreRequired)(&required, error);
            });
            if (!required)
                report("other", "OracleIsRestoreRequired says false while OracleMeta.xml lies in the log folder");
            EnumLogs();
            Check("OracleDoRestore", false, [&](wchar_t**, wchar_t** error) {
                return ORASNAP_EXPORT(*library_, OracleDoRestore)(error);
            });
            break;
        }
        case ETarget::Descriptions: {
            std::wstring all;
            for (int files = 1 + maker.Below(3); files > 0; --files, input = maker.Document(seeds)) {
                const std::wstring name = maker.Chance(80) ? L"{fuzz-" + std::to_wstring(files) + L"}.xml"
                                        : maker.Pick<std::wstring>({L"X.XML", L"a.xml.xml", L"noext", L".xml", L"\xE9\x20AC.xml",
                                                                    L"OracleMeta.xml", L"trailing .xml", L"a;b,c=d.xml"});
                WriteFile(logs_ + L"\\" + name, maker.FileBytes(input));
                all += L"[" + name + L"] " + input;
            }
            input = all;
            EnumLogs();
            break;
        }
        default: break;
        }
        if (show)
            std::printf("input %lld (%s), %zu characters: %.4000s\n", static_cast<long long>(index), g_where.load(),
                        input.size(), fuzz::loose_utf8(input).c_str());
        Restore(named);
        if (target != ETarget::RemoveLogs && target != ETarget::Descriptions)
            ocisim::write_state(scenario_, state_);
    }

private:
    static std::wstring fixed_root()
    {
        wchar_t temp[MAX_PATH + 1] = {};
        GetTempPathW(MAX_PATH + 1, temp);
        wchar_t name[32];
        std::swprintf(name, 32, L"orasnap-fuzz-%08lX", GetCurrentProcessId());
        return std::wstring(temp) + name;
    }

    static void WriteFile(const std::wstring& path, const std::string& bytes)
    {
        std::ofstream(fs::path(path), std::ios::binary) << bytes;
    }

    // Names and values of a document the library wrote, for the inputs to use.
    void Learn(const std::wstring& document)
    {
        for (size_t at = document.find(L'<'); at != std::wstring::npos; at = document.find(L'<', at + 1)) {
            const size_t end = document.find_first_of(L" />", at + 1);
            if (end != std::wstring::npos && end > at + 1 && std::wstring(L"/?!").find(document[at + 1]) == std::wstring::npos)
                vocabulary_.elements.push_back(document.substr(at + 1, end - at - 1));
        }
        for (size_t at = document.find(L"=\""); at != std::wstring::npos; at = document.find(L"=\"", at + 2)) {
            const size_t name = document.find_last_of(L" \t\n", at) + 1;
            vocabulary_.attributes.push_back(document.substr(name, at - name));
            vocabulary_.values.push_back(document.substr(at + 2, document.find(L'"', at + 2) - at - 2));
        }
        vocabulary_.root = root_;
    }

    SOutcome Prepare(const std::wstring& dbsXml, const std::wstring& config)
    {
        return Check("OraclePrepareDbsForBackup", true, [&](wchar_t** result, wchar_t** error) {
            return ORASNAP_EXPORT(*library_, OraclePrepareDbsForBackup)(dbsXml.c_str(), config.c_str(), kLogin, kPassword,
                                                                        L"", L"", result, error);
        });
    }
    SOutcome Finish(const std::wstring& dbsXml)
    {
        return Check("OracleFinishDbsBackup", false, [&](wchar_t**, wchar_t** error) {
            return ORASNAP_EXPORT(*library_, OracleFinishDbsBackup)(dbsXml.c_str(), kLogin, kPassword, error);
        });
    }
    SOutcome EnumLogs()
    {
        return Check("OracleEnumLogs", true, [&](wchar_t** result, wchar_t** error) {
            return ORASNAP_EXPORT(*library_, OracleEnumLogs)(result, error);
        });
    }
    SOutcome RemoveLogs(const std::wstring& logsXml)
    {
        return Check("OracleRemoveLogsInTemp", false, [&](wchar_t**, wchar_t** error) {
            return ORASNAP_EXPORT(*library_, OracleRemoveLogsInTemp)(logsXml.c_str(), error);
        });
    }

    // Runs an export on a thread of its own: past the deadline it is a hang,
    // and the child ends, since the hung thread may hold anything.
    SOutcome Check(const char* name, bool resultDue, const std::function<HRESULT(wchar_t**, wchar_t**)>& call)
    {
        test::export_call_t done;
        if (!test::call_with_deadline(*library_, kDeadlineMs, call, done)) {
            report("hang", std::string(name) + " did not return within " + std::to_string(kDeadlineMs / 1000) + " s");
            TerminateProcess(GetCurrentProcess(), 4);
        }
        SOutcome outcome;
        outcome.status = done.status;
        outcome.result = done.result;
        outcome.error = done.error;
        if (done.status == S_OK && resultDue && outcome.result.empty())
            report("other", std::string(name) + " succeeded without a result");
        else if (done.status == E_FAIL && outcome.error.empty())
            report("other", std::string(name) + " failed without a text");
        else if (done.status != S_OK && done.status != E_FAIL)
            report("other", std::string(name) + " returned " + util::hex_str(static_cast<uint32_t>(done.status)));
        return outcome;
    }

    // Every file and folder under the root but the library's own log; with
    // `content`, what each file holds (a folder holds one NUL).
    std::map<std::wstring, std::string> Files(bool content) const
    {
        std::map<std::wstring, std::string> files;
        std::vector<std::wstring> folders = {root_};
        while (!folders.empty()) {
            const std::wstring folder = folders.back();
            folders.pop_back();
            WIN32_FIND_DATAW found;
            HANDLE search = FindFirstFileExW((folder + L"\\*").c_str(), FindExInfoBasic, &found, FindExSearchNameMatch,
                                             nullptr, 0);
            if (search == INVALID_HANDLE_VALUE)
                continue;
            do {
                const std::wstring name = found.cFileName;
                if (name == L"." || name == L".." || (folder == root_ && name == L"liblog"))
                    continue;
                const std::wstring path = folder + L"\\" + name;
                const bool isFolder = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
                if (isFolder)
                    folders.push_back(path);
                files[path] = isFolder ? std::string(1, '\0') : content ? test::read_file_text(path) : "";
            } while (FindNextFileW(search, &found));
            FindClose(search);
        }
        return files;
    }

    // A file or folder gone must be named by the input; the world is put back
    // as the clean cycle left it, and what the input added goes.
    void Restore(const std::vector<std::wstring>& named)
    {
        const std::map<std::wstring, std::string> now = CheckGone(baseline_, named);
        for (const auto& [path, bytes] : now)
            if (baseline_.count(path) == 0)
                remove_tree(path);
        for (const auto& [path, bytes] : baseline_)
            if (now.count(path) == 0) {
                if (bytes == std::string(1, '\0'))
                    fs::create_directories(path);
                else
                    WriteFile(path, bytes);
            }
    }

    // What is gone of `before` must be named; returns what is there now.
    std::map<std::wstring, std::string> CheckGone(const std::map<std::wstring, std::string>& before,
                                                  const std::vector<std::wstring>& named) const
    {
        const std::map<std::wstring, std::string> now = Files(false);
        for (const auto& [path, bytes] : before)
            if (now.count(path) == 0 && std::find(named.begin(), named.end(), canonical(path)) == named.end())
                report("other", "deleted " + util::wide_to_utf8(path) + ", which the input does not name");
        return now;
    }

    // Settings drawn for a whole process: numbers out of range, values of
    // another type, odd log folders. Whether a restore stays short under them.
    bool FuzzSettings(fuzz::CInputMaker& maker)
    {
        bool restoreShort = true;
        const std::vector<uint32_t> numbers = {0, 1, 2, 7, 1001, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
        for (const wchar_t* name : {L"OracleConnectionTimeout", L"OracleRestoreWaitInSec", L"OracleAgentTtlSec",
                                    L"OracleWaitDbStartedAttemptCount", L"CheckAsmLogFileExistence", L"SupportOracle10",
                                    L"OracleStageLogsBeforeBackup", L"DeleteOracleAbsentLogFiles",
                                    L"DisableOracleProcessing", L"UseOracleAutostartOption", L"OracleSkipNoArchiveLogDB",
                                    L"DetectAsmInstancesByQuery", L"AgentMaxLogSize", L"AgentMaxLogCount"}) {
            if (maker.Chance(40))
                continue;
            const bool restoreWait = std::wstring(name) == L"OracleRestoreWaitInSec";
            const int kind = maker.Below(8);
            if (kind < 4) {
                const uint32_t value = std::wstring(name) == L"AgentMaxLogSize" ? maker.Pick<uint32_t>({0, 1, 200, 4096}) : maker.Pick(numbers);
                registry_.set_dword(kConfigKey, name, value);
                restoreShort = restoreShort && (!restoreWait || static_cast<int32_t>(value) <= 0);
                continue;
            }
            restoreShort = restoreShort && !restoreWait;
            if (kind == 4)
                registry_.set_qword(kConfigKey, name, maker.Pick<uint64_t>({0, 1, 1ull << 40, ~0ull}));
            else if (kind == 5)
                registry_.set_string(kConfigKey, name, maker.Pick<std::wstring>({L"1", L"0", L"", L"-5"}));
            else if (kind == 6)
                registry_.set_binary(kConfigKey, name, std::string(static_cast<size_t>(maker.Below(9)), '\x7F'));
            else
                registry_.set_multi_string(kConfigKey, name, {L"1", L"2"});
        }
        for (const wchar_t* name : {L"OracleTempLogPath", L"LogDirectory"}) {
            if (maker.Chance(30))
                continue;
            const std::wstring path = maker.Pick<std::wstring>(
                {root_ + L"\\other", root_ + L"\\logs\\", L"", L"relative", L"..\\up", L"CON", L"NUL", root_ + L"\\*",
                 root_ + L"\\" + std::wstring(300, L'p'), L"\\\\?\\" + root_ + L"\\long", root_ + L"/fwd/slash",
                 root_ + L"\\FZ1\\arch", L"%TEMP%\\x", root_ + L"\\\xD800", L"\\\\server\\share\\x", maker.Nasty()});
            switch (maker.Below(5)) {
            case 0: registry_.set_string(kConfigKey, name, path, REG_EXPAND_SZ); break;
            case 1: registry_.set_multi_string(kConfigKey, name, {path, path}); break;
            case 2: registry_.set_dword(kConfigKey, name, 1); break;
            default: registry_.set_string(kConfigKey, name, path); break;
            }
        }
        return restoreShort;
    }

    std::wstring root_;
    std::wstring logs_;
    bool config_;
    std::wstring home_ = L"C:\\oracle\\fuzzhome";
    test::registry_sandbox_t registry_;
    test::ocisim_world_t world_;
    std::string scenario_;
    ocisim::World state_;
    std::unique_ptr<test::library_t> library_;
    fuzz::SVocabulary vocabulary_;
    std::map<ETarget, std::vector<std::wstring>> seeds_;
    std::map<std::wstring, std::string> baseline_;
    bool restoreShort_ = true;
};

bool is_config_input(int64_t index)
{
    return index % kConfigEvery == kConfigEvery - 1;
}

// A child: a batch of inputs, or one input of registry settings.
int run_batch(uint64_t seed, int64_t from, int64_t to, bool show)
{
    SetUnhandledExceptionFilter(on_crash);
    std::signal(SIGABRT, on_abort);
    const bool config = is_config_input(from);
    if (config) {
        g_index = from;
        g_where = target_name(ETarget::Registry);
        std::printf("at %lld\n", static_cast<long long>(from));
        std::fflush(stdout);
    }
    CWorld world(seed, config ? from : -1);
    world.CleanCycle();
    for (int64_t index = from; index < to && !config; ++index) {
        g_index = index;
        std::printf("at %lld\n", static_cast<long long>(index));
        std::fflush(stdout);
        world.Run(seed, index, show);
    }
    std::printf("done\n");
    std::fflush(stdout);
    return 0;
}

struct STally {
    int64_t inputs = 0;
    int crashes = 0;
    int hangs = 0;
    int other = 0;
};

// Runs inputs [from, to) in one child and reads its lines; returns the index
// to go on from: `to`, or the input after one that ended the child.
int64_t drive_child(uint64_t seed, int64_t from, int64_t to, STally& tally)
{
    SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
    HANDLE readEnd = nullptr;
    HANDLE writeEnd = nullptr;
    CreatePipe(&readEnd, &writeEnd, &inherit, 0);
    SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = writeEnd;
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    std::wstring command = L"\"" + test::exe_path() + L"\" --seed " + std::to_wstring(seed) + L" --batch " +
                           std::to_wstring(from) + L" " + std::to_wstring(to);
    PROCESS_INFORMATION child{};
    if (!CreateProcessW(nullptr, &command[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &child)) {
        std::printf("fuzz: cannot start a child (error %lu)\n", GetLastError());
        std::exit(2);
    }
    CloseHandle(writeEnd);
    // The lines come through a thread that reads until the pipe ends.
    struct SPipe {
        HANDLE handle = nullptr;
        std::mutex lock;
        std::string text;
        bool closed = false;
    } pipe;
    pipe.handle = readEnd;
    std::thread reader([&pipe] {
        char chunk[4096];
        DWORD got = 0;
        while (ReadFile(pipe.handle, chunk, sizeof chunk, &got, nullptr) && got > 0) {
            std::lock_guard<std::mutex> guard(pipe.lock);
            pipe.text.append(chunk, got);
        }
        std::lock_guard<std::mutex> guard(pipe.lock);
        pipe.closed = true;
    });
    int64_t last = from - 1;
    bool done = false;
    bool ended = false;
    std::string pending;
    auto heard = std::chrono::steady_clock::now();
    auto exited = std::chrono::steady_clock::time_point::max();
    for (;;) {
        bool closed = false;
        {
            std::lock_guard<std::mutex> guard(pipe.lock);
            if (!pipe.text.empty())
                heard = std::chrono::steady_clock::now();
            pending += pipe.text;
            pipe.text.clear();
            closed = pipe.closed;
        }
        for (size_t end = pending.find('\n'); end != std::string::npos; end = pending.find('\n')) {
            std::string line = pending.substr(0, end);
            pending.erase(0, end + 1);
            if (!line.empty() && line.back() == '\r')
                line.pop_back();
            if (line.rfind("at ", 0) == 0) {
                last = std::stoll(line.substr(3));
            } else if (line == "done") {
                done = true;
            } else if (line.rfind("failure ", 0) == 0) {
                const size_t kind = line.find(' ', 8) + 1;
                std::printf("fuzz failure: seed %llu input %s\n", static_cast<unsigned long long>(seed), line.substr(8).c_str());
                if (line.compare(kind, 5, "crash") == 0)
                    ++tally.crashes, ended = true;
                else if (line.compare(kind, 4, "hang") == 0)
                    ++tally.hangs, ended = true;
                else
                    ++tally.other;
            }
        }
        if (closed)
            break;
        const auto now = std::chrono::steady_clock::now();
        // A process the child started may still hold the pipe: a little after
        // the child's end, what it wrote has been read.
        if (exited == std::chrono::steady_clock::time_point::max() && WaitForSingleObject(child.hProcess, 0) == WAIT_OBJECT_0)
            exited = now;
        if (now - exited > std::chrono::seconds(5))
            break;
        if (now - heard > std::chrono::milliseconds(kSilenceMs) && !ended) {
            TerminateProcess(child.hProcess, 5);
            std::printf("fuzz failure: seed %llu input %lld hang: the child wrote nothing for %lu s\n",
                        static_cast<unsigned long long>(seed), static_cast<long long>(last), kSilenceMs / 1000);
            ++tally.hangs;
            ended = true;
        }
        Sleep(20);
    }
    if (pipe.closed)
        reader.join();
    else
        reader.detach();
    DWORD code = 0;
    GetExitCodeProcess(child.hProcess, &code);
    CloseHandle(child.hProcess);
    CloseHandle(child.hThread);
    if (pipe.closed)
        CloseHandle(readEnd);
    std::fflush(stdout);
    if (!done && !ended) {
        std::printf("fuzz failure: seed %llu input %lld crash: the child died with code 0x%08lX\n",
                    static_cast<unsigned long long>(seed), static_cast<long long>(last), code);
        ++tally.crashes;
    }
    if (done || is_config_input(from))
        return to;
    return std::max(last + 1, from + 1);
}

} // namespace

int main(int argc, char** argv)
{
    uint64_t seed = kDefaultSeed;
    int64_t inputs = 100000;
    int64_t only = -1;
    int64_t from = -1;
    int64_t to = -1;
    for (int i = 1; i + 1 < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--seed")
            seed = std::strtoull(argv[++i], nullptr, 10);
        else if (option == "--inputs")
            inputs = std::atoll(argv[++i]);
        else if (option == "--only")
            only = std::atoll(argv[++i]);
        else if (option == "--batch" && i + 2 < argc)
            from = std::atoll(argv[++i]), to = std::atoll(argv[++i]);
    }
    if (only >= 0)
        return run_batch(seed, only, only + 1, true);
    if (from >= 0)
        return run_batch(seed, from, to, false);

    STally tally;
    const auto start = std::chrono::steady_clock::now();
    for (int64_t next = 0; next < inputs;) {
        const int64_t end = is_config_input(next) ? next + 1 : std::min(inputs, next - next % kConfigEvery + kConfigEvery - 1);
        next = drive_child(seed, next, end, tally);
        tally.inputs = next;
        std::fprintf(stderr, "fuzz: %lld inputs done, %.0f s\n", static_cast<long long>(next),
                     std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    if (tally.crashes + tally.hangs + tally.other > 0)
        std::printf("replay one input with: fuzz.exe --seed %llu --only <input>\n", static_cast<unsigned long long>(seed));
    std::printf("fuzz: %lld inputs, %d crashes, %d hangs, %d other failures\n", static_cast<long long>(tally.inputs),
                tally.crashes, tally.hangs, tally.other);
    return tally.crashes + tally.hangs + tally.other == 0 ? 0 : 1;
}
