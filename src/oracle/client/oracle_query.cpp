#include "oracle/client/oracle_query.h"

#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"

#include <cwctype>
#include <utility>

namespace specific {
namespace oracle {

namespace {

constexpr oci::sb4 kColumnBufferSize = 1024;

void log_result(const COracleQueryResult& result)
{
    const logging::log_channel_t& log = logging::oralib();
    log.info("Oracle query result");
    for (const COracleRow& row : result.rows) {
        std::wstring line;
        for (const std::wstring& value : row) {
            line += value;
            line += L' ';
        }
        log.info(util::wide_to_ansi_safe(line));
    }
}

} // namespace

std::wstring fetched_value_to_wide(const char* buffer, size_t size, bool upperCase)
{
    std::wstring value;
    for (size_t i = 0; i < size && buffer[i] != '\0'; ++i) {
        const wchar_t widened = static_cast<wchar_t>(static_cast<signed char>(buffer[i]));
        value += upperCase ? static_cast<wchar_t>(std::towupper(widened)) : widened;
    }
    return value;
}

COracleQueryResult::COracleQueryResult(std::vector<COracleRow> rows) : rows(std::move(rows)) {}

bool COracleQueryResult::Next(COracleRow& row)
{
    if (cursor >= rows.size())
        return false;
    row = rows[cursor];
    ++cursor;
    return true;
}

COracleQuery::COracleQuery(const SOracleSessionHandles& owner)
    : env(owner.env), serviceContext(owner.serviceContext), server(owner.server),
      session(owner.session), roundTrips(owner.roundTrips)
{
}

// The buffers that a statement's columns are fetched into, with their
// indicators and the define handles that bind them.
struct COracleQuery::SColumns {
    std::vector<std::vector<char>> buffers;
    std::vector<oci::sb2> indicators;
    std::vector<std::shared_ptr<COracleHandle>> defines;
};

std::shared_ptr<COracleHandle> COracleQuery::Prepare(const std::string& sql)
{
    try {
        const CWinOraInterface& ora = env->Ora();
        env->Check(ora.AttrSet(serviceContext->handle, oci::OCI_HTYPE_SVCCTX, session->handle, 0,
                               oci::OCI_ATTR_SESSION, env->ErrorHandle()));
        auto statement = COracleHandle::Alloc(env, oci::OCI_HTYPE_STMT);
        env->Check(ora.StmtPrepare(statement->As<oci::OCIStmt>(), env->ErrorHandle(), sql));
        return statement;
    } catch (const std::exception& e) {
        exc::throw_nested_trace("OracleSession: failed to create OCI Stmt.", e);
    }
}

std::shared_ptr<COracleQueryResult> COracleQuery::Exec(const std::string& sql,
                                                       uint32_t columnCount, bool upperCase)
{
    try {
        logging::oralib().info("Exec oracle query: %1", sql);
        if (!env || !serviceContext || !session || !roundTrips)
            throw exc::runtime_exc_t("The oracle session has no connection.");
        roundTrips->CheckUsable();
        const std::shared_ptr<COracleHandle> statement = Prepare(sql);
        // Declared after the statement, so the defines are released first.
        const SColumns columns = Define(*statement, columnCount);
        Execute(sql, *statement, columnCount);
        auto result = std::make_shared<COracleQueryResult>(Fetch(sql, *statement, columns, upperCase));
        log_result(*result);
        return result;
    } catch (const std::exception& e) {
        exc::throw_nested_trace(util::format_msg("Failed to exec query [%1].", sql), e);
    }
}

COracleQuery::SColumns COracleQuery::Define(const COracleHandle& statement, uint32_t columnCount)
{
    SColumns columns;
    columns.buffers.assign(columnCount, std::vector<char>(kColumnBufferSize));
    columns.indicators.assign(columnCount, 0);
    for (uint32_t i = 0; i < columnCount; ++i) {
        oci::OCIDefine* define = nullptr;
        env->Check(env->Ora().DefineByPos(statement.As<oci::OCIStmt>(), &define, env->ErrorHandle(),
                                          i + 1, columns.buffers[i].data(), kColumnBufferSize,
                                          oci::SQLT_STR, &columns.indicators[i]));
        columns.defines.push_back(COracleHandle::Wrap(env, define, oci::OCI_HTYPE_DEFINE));
    }
    return columns;
}

void COracleQuery::Execute(const std::string& sql, const COracleHandle& statement,
                           uint32_t columnCount)
{
    env->Check(roundTrips->Run(sql, [&] {
        return env->Ora().StmtExecute(serviceContext->As<oci::OCISvcCtx>(),
                                      statement.As<oci::OCIStmt>(), env->ErrorHandle(),
                                      columnCount == 0 ? 1 : 0);
    }));
}

std::vector<COracleRow> COracleQuery::Fetch(const std::string& sql, const COracleHandle& statement,
                                            const SColumns& columns, bool upperCase)
{
    std::vector<COracleRow> rows;
    if (columns.buffers.empty())
        return rows;
    for (;;) {
        // Any status but success ends the rows: those read so far are the
        // result, whether the end came as no data or as an error, unless the
        // fetch outlived the connection timeout.
        const oci::sword status = roundTrips->Run(sql, [&] {
            return env->Ora().StmtFetch2(statement.As<oci::OCIStmt>(), env->ErrorHandle());
        });
        if (status != oci::OCI_SUCCESS && status != oci::OCI_SUCCESS_WITH_INFO)
            return rows;
        bool complete = true;
        for (oci::sb2 indicator : columns.indicators)
            complete = complete && indicator == 0;
        if (!complete)
            continue;
        COracleRow row;
        row.reserve(columns.buffers.size());
        for (const std::vector<char>& buffer : columns.buffers)
            row.push_back(fetched_value_to_wide(buffer.data(), buffer.size(), upperCase));
        rows.push_back(std::move(row));
    }
}

COracleRow COracleQuery::ExecFirstRow(const std::string& sql, uint32_t columnCount, bool upperCase)
{
    const std::shared_ptr<COracleQueryResult> result = Exec(sql, columnCount, upperCase);
    return result->rows.empty() ? COracleRow() : result->rows.front();
}

std::wstring COracleQuery::ExecValue(const std::string& sql, bool upperCase)
{
    const COracleRow row = ExecFirstRow(sql, 1, upperCase);
    return row.empty() ? std::wstring() : row.front();
}

void COracleQuery::ExecNoResult(const std::string& sql)
{
    ExecFirstRow(sql, 0, true);
}

} // namespace oracle
} // namespace specific
