#include "oracle/client/oracle_exc.h"

#include <utility>

namespace specific {
namespace oracle {

COracleExc::COracleExc(const std::string& message, uint32_t code)
    : exc_impl_t(message, code)
{
}

COracleInitTimeoutExc::COracleInitTimeoutExc(const std::string& message) : exc_impl_t(message) {}

COracleStatusQueryTimeoutExc::COracleStatusQueryTimeoutExc(const std::string& message)
    : exc_impl_t(message)
{
}

COracleCallTimeoutExc::COracleCallTimeoutExc(const std::string& message, uint32_t code)
    : exc_impl_t(message, code)
{
}

COracleClientCrashExc::COracleClientCrashExc(const std::string& message, uint32_t code)
    : exc_impl_t(message, code)
{
}

COracleSessionCreateExc::COracleSessionCreateExc(const std::string& message)
    : exc_impl_t(message)
{
}

COracleClientLoadExc::COracleClientLoadExc(const std::string& message, std::string tried)
    : exc_impl_t(message), tried_(std::move(tried))
{
}

} // namespace oracle
} // namespace specific
