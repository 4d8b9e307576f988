#include "sql_rules.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace ocisim {

namespace rules {

ResultSet query(std::size_t columns, Rows rows) {
    ResultSet result;
    result.isQuery = true;
    result.columns = columns;
    result.rows = std::move(rows);
    return result;
}

ResultSet done() { return ResultSet{}; }

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

bool write_filler(const std::string& path, std::int64_t size) {
    std::ofstream out(std::filesystem::u8path(path), std::ios::binary | std::ios::trunc);
    const std::string block(512, 'R');
    for (std::int64_t left = size; out && left > 0; left -= 512)
        out.write(block.data(), static_cast<std::streamsize>(std::min<std::int64_t>(left, 512)));
    out.flush();
    return static_cast<bool>(out);
}

}  // namespace rules

using namespace rules;

namespace {

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
        {3156, "ORA-03156: OCI call timed out"},
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
    static const std::vector<Rule> all = [] {
        std::vector<Rule> joined;
        for (auto area : {&Engine::instance_rules, &Engine::file_rules, &Engine::log_rules, &Engine::asm_rules}) {
            const std::vector<Rule> areaRules = area();
            joined.insert(joined.end(), areaRules.begin(), areaRules.end());
        }
        return joined;
    }();
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

ResultSet Engine::mounted_fact(const std::string& key) const {
    need_mounted();
    return query(1, {{instance_.get(key)}});
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
        const bool byText = point == "sql" || point == "fetch";
        const bool matches =
            (at == point && (!byText || statement.find(fault->get("text")) != std::string::npos)) ||
            (point == "sql" && at == "status" && is_status_query(statement));
        if (!matches) continue;
        const std::int64_t skip = fault->number("skip");
        if (skip > 0) {
            fault->set("skip", std::to_string(skip - 1));
            result.changed = true;
            continue;
        }
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
