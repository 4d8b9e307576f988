#include "world.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace ocisim {
namespace {

// A field or property: its name, its default, and whether it must hold an integer.
struct FieldDef {
    const char* name;
    const char* defaultValue;
    bool numeric;
};

// Scalar properties of an instance, in the order in which they are written.
// "name" and "unique_name" default to the SID and the name; see Instance::get.
const FieldDef kInstanceProps[] = {
    {"status", "OPEN", false},           // DOWN, STARTED, MOUNTED, OPEN, OPEN MIGRATE
    {"database_status", "ACTIVE", false},
    {"asm", "no", false},
    {"name", "", false},
    {"unique_name", "", false},
    {"domain", "", false},
    {"dbid", "1234567890", true},
    {"version", "19.0.0.0.0", false},
    {"banner", "Oracle Database 19c Enterprise Edition Release 19.0.0.0.0 - Production", false},
    {"log_mode", "ARCHIVELOG", false},
    {"open_mode", "READ WRITE", false},
    {"cdb", "NO", false},
    {"current_scn", "1000000", true},
    {"recovery_dest", "", false},
    {"archive_dest", "", false},
    {"unarchived_logs", "0", true},
    {"spfile", "yes", false},
    {"os_sysdba", "yes", false},
    {"os_user", "no", false},
    {"latency_ms", "0", true},
    {"call_timeout", "yes", false},
};

struct KindDef {
    const char* kind;
    std::vector<FieldDef> fields;
    std::vector<const char*> required;
};

const std::vector<KindDef>& kinds() {
    static const std::vector<KindDef> all = {
        {"controlfile", {{"name", "", false}, {"block_size", "16384", true}, {"file_size_blks", "1024", true}}, {"name"}},
        {"datafile", {{"name", "", false}, {"bytes", "104857600", true}, {"backup", "NOT ACTIVE", false}}, {"name"}},
        {"tempfile", {{"name", "", false}, {"bytes", "20971520", true}}, {"name"}},
        {"redolog", {{"group", "", true}, {"member", "", false}, {"bytes", "52428800", true}}, {"group", "member"}},
        {"archived_log",
         {{"recid", "", true},
          {"stamp", "", true},
          {"name", "", false},
          {"thread", "1", true},
          {"sequence", "", true},
          {"resetlogs_change", "1", true},
          {"first_change", "", true},
          {"next_change", "", true},
          {"first_time", "", false},
          {"next_time", "", false},
          {"blocks", "2", true},
          {"block_size", "512", true},
          {"status", "A", false},
          {"creator", "ARCH", false}},
         {}},
        {"pdb", {{"name", "", false}, {"guid", "", false}, {"open_mode", "READ WRITE", false}}, {"name", "guid"}},
        {"parameter", {{"name", "", false}, {"value", "", false}}, {"name"}},
        {"restore_point", {{"name", "", false}, {"guarantee", "YES", false}}, {"name"}},
        {"asm_disk", {{"path", "", false}, {"group", "", false}, {"mode_status", "ONLINE", false}}, {"path"}},
        {"asm_file", {{"name", "", false}, {"type", "1", true}, {"blocks", "2", true}, {"block_size", "512", true}}, {"name"}},
        {"user", {{"name", "", false}, {"password", "", false}, {"sysdba", "no", false}}, {"name"}},
        {"directory", {{"name", "", false}, {"path", "", false}}, {"name", "path"}},
        {"fault",
         {{"kind", "", false},
          {"at", "sql", false},
          {"text", "", false},
          {"code", "", true},
          {"message", "", false},
          {"after", "0", true},
          {"skip", "0", true},
          {"times", "-1", true}},
         {"kind"}},
    };
    return all;
}

const KindDef& kind_def(const std::string& kind) {
    for (const auto& def : kinds())
        if (kind == def.kind) return def;
    throw ScenarioError("unknown record kind '" + kind + "'");
}

const FieldDef* instance_prop(const std::string& key) {
    for (const auto& def : kInstanceProps)
        if (key == def.name) return &def;
    return nullptr;
}

bool is_kind(const std::string& key) {
    for (const auto& def : kinds())
        if (key == def.kind) return true;
    return false;
}

std::string trim(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos) return {};
    const auto last = text.find_last_not_of(" \t\r");
    return text.substr(first, last - first + 1);
}

