// Statements about the database's files, and the files the server writes, copies and
// removes through directory objects.
#include "sql_rules.h"

#include <filesystem>
#include <fstream>

namespace ocisim {

using namespace rules;

std::vector<Engine::Rule> Engine::file_rules() {
    return {
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
         [](Engine& e, Args, Binds&) { return e.mounted_fact("recovery_dest"); }},
        {"SELECT COUNT(*) FROM V$RESTORE_POINT WHERE GUARANTEE_FLASHBACK_DATABASE='YES'",
         [](Engine& e, Args, Binds&) {
             e.need_mounted();
             std::size_t count = 0;
             for (const Record* r : e.instance_.records("restore_point")) count += r->get("guarantee") == "YES";
             return query(1, {{std::to_string(count)}});
         }},

        // Files written or moved by the server
        {"create pfile='%1' from spfile", [](Engine& e, Args a, Binds&) { return e.create_pfile(a[0], true); }},
        {"create pfile='%1' from memory", [](Engine& e, Args a, Binds&) { return e.create_pfile(a[0], false); }},
        {"CREATE DIRECTORY %1 AS '%2'", [](Engine& e, Args a, Binds&) { return e.create_directory(a[0], a[1]); }},
        {"DROP DIRECTORY %1", [](Engine& e, Args a, Binds&) { return e.drop_directory(a[0]); }},
        {"BEGIN\n DBMS_FILE_TRANSFER.COPY_FILE('%1', '%2', '%3', '%4');\n END;",
         [](Engine& e, Args a, Binds&) { return e.copy_file(a); }},
        {"BEGIN\n UTL_FILE.FREMOVE('%1', '%2');\n END;", [](Engine& e, Args a, Binds&) { return e.remove_file(a[0], a[1]); }},
    };
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

}  // namespace ocisim
