#include "oracle/client/asm_files.h"

#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "common/win/file.h"
#include "oracle/client/cmd_exec.h"
#include "oracle/client/oracle_session.h"

#include <cctype>
#include <cstdint>

namespace specific {
namespace oracle {

namespace {

void run_command(const std::shared_ptr<COracleSession>& session, const std::string& command)
{
    session->NewCmdExec(command)->Execute();
}

} // namespace

bool GetAsmFileAttr(const std::shared_ptr<COracleSession>& session, const std::string& path)
{
    try {
        const std::shared_ptr<COracleCmdExec> cmd = session->NewCmdExec(
            "BEGIN \n DBMS_DISKGROUP.GETFILEATTR(:fname,:ftype,:fsize,:blksize); \n END;");
        std::string name = path;
        int32_t type = 0;
        int32_t size = 0;
        int32_t blockSize = 0;
        cmd->Bind(":fname", &name[0], oci::SQLT_STR, static_cast<oci::sb4>(path.size() + 1));
        cmd->Bind(":ftype", &type, oci::SQLT_INT, sizeof(type));
        cmd->Bind(":fsize", &size, oci::SQLT_INT, sizeof(size));
        cmd->Bind(":blksize", &blockSize, oci::SQLT_INT, sizeof(blockSize));
        cmd->Execute();
        logging::oralib().info("ASM file: %1, type: %2, size: %3", path, util::int_to_str(type),
                               util::int_to_str(size));
        return true;
    } catch (const std::exception& e) {
        logging::oralib().warning_exc(
            util::format_msg("Failed to check if ASM file exists: [%1]", path), e);
        return false;
    }
}

void CopyAsmFile(const std::shared_ptr<COracleSession>& session, const std::string& source,
                 const std::string& destination)
{
    try {
        std::string sourceFolder;
        std::string sourceName;
        std::string destinationFolder;
        std::string destinationName;
        win::split_path(source, sourceFolder, sourceName);
        win::split_path(destination, destinationFolder, destinationName);
        const std::string sourceObject = MakeDirectoryObjectName();
        const std::string destinationObject = MakeDirectoryObjectName();

        run_command(session, util::format_msg("CREATE DIRECTORY %1 AS '%2'", sourceObject,
                                              sourceFolder));
        run_command(session, util::format_msg("CREATE DIRECTORY %1 AS '%2'", destinationObject,
                                              destinationFolder));
        run_command(session,
                    util::format_msg("BEGIN\n DBMS_FILE_TRANSFER.COPY_FILE('%1', '%2', '%3', '%4');\n END;",
                                     sourceObject, sourceName, destinationObject, destinationName));
        run_command(session, util::format_msg("DROP DIRECTORY %1", sourceObject));
        run_command(session, util::format_msg("DROP DIRECTORY %1", destinationObject));
    } catch (const std::exception& e) {
        exc::throw_nested_trace(
            util::format_msg("Failed to copy ASM file, from: [%1], to: [%2]", source, destination), e);
    }
}

std::string MakeDirectoryObjectName()
{
    const std::string guid = util::wide_to_ansi(util::guid_to_str(util::new_guid()));
    std::string name = "D";
    for (size_t i = 0; i < 25 && i < guid.size(); ++i) {
        const char c = guid[i];
        name += (c == '{' || c == '}' || c == '-')
                    ? '_'
                    : static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return name;
}

} // namespace oracle
} // namespace specific