const std::int64_t kFirstLogTime = 1704067200;  // 2024/01/01 00:00:00 UTC

// Fills what an archived log left out from the log before it, so a scenario can list
// logs by name alone and still get a consistent chain of numbers and times.
void default_archived_log(const Instance& instance, Record& log) {
    // A state file lists every field; only hand-written logs need the scan of the others.
    const bool complete = std::none_of(log.fields.begin(), log.fields.end(), [](const auto& field) {
        return field.first != "name" && field.second.empty();
    });
    if (complete) return;
    std::int64_t maxRecid = 0, maxStamp = 0, maxSequence = 0;
    const Record* last = nullptr;
    for (const Record* other : instance.records("archived_log")) {
        if (other == &log) continue;
        maxRecid = std::max(maxRecid, other->number("recid"));
        maxStamp = std::max(maxStamp, other->number("stamp"));
        if (other->get("thread") == log.get("thread")) maxSequence = std::max(maxSequence, other->number("sequence"));
        last = other;
    }
    auto fill = [&log](const char* key, const std::string& value) {
        if (log.get(key).empty()) log.set(key, value);
    };
    fill("recid", std::to_string(maxRecid + 1));
    fill("stamp", std::to_string(std::max<std::int64_t>(maxStamp, 1100000000) + 1));
    fill("sequence", std::to_string(maxSequence + 1));
    fill("first_change", last ? last->get("next_change") : "1000");
    fill("next_change", std::to_string(log.number("first_change") + 1000));
    std::int64_t lastNext = kFirstLogTime;
    if (last) parse_utc_text(last->get("next_time"), lastNext);
    fill("first_time", utc_text(lastNext));
    std::int64_t first = lastNext;
    parse_utc_text(log.get("first_time"), first);
    fill("next_time", utc_text(first + 3600));
}

void check_record(const KindDef& def, const Record& record) {
    for (const char* key : def.required)
        if (record.get(key).empty()) throw ScenarioError(std::string(def.kind) + " needs a value for '" + key + "'");
    for (const auto& field : def.fields) {
        const std::string& value = record.get(field.name);
        if (field.numeric && !value.empty() && !is_integer(value))
            throw ScenarioError(std::string(def.kind) + " field '" + field.name + "' is not an integer: '" + value + "'");
    }
    if (record.kind == "archived_log") {
        std::int64_t seconds = 0;
        for (const char* key : {"first_time", "next_time"})
            if (!parse_utc_text(record.get(key), seconds))
                throw ScenarioError(std::string("archived_log field '") + key + "' is not 'yyyy/mm/dd hh:mi:ss': '" +
                                    record.get(key) + "'");
    }
}

// Howard Hinnant's civil-date algorithms, for the proleptic Gregorian calendar.
std::int64_t days_from_civil(std::int64_t y, unsigned m, unsigned d) {
    y -= m <= 2;
    const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}

void civil_from_days(std::int64_t z, std::int64_t& y, unsigned& m, unsigned& d) {
    z += 719468;
    const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    y = static_cast<std::int64_t>(yoe) + era * 400;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    d = doy - (153 * mp + 2) / 5 + 1;
    m = mp < 10 ? mp + 3 : mp - 9;
    y += m <= 2;
}

}  // namespace

const std::string& Record::get(const std::string& key) const {
    const auto it = fields.find(key);
    if (it == fields.end()) throw ScenarioError(kind + " has no field '" + key + "'");
    return it->second;
}

void Record::set(const std::string& key, const std::string& value) {
    const auto it = fields.find(key);
    if (it == fields.end()) throw ScenarioError(kind + " has no field '" + key + "'");
    it->second = value;
}

std::int64_t Record::number(const std::string& key) const {
    const std::string& value = get(key);
    return is_integer(value) ? std::stoll(value) : 0;
}

Instance::Instance(std::string sid) : sid_(std::move(sid)) {}

std::string Instance::get(const std::string& key) const {
    const FieldDef* def = instance_prop(key);
    if (!def) throw ScenarioError("unknown instance property '" + key + "'");
    const auto it = props_.find(key);
    if (it != props_.end()) return it->second;
    if (key == "name") return sid_;
    if (key == "unique_name") return get("name");
    return def->defaultValue;
}

