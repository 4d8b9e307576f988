#include "oracle/inventory/vss_functionality.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

namespace {

using specific::oracle::DecideVssEnabled;
using specific::oracle::SOracleSid;
using specific::oracle::SVssProbes;

SOracleSid Sid(const std::wstring& name, bool isAsm = false)
{
    SOracleSid sid;
    sid.sid = name;
    sid.homePath = L"C:\\oracle\\" + name;
    sid.isAsm = isAsm;
    return sid;
}

// Scripted answers per SID, and a record of who was asked.
struct FakeMachine {
    std::set<std::wstring> inactive;
    std::set<std::wstring> writerRunning;
    std::vector<std::wstring> dbAsked;
    std::vector<std::wstring> writerAsked;
    std::map<std::wstring, std::wstring> homeAsked;

    SVssProbes Probes()
    {
        return SVssProbes{
            [this](const std::wstring& sid, const std::wstring& homePath) {
                dbAsked.push_back(sid);
                homeAsked[sid] = homePath;
                return inactive.count(sid) == 0;
            },
            [this](const std::wstring& sid) {
                writerAsked.push_back(sid);
                return writerRunning.count(sid) != 0;
            }};
    }
};

TEST(VssVerdict, MachineWithoutDatabasesKeepsVssEnabled)
{
    FakeMachine machine;
    EXPECT_TRUE(DecideVssEnabled({}, machine.Probes()));
}

TEST(VssVerdict, WriterIsAskedOnlyAboutDatabasesThatHangOrAreInactive)
{
    FakeMachine machine;
    machine.inactive = {L"B"};
    machine.writerRunning = {L"A", L"C"};

    EXPECT_TRUE(DecideVssEnabled({Sid(L"A"), Sid(L"B"), Sid(L"C")}, machine.Probes()));
    EXPECT_EQ(machine.dbAsked, (std::vector<std::wstring>{L"A", L"B", L"C"}));
    EXPECT_EQ(machine.writerAsked, std::vector<std::wstring>{L"B"});
    EXPECT_EQ(machine.homeAsked[L"B"], L"C:\\oracle\\B");
}

TEST(VssVerdict, FirstInactiveDatabaseWithARunningWriterDisablesVssAndEndsTheSearch)
{
    FakeMachine machine;
    machine.inactive = {L"B", L"C"};
    machine.writerRunning = {L"B", L"C"};

    EXPECT_FALSE(DecideVssEnabled({Sid(L"A"), Sid(L"B"), Sid(L"C")}, machine.Probes()));
    EXPECT_EQ(machine.dbAsked, (std::vector<std::wstring>{L"A", L"B"}));
    EXPECT_EQ(machine.writerAsked, std::vector<std::wstring>{L"B"});
}

TEST(VssVerdict, AsmInstancesAreNeverContacted)
{
    FakeMachine machine;
    machine.inactive = {L"+ASM"};
    machine.writerRunning = {L"+ASM"};

    EXPECT_TRUE(DecideVssEnabled({Sid(L"+ASM", true), Sid(L"ORCL")}, machine.Probes()));
    EXPECT_EQ(machine.dbAsked, std::vector<std::wstring>{L"ORCL"});
    EXPECT_TRUE(machine.writerAsked.empty());
}

} // namespace
