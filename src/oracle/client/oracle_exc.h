#pragma once

#include "common/exc/exc.h"

#include <cstdint>
#include <memory>
#include <string>

namespace specific {
namespace oracle {

// The client answered OCI_ERROR; `code` holds the server's error number.
class COracleExc : public exc::exc_impl_t<COracleExc, exc::runtime_exc_t> {
public:
    explicit COracleExc(const std::string& message, uint32_t code = 0);
};

// The session init thread didn't finish before the connection timeout.
class COracleInitTimeoutExc : public exc::exc_impl_t<COracleInitTimeoutExc, COracleExc> {
public:
    explicit COracleInitTimeoutExc(const std::string& message);
};

// The status probe didn't finish before the connection timeout.
class COracleStatusQueryTimeoutExc : public exc::exc_impl_t<COracleStatusQueryTimeoutExc, COracleExc> {
public:
    explicit COracleStatusQueryTimeoutExc(const std::string& message);
};

// A statement's execute or fetch outlived the connection timeout and was
// cancelled; `code` holds the error the client gave the cancelled call.
class COracleCallTimeoutExc : public exc::exc_impl_t<COracleCallTimeoutExc, COracleExc> {
public:
    COracleCallTimeoutExc(const std::string& message, uint32_t code);
};

// A structured exception (an access violation, say) ended a call inside the
// client; `code` holds the exception code. Not a COracleExc: it is no answer of
// the server, and nothing may be retried on that session.
class COracleClientCrashExc : public exc::exc_impl_t<COracleClientCrashExc, exc::runtime_exc_t> {
public:
    COracleClientCrashExc(const std::string& message, uint32_t code);
};

// The init thread ended without a usable session. Deliberately not a
// COracleExc: a missing client or a fault in it is no answer of the server.
class COracleSessionCreateExc : public exc::exc_impl_t<COracleSessionCreateExc, exc::runtime_exc_t> {
public:
    explicit COracleSessionCreateExc(const std::string& message);
};

// The client library couldn't be loaded, or lacks an entry point. `tried`
// is what was looked for: the name given to the loader, or the path of the
// library that was found.
class COracleClientLoadExc : public exc::exc_impl_t<COracleClientLoadExc, exc::runtime_exc_t> {
public:
    COracleClientLoadExc(const std::string& message, std::string tried);

    const std::string& Tried() const { return tried_; }

private:
    std::string tried_;
};

} // namespace oracle
} // namespace specific