void Instance::set(const std::string& key, const std::string& value) {
    const FieldDef* def = instance_prop(key);
    if (!def) throw ScenarioError("unknown instance property '" + key + "'");
    if (def->numeric && !is_integer(value))
        throw ScenarioError("instance property '" + key + "' is not an integer: '" + value + "'");
    props_[key] = value;
}

bool Instance::flag(const std::string& key) const {
    const std::string value = to_upper(get(key));
    return value == "YES" || value == "TRUE" || value == "1";
}

Record& Instance::add(const std::string& kind, const Fields& fields) {
    const KindDef& def = kind_def(kind);
    Record record{kind, {}};
    for (const auto& field : def.fields) record.fields[field.name] = field.defaultValue;
    for (const auto& [key, value] : fields) {
        if (!record.fields.count(key)) throw ScenarioError(kind + " has no field '" + key + "'");
        record.fields[key] = value;
    }
    records_.push_back(std::move(record));
    Record& added = records_.back();
    try {
        if (kind == "archived_log") default_archived_log(*this, added);
        check_record(def, added);
    } catch (...) {
        records_.pop_back();
        throw;
    }
    return added;
}

std::vector<Record*> Instance::records(const std::string& kind) {
    std::vector<Record*> result;
    for (auto& record : records_)
        if (record.kind == kind) result.push_back(&record);
    return result;
}

std::vector<const Record*> Instance::records(const std::string& kind) const {
    std::vector<const Record*> result;
    for (const auto& record : records_)
        if (record.kind == kind) result.push_back(&record);
    return result;
}

std::size_t Instance::remove(const std::string& kind, const std::string& key, const std::string& value) {
    const auto before = records_.size();
    records_.remove_if([&](const Record& r) { return r.kind == kind && iequals(r.get(key), value); });
    return before - records_.size();
}

Instance& World::add_instance(const std::string& sid) {
    if (sid.empty()) throw ScenarioError("an instance needs a SID");
    if (find(sid)) throw ScenarioError("instance '" + sid + "' is defined twice");
    instances_.emplace_back(sid);
    return instances_.back();
}

Instance* World::find(const std::string& sid) {
    for (auto& instance : instances_)
        if (iequals(instance.sid(), sid)) return &instance;
    return nullptr;
}

const Instance* World::find(const std::string& sid) const {
    for (const auto& instance : instances_)
        if (iequals(instance.sid(), sid)) return &instance;
    return nullptr;
}

World parse_world(std::istream& in, const std::string& origin) {
    World world;
    Instance* current = nullptr;
    std::string line;
    int number = 0;
    while (std::getline(in, line)) {
        ++number;
        try {
            const std::string text = trim(line);
            if (text.empty() || text[0] == '#') continue;
            if (text.front() == '[') {
                const std::string prefix = "[instance ";
                if (text.back() != ']' || text.compare(0, prefix.size(), prefix) != 0)
                    throw ScenarioError("expected '[instance SID]'");
                current = &world.add_instance(trim(text.substr(prefix.size(), text.size() - prefix.size() - 1)));
                continue;
            }
            const auto eq = text.find('=');
            if (eq == std::string::npos) throw ScenarioError("expected 'key = value'");
            if (!current) throw ScenarioError("'key = value' before the first [instance SID]");
            const std::string key = trim(text.substr(0, eq));
            const std::string value = trim(text.substr(eq + 1));
            if (!is_kind(key)) {
                current->set(key, value);
                continue;
            }
            Fields fields;
            std::stringstream parts(value);
            std::string part;
            while (std::getline(parts, part, '|')) {
                const auto fieldEq = part.find('=');
                if (fieldEq == std::string::npos) throw ScenarioError("expected 'field=value' in '" + trim(part) + "'");
                const std::string fieldName = trim(part.substr(0, fieldEq));
                if (fields.count(fieldName)) throw ScenarioError("field '" + fieldName + "' given twice");
                fields[fieldName] = trim(part.substr(fieldEq + 1));
            }
            current->add(key, fields);
        } catch (const ScenarioError& e) {
            throw ScenarioError(origin + ":" + std::to_string(number) + ": " + e.what());
        }
    }
    return world;
}

