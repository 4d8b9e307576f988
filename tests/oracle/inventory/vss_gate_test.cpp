#include "oracle/inventory/vss_gate.h"

#include <gtest/gtest.h>

#include <string>

using specific::oracle::GatherVssInfoXml;
using specific::oracle::GetVssGate;
using specific::oracle::SOracleEntries;
using specific::oracle::SOracleEntry;

TEST(VssGate, SkippedSidsMatchExactlyAndCaseSensitively)
{
    GetVssGate().AddSkippedSid(L"GATEORCL");
    GetVssGate().AddSkippedSid(L"GATEORCL");
    EXPECT_TRUE(GetVssGate().IsSkipped(L"GATEORCL"));
    for (const wchar_t* other : {L"gateorcl", L"GATEORCL ", L""})
        EXPECT_FALSE(GetVssGate().IsSkipped(other));
}

TEST(VssEntriesDocument, FailedEntryCarriesOnlySidAndError)
{
    SOracleEntry good;
    good.sid = L"ORCL";
    good.dbName = L"DB\u00e9";
    good.instanceOpen = good.dbActive = good.dbArchiveLogsOn = good.ok = true;
    SOracleEntry failed;
    failed.sid = L"TEST";
    failed.dbName = L"ignored";
    failed.error = L"Timeout & more";
    EXPECT_EQ(GatherVssInfoXml(SOracleEntries{good, failed}),
              L"<OracleEntries>\n"
              L"    <OracleEntry sid=\"ORCL\" db_name=\"DB\u00e9\" instance_open=\"true\" "
              L"db_open_readonly=\"false\" db_archive_logs_on=\"true\" db_active=\"true\" />\n"
              L"    <OracleEntry sid=\"TEST\" error=\"Timeout &amp; more\" />\n"
              L"</OracleEntries>\n");
}
