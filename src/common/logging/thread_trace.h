#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace monitoring {

// The stack of operations that one thread is running, for monitoring tools.
class CThreadTrace {
public:
    void push(const std::string& operation);
    void pop();
    std::vector<std::string> operations() const;

private:
    mutable std::mutex mutex_;
    std::vector<std::string> stack_;
};

// Process-wide map from thread id to its trace. Only threads that are entered
// explicitly have a trace; the library enters none.
class CThreadStatesCollection {
public:
    static CThreadStatesCollection& instance();

    std::shared_ptr<CThreadTrace> find(uint32_t thread_id) const;
    std::shared_ptr<CThreadTrace> enter(uint32_t thread_id);
    void leave(uint32_t thread_id);

private:
    mutable std::mutex mutex_;
    std::map<uint32_t, std::shared_ptr<CThreadTrace>> traces_;
};

} // namespace monitoring