void write_world(std::ostream& out, const World& world) {
    for (const auto& instance : world.instances()) {
        out << "[instance " << instance.sid() << "]\n";
        for (const auto& prop : kInstanceProps) out << prop.name << " = " << instance.get(prop.name) << "\n";
        for (const auto& record : instance.all_records()) {
            out << record.kind << " =";
            const char* separator = " ";
            for (const auto& field : kind_def(record.kind).fields) {
                out << separator << field.name << "=" << record.get(field.name);
                separator = " | ";
            }
            out << "\n";
        }
        out << "\n";
    }
}

World load_world(const std::string& path) {
    std::ifstream in(std::filesystem::u8path(path), std::ios::binary);
    if (!in) throw ScenarioError("cannot open '" + path + "'");
    return parse_world(in, path);
}

std::string state_path_for(const std::string& scenarioPath) { return scenarioPath + ".state"; }

World load_state_or_scenario(const std::string& scenarioPath, const std::string& statePath) {
    std::error_code error;
    if (!statePath.empty() && std::filesystem::exists(std::filesystem::u8path(statePath), error))
        return load_world(statePath);
    return load_world(scenarioPath);
}

void save_world(const std::string& path, const World& world) {
    std::ostringstream text;
    write_world(text, world);
    std::ofstream out(std::filesystem::u8path(path), std::ios::binary | std::ios::trunc);
    out << text.str();
    out.flush();
    if (!out) throw ScenarioError("cannot write '" + path + "'");
}

bool iequals(const std::string& a, const std::string& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::toupper(static_cast<unsigned char>(x)) == std::toupper(static_cast<unsigned char>(y));
           });
}

std::string to_upper(std::string text) {
    for (auto& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

bool is_integer(const std::string& text) {
    std::size_t start = (!text.empty() && text[0] == '-') ? 1 : 0;
    if (text.size() <= start || text.size() - start > 18) return false;
    return std::all_of(text.begin() + static_cast<std::ptrdiff_t>(start), text.end(),
                       [](char c) { return c >= '0' && c <= '9'; });
}

std::string utc_text(std::int64_t epochSeconds) {
    std::int64_t days = epochSeconds / 86400;
    std::int64_t rest = epochSeconds % 86400;
    if (rest < 0) {
        rest += 86400;
        --days;
    }
    std::int64_t y = 0;
    unsigned m = 0, d = 0;
    civil_from_days(days, y, m, d);
    char text[32];
    std::snprintf(text, sizeof text, "%04lld/%02u/%02u %02lld:%02lld:%02lld", static_cast<long long>(y), m, d,
                  static_cast<long long>(rest / 3600), static_cast<long long>(rest / 60 % 60),
                  static_cast<long long>(rest % 60));
    return text;
}

bool parse_utc_text(const std::string& text, std::int64_t& epochSeconds) {
    // yyyy/mm/dd hh:mi:ss, every digit in its place
    static const char kShape[] = "dddd/dd/dd dd:dd:dd";
    if (text.size() != sizeof kShape - 1) return false;
    for (std::size_t i = 0; i < text.size(); ++i)
        if (kShape[i] == 'd' ? !std::isdigit(static_cast<unsigned char>(text[i])) : text[i] != kShape[i]) return false;
    const auto field = [&text](std::size_t at, std::size_t length) { return std::stoi(text.substr(at, length)); };
    const int y = field(0, 4), mo = field(5, 2), d = field(8, 2), h = field(11, 2), mi = field(14, 2), s = field(17, 2);
    if (mo < 1 || mo > 12 || d < 1 || d > 31 || h > 23 || mi > 59 || s > 59) return false;
    const std::int64_t days = days_from_civil(y, static_cast<unsigned>(mo), static_cast<unsigned>(d));
    std::int64_t cy = 0;
    unsigned cm = 0, cd = 0;
    civil_from_days(days, cy, cm, cd);
    if (cm != static_cast<unsigned>(mo) || cd != static_cast<unsigned>(d)) return false;
    epochSeconds = days * 86400 + h * 3600 + mi * 60 + s;
    return true;
}

std::int64_t now_epoch_seconds() {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace ocisim
