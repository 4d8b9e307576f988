#include "oracle/logs/arch_log_files.h"

#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "common/win/file.h"
#include "oracle/client/asm_files.h"
#include "oracle/client/cmd_exec.h"
#include "oracle/client/oracle_session.h"

namespace specific {
namespace oracle {

bool IsFileExists(const std::wstring& path, const std::shared_ptr<COracleSession>& session,
                  bool checkAsm)
{
    try {
        if (path.empty() || path[0] != L'+')
            return win::file_exists(path);
        if (!checkAsm)
            return true;
        return GetAsmFileAttr(session, util::wide_to_utf8(path));
    } catch (const std::exception& caught) {
        logging::oralib().warning("Unable to check if file [%1] exists: %2",
                                  util::wide_to_ansi_safe(path), logging::exception_text(caught));
        return true;
    }
}

COracleFileRemover::COracleFileRemover(std::string path, std::shared_ptr<COracleSession> session)
    : path(std::move(path)), session(std::move(session))
{
}

COracleFileRemover::~COracleFileRemover()
{
    try {
        if (!win::file_exists(path))
            return;
        std::string failure;
        try {
            win::remove_file(path);
            return;
        } catch (const std::exception& caught) {
            failure = caught.what() != nullptr && *caught.what() != '\0' ? caught.what()
                                                                        : "Failed to delete file";
        }
        if (session)
            RemoveThroughDatabase();
        else
            logging::oralib().warning("Failed to delete file: %1. %2", path, failure);
    } catch (const std::exception& caught) {
        logging::oralib().warning_exc("Failed to destroy file remover", caught);
    }
}

void COracleFileRemover::RemoveThroughDatabase() const
{
    logging::oralib().info("Removing file with oracle query");
    std::string folder;
    std::string name;
    win::split_path(path, folder, name);
    const std::string directory = MakeDirectoryObjectName();
    session->NewCmdExec(util::format_msg("CREATE DIRECTORY %1 AS '%2'", directory, folder))->Execute();
    session->NewCmdExec(util::format_msg("BEGIN\n UTL_FILE.FREMOVE('%1', '%2');\n END;", directory, name))
        ->Execute();
    session->NewCmdExec(util::format_msg("DROP DIRECTORY %1", directory))->Execute();
}

} // namespace oracle
} // namespace specific
