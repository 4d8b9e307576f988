#include <gtest/gtest.h>

#include "common/exc/exc.h"
#include "common/win/registry.h"
#include "support/registry_sandbox.h"

namespace {

const wchar_t* const key_path = L"SOFTWARE\\OrasnapTest\\Values";

class RegistryKey : public testing::Test {
protected:
    std::shared_ptr<win::win_reg_key_t> open() const
    {
        auto key = win::open_subkey(HKEY_LOCAL_MACHINE, key_path);
        if (!key)
            throw std::runtime_error("test key is missing");
        return key;
    }

    test::registry_sandbox_t sandbox;
};

// Runs `read`, which must raise an exc_base_t, and returns its lines.
template <typename Read>
std::vector<std::string> failure_lines(Read read)
{
    try {
        read();
    } catch (const exc::exc_base_t& e) {
        std::vector<std::string> lines;
        for (const auto& line : e.lines())
            lines.push_back(line.text);
        return lines;
    }
    ADD_FAILURE() << "no exception was raised";
    return {};
}

TEST_F(RegistryKey, SandboxRedirectsMachineKeysToPrivateKeyAndRemovesItAfterwards)
{
    const std::wstring private_path = sandbox.private_path();
    HKEY created = nullptr;
    ASSERT_EQ(ERROR_SUCCESS,
              RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\OrasnapTest\\Direct", 0, nullptr, 0,
                              KEY_ALL_ACCESS | KEY_WOW64_64KEY, nullptr, &created, nullptr));
    RegCloseKey(created);

    HKEY seen = nullptr;
    ASSERT_EQ(ERROR_SUCCESS,
              RegOpenKeyExW(HKEY_CURRENT_USER,
                            (private_path + L"\\SOFTWARE\\OrasnapTest\\Direct").c_str(), 0,
                            KEY_READ, &seen));
    RegCloseKey(seen);
}

TEST(RegistrySandbox, DestructionRestoresMachineKeysAndDeletesPrivateKey)
{
    std::wstring private_path;
    {
        test::registry_sandbox_t sandbox;
        private_path = sandbox.private_path();
        sandbox.create_key(L"SOFTWARE\\OrasnapTestOnlyInSandbox");
        EXPECT_TRUE(win::open_subkey(HKEY_LOCAL_MACHINE, L"SOFTWARE\\OrasnapTestOnlyInSandbox"));
    }
    EXPECT_FALSE(win::open_subkey(HKEY_LOCAL_MACHINE, L"SOFTWARE\\OrasnapTestOnlyInSandbox"));
    HKEY gone = nullptr;
    EXPECT_EQ(ERROR_FILE_NOT_FOUND,
              RegOpenKeyExW(HKEY_CURRENT_USER, private_path.c_str(), 0, KEY_READ, &gone));
}

TEST_F(RegistryKey, MissingKeyGivesEmptyPointerWithoutRaising)
{
    EXPECT_FALSE(win::open_subkey(HKEY_LOCAL_MACHINE, L"SOFTWARE\\OrasnapTest\\Nowhere"));
    sandbox.create_key(key_path);
    EXPECT_TRUE(win::open_subkey(HKEY_LOCAL_MACHINE, key_path));
}

TEST_F(RegistryKey, StringsComeBackUnexpandedWhateverTheirStringType)
{
    sandbox.set_string(key_path, L"Plain", L"C:\\oracle\\product");
    sandbox.set_string(key_path, L"Expand", L"%SystemRoot%\\x", REG_EXPAND_SZ);
    sandbox.set_string(key_path, L"Empty", L"");
    auto key = open();

    std::wstring value;
    ASSERT_TRUE(key->get_string(L"Plain", value));
    EXPECT_EQ(L"C:\\oracle\\product", value);
    ASSERT_TRUE(key->get_string(L"Expand", value));
    EXPECT_EQ(L"%SystemRoot%\\x", value);
    ASSERT_TRUE(key->get_string(L"Empty", value));
    EXPECT_EQ(L"", value);
    EXPECT_EQ("%SystemRoot%\\x", key->get_string(std::string("Expand")));
}

TEST_F(RegistryKey, MissingValueIsAnOrdinaryResultOfTheTolerantReads)
{
    sandbox.create_key(key_path);
    auto key = open();

    std::wstring text = L"unchanged";
    EXPECT_FALSE(key->get_string(L"Absent", text));
    EXPECT_EQ(L"unchanged", text);
    uint32_t number = 7;
    EXPECT_FALSE(key->get_dword(L"Absent", number));
    EXPECT_EQ(7u, number);
    uint64_t wide_number = 0;
    EXPECT_FALSE(key->get_dword_or_qword(L"Absent", wide_number));
    EXPECT_EQ(L"fallback", key->get_string_or(L"Absent", L"fallback"));
    EXPECT_EQ(42u, key->get_dword_or(L"Absent", 42));
    EXPECT_TRUE(key->get_bool_or(L"Absent", true));
}

TEST_F(RegistryKey, MissingValueRaisesInTheNarrowReadsWithCodeAndName)
{
    sandbox.create_key(key_path);
    auto key = open();

    for (auto lines : {failure_lines([&] { key->get_string(std::string("AbsentText")); }),
                       failure_lines([&] { key->get_dword(std::string("AbsentText")); })}) {
        ASSERT_EQ(3u, lines.size());
        EXPECT_EQ(exc::get_error_text(ERROR_FILE_NOT_FOUND), lines[0]);
        EXPECT_EQ("Error code: 0x00000002", lines[1]);
        EXPECT_EQ("Cannot retrieve a registry value. Value name: [AbsentText].", lines[2]);
    }
}

