#include "common/logging/thread_trace.h"

namespace monitoring {

void CThreadTrace::push(const std::string& operation)
{
    std::lock_guard<std::mutex> lock(mutex_);
    stack_.push_back(operation);
}

void CThreadTrace::pop()
{
    std::lock_guard<std::mutex> lock(mutex_);
    if (!stack_.empty())
        stack_.pop_back();
}

std::vector<std::string> CThreadTrace::operations() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return stack_;
}

CThreadStatesCollection& CThreadStatesCollection::instance()
{
    static CThreadStatesCollection collection;
    return collection;
}

std::shared_ptr<CThreadTrace> CThreadStatesCollection::find(uint32_t thread_id) const
{
    std::lock_guard<std::mutex> lock(mutex_);
    auto found = traces_.find(thread_id);
    return found == traces_.end() ? nullptr : found->second;
}

std::shared_ptr<CThreadTrace> CThreadStatesCollection::enter(uint32_t thread_id)
{
    std::lock_guard<std::mutex> lock(mutex_);
    auto& trace = traces_[thread_id];
    if (!trace)
        trace = std::make_shared<CThreadTrace>();
    return trace;
}

void CThreadStatesCollection::leave(uint32_t thread_id)
{
    std::lock_guard<std::mutex> lock(mutex_);
    traces_.erase(thread_id);
}

} // namespace monitoring
