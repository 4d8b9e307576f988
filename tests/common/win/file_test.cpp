#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include "common/strings/strings.h"
#include "common/win/file.h"
#include "support/capturing_receiver.h"
#include "support/failure_lines.h"
#include "support/temp_folder.h"

namespace {

using test::failure_lines;
using testing::ElementsAre;

std::string read_all(win::win_file_t& file)
{
    file.seek_from_start(0);
    std::string text;
    char block[64];
    while (uint32_t got = file.read(block, sizeof(block)))
        text.append(block, got);
    return text;
}

void write_text(win::win_file_t& file, const std::string& text)
{
    file.write(static_cast<uint32_t>(text.size()), text.data());
}

bool is_folder(const std::wstring& path)
{
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

size_t count_of(const std::vector<std::string>& lines, const std::string& line)
{
    return static_cast<size_t>(std::count(lines.begin(), lines.end(), line));
}

class Files : public testing::Test {
protected:
    test::temp_folder_t temp;
};

TEST_F(Files, OpenOrCreateKeepsContentsAndCreateReplacesThem)
{
    const std::wstring path = temp.file(L"data.bin");
    write_text(*win::create_file(path), "0123456789");
    {
        auto file = win::open_or_create_file(path);
        EXPECT_EQ("0123456789", read_all(*file));
        file->reset_size(4);
        write_text(*file, "X");
        EXPECT_EQ("0123X", read_all(*file));
        EXPECT_EQ(5u, file->size());
    }
    EXPECT_EQ(5u, win::file_size(path));
    EXPECT_EQ(0u, win::create_file(path)->size());
}

TEST_F(Files, FailuresNameThePath)
{
    const std::string missing = temp.file_utf8("no-folder\\f.txt");
    EXPECT_THAT(failure_lines([&] { win::create_file(missing); }),
                ElementsAre(exc::get_error_text(ERROR_PATH_NOT_FOUND),
                            "Failed to create or open file [" + missing + "].",
                            "Error code: 0x00000003"));
    const std::string absent = temp.file_utf8("absent.txt");
    EXPECT_EQ("Failed to open file [" + absent + "] in readonly mode.",
              failure_lines([&] { win::open_file_read(absent); }).at(1));
    EXPECT_EQ("Failed to open file [" + absent + "] in readonly mode (without cache).",
              failure_lines([&] { win::open_file_read_no_cache(absent); }).at(1));
    auto file = win::create_file(temp.file_utf8("seek.txt"));
    EXPECT_EQ("Seek operation has failed. File: [" + temp.file_utf8("seek.txt") +
                  "]. Distance to move: [-10]. Move method: [FILE_BEGIN].",
              failure_lines([&] { file->seek(-10, FILE_BEGIN); }).at(1));
}

TEST_F(Files, FileThatAnotherHandleIsWritingOpensForReadingAndAWriteThroughItFailsAtOnce)
{
    const std::wstring path = temp.file(L"busy.log");
    win::unique_handle_t writer(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                             CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    ASSERT_TRUE(writer.valid());
    DWORD written = 0;
    ASSERT_TRUE(WriteFile(writer.get(), "live", 4, &written, nullptr));
    auto reader = win::open_file_read(path);
    EXPECT_EQ("live", read_all(*reader));

    test::log_capture_t capture;
    const auto started = std::chrono::steady_clock::now();
    EXPECT_THAT(failure_lines([&] { write_text(*reader, "x"); }),
                ElementsAre(exc::get_error_text(ERROR_ACCESS_DENIED),
                            "Failed to write data to the file [" + util::wide_to_utf8(path) + "].",
                            "Error code: 0x00000005"));
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(90));
    EXPECT_EQ(0u, count_of(capture.texts(), "WARN|Retry."));
}

// Reports a lock violation for the first `locked_calls` writes, as WriteFile
// does while another handle holds a byte-range lock, then writes for real.
class LockedRangeApi : public win::file_write_api_t {
public:
    explicit LockedRangeApi(int locked_calls) : locked_calls_(locked_calls) {}

    BOOL write_file(HANDLE handle, const void* data, DWORD size, DWORD* written) const override
    {
        ++calls;
        if (calls <= locked_calls_) {
            *written = 0;
            SetLastError(ERROR_LOCK_VIOLATION);
            return FALSE;
        }
        return win::system_file_write_api().write_file(handle, data, size, written);
    }

    mutable int calls = 0;

private:
    int locked_calls_;
};

TEST_F(Files, WriteWaitsForARangeLockToClearAndGivesUpAfterFiveSeconds)
{
    const std::wstring path = temp.file(L"locked.txt");
    auto file = win::open_or_create_file(path);
    const LockedRangeApi brief_lock(3);
    file->use_write_api(brief_lock);
    test::log_capture_t capture;

    write_text(*file, "after the lock");
    EXPECT_EQ("after the lock", read_all(*file));
    EXPECT_EQ(4, brief_lock.calls);
    const auto texts = capture.texts();
    EXPECT_EQ(3u, count_of(texts, "WARN|Retry."));
    EXPECT_EQ(3u, count_of(texts, "WARN|" + exc::get_error_text(ERROR_LOCK_VIOLATION)));
    EXPECT_EQ(3u, count_of(texts, ">>  |Failed to write data to the file [" +
                                      util::wide_to_utf8(path) + "]."));

    const LockedRangeApi lasting_lock(1000);
    file->use_write_api(lasting_lock);
    const auto started = std::chrono::steady_clock::now();
    const auto lines = failure_lines([&] { write_text(*file, "never"); });
    const auto waited = std::chrono::steady_clock::now() - started;
    EXPECT_THAT(lines, ElementsAre("Failed to write 5 bytes to the file '" +
                                   util::wide_to_utf8(path) + "': 0 bytes were written instead"));
    EXPECT_EQ(50, lasting_lock.calls);
    EXPECT_EQ(53u, count_of(capture.texts(), "WARN|Retry."));
    EXPECT_GE(waited, std::chrono::milliseconds(4900));
    EXPECT_EQ(14u, file->size());
}

TEST_F(Files, ExistenceWithOrWithoutTrailingSeparatorAndCreateFoldersMakesEveryFolderButNotTheFile)
{
    const std::wstring file = temp.file(L"here.txt");
    win::create_file(file);
    EXPECT_TRUE(win::file_exists(file));
    EXPECT_TRUE(win::file_exists(util::wide_to_utf8(file)));
    EXPECT_TRUE(win::file_exists(temp.path()));
    EXPECT_TRUE(win::file_exists(temp.path() + L"\\"));
    EXPECT_FALSE(win::file_exists(temp.file(L"no-folder\\absent.txt")));
    EXPECT_TRUE(win::parent_exists(file));
    EXPECT_FALSE(win::parent_exists(temp.file(L"no-folder\\absent.txt")));

    win::create_folders(temp.file(L"a\\b/c\\f.txt"));
    EXPECT_TRUE(is_folder(temp.file(L"a\\b\\c")));
    EXPECT_FALSE(win::file_exists(temp.file(L"a\\b\\c\\f.txt")));
    win::create_folders(L"\\\\?\\" + temp.file(L"long\\x\\f.txt"));
    EXPECT_TRUE(is_folder(temp.file(L"long\\x")));
    win::remove_folder(temp.file(L"long\\x"));
    EXPECT_FALSE(win::file_exists(temp.file(L"long\\x")));

    win::create_file(temp.file(L"blocker"));
    EXPECT_THROW(win::create_folders(temp.file(L"blocker\\sub\\f.txt")), std::exception);
}

TEST(Paths, SplitJoinAndStripTreatBothSeparatorsAlike)
{
    std::wstring folder, name;
    win::split_path(L"C:\\a/b\\c.txt", folder, name);
    EXPECT_EQ(L"C:\\a/b", folder);
    EXPECT_EQ(L"c.txt", name);
    win::split_path(L"plain.txt", folder, name);
    EXPECT_EQ(L"", folder);
    EXPECT_EQ(L"plain.txt", name);

    EXPECT_EQ(L"C:\\a\\f", win::join_path(L"C:\\a", L"f"));
    EXPECT_EQ(L"C:/a/f", win::join_path(L"C:/a/", L"f"));
    EXPECT_EQ(L"C:/a/f", win::join_path(L"C:/a", L"f", L'/'));

    EXPECT_EQ(L"C:\\a\\", win::strip_trailing_separator(L"C:\\a\\\\"));
    std::vector<std::wstring> parts = {L"stale"};
    win::split_path_parts(L"\\\\srv\\share//a\\", parts);
    EXPECT_THAT(parts, ElementsAre(L"srv", L"share", L"a"));
}

TEST(Paths, FoldersToMakeSkipServerShareAndLongPrefixes)
{
    EXPECT_THAT(win::folders_to_make(L"C:\\a/b\\f.txt"),
                ElementsAre(L"C:\\", L"C:\\a/", L"C:\\a/b\\"));
    EXPECT_THAT(win::folders_to_make(L"\\\\?\\UNC\\srv\\sh\\a\\f.txt"),
                ElementsAre(L"\\\\?\\UNC\\srv\\sh\\a\\"));
    EXPECT_THAT(win::folders_to_make(L"//?/UNC/srv/sh/a/f.txt"), ElementsAre(L"//?/UNC/srv/sh/a/"));
    EXPECT_THAT(win::folders_to_make(L"\\\\srv\\sh\\a\\b\\f"),
                ElementsAre(L"\\\\srv\\sh\\a\\", L"\\\\srv\\sh\\a\\b\\"));
    EXPECT_THAT(win::folders_to_make(L"\\\\?\\C:\\a\\f"), ElementsAre(L"\\\\?\\C:\\a\\"));
    EXPECT_TRUE(win::folders_to_make(L"agent.log").empty());
}

TEST(Paths, NetworkPathsAreUncButNotOtherLongFormsAndPathParamConvertsEitherWay)
{
    const win::path_param_t narrow(std::string("C:\\d\xC3\xA9j\xC3\xA0\\f.txt"));
    EXPECT_EQ(L"C:\\d\u00e9j\u00e0\\f.txt", narrow.wide());
    const win::path_param_t wide(std::wstring(L"C:\\\u00e9"));
    EXPECT_EQ("C:\\\xC3\xA9", wide.narrow());
    const win::path_param_t empty;
    EXPECT_THAT(failure_lines([&] { empty.narrow(); }), ElementsAre("Parameter is not available."));
    EXPECT_TRUE(win::is_network_path(L"\\\\srv\\share\\f"));
    EXPECT_TRUE(win::is_network_path(std::string("\\\\?\\UNC\\srv\\share")));
    EXPECT_FALSE(win::is_network_path(L"\\\\?\\C:\\f"));
    EXPECT_FALSE(win::is_network_path(std::string("\\single")));
}

} // namespace
