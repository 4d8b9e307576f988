#include "oracle/client/thread_stack.h"

#include <cwctype>
#include <iterator>
#include <string>

namespace specific {
namespace oracle {

namespace {

constexpr int kDeepestWalk = 128;

using enumerate_fn = LONG(NTAPI*)(void* reserved,
                                  void(NTAPI* callback)(LDR_DATA_TABLE_ENTRY*, void*, BOOLEAN*),
                                  void* context);

bool in_folder(const std::wstring& path, const std::wstring& folder)
{
    if (path.size() <= folder.size() || path[folder.size()] != L'\\')
        return false;
    for (size_t i = 0; i < folder.size(); ++i) {
        if (std::towlower(path[i]) != std::towlower(folder[i]))
            return false;
    }
    return true;
}

std::wstring system_folder()
{
    wchar_t buffer[MAX_PATH + 1] = {};
    const UINT length = GetSystemDirectoryW(buffer, MAX_PATH);
    return std::wstring(buffer, length <= MAX_PATH ? length : 0);
}

// Where the function holding `address` begins, or 0 when it has no unwind data.
uint64_t function_begin(uint64_t address) noexcept
{
    DWORD64 base = 0;
    const PRUNTIME_FUNCTION function = RtlLookupFunctionEntry(address, &base, nullptr);
    return function != nullptr ? base + function->BeginAddress : 0;
}

// The system's functions a thread stands in while it waits for a lock.
struct SLockWaits {
    static constexpr const char* kNames[] = {"RtlEnterCriticalSection", "RtlpWaitForCriticalSection",
                                             "RtlAcquireSRWLockExclusive", "RtlAcquireSRWLockShared"};
    uint64_t begins[std::size(kNames)] = {};

    SLockWaits()
    {
        const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
        for (size_t i = 0; i < std::size(kNames); ++i) {
            const FARPROC address = ntdll != nullptr ? GetProcAddress(ntdll, kNames[i]) : nullptr;
            if (address != nullptr)
                begins[i] = function_begin(reinterpret_cast<uint64_t>(address));
        }
    }

    bool Contains(uint64_t begin) const noexcept
    {
        for (const uint64_t known : begins) {
            if (known != 0 && known == begin)
                return true;
        }
        return false;
    }
};

const SLockWaits& lock_waits()
{
    static const SLockWaits waits;
    return waits;
}

} // namespace

CModuleMap::CModuleMap(const void* own) : systemFolder_(system_folder())
{
    lock_waits();
    // The loader's own list, read under its lock: no call per module, so a
    // thread that keeps loading libraries delays this by one of its loads.
    const auto enumerate = reinterpret_cast<enumerate_fn>(reinterpret_cast<void*>(
        GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "LdrEnumerateLoadedModules")));
    if (enumerate != nullptr)
        enumerate(nullptr, &CModuleMap::AddModule, this);
    if (const SRange* range = Find(reinterpret_cast<uint64_t>(own)))
        ownBase_ = range->begin;
}

void NTAPI CModuleMap::AddModule(LDR_DATA_TABLE_ENTRY* module, void* map, BOOLEAN* stop)
{
    auto* self = static_cast<CModuleMap*>(map);
    const auto begin = reinterpret_cast<uint64_t>(module->DllBase);
    // The field after the entry point is the image's size.
    const auto size = reinterpret_cast<uint64_t>(module->Reserved3[1]);
    const std::wstring path(module->FullDllName.Buffer, module->FullDllName.Length / sizeof(wchar_t));
    self->ranges_.push_back({begin, begin + size, in_folder(path, self->systemFolder_)});
    *stop = FALSE;
}

const CModuleMap::SRange* CModuleMap::Find(uint64_t address) const noexcept
{
    for (const SRange& range : ranges_) {
        if (address >= range.begin && address < range.end)
            return &range;
    }
    return nullptr;
}

bool CModuleMap::IsSystem(uint64_t address) const noexcept
{
    const SRange* range = Find(address);
    return range != nullptr && range->system;
}

bool CModuleMap::IsOwn(uint64_t address) const noexcept
{
    const SRange* range = Find(address);
    return range != nullptr && range->begin == ownBase_;
}

SStackView ReadStack(HANDLE thread, const CModuleMap& modules) noexcept
{
    SStackView view;
    CONTEXT context = {};
    context.ContextFlags = CONTEXT_FULL;
    if (!GetThreadContext(thread, &context))
        return view;
    // Walks out from the innermost frame: first the system's frames (where
    // a lock wait shows), then the return into other code, then the rest up
    // to the thread's own start, which must hold no more of the system's.
    bool inSystem = modules.IsSystem(context.Rip);
    uint64_t* returnSlot = nullptr;
    for (int depth = 0; depth < kDeepestWalk && context.Rip != 0; ++depth) {
        const uint64_t pc = context.Rip;
        if (modules.IsOwn(pc)) {
            view.returnSlot = returnSlot;
            return view;
        }
        const bool system = modules.IsSystem(pc);
        if (system && inSystem && lock_waits().Contains(function_begin(pc)))
            view.waitsForLock = true;
        if (system && !inSystem)
            return view;
        DWORD64 base = 0;
        const PRUNTIME_FUNCTION function = RtlLookupFunctionEntry(pc, &base, nullptr);
        if (function == nullptr) {
            // A leaf function: its return address is on top of the stack.
            context.Rip = *reinterpret_cast<const DWORD64*>(context.Rsp);
            context.Rsp += sizeof(DWORD64);
        } else {
            void* handlerData = nullptr;
            DWORD64 establisher = 0;
            RtlVirtualUnwind(UNW_FLAG_NHANDLER, base, pc, function, &context, &handlerData,
                             &establisher, nullptr);
        }
        // The caller's address was taken from just below its stack pointer.
        if (inSystem && !modules.IsSystem(context.Rip)) {
            inSystem = false;
            returnSlot = reinterpret_cast<uint64_t*>(context.Rsp) - 1;
        }
    }
    return view;
}

} // namespace oracle
} // namespace specific
