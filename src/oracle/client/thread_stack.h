#pragma once

#include <windows.h>
#include <winternl.h>

#include <cstdint>
#include <string>
#include <vector>

namespace specific {
namespace oracle {

// The modules of the process, each marked as the system's (loaded from the
// system folder) or not. Made before a thread is suspended: making it takes
// the loader lock and allocates, looking things up in it does neither.
class CModuleMap {
public:
    // `own` is an address in the module whose frames end a stack's walk: the
    // one that started the thread.
    explicit CModuleMap(const void* own);

    bool IsSystem(uint64_t address) const noexcept;
    bool IsOwn(uint64_t address) const noexcept;

private:
    struct SRange {
        uint64_t begin;
        uint64_t end;
        bool system;
    };
    const SRange* Find(uint64_t address) const noexcept;
    static void NTAPI AddModule(LDR_DATA_TABLE_ENTRY* module, void* map, BOOLEAN* stop);

    std::wstring systemFolder_;
    std::vector<SRange> ranges_;
    uint64_t ownBase_ = 0;
};

// What the stack of a suspended thread says about where it stands.
struct SStackView {
    // It waits for a lock inside the system, which a kill would leave
    // counting a waiter that will never come.
    bool waitsForLock = false;
    // It runs in the system on behalf of other code, to which it returns
    // through this slot with nothing of the system left on the stack; null
    // when there is no such return.
    uint64_t* returnSlot = nullptr;
};

// Reads the stack of `thread`, which must be suspended. Neither allocates nor
// takes a lock.
SStackView ReadStack(HANDLE thread, const CModuleMap& modules) noexcept;

} // namespace oracle
} // namespace specific
