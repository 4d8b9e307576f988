#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/win/registry.h"
#include "support/failure_lines.h"
#include "support/registry_sandbox.h"

namespace {

using test::failure_lines;
using testing::ElementsAre;

const wchar_t* const key_path = L"SOFTWARE\\OrasnapTest\\Values";

std::vector<std::string> type_failure(int type, const std::string& name)
{
    return {"Unexpected registry type: [" + std::to_string(type) + "].",
            "Cannot retrieve a registry value. Value name: [" + name + "]."};
}

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

// An empty string reads as empty: the agent sees it as an empty logs folder.
TEST_F(RegistryKey, StringsComeBackUnexpandedAndSizesReadDwordIntoLowHalfAndQwordWhole)
{
    sandbox.set_string(key_path, L"Expand", L"%SystemRoot%\\x", REG_EXPAND_SZ);
    sandbox.set_dword(key_path, L"Small", 0xFFFFFFFFu);
    sandbox.set_qword(key_path, L"Large", 0x123456789ull);
    auto key = open();

    std::wstring value;
    ASSERT_TRUE(key->get_string(L"Expand", value));
    EXPECT_EQ(L"%SystemRoot%\\x", value);
    EXPECT_EQ("%SystemRoot%\\x", key->get_string(std::string("Expand")));

    uint64_t size = 0xAAAAAAAAAAAAAAAAull;
    ASSERT_TRUE(key->get_dword_or_qword(L"Small", size));
    EXPECT_EQ(0xFFFFFFFFull, size);
    ASSERT_TRUE(key->get_dword_or_qword(L"Large", size));
    EXPECT_EQ(0x123456789ull, size);
}

TEST_F(RegistryKey, MissingKeyOrValueIsOrdinaryInTolerantReadsAndFailsInNarrowOnes)
{
    EXPECT_FALSE(win::open_subkey(HKEY_LOCAL_MACHINE, L"SOFTWARE\\OrasnapTest\\Nowhere"));
    sandbox.create_key(key_path);
    auto key = open();

    std::wstring text = L"unchanged";
    EXPECT_FALSE(key->get_string(L"Absent", text));
    EXPECT_EQ(L"unchanged", text);
    uint64_t number = 0;
    EXPECT_FALSE(key->get_dword_or_qword(L"Absent", number));
    EXPECT_EQ(L"fallback", key->get_string_or(L"Absent", L"fallback"));
    EXPECT_EQ(42u, key->get_dword_or(L"Absent", 42));
    EXPECT_TRUE(key->get_bool_or(L"Absent", true));

    for (const auto& lines : {failure_lines([&] { key->get_string(std::string("Absent")); }),
                              failure_lines([&] { key->get_dword(std::string("Absent")); })}) {
        EXPECT_THAT(lines, ElementsAre(exc::get_error_text(ERROR_FILE_NOT_FOUND),
                                       "Error code: 0x00000002",
                                       "Cannot retrieve a registry value. Value name: [Absent]."));
    }
}

TEST_F(RegistryKey, WrongTypeRaisesItsNumberAndTheValueName)
{
    sandbox.set_binary(key_path, L"Blob", std::string(8, '\x01'));
    sandbox.set_binary(key_path, L"ShortBlob", std::string(4, '\x01'));
    sandbox.set_dword(key_path, L"Number", 3);
    sandbox.set_qword(key_path, L"Large", 5);
    sandbox.set_multi_string(key_path, L"Multi", {L"a", L"b"});
    auto key = open();

    uint32_t number = 0;
    uint64_t wide_number = 0;
    std::wstring text;
    EXPECT_EQ(type_failure(3, "Blob"), failure_lines([&] { key->get_dword(L"Blob", number); }));
    EXPECT_EQ(type_failure(3, "Blob"), failure_lines([&] { key->get_dword(std::string("Blob")); }));
    EXPECT_EQ(type_failure(3, "Blob"),
              failure_lines([&] { key->get_dword_or_qword(L"Blob", wide_number); }));
    EXPECT_EQ(type_failure(3, "ShortBlob"), failure_lines([&] { key->get_dword_or(L"ShortBlob", 1); }));
    EXPECT_EQ(type_failure(11, "Large"), failure_lines([&] { key->get_dword(L"Large", number); }));
    EXPECT_EQ(type_failure(4, "Number"), failure_lines([&] { key->get_string(L"Number", text); }));
    EXPECT_EQ(type_failure(7, "Multi"), failure_lines([&] { key->get_string_or(L"Multi", L"x"); }));
}

TEST_F(RegistryKey, HandleIsTakenOnceAndTheFirstStaysUsable)
{
    sandbox.set_dword(key_path, L"Count", 9);
    win::win_reg_key_t key;
    ASSERT_EQ(ERROR_SUCCESS,
              RegOpenKeyExW(HKEY_LOCAL_MACHINE, key_path, 0, win::reg_read_access_64, key.put()));
    HKEY first = key.get();

    EXPECT_THAT(failure_lines([&] { key.put(); }),
                ElementsAre("operator& cannot be called because registry key already initialized."));
    EXPECT_EQ(first, key.get());
    EXPECT_EQ(9u, key.get_dword_or(L"Count", 0));

    win::win_reg_key_t empty;
    EXPECT_THAT(failure_lines([&] { empty.get_dword_or(L"Any", 1); }),
                ElementsAre("Registry key object is not initialized.",
                            "Cannot retrieve a registry value. Value name: [Any]."));
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
