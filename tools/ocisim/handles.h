// The simulated client's handles: what each OCI handle type holds, and the set of live
// handles, so that a stale or foreign pointer is refused with OCI_INVALID_HANDLE.
#pragma once

#include "oci_abi.h"
#include "sql_engine.h"

#include <cstdint>
#include <string>
#include <vector>

namespace ocisim::handles {

using namespace ocisim::abi;

constexpr std::uint32_t kMagic = 0x5349434F;

struct Handle {
    explicit Handle(ub4 handleType) : type(handleType) {}
    virtual ~Handle() { magic = 0; }
    std::uint32_t magic = kMagic;
    ub4 type;
    std::vector<char> userMemory;
};

struct ErrorRecord {
    sb4 code = 0;
    std::string text;
};

struct Env : Handle {
    Env() : Handle(OCI_HTYPE_ENV) {}
    ErrorRecord error;
};

struct Err : Handle {
    Err() : Handle(OCI_HTYPE_ERROR) {}
    ErrorRecord error;
};

struct Server : Handle {
    Server() : Handle(OCI_HTYPE_SERVER) {}
    std::string sid;
    bool attached = false;
};

struct Session : Handle {
    Session() : Handle(OCI_HTYPE_SESSION) {}
    std::string user;
    std::string password;
    bool begun = false;
    SessionRights rights;
};

// `breakEvent` is set by OCIBreak and cleared when a call starts; a hang waits on it
// for at most `callTimeoutMs` (for ever when 0).
struct SvcCtx : Handle {
    SvcCtx();
    ~SvcCtx() override;
    Server* server = nullptr;
    Session* session = nullptr;
    ub4 callTimeoutMs = 0;
    void* breakEvent = nullptr;
};

struct Stmt;

struct Define : Handle {
    Define() : Handle(OCI_HTYPE_DEFINE) {}
    Stmt* stmt = nullptr;
    ub4 position = 0;
    void* value = nullptr;
    sb4 size = 0;
    ub2 dty = 0;
    sb2* indicator = nullptr;
    ub2* length = nullptr;
    ub2* code = nullptr;
};

struct Bind : Handle {
    Bind() : Handle(OCI_HTYPE_BIND) {}
    Stmt* stmt = nullptr;
    std::string name;  // upper case, with its colon
    void* value = nullptr;
    sb4 size = 0;
    ub2 dty = 0;
};

struct Stmt : Handle {
    Stmt() : Handle(OCI_HTYPE_STMT) {}
    std::string text;
    bool prepared = false;
    bool executed = false;
    std::string sid;
    std::vector<Define*> defines;
    std::vector<Bind*> binds;
    ResultSet result;
    std::size_t next = 0;
    SvcCtx* svc = nullptr;  // of the last execute: a fetch is a call on that service context
    // A fault that strikes at the fetch after `fetchFaultAfter` rows (fetch_fail, or a
    // fault declared at=fetch).
    bool fetchFault = false;
    std::size_t fetchFaultAfter = 0;
    Record fetchFaultRecord;
};

// The live handle at `pointer` if it is of `type`, otherwise null.
Handle* find_live(const void* pointer, ub4 type);
void add_live(Handle* handle);
// Takes the handle out of the live set, detaching defines and binds from their
// statement; null when `pointer` isn't a live handle of `type`. The caller deletes it.
Handle* release(const void* pointer, ub4 type);

template <class T>
T* as(const void* pointer, ub4 type) {
    return static_cast<T*>(find_live(pointer, type));
}

template <class T>
T* make() {
    T* handle = new T();
    add_live(handle);
    return handle;
}

// The define or bind of `stmt` that `key` picks out, made on first use, now pointing at
// the caller's buffer: a second call for the same position or name replaces the first.
template <class T, class Key>
T* point_at(Stmt* stmt, std::vector<T*>& slots, Key T::*field, const Key& key, void* value, sb4 size, ub2 dty) {
    T* slot = nullptr;
    for (T* existing : slots)
        if (existing->*field == key) slot = existing;
    if (!slot) {
        slot = make<T>();
        slot->stmt = stmt;
        slot->*field = key;
        slots.push_back(slot);
    }
    slot->value = value;
    slot->size = size;
    slot->dty = dty;
    return slot;
}

void clear(ErrorRecord& error);

// The caller's bind buffers: a text up to its size, or an integer of 1, 2, 4 or 8 bytes.
std::string bound_text(const Bind& bind);
std::int64_t bound_number(const Bind& bind);
void store_number(const Bind& bind, std::int64_t number);

}  // namespace ocisim::handles
