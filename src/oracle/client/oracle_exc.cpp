#include "oracle/client/oracle_exc.h"

namespace specific {
namespace oracle {

COracleExc::COracleExc(const std::string& message, uint32_t code)
    : exc::runtime_exc_t(message, code)
{
}

std::shared_ptr<exc::exc_base_t> COracleExc::clone() const
{
    return std::make_shared<COracleExc>(*this);
}

void COracleExc::rethrow() const
{
    throw COracleExc(*this);
}

COracleInitTimeoutExc::COracleInitTimeoutExc(const std::string& message) : COracleExc(message) {}

std::shared_ptr<exc::exc_base_t> COracleInitTimeoutExc::clone() const
{
    return std::make_shared<COracleInitTimeoutExc>(*this);
}

void COracleInitTimeoutExc::rethrow() const
{
    throw COracleInitTimeoutExc(*this);
}

COracleStatusQueryTimeoutExc::COracleStatusQueryTimeoutExc(const std::string& message)
    : COracleExc(message)
{
}

std::shared_ptr<exc::exc_base_t> COracleStatusQueryTimeoutExc::clone() const
{
    return std::make_shared<COracleStatusQueryTimeoutExc>(*this);
}

void COracleStatusQueryTimeoutExc::rethrow() const
{
    throw COracleStatusQueryTimeoutExc(*this);
}

COracleSessionCreateExc::COracleSessionCreateExc(const std::string& message)
    : exc::runtime_exc_t(message)
{
}

std::shared_ptr<exc::exc_base_t> COracleSessionCreateExc::clone() const
{
    return std::make_shared<COracleSessionCreateExc>(*this);
}

void COracleSessionCreateExc::rethrow() const
{
    throw COracleSessionCreateExc(*this);
}

COracleClientLoadExc::COracleClientLoadExc(const std::string& message)
    : exc::runtime_exc_t(message)
{
}

std::shared_ptr<exc::exc_base_t> COracleClientLoadExc::clone() const
{
    return std::make_shared<COracleClientLoadExc>(*this);
}

void COracleClientLoadExc::rethrow() const
{
    throw COracleClientLoadExc(*this);
}

} // namespace oracle
} // namespace specific
