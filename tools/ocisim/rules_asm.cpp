// Statements of an ASM instance and about ASM files.
#include "sql_rules.h"

namespace ocisim {

using namespace rules;

std::vector<Engine::Rule> Engine::asm_rules() {
    return {
        {"SELECT D.PATH,DG.NAME,D.MODE_STATUS FROM V$ASM_DISK D, V$ASM_DISKGROUP DG WHERE DG.GROUP_NUMBER=D.GROUP_NUMBER",
         [](Engine& e, Args, Binds&) {
             Rows rows;
             for (const Record* d : e.instance_.records("asm_disk"))
                 if (!d->get("group").empty()) rows.push_back({d->get("path"), d->get("group"), d->get("mode_status")});
             return query(3, rows);
         }},
        {"BEGIN \n DBMS_DISKGROUP.GETFILEATTR(:fname,:ftype,:fsize,:blksize); \n END;",
         [](Engine& e, Args, Binds& b) { return e.file_attributes(b); }},
    };
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

}  // namespace ocisim
