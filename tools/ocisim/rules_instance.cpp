// Statements about the instance and its database: facts, plugged databases, and the
// state changes of mount, open, close, dismount and backup mode.
#include "sql_rules.h"

#include <cstdlib>

namespace ocisim {

using namespace rules;

std::vector<Engine::Rule> Engine::instance_rules() {
    return {
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
         [](Engine& e, Args, Binds&) { return e.mounted_fact("dbid"); }},
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

        // Instance and database state
        {"ALTER DATABASE MOUNT", [](Engine& e, Args, Binds&) { return e.alter_database("MOUNT"); }},
        {"ALTER DATABASE OPEN", [](Engine& e, Args, Binds&) { return e.alter_database("OPEN"); }},
        {"ALTER DATABASE CLOSE NORMAL", [](Engine& e, Args, Binds&) { return e.alter_database("CLOSE"); }},
        {"ALTER DATABASE DISMOUNT", [](Engine& e, Args, Binds&) { return e.alter_database("DISMOUNT"); }},
        {"ALTER DATABASE BEGIN BACKUP", [](Engine& e, Args, Binds&) { return e.alter_database("BEGIN BACKUP"); }},
        {"ALTER DATABASE END BACKUP", [](Engine& e, Args, Binds&) { return e.alter_database("END BACKUP"); }},
        {"ALTER SYSTEM ARCHIVE LOG CURRENT", [](Engine& e, Args, Binds&) { return e.archive_log(false); }},
        {"ALTER SYSTEM ARCHIVE LOG ALL", [](Engine& e, Args, Binds&) { return e.archive_log(true); }},
    };
}

}  // namespace ocisim