TEST_F(RegistryKey, NumbersAndFlagsReadFromDwords)
{
    sandbox.set_dword(key_path, L"Count", 5000);
    sandbox.set_dword(key_path, L"Off", 0);
    auto key = open();

    uint32_t value = 0;
    ASSERT_TRUE(key->get_dword(L"Count", value));
    EXPECT_EQ(5000u, value);
    EXPECT_EQ(5000u, key->get_dword(std::string("Count")));
    EXPECT_EQ(5000u, key->get_dword_or(L"Count", 1));
    EXPECT_TRUE(key->get_bool_or(L"Count", false));
    EXPECT_FALSE(key->get_bool_or(L"Off", true));
}

TEST_F(RegistryKey, WrongTypeRaisesItsNumberAndTheValueName)
{
    sandbox.set_binary(key_path, L"Blob", std::string("\x01\x02\x03\x04\x05\x06\x07\x08", 8));
    sandbox.set_binary(key_path, L"ShortBlob", std::string("\x01\x02\x03\x04", 4));
    sandbox.set_dword(key_path, L"Number", 3);
    sandbox.set_multi_string(key_path, L"Multi", {L"a", L"b"});
    auto key = open();

    uint32_t number = 0;
    uint64_t wide_number = 0;
    std::wstring text;
    const std::vector<std::string> binary = {
        "Unexpected registry type: [3].", "Cannot retrieve a registry value. Value name: [Blob]."};
    EXPECT_EQ(binary, failure_lines([&] { key->get_dword(L"Blob", number); }));
    EXPECT_EQ(binary, failure_lines([&] { key->get_dword(std::string("Blob")); }));
    EXPECT_EQ(binary, failure_lines([&] { key->get_dword_or(L"Blob", 1); }));
    EXPECT_EQ(binary, failure_lines([&] { key->get_dword_or_qword(L"Blob", wide_number); }));
    EXPECT_EQ((std::vector<std::string>{
                  "Unexpected registry type: [3].",
                  "Cannot retrieve a registry value. Value name: [ShortBlob]."}),
              failure_lines([&] { key->get_dword(L"ShortBlob", number); }));
    EXPECT_EQ((std::vector<std::string>{
                  "Unexpected registry type: [4].",
                  "Cannot retrieve a registry value. Value name: [Number]."}),
              failure_lines([&] { key->get_string(L"Number", text); }));
    EXPECT_EQ((std::vector<std::string>{
                  "Unexpected registry type: [7].",
                  "Cannot retrieve a registry value. Value name: [Multi]."}),
              failure_lines([&] { key->get_string_or(L"Multi", L"x"); }));
}

TEST_F(RegistryKey, SizeReadsDwordIntoLowHalfAndQwordWhole)
{
    sandbox.set_dword(key_path, L"Small", 0xFFFFFFFFu);
    sandbox.set_qword(key_path, L"Large", 0x123456789ull);
    auto key = open();

    uint64_t value = 0xAAAAAAAAAAAAAAAAull;
    ASSERT_TRUE(key->get_dword_or_qword(L"Small", value));
    EXPECT_EQ(0xFFFFFFFFull, value);
    ASSERT_TRUE(key->get_dword_or_qword(L"Large", value));
    EXPECT_EQ(0x123456789ull, value);
    uint32_t number = 0;
    EXPECT_EQ((std::vector<std::string>{
                  "Unexpected registry type: [11].",
                  "Cannot retrieve a registry value. Value name: [Large]."}),
              failure_lines([&] { key->get_dword(L"Large", number); }));
}

TEST_F(RegistryKey, HandleIsTakenOnceAndTheFirstStaysUsable)
{
    sandbox.set_dword(key_path, L"Count", 9);
    win::win_reg_key_t key;
    ASSERT_EQ(ERROR_SUCCESS,
              RegOpenKeyExW(HKEY_LOCAL_MACHINE, key_path, 0, win::reg_read_access_64, &key));
    HKEY first = key.get();

    EXPECT_EQ((std::vector<std::string>{
                  "operator& cannot be called because registry key already initialized."}),
              failure_lines([&] { (void)&key; }));
    EXPECT_EQ(first, key.get());
    EXPECT_EQ(9u, key.get_dword_or(L"Count", 0));
}

TEST_F(RegistryKey, ReadsOfAnEmptyObjectRaiseWithTheValueName)
{
    win::win_reg_key_t key;
    std::wstring text;
    EXPECT_EQ((std::vector<std::string>{"Registry key object is not initialized.",
                                        "Cannot retrieve a registry value. Value name: [Any]."}),
              failure_lines([&] { key.get_string(L"Any", text); }));
    EXPECT_EQ((std::vector<std::string>{"Registry key object is not initialized.",
                                        "Cannot retrieve a registry value. Value name: [Any]."}),
              failure_lines([&] { key.get_dword_or(L"Any", 1); }));
}

TEST_F(RegistryKey, KeyDeletedWhileOpenRaisesWithTheValueName)
{
    sandbox.set_dword(key_path, L"Count", 1);
    auto key = open();
    sandbox.delete_key(L"SOFTWARE\\OrasnapTest");

    uint32_t value = 0;
    const auto lines = failure_lines([&] { key->get_dword(L"Count", value); });
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ(exc::get_error_text(ERROR_KEY_DELETED), lines[0]);
    EXPECT_EQ("Cannot retrieve a registry value. Value name: [Count].", lines[2]);
}

} // namespace
