#include "sql_engine.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>

namespace ocisim {

struct Engine::Rule {
    std::string pattern;
    std::function<ResultSet(Engine&, const std::vector<std::string>&, Binds&)> run;
};

namespace {

using Rows = std::vector<std::vector<std::string>>;

ResultSet query(std::size_t columns, Rows rows) {
    ResultSet result;
    result.isQuery = true;
    result.columns = columns;
    result.rows = std::move(rows);
    return result;
}

ResultSet done() { return ResultSet{}; }

std::string time_expression(const std::string& column) {
    return "TO_CHAR(SYS_EXTRACT_UTC(CAST(" + column + " AS TIMESTAMP)), 'yyyy/mm/dd hh24:mi:ss')";
}

// The three shapes in which the library lists archived logs.
enum LogShape { kCollectorShape, kCopyShape, kActiveShape };

const std::string& collector_logs_sql() {
    static const std::string text = "SELECT NAME, FIRST_CHANGE#, NEXT_CHANGE#, BLOCKS*BLOCK_SIZE, \t\t\t" +
                                    time_expression("FIRST_TIME") + ", " + time_expression("NEXT_TIME") +
                                    ", SEQUENCE# FROM V$ARCHIVED_LOG WHERE STATUS != 'D' AND CREATOR != 'LGWR'";
    return text;
}

const std::string& copy_logs_sql() {
    static const std::string text = "SELECT FIRST_CHANGE#, " + time_expression("FIRST_TIME") + ", NEXT_CHANGE#, " +
                                    time_expression("NEXT_TIME") +
                                    ", NAME, SEQUENCE#, RECID, STAMP FROM V$ARCHIVED_LOG WHERE CREATOR != 'LGWR'";
    return text;
}

const std::string& active_logs_sql() {
    static const std::string text =
        "SELECT FIRST_CHANGE#, BLOCK_SIZE, RECID, STAMP, NAME, \t\t\tTHREAD#, SEQUENCE#, RESETLOGS_CHANGE#, "
        "BLOCKS*BLOCK_SIZE, \t\t\t" +
        time_expression("FIRST_TIME") + ", " + time_expression("NEXT_TIME") +
        " FROM V$ARCHIVED_LOG WHERE STATUS != 'D' AND CREATOR != 'LGWR'";
    return text;
}

std::int64_t integer_argument(const std::string& text) {
    if (!is_integer(text)) throw OraError(904, "ORA-00904: \"" + to_upper(text) + "\": invalid identifier");
    return std::stoll(text);
}

bool is_identifier(const std::string& text) {
    if (text.empty() || text.size() > 128 || !std::isalpha(static_cast<unsigned char>(text[0]))) return false;
    return std::all_of(text.begin(), text.end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '$' || c == '#';
    });
}

bool starts_with(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

std::string join_path(const std::string& folder, const std::string& file) {
    if (folder.empty()) return file;
    const char last = folder.back();
    if (last == '\\' || last == '/') return folder + file;
    const bool slashes = folder.find('/') != std::string::npos && folder.find('\\') == std::string::npos;
    return folder + (slashes ? "/" : "\\") + file;
}

// A file of `size` bytes standing for the contents of a file the simulator only knows by size.
bool write_filler(const std::string& path, std::int64_t size) {
    std::ofstream out(std::filesystem::u8path(path), std::ios::binary | std::ios::trunc);
    const std::string block(512, 'R');
    for (std::int64_t left = size; out && left > 0; left -= 512)
        out.write(block.data(), static_cast<std::streamsize>(std::min<std::int64_t>(left, 512)));
    out.flush();
    return static_cast<bool>(out);
}

bool is_status_query(const std::string& statement) {
    return statement == "SELECT STATUS FROM V$INSTANCE" || statement == "SELECT DATABASE_STATUS FROM V$INSTANCE";
}

bool match_from(const std::string& pattern, std::size_t p, const std::string& text, std::size_t t,
                std::vector<std::pair<int, std::string>>& parts) {
    while (p < pattern.size()) {
        const bool placeholder = pattern[p] == '%' && p + 1 < pattern.size() && pattern[p + 1] >= '1' &&
                                 pattern[p + 1] <= '9';
        if (placeholder) {
            const int number = pattern[p + 1] - '0';
            const std::size_t next = p + 2;
            for (std::size_t end = t + 1; end <= text.size(); ++end) {
                parts.emplace_back(number, text.substr(t, end - t));
                if (match_from(pattern, next, text, end, parts)) return true;
                parts.pop_back();
            }
            return false;
        }
        if (t >= text.size() || text[t] != pattern[p]) return false;
        ++p;
        ++t;
    }
    return t == text.size();
}

}  // namespace

OraError::OraError(int code) : OraError(code, ora_text(code)) {}

OraError::OraError(int code, const std::string& text) : std::runtime_error(text), code_(code) {}

std::string ora_text(int code) {
    static const std::map<int, std::string> texts = {
        {258, "ORA-00258: manual archiving in NOARCHIVELOG mode must identify log"},
        {271, "ORA-00271: there are no logs that need archiving"},
        {900, "ORA-00900: invalid SQL statement"},
        {942, "ORA-00942: table or view does not exist"},
        {955, "ORA-00955: name is already used by an existing object"},
        {1007, "ORA-01007: variable not in select list"},
        {1008, "ORA-01008: not all variables bound"},
        {1012, "ORA-01012: not logged on"},
        {1013, "ORA-01013: user requested cancel of current operation"},
        {1017, "ORA-01017: invalid username/password; logon denied"},
        {1031, "ORA-01031: insufficient privileges"},
        {1034, "ORA-01034: ORACLE not available\nORA-27101: shared memory realm does not exist"},
        {1036, "ORA-01036: illegal variable name/number"},
        {1081, "ORA-01081: cannot start already-running ORACLE - shut it down first"},
        {1100, "ORA-01100: database already mounted"},
        {1106, "ORA-01106: database must be closed before dismounting"},
        {1109, "ORA-01109: database not open"},
        {1123, "ORA-01123: cannot start online backup; media recovery not enabled"},
        {1142, "ORA-01142: cannot end online backup - none of the files are in backup"},
        {1405, "ORA-01405: fetched column value is NULL"},
        {1406, "ORA-01406: fetched column value was truncated"},
        {1507, "ORA-01507: database not mounted"},
        {1531, "ORA-01531: a database already open by the instance"},
        {3113, "ORA-03113: end-of-file on communication channel"},
        {3114, "ORA-03114: not connected to ORACLE"},
        {12154, "ORA-12154: TNS:could not resolve the connect identifier specified"},
        {12560, "ORA-12560: TNS:protocol adapter error"},
        {24300, "ORA-24300: bad value for mode"},
        {24315, "ORA-24315: illegal attribute type"},
        {24333, "ORA-24333: zero iteration count"},
        {24337, "ORA-24337: statement handle not prepared"},
        {29283, "ORA-29283: invalid file operation"},
        {65090, "ORA-65090: operation only allowed in a container database"},
    };
    const auto it = texts.find(code);
    if (it != texts.end()) return it->second;
    char text[64];
    std::snprintf(text, sizeof text, "ORA-%05d: simulated error", code);
    return text;
}

const std::vector<Engine::Rule>& Engine::rules() {
    using Args = const std::vector<std::string>&;
    static const std::vector<Rule> all = {
        // Instance and session facts
        {"SELECT STATUS FROM V$INSTANCE", [](Engine& e, Args, Binds&) { return query(1, {{e.status()}}); }},
        {"SELECT DATABASE_STATUS FROM V$INSTANCE",
         [](Engine& e, Args, Binds&) { return query(1, {{e.instance_.get("database_status")}}); }},
        {"SELECT VERSION FROM V$INSTANCE", [](Engine& e, Args, Binds&) { return query(1, {{e.instance_.get("version")}}); }},
        {"SELECT version FROM V$INSTANCE", [](Engine& e, Args, Binds&) { return query(1, {{e.instance_.get("version")}}); }},
        {"SELECT * FROM V$VERSION WHERE BANNER LIKE 'Oracle%'",
         [](Engine& e, Args, Binds&) {
             const std::string banner = e.instance_.get("banner");
             return query(1, starts_with(banner, "Oracle") ? Rows{{banner}} : Rows{});
         }},
        {"SELECT SYS_CONTEXT('USERENV','DB_NAME') FROM DUAL",
         [](Engine& e, Args, Binds&) { return query(1, {{e.instance_.get("name")}}); }},
        {"SELECT SYS_CONTEXT('USERENV','DB_UNIQUE_NAME') FROM DUAL",
         [](Engine& e, Args, Binds&) { return query(1, {{e.instance_.get("unique_name")}}); }},
        {"SELECT SYS_CONTEXT('USERENV','DB_DOMAIN') FROM DUAL",
         [](Engine& e, Args, Binds&) { return query(1, {{e.instance_.get("domain")}}); }},
        {"SELECT VALUE FROM V$PARAMETER WHERE NAME='%1'",
         [](Engine& e, Args a, Binds&) {
             Rows rows;
             for (const Record* p : e.instance_.records("parameter"))
                 if (p->get("name") == a[0]) rows.push_back({p->get("value")});
             return query(1, rows);
         }},
        {"SELECT NAME, VALUE FROM V$PARAMETER WHERE NAME LIKE '%_listener'",
         [](Engine& e, Args, Binds&) {
             Rows rows;
             const std::string suffix = "listener";
             for (const Record* p : e.instance_.records("parameter")) {
                 const std::string& name = p->get("name");
                 if (name.size() > suffix.size() && name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0)
                     rows.push_back({name, p->get("value")});
             }
             return query(2, rows);
         }},

        // V$DATABASE
        {"SELECT OPEN_MODE, LOG_MODE FROM V$DATABASE",
         [](Engine& e, Args, Binds&) {
             e.need_mounted();
             const std::string mode = e.status() == "MOUNTED" ? "MOUNTED" : e.instance_.get("open_mode");
             return query(2, {{mode, e.instance_.get("log_mode")}});
         }},
        {"SELECT NAME FROM V$DATABASE",
         [](Engine& e, Args, Binds&) {
             e.need_mounted();
             return query(1, {{to_upper(e.instance_.get("name"))}});
         }},
        {"SELECT DBID FROM V$DATABASE",
         [](Engine& e, Args, Binds&) {
             e.need_mounted();
             return query(1, {{e.instance_.get("dbid")}});
         }},
        {"SELECT CURRENT_SCN FROM V$DATABASE",
         [](Engine& e, Args, Binds&) {
             e.need_mounted();
             return query(1, {{e.status() == "MOUNTED" ? "0" : e.instance_.get("current_scn")}});
         }},
        {"SELECT CDB FROM V$DATABASE",
         [](Engine& e, Args, Binds&) {
             e.need_mounted();
             if (std::atoi(e.instance_.get("version").c_str()) < 12)
                 throw OraError(904, "ORA-00904: \"CDB\": invalid identifier");
             return query(1, {{e.instance_.get("cdb")}});
         }},

        // Files
        {"SELECT NAME FROM V$CONTROLFILE WHERE ROWNUM=1",
         [](Engine& e, Args, Binds&) {
             const auto files = e.instance_.records("controlfile");
             return query(1, files.empty() ? Rows{} : Rows{{files.front()->get("name")}});
         }},
        {"SELECT NAME, BLOCK_SIZE*FILE_SIZE_BLKS FROM V$CONTROLFILE",
         [](Engine& e, Args, Binds&) {
             Rows rows;
             for (const Record* f : e.instance_.records("controlfile"))
                 rows.push_back({f->get("name"), std::to_string(f->number("block_size") * f->number("file_size_blks"))});
             return query(2, rows);
         }},
        {"SELECT F.MEMBER, L.BYTES FROM V$LOG L, V$LOGFILE F WHERE L.GROUP# = F.GROUP#",
         [](Engine& e, Args, Binds&) { return e.listing(&Engine::need_mounted, "redolog", {"member", "bytes"}); }},
        {"SELECT MEMBER, GROUP# FROM V$LOGFILE",
         [](Engine& e, Args, Binds&) { return e.listing(&Engine::need_mounted, "redolog", {"member", "group"}); }},
        {"SELECT NAME, BYTES FROM V$DATAFILE",
         [](Engine& e, Args, Binds&) { return e.listing(&Engine::need_mounted, "datafile", {"name", "bytes"}); }},
        {"SELECT NAME, BYTES FROM V$TEMPFILE",
         [](Engine& e, Args, Binds&) { return e.listing(&Engine::need_mounted, "tempfile", {"name", "bytes"}); }},
        {"SELECT STATUS FROM V$BACKUP",
         [](Engine& e, Args, Binds&) { return e.listing(&Engine::need_mounted, "datafile", {"backup"}); }},
        {"SELECT NAME FROM V$RECOVERY_FILE_DEST",
         [](Engine& e, Args, Binds&) {
             e.need_mounted();
             return query(1, {{e.instance_.get("recovery_dest")}});
         }},
        {"SELECT COUNT(*) FROM V$RESTORE_POINT WHERE GUARANTEE_FLASHBACK_DATABASE='YES'",
         [](Engine& e, Args, Binds&) {
             e.need_mounted();
             std::size_t count = 0;
             for (const Record* r : e.instance_.records("restore_point")) count += r->get("guarantee") == "YES";
             return query(1, {{std::to_string(count)}});
         }},

        // Plugged databases
        {"SELECT NAME, GUID FROM V$PDBS",
         [](Engine& e, Args, Binds&) { return e.listing(&Engine::need_pdbs, "pdb", {"name", "guid"}); }},
        {"SELECT NAME, OPEN_MODE FROM V$PDBS",
         [](Engine& e, Args, Binds&) { return e.listing(&Engine::need_pdbs, "pdb", {"name", "open_mode"}); }},
        {"SELECT OPEN_MODE FROM V$PDBS WHERE NAME = '%1'",
         [](Engine& e, Args a, Binds&) {
             e.need_pdbs();
             Rows rows;
             for (const Record* p : e.instance_.records("pdb"))
                 if (p->get("name") == a[0]) rows.push_back({p->get("open_mode")});
             return query(1, rows);
         }},
        {"ALTER PLUGGABLE DATABASE \"%1\" OPEN %2", [](Engine& e, Args a, Binds&) { return e.open_pdb(a[0], a[1]); }},

        // Archived logs
        {"SELECT SEQUENCE#, NAME FROM V$ARCHIVED_LOG",
         [](Engine& e, Args, Binds&) { return e.listing(&Engine::need_mounted, "archived_log", {"sequence", "name"}); }},
        {"SELECT MAX(SEQUENCE#) FROM V$ARCHIVED_LOG WHERE STATUS != 'D'",
         [](Engine& e, Args, Binds&) {
             e.need_mounted();
             std::string max;
             std::int64_t highest = -1;
             for (const Record* l : e.instance_.records("archived_log"))
                 if (l->get("status") != "D" && l->number("sequence") > highest) {
                     highest = l->number("sequence");
                     max = l->get("sequence");
                 }
             return query(1, {{max}});
         }},
        {"SELECT RECID FROM V$ARCHIVED_LOG WHERE RECID=%1 AND STAMP=%2",
         [](Engine& e, Args a, Binds&) {
             const std::int64_t recid = integer_argument(a[0]);
             const std::int64_t stamp = integer_argument(a[1]);
             e.need_mounted();
             Rows rows;
             for (const Record* l : e.instance_.records("archived_log"))
                 if (l->number("recid") == recid && l->number("stamp") == stamp) rows.push_back({l->get("recid")});
             return query(1, rows);
         }},
        {"SELECT RECID, STAMP FROM V$ARCHIVED_LOG WHERE RECID=(SELECT MAX(RECID) FROM V$ARCHIVED_LOG)",
         [](Engine& e, Args, Binds&) {
             e.need_mounted();
             const Record* newest = nullptr;
             for (const Record* l : e.instance_.records("archived_log"))
                 if (!newest || l->number("recid") > newest->number("recid")) newest = l;
             return query(2, newest ? Rows{{newest->get("recid"), newest->get("stamp")}} : Rows{});
         }},
        {collector_logs_sql(), [](Engine& e, Args a, Binds&) { return e.archived_logs(a, kCollectorShape); }},
        {collector_logs_sql() + " AND RECID >= %1",
         [](Engine& e, Args a, Binds&) { return e.archived_logs(a, kCollectorShape); }},
        {copy_logs_sql(), [](Engine& e, Args a, Binds&) { return e.archived_logs(a, kCopyShape); }},
        {copy_logs_sql() + " AND RECID > %1", [](Engine& e, Args a, Binds&) { return e.archived_logs(a, kCopyShape); }},
        {active_logs_sql(), [](Engine& e, Args a, Binds&) { return e.archived_logs(a, kActiveShape); }},
        {"BEGIN\n DBMS_BACKUP_RESTORE.DELETEARCHIVEDLOG('%1', '%2', '%3', '%4', '%5', '%6', '%7', '%8');\n END;",
         [](Engine& e, Args a, Binds&) { return e.delete_archived_log(a); }},

        // ASM
        {"SELECT D.PATH,DG.NAME,D.MODE_STATUS FROM V$ASM_DISK D, V$ASM_DISKGROUP DG WHERE DG.GROUP_NUMBER=D.GROUP_NUMBER",
         [](Engine& e, Args, Binds&) {
             Rows rows;
             for (const Record* d : e.instance_.records("asm_disk"))
                 if (!d->get("group").empty()) rows.push_back({d->get("path"), d->get("group"), d->get("mode_status")});
             return query(3, rows);
         }},
        {"BEGIN \n DBMS_DISKGROUP.GETFILEATTR(:fname,:ftype,:fsize,:blksize); \n END;",
         [](Engine& e, Args, Binds& b) { return e.file_attributes(b); }},

        // Instance and database state
        {"ALTER DATABASE MOUNT", [](Engine& e, Args, Binds&) { return e.alter_database("MOUNT"); }},
        {"ALTER DATABASE OPEN", [](Engine& e, Args, Binds&) { return e.alter_database("OPEN"); }},
        {"ALTER DATABASE CLOSE NORMAL", [](Engine& e, Args, Binds&) { return e.alter_database("CLOSE"); }},
        {"ALTER DATABASE DISMOUNT", [](Engine& e, Args, Binds&) { return e.alter_database("DISMOUNT"); }},
        {"ALTER DATABASE BEGIN BACKUP", [](Engine& e, Args, Binds&) { return e.alter_database("BEGIN BACKUP"); }},
        {"ALTER DATABASE END BACKUP", [](Engine& e, Args, Binds&) { return e.alter_database("END BACKUP"); }},
        {"ALTER SYSTEM ARCHIVE LOG CURRENT", [](Engine& e, Args, Binds&) { return e.archive_log(false); }},
        {"ALTER SYSTEM ARCHIVE LOG ALL", [](Engine& e, Args, Binds&) { return e.archive_log(true); }},

        // Files written or moved by the server
        {"create pfile='%1' from spfile", [](Engine& e, Args a, Binds&) { return e.create_pfile(a[0], true); }},
        {"create pfile='%1' from memory", [](Engine& e, Args a, Binds&) { return e.create_pfile(a[0], false); }},
        {"CREATE DIRECTORY %1 AS '%2'", [](Engine& e, Args a, Binds&) { return e.create_directory(a[0], a[1]); }},
        {"DROP DIRECTORY %1", [](Engine& e, Args a, Binds&) { return e.drop_directory(a[0]); }},
        {"BEGIN\n DBMS_FILE_TRANSFER.COPY_FILE('%1', '%2', '%3', '%4');\n END;",
         [](Engine& e, Args a, Binds&) { return e.copy_file(a); }},
        {"BEGIN\n UTL_FILE.FREMOVE('%1', '%2');\n END;", [](Engine& e, Args a, Binds&) { return e.remove_file(a[0], a[1]); }},
    };
    return all;
}

// One row a record of `kind`, its columns the given fields, once `need` lets the query run.
ResultSet Engine::listing(void (Engine::*need)() const, const std::string& kind,
                          const std::vector<std::string>& fields) const {
    (this->*need)();
    Rows rows;
    for (const Record* record : instance_.records(kind)) {
        rows.emplace_back();
        for (const std::string& field : fields) rows.back().push_back(record->get(field));
    }
    return query(fields.size(), rows);
}

ResultSet Engine::execute(const std::string& text, Binds& binds) {
    if (rights_.prelim) throw OraError(1012);
    if (status() == "DOWN") throw OraError(3113);
    for (const auto& rule : rules()) {
        std::vector<std::string> args;
        if (match_template(rule.pattern, text, args)) return rule.run(*this, args, binds);
    }
    throw OraError(900);
}

void Engine::startup() {
    need_sysdba();
    if (status() != "DOWN") throw OraError(1081);
    set("status", "STARTED");
    close_pdbs();
}

void Engine::shutdown(std::uint32_t mode) {
    need_sysdba();
    if (status() == "DOWN") throw OraError(1034);
    switch (mode) {
    case kShutdownDefault:
    case kShutdownTransactional:
    case kShutdownTransactionalLocal:
    case kShutdownImmediate:
        return;  // only announces the shutdown; CLOSE, DISMOUNT and FINAL follow
    case kShutdownAbort:
        set("status", "DOWN");
        close_pdbs();
        return;
    case kShutdownFinal:
        if (status() != "STARTED") throw OraError(1106);
        set("status", "DOWN");
        return;
    default:
        throw OraError(24300);
    }
}

std::string Engine::status() const { return to_upper(instance_.get("status")); }

void Engine::need_sysdba() const {
    if (!rights_.sysdba) throw OraError(1031);
}

void Engine::need_mounted() const {
    const std::string s = status();
    if (s != "MOUNTED" && !starts_with(s, "OPEN")) throw OraError(1507);
}

void Engine::need_open() const {
    if (!starts_with(status(), "OPEN")) throw OraError(1109);
}

void Engine::need_pdbs() const {
    need_mounted();
    if (std::atoi(instance_.get("version").c_str()) < 12) throw OraError(942);
}

void Engine::set(const std::string& key, const std::string& value) {
    instance_.set(key, value);
    changed_ = true;
}

const Record* Engine::active_backup_file() const {
    for (const Record* f : instance_.records("datafile"))
        if (f->get("backup") == "ACTIVE") return f;
    return nullptr;
}

// A container opens with its plugged databases mounted: they have to be opened one by one.
void Engine::close_pdbs() {
    for (Record* p : instance_.records("pdb")) {
        p->set("open_mode", p->get("name") == "PDB$SEED" && starts_with(status(), "OPEN") ? "READ ONLY" : "MOUNTED");
        changed_ = true;
    }
}

ResultSet Engine::alter_database(const std::string& action) {
    const std::string s = status();
    const auto fileNumber = [this](const Record* file) {
        const auto files = instance_.records("datafile");
        return std::to_string(std::find(files.begin(), files.end(), file) - files.begin() + 1);
    };
    if (action == "MOUNT") {
        need_sysdba();
        if (s != "STARTED") throw OraError(1100);
        set("status", "MOUNTED");
    } else if (action == "OPEN") {
        need_sysdba();
        if (s == "STARTED") throw OraError(1507);
        if (s != "MOUNTED") throw OraError(1531);
        if (const Record* file = active_backup_file())
            throw OraError(10873, "ORA-10873: file " + fileNumber(file) +
                                      " needs to be either taken out of backup mode or media recovered\n"
                                      "ORA-01110: data file " + fileNumber(file) + ": '" + file->get("name") + "'");
        set("status", "OPEN");
        close_pdbs();
    } else if (action == "CLOSE") {
        need_sysdba();
        need_open();
        if (const Record* file = active_backup_file())
            throw OraError(1149, "ORA-01149: cannot shutdown - file " + fileNumber(file) +
                                     " has online backup set\nORA-01110: data file " + fileNumber(file) + ": '" +
                                     file->get("name") + "'");
        set("status", "MOUNTED");
        close_pdbs();
    } else if (action == "DISMOUNT") {
        need_sysdba();
        if (s == "STARTED") throw OraError(1507);
        if (s != "MOUNTED") throw OraError(1106);
        set("status", "STARTED");
    } else if (action == "BEGIN BACKUP") {
        need_open();
        if (to_upper(instance_.get("log_mode")) != "ARCHIVELOG") throw OraError(1123);
        if (const Record* file = active_backup_file())
            throw OraError(1146, "ORA-01146: cannot start online backup - file " + fileNumber(file) +
                                     " is already in backup\nORA-01110: data file " + fileNumber(file) + ": '" +
                                     file->get("name") + "'");
        for (Record* f : instance_.records("datafile")) f->set("backup", "ACTIVE");
        changed_ = true;
    } else {  // END BACKUP
        need_mounted();
        if (!active_backup_file()) throw OraError(1142);
        for (Record* f : instance_.records("datafile")) f->set("backup", "NOT ACTIVE");
        changed_ = true;
    }
    return done();
}

ResultSet Engine::archive_log(bool all) {
    if (all)
        need_mounted();
    else
        need_open();
    if (to_upper(instance_.get("log_mode")) != "ARCHIVELOG") throw OraError(258);
    if (!all) {
        archive_one();
        return done();
    }
    const std::int64_t pending = std::stoll(instance_.get("unarchived_logs"));
    if (pending <= 0) throw OraError(271);
    for (std::int64_t i = 0; i < pending; ++i) archive_one();
    set("unarchived_logs", "0");
    return done();
}

// Archives the current redo log: a new V$ARCHIVED_LOG row, and its file in archive_dest.
void Engine::archive_one() {
    std::int64_t sequence = 0;
    for (const Record* l : instance_.records("archived_log"))
        if (l->get("thread") == "1") sequence = std::max(sequence, l->number("sequence"));
    ++sequence;
    const std::string dest = instance_.get("archive_dest");
    if (dest.empty())
        throw OraError(16014, "ORA-16014: log 1 sequence# " + std::to_string(sequence) +
                                  " not archived, no available destinations");
    char file[64];
    std::snprintf(file, sizeof file, "ARC%010lld_0001.ARC", static_cast<long long>(sequence));
    const std::string name = join_path(dest, file);

    Record& log = instance_.add("archived_log", {{"name", name}, {"sequence", std::to_string(sequence)}});
    const std::int64_t scn = std::stoll(instance_.get("current_scn"));
    log.set("next_change", std::to_string(std::max(scn, log.number("first_change") + 1)));
    std::int64_t first = 0;
    parse_utc_text(log.get("first_time"), first);
    log.set("next_time", utc_text(std::max(first, now_epoch_seconds())));
    if (!starts_with(name, "+") && !write_filler(name, log.number("blocks") * log.number("block_size"))) {
        instance_.remove("archived_log", "recid", log.get("recid"));
        throw OraError(19504, "ORA-19504: failed to create file \"" + name + "\"");
    }
    set("current_scn", std::to_string(log.number("next_change") + 1000));
}

ResultSet Engine::archived_logs(const std::vector<std::string>& args, int shape) {
    std::int64_t lowest = 0;
    const bool filtered = !args.empty();
    if (filtered) lowest = integer_argument(args[0]);
    need_mounted();
    Rows rows;
    for (const Record* l : instance_.records("archived_log")) {
        if (l->get("creator") == "LGWR") continue;
        const std::int64_t recid = l->number("recid");
        const std::string size = std::to_string(l->number("blocks") * l->number("block_size"));
        switch (shape) {
        case kCollectorShape:
            if (l->get("status") == "D" || (filtered && recid < lowest)) continue;
            rows.push_back({l->get("name"), l->get("first_change"), l->get("next_change"), size, l->get("first_time"),
                            l->get("next_time"), l->get("sequence")});
            break;
        case kCopyShape:
            if (filtered && recid <= lowest) continue;
            rows.push_back({l->get("first_change"), l->get("first_time"), l->get("next_change"), l->get("next_time"),
                            l->get("name"), l->get("sequence"), l->get("recid"), l->get("stamp")});
            break;
        default:
            if (l->get("status") == "D") continue;
            rows.push_back({l->get("first_change"), l->get("block_size"), l->get("recid"), l->get("stamp"),
                            l->get("name"), l->get("thread"), l->get("sequence"), l->get("resetlogs_change"), size,
                            l->get("first_time"), l->get("next_time")});
        }
    }
    return query(shape == kCollectorShape ? 7 : shape == kCopyShape ? 8 : 11, rows);
}

ResultSet Engine::delete_archived_log(const std::vector<std::string>& args) {
    const std::int64_t recid = integer_argument(args[0]);
    const std::int64_t stamp = integer_argument(args[1]);
    need_mounted();
    Record* log = nullptr;
    for (Record* l : instance_.records("archived_log"))
        if (l->number("recid") == recid && l->number("stamp") == stamp && l->get("status") != "D") log = l;
    if (!log)
        throw OraError(19571, "ORA-19571: archived log RECID " + args[0] + " STAMP " + args[1] +
                                  " not found in control file");
    const bool same = iequals(log->get("name"), args[2]) && log->get("thread") == args[3] &&
                      log->get("sequence") == args[4] && log->get("resetlogs_change") == args[5] &&
                      log->get("first_change") == args[6] && log->get("block_size") == args[7];
    if (!same)
        throw OraError(19563, "ORA-19563: archived log header validation failed for file " + args[2]);
    if (!starts_with(args[2], "+")) {
        std::error_code ignored;
        std::filesystem::remove(std::filesystem::u8path(args[2]), ignored);
    }
    log->set("status", "D");
    log->set("name", "");
    changed_ = true;
    return done();
}

ResultSet Engine::create_pfile(const std::string& path, bool fromSpfile) {
    need_sysdba();
    if (fromSpfile && !instance_.flag("spfile"))
        throw OraError(1565, "ORA-01565: error in identifying file '%ORACLE_HOME%\\DATABASE\\SPFILE%ORACLE_SID%.ORA'\n"
                             "ORA-27041: unable to open file");
    std::ofstream out(std::filesystem::u8path(path), std::ios::binary | std::ios::trunc);
    out << "*.db_name='" << instance_.get("name") << "'\n";
    for (const Record* p : instance_.records("parameter")) {
        const std::string& value = p->get("value");
        const bool bare = is_integer(value) || value == "TRUE" || value == "FALSE";
        out << "*." << p->get("name") << "=" << (bare ? value : "'" + value + "'") << "\n";
    }
    out.flush();
    if (!out) throw OraError(27040, "ORA-27040: file create error, unable to create file");
    return done();
}

ResultSet Engine::create_directory(const std::string& name, const std::string& path) {
    if (!is_identifier(name)) throw OraError(900);
    need_open();
    if (directory(to_upper(name))) throw OraError(955);
    instance_.add("directory", {{"name", to_upper(name)}, {"path", path}});
    changed_ = true;
    return done();
}

ResultSet Engine::drop_directory(const std::string& name) {
    if (!is_identifier(name)) throw OraError(900);
    need_open();
    if (!directory(to_upper(name)))
        throw OraError(4043, "ORA-04043: object " + to_upper(name) + " does not exist");
    instance_.remove("directory", "name", to_upper(name));
    changed_ = true;
    return done();
}

const Record* Engine::directory(const std::string& name) const {
    for (const Record* d : instance_.records("directory"))
        if (d->get("name") == name) return d;
    return nullptr;
}

// Directory object names given as strings are taken as they are written, without upper-casing.
std::string Engine::directory_file(const std::string& name, const std::string& file) const {
    const Record* dir = directory(name);
    if (!dir) throw OraError(22285, "ORA-22285: non-existent directory or file for FILEOPEN operation");
    return join_path(dir->get("path"), file);
}

bool Engine::asm_file(const std::string& name, std::int64_t& type, std::int64_t& blocks, std::int64_t& blockSize) const {
    for (const Record* f : instance_.records("asm_file"))
        if (iequals(f->get("name"), name)) {
            type = f->number("type");
            blocks = f->number("blocks");
            blockSize = f->number("block_size");
            return true;
        }
    for (const Record* l : instance_.records("archived_log"))
        if (l->get("status") != "D" && starts_with(l->get("name"), "+") && iequals(l->get("name"), name)) {
            type = 4;
            blocks = l->number("blocks");
            blockSize = l->number("block_size");
            return true;
        }
    return false;
}

ResultSet Engine::copy_file(const std::vector<std::string>& args) {
    need_open();
    const std::string source = directory_file(args[0], args[1]);
    const std::string target = directory_file(args[2], args[3]);
    std::int64_t type = 0, blocks = 0, blockSize = 0;
    const bool fromAsm = starts_with(source, "+");
    if (fromAsm ? !asm_file(source, type, blocks, blockSize)
                : !std::filesystem::is_regular_file(std::filesystem::u8path(source)))
        throw OraError(19505, "ORA-19505: failed to identify file \"" + source + "\"");
    if (starts_with(target, "+")) {
        if (!fromAsm) blocks = static_cast<std::int64_t>(std::filesystem::file_size(std::filesystem::u8path(source))) / 512;
        instance_.add("asm_file", {{"name", target}, {"blocks", std::to_string(blocks)}, {"block_size", "512"}});
        changed_ = true;
        return done();
    }
    const auto targetPath = std::filesystem::u8path(target);
    if (std::filesystem::exists(targetPath)) throw OraError(19504, "ORA-19504: failed to create file \"" + target + "\"");
    std::error_code error;
    const bool copied = fromAsm ? write_filler(target, blocks * blockSize)
                                : std::filesystem::copy_file(std::filesystem::u8path(source), targetPath, error);
    if (!copied) throw OraError(19504, "ORA-19504: failed to create file \"" + target + "\"");
    return done();
}

ResultSet Engine::remove_file(const std::string& dir, const std::string& file) {
    need_open();
    const std::string path = directory_file(dir, file);
    std::error_code error;
    if (!std::filesystem::remove(std::filesystem::u8path(path), error)) throw OraError(29283);
    return done();
}

ResultSet Engine::file_attributes(Binds& binds) {
    need_open();
    for (const char* name : {":FNAME", ":FTYPE", ":FSIZE", ":BLKSIZE"})
        if (!binds.count(name)) throw OraError(1008);
    const std::string name = binds[":FNAME"].text;
    std::int64_t type = 0, blocks = 0, blockSize = 0;
    if (!asm_file(name, type, blocks, blockSize))
        throw OraError(15056, "ORA-15056: additional error message\nORA-17503: ksfdopn:2 Failed to open file " + name +
                                  "\nORA-15012: ASM file '" + name + "' does not exist");
    binds[":FTYPE"].number = type;
    binds[":FSIZE"].number = blocks;
    binds[":BLKSIZE"].number = blockSize;
    return done();
}

ResultSet Engine::open_pdb(const std::string& name, const std::string& how) {
    static const std::map<std::string, std::string> modes = {
        {"READ WRITE", "READ WRITE"}, {"READ ONLY", "READ ONLY"}, {"UPGRADE", "MIGRATE"}};
    const auto mode = modes.find(how);
    if (mode == modes.end()) throw OraError(900);
    need_sysdba();
    need_open();
    if (std::atoi(instance_.get("version").c_str()) < 12 || to_upper(instance_.get("cdb")) != "YES")
        throw OraError(65090);
    for (Record* p : instance_.records("pdb")) {
        if (p->get("name") != name) continue;
        if (p->get("open_mode") != "MOUNTED")
            throw OraError(65019, "ORA-65019: pluggable database " + name + " already open");
        p->set("open_mode", mode->second);
        changed_ = true;
        return done();
    }
    throw OraError(65011, "ORA-65011: Pluggable database " + name + " does not exist.");
}

void check_logon(const Instance& instance, bool external, const std::string& login, const std::string& password,
                 bool sysdba, bool prelim) {
    const bool down = to_upper(instance.get("status")) == "DOWN";
    if (prelim && !sysdba) throw OraError(24300);
    if (down && !sysdba && !prelim) throw OraError(1034);
    if (external) {
        if (sysdba && !instance.flag("os_sysdba")) throw OraError(1031);
        if (!sysdba && !instance.flag("os_user")) throw OraError(1017);
    } else {
        const Record* user = nullptr;
        for (const Record* u : instance.records("user"))
            if (iequals(u->get("name"), login)) user = u;
        if (login.empty() || !user || user->get("password") != password) throw OraError(1017);
        if (sysdba && to_upper(user->get("sysdba")) != "YES") throw OraError(1031);
    }
    if (down && !prelim) throw OraError(1034);
}

FaultHit take_fault(Instance& instance, const std::string& point, const std::string& statement) {
    FaultHit result;
    for (Record* fault : instance.records("fault")) {
        const std::int64_t times = fault->number("times");
        if (times == 0) continue;
        const std::string& at = fault->get("at");
        const bool matches =
            (at == point && (point != "sql" || statement.find(fault->get("text")) != std::string::npos)) ||
            (point == "sql" && at == "status" && is_status_query(statement));
        if (!matches) continue;
        if (times > 0) {
            fault->set("times", std::to_string(times - 1));
            result.changed = true;
        }
        result.hit = true;
        result.fault = *fault;
        return result;
    }
    return result;
}

std::vector<std::string> placeholders(const std::string& text) {
    std::vector<std::string> names;
    bool quoted = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\'') quoted = !quoted;
        if (quoted || text[i] != ':') continue;
        std::size_t end = i + 1;
        while (end < text.size() && (std::isalnum(static_cast<unsigned char>(text[end])) || text[end] == '_')) ++end;
        if (end == i + 1) continue;
        const std::string name = to_upper(text.substr(i, end - i));
        if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
        i = end - 1;
    }
    return names;
}

bool match_template(const std::string& pattern, const std::string& text, std::vector<std::string>& parts) {
    std::vector<std::pair<int, std::string>> found;
    if (!match_from(pattern, 0, text, 0, found)) return false;
    std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    parts.clear();
    for (auto& part : found) parts.push_back(std::move(part.second));
    return true;
}

}  // namespace ocisim
