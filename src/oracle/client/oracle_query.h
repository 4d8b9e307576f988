#pragma once

#include "oracle/client/session_handles.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace specific {
namespace oracle {

using COracleRow = std::vector<std::wstring>;

// All rows of one statement, as text, with a cursor for reading them in turn.
class COracleQueryResult {
public:
    explicit COracleQueryResult(std::vector<COracleRow> rows);

    // Copies the next row into `row` and advances; false (and `row` left as
    // it was) when all rows have been read.
    bool Next(COracleRow& row);

    std::vector<COracleRow> rows;
    uint32_t cursor = 0;
};

// Runs SQL texts on one session and reads all their rows at once, one row
// per round trip, each value as a wide string. Each execute and fetch is
// bounded as the session's round trips are.
class COracleQuery {
public:
    explicit COracleQuery(const SOracleSessionHandles& session);

    std::shared_ptr<COracleQueryResult> Exec(const std::string& sql, uint32_t columnCount,
                                             bool upperCase);
    // The first row, or an empty one when there are no rows.
    COracleRow ExecFirstRow(const std::string& sql, uint32_t columnCount, bool upperCase);
    // The only value of the first row, or "" when there are no rows.
    std::wstring ExecValue(const std::string& sql, bool upperCase);
    // A statement without columns (DDL and the like).
    void ExecNoResult(const std::string& sql);

private:
    struct SColumns;

    std::shared_ptr<COracleHandle> Prepare(const std::string& sql);
    SColumns Define(const COracleHandle& statement, uint32_t columnCount);
    void Execute(const std::string& sql, const COracleHandle& statement, uint32_t columnCount);
    std::vector<COracleRow> Fetch(const std::string& sql, const COracleHandle& statement,
                                  const SColumns& columns, bool upperCase);

    std::shared_ptr<COracleEnv> env;
    std::shared_ptr<COracleHandle> serviceContext;
    std::shared_ptr<COracleHandle> server;
    std::shared_ptr<COracleHandle> session;
    std::shared_ptr<COracleRoundTrips> roundTrips;
};

// One fetched value: the bytes up to the first zero or the end of the
// buffer, each widened on its own (sign-extended, no code page), and
// upper-cased through the C runtime when asked.
std::wstring fetched_value_to_wide(const char* buffer, size_t size, bool upperCase);

} // namespace oracle
} // namespace specific
