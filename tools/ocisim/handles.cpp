#include "handles.h"

#include <windows.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <unordered_map>

namespace ocisim::handles {

namespace {

// Every live handle, so a stale or foreign pointer is refused with OCI_INVALID_HANDLE.
struct Registry {
    std::mutex lock;
    std::unordered_map<const void*, Handle*> handles;
};

Registry& registry() {
    static Registry instance;
    return instance;
}

}  // namespace

SvcCtx::SvcCtx() : Handle(OCI_HTYPE_SVCCTX), breakEvent(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}

SvcCtx::~SvcCtx() {
    if (breakEvent) CloseHandle(breakEvent);
}

Handle* find_live(const void* pointer, ub4 type) {
    if (!pointer) return nullptr;
    Registry& reg = registry();
    std::lock_guard<std::mutex> guard(reg.lock);
    const auto it = reg.handles.find(pointer);
    if (it == reg.handles.end() || it->second->magic != kMagic || it->second->type != type) return nullptr;
    return it->second;
}

void add_live(Handle* handle) {
    Registry& reg = registry();
    std::lock_guard<std::mutex> guard(reg.lock);
    reg.handles[handle] = handle;
}

Handle* release(const void* pointer, ub4 type) {
    Registry& reg = registry();
    std::lock_guard<std::mutex> guard(reg.lock);
    const auto it = reg.handles.find(pointer);
    if (it == reg.handles.end() || it->second->type != type) return nullptr;
    Handle* handle = it->second;
    reg.handles.erase(it);
    // Define and bind handles die with their statement in a real client; here they
    // stay valid until freed, so freeing them after the statement is harmless.
    if (type == OCI_HTYPE_STMT) {
        auto* stmt = static_cast<Stmt*>(handle);
        for (Define* define : stmt->defines) define->stmt = nullptr;
        for (Bind* bind : stmt->binds) bind->stmt = nullptr;
    } else if (type == OCI_HTYPE_DEFINE) {
        auto* define = static_cast<Define*>(handle);
        if (define->stmt) {
            auto& list = define->stmt->defines;
            list.erase(std::remove(list.begin(), list.end(), define), list.end());
        }
    } else if (type == OCI_HTYPE_BIND) {
        auto* bind = static_cast<Bind*>(handle);
        if (bind->stmt) {
            auto& list = bind->stmt->binds;
            list.erase(std::remove(list.begin(), list.end(), bind), list.end());
        }
    }
    return handle;
}

void clear(ErrorRecord& error) {
    error.code = 0;
    error.text.clear();
}

std::string bound_text(const Bind& bind) {
    const char* value = static_cast<const char*>(bind.value);
    if (!value || bind.size <= 0) return {};
    return std::string(value, strnlen(value, static_cast<std::size_t>(bind.size)));
}

std::int64_t bound_number(const Bind& bind) {
    switch (bind.size) {
    case 1: return *static_cast<const std::int8_t*>(bind.value);
    case 2: return *static_cast<const std::int16_t*>(bind.value);
    case 4: return *static_cast<const std::int32_t*>(bind.value);
    case 8: return *static_cast<const std::int64_t*>(bind.value);
    default: return 0;
    }
}

void store_number(const Bind& bind, std::int64_t number) {
    switch (bind.size) {
    case 1: *static_cast<std::int8_t*>(bind.value) = static_cast<std::int8_t>(number); break;
    case 2: *static_cast<std::int16_t*>(bind.value) = static_cast<std::int16_t>(number); break;
    case 4: *static_cast<std::int32_t*>(bind.value) = static_cast<std::int32_t>(number); break;
    case 8: *static_cast<std::int64_t*>(bind.value) = number; break;
    default: break;
    }
}

}  // namespace ocisim::handles
