// The simulated server's world: instances and everything their views show.
//
// One text format serves both the scenario a test writes and the state file the
// simulator keeps, so a test can read back what a run left and edit it.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <list>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace ocisim {

class ScenarioError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

using Fields = std::map<std::string, std::string>;

// One row of a kind (datafile, archived_log, fault, ...). Every field of the kind
// is present: missing ones were filled with their defaults when it was added.
struct Record {
    std::string kind;
    Fields fields;

    const std::string& get(const std::string& key) const;
    void set(const std::string& key, const std::string& value);
    std::int64_t number(const std::string& key) const;
};

class Instance {
public:
    explicit Instance(std::string sid);

    const std::string& sid() const { return sid_; }

    // Scalar properties (status, log_mode, ...); unset ones give their default.
    std::string get(const std::string& key) const;
    void set(const std::string& key, const std::string& value);
    bool flag(const std::string& key) const;

    // Adds a record of a known kind; unknown fields are refused, missing ones defaulted.
    Record& add(const std::string& kind, const Fields& fields = {});
    std::vector<Record*> records(const std::string& kind);
    std::vector<const Record*> records(const std::string& kind) const;
    const std::list<Record>& all_records() const { return records_; }
    // Removes the records of `kind` whose `key` equals `value` (case-insensitive); returns how many.
    std::size_t remove(const std::string& kind, const std::string& key, const std::string& value);

private:
    std::string sid_;
    Fields props_;
    std::list<Record> records_;  // a list, so references stay valid while records are added
};

class World {
public:
    Instance& add_instance(const std::string& sid);
    // SIDs compare without regard to case, as Windows service names do.
    Instance* find(const std::string& sid);
    const Instance* find(const std::string& sid) const;
    std::list<Instance>& instances() { return instances_; }
    const std::list<Instance>& instances() const { return instances_; }

private:
    std::list<Instance> instances_;
};

World parse_world(std::istream& in, const std::string& origin);
// The state file of a scenario when OCISIM_STATE doesn't name one.
std::string state_path_for(const std::string& scenarioPath);
// The world as a run finds it: the state file when it exists, else the scenario.
World load_state_or_scenario(const std::string& scenarioPath, const std::string& statePath);
void write_world(std::ostream& out, const World& world);
World load_world(const std::string& path);
void save_world(const std::string& path, const World& world);

// Helpers shared by the engine and the tests.
bool iequals(const std::string& a, const std::string& b);
std::string to_upper(std::string text);
bool is_integer(const std::string& text);
// "yyyy/mm/dd hh24:mi:ss", UTC; the form in which V$ARCHIVED_LOG times are read.
std::string utc_text(std::int64_t epochSeconds);
bool parse_utc_text(const std::string& text, std::int64_t& epochSeconds);
std::int64_t now_epoch_seconds();

}  // namespace ocisim
