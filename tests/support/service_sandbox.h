#pragma once

#include <string>

#include <windows.h>

namespace test {

// A real service in the service manager of the Wine prefix, run by the
// helper program test_service.exe that sits beside the test executable.
// It is created stopped; the destructor stops it (killing its process when
// it does not stop) and deletes it, so no service outlives the test.
// A leftover service of the same name from a crashed run is removed first.
//
// Failures raise std::runtime_error naming the call and the service.
class test_service_t {
public:
    enum class mode_t {
        // Runs, pauses and continues on request.
        normal,
        // Reports START_PENDING after its start and stays there.
        start_pending,
    };

    explicit test_service_t(const std::wstring& name, mode_t mode = mode_t::normal);
    ~test_service_t();
    test_service_t(const test_service_t&) = delete;
    test_service_t& operator=(const test_service_t&) = delete;

    const std::wstring& name() const { return name_; }

    // Each returns once the service has reached the state it asks for.
    void start();
    void pause();
    void stop();

private:
    // Sends `code` and waits for the state `wanted`; `call` names it in a failure.
    void control(DWORD code, DWORD wanted, const char* call);

    std::wstring name_;
    mode_t mode_;
    SC_HANDLE scm_ = nullptr;
    SC_HANDLE service_ = nullptr;
};

// A SID no other test process uses at the same time: `stem` and the process id.
std::wstring unique_sid(const std::wstring& stem);

} // namespace test
