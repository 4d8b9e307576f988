// Statements about archived logs: the three listings, archiving and deletion.
#include "sql_rules.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>

namespace ocisim {

using namespace rules;

namespace {

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

}  // namespace

std::vector<Engine::Rule> Engine::log_rules() {
    return {
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
    };
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

}  // namespace ocisim
