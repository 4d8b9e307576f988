#include <gtest/gtest.h>

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "common/strings/strings.h"
#include "oracle/backup/backup_meta.h"
#include "support/registry_sandbox.h"
#include "support/temp_folder.h"

namespace {

// The configuration is read once per process, so each case runs in a child
// process of its own, where the registry sandbox is in place before the first
// read. The child prints what went wrong and ends with 1, or ends with 0.
std::string meta_path_mismatch(const std::wstring& log_path, const std::wstring& expected_path,
                               const std::wstring& expected_folder)
{
    test::registry_sandbox_t registry;
    registry.set_string(L"SOFTWARE\\Brelm\\Brelm Safeguard", L"OracleTempLogPath", log_path);
    const std::wstring path = specific::oracle::GetRestoreMetaPath();
    if (path != expected_path)
        return "path: " + util::wide_to_utf8(path);
    const DWORD attributes = GetFileAttributesW(expected_folder.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
        return "folder not made";
    if (GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES)
        return "file made";
    return std::string();
}

void exit_with(const std::string& mismatch)
{
    std::fprintf(stderr, "%s\n", mismatch.c_str());
    std::exit(mismatch.empty() ? 0 : 1);
}

} // namespace

TEST(restore_meta_path, lies_in_the_log_folder_which_is_made_on_the_way)
{
    test::temp_folder_t temp;
    const std::wstring folder = temp.file(L"logs\\deeper");
    EXPECT_EXIT(exit_with(meta_path_mismatch(folder + L"\\", folder + L"\\OracleMeta.xml", folder)),
                testing::ExitedWithCode(0), "");
}

TEST(restore_meta_path, a_log_folder_without_closing_separator_gets_one)
{
    test::temp_folder_t temp;
    const std::wstring folder = temp.file(L"bare");
    EXPECT_EXIT(exit_with(meta_path_mismatch(folder, folder + L"\\OracleMeta.xml", folder)),
                testing::ExitedWithCode(0), "");
}
