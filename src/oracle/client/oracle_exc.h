#pragma once

#include "common/exc/exc.h"

#include <cstdint>
#include <memory>
#include <string>

namespace specific {
namespace oracle {

// The client answered OCI_ERROR; `code` holds the server's error number.
class COracleExc : public exc::runtime_exc_t {
public:
    explicit COracleExc(const std::string& message, uint32_t code = 0);

    std::shared_ptr<exc::exc_base_t> clone() const override;
    [[noreturn]] void rethrow() const override;
};

// The session init thread didn't finish before the connection timeout.
class COracleInitTimeoutExc : public COracleExc {
public:
    explicit COracleInitTimeoutExc(const std::string& message);

    std::shared_ptr<exc::exc_base_t> clone() const override;
    [[noreturn]] void rethrow() const override;
};

// The status probe didn't finish before the connection timeout.
class COracleStatusQueryTimeoutExc : public COracleExc {
public:
    explicit COracleStatusQueryTimeoutExc(const std::string& message);

    std::shared_ptr<exc::exc_base_t> clone() const override;
    [[noreturn]] void rethrow() const override;
};

// The init thread ended without a usable session. Deliberately not a
// COracleExc: a missing client or a fault in it is no answer of the server.
class COracleSessionCreateExc : public exc::runtime_exc_t {
public:
    explicit COracleSessionCreateExc(const std::string& message);

    std::shared_ptr<exc::exc_base_t> clone() const override;
    [[noreturn]] void rethrow() const override;
};

// The client library couldn't be loaded, or lacks an entry point.
class COracleClientLoadExc : public exc::runtime_exc_t {
public:
    explicit COracleClientLoadExc(const std::string& message);

    std::shared_ptr<exc::exc_base_t> clone() const override;
    [[noreturn]] void rethrow() const override;
};

} // namespace oracle
} // namespace specific
