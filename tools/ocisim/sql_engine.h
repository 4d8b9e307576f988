// The simulated server's statement engine: it answers exactly the statement texts the
// library runs, on one instance of the world, and moves the instance between states.
#pragma once

#include "world.h"

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace ocisim {

// A server error as OCIErrorGet reports it: its number and its full text
// ("ORA-00900: invalid SQL statement"), possibly several lines.
class OraError : public std::runtime_error {
public:
    explicit OraError(int code);
    OraError(int code, const std::string& text);
    int code() const { return code_; }

private:
    int code_;
};

// The standard text of a server error number.
std::string ora_text(int code);

struct SessionRights {
    bool sysdba = false;
    bool prelim = false;
};

// A bound variable. Integers are output variables of the PL/SQL calls that have them.
struct BindValue {
    bool isInteger = false;
    std::string text;
    std::int64_t number = 0;
};
// Keyed by the placeholder name in upper case, with its colon (":FNAME").
using Binds = std::map<std::string, BindValue>;

struct ResultSet {
    bool isQuery = false;
    std::size_t columns = 0;
    std::vector<std::vector<std::string>> rows;  // an empty value is NULL, as in Oracle
};

// OCI shutdown modes, as OCIDBShutdown takes them.
enum ShutdownMode : std::uint32_t {
    kShutdownDefault = 0,
    kShutdownTransactional = 1,
    kShutdownTransactionalLocal = 2,
    kShutdownImmediate = 3,
    kShutdownAbort = 4,
    kShutdownFinal = 5,
};

// Runs statements and instance operations on one instance; failures are OraError.
// changed() tells whether the world must be saved afterwards.
class Engine {
public:
    Engine(Instance& instance, SessionRights rights) : instance_(instance), rights_(rights) {}

    ResultSet execute(const std::string& text, Binds& binds);
    void startup();
    void shutdown(std::uint32_t mode);
    bool changed() const { return changed_; }

private:
    struct Rule;
    // Every statement the engine answers, the areas' tables one after the other.
    static const std::vector<Rule>& rules();
    static std::vector<Rule> instance_rules();
    static std::vector<Rule> file_rules();
    static std::vector<Rule> log_rules();
    static std::vector<Rule> asm_rules();

    std::string status() const;
    void need_sysdba() const;
    void need_mounted() const;
    void need_open() const;
    void need_pdbs() const;
    void set(const std::string& key, const std::string& value);
    const Record* active_backup_file() const;
    void close_pdbs();
    void archive_one();
    const Record* directory(const std::string& name) const;
    std::string directory_file(const std::string& name, const std::string& file) const;
    bool asm_file(const std::string& name, std::int64_t& type, std::int64_t& blocks, std::int64_t& blockSize) const;

    ResultSet listing(void (Engine::*need)() const, const std::string& kind, const std::vector<std::string>& fields) const;
    // One property of the instance as a one-value answer; the database must be mounted.
    ResultSet mounted_fact(const std::string& key) const;
    ResultSet archived_logs(const std::vector<std::string>& args, int shape);
    ResultSet alter_database(const std::string& action);
    ResultSet archive_log(bool all);
    ResultSet create_pfile(const std::string& path, bool fromSpfile);
    ResultSet create_directory(const std::string& name, const std::string& path);
    ResultSet drop_directory(const std::string& name);
    ResultSet copy_file(const std::vector<std::string>& args);
    ResultSet remove_file(const std::string& dir, const std::string& file);
    ResultSet delete_archived_log(const std::vector<std::string>& args);
    ResultSet file_attributes(Binds& binds);
    ResultSet open_pdb(const std::string& name, const std::string& how);

    Instance& instance_;
    SessionRights rights_;
    bool changed_ = false;
};

// Throws OraError 1034, 1017, 1031 or 24300 when the instance refuses the logon.
void check_logon(const Instance& instance, bool external, const std::string& login, const std::string& password,
                 bool sysdba, bool prelim);

// A fault of the instance that applies at `point` ("attach", "session_begin", "sql",
// "fetch", "startup", "shutdown", "logoff"); for "sql" and "fetch", `statement` is
// matched against the fault's text, and a status query also matches faults at "status".
// A fault with a positive `skip` lets that many matching calls through first; one with
// a positive `times` is used up one firing at a time.
struct FaultHit {
    bool hit = false;
    bool changed = false;
    Record fault;
};
FaultHit take_fault(Instance& instance, const std::string& point, const std::string& statement);

// Placeholders (":NAME", upper case) of a statement text, outside quoted strings.
std::vector<std::string> placeholders(const std::string& text);

// Matches `text` against `pattern`, whose %1..%9 stand for non-empty parts; the parts
// are returned in the order of their numbers.
bool match_template(const std::string& pattern, const std::string& text, std::vector<std::string>& parts);

}  // namespace ocisim
