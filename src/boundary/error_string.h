#pragma once

#include <exception>
#include <string>

namespace specific {
namespace oracle {

// A copy of `text` up to its first zero in a malloc'ed buffer of (length + 1)
// characters, for the caller to release with OracleLibStrFree. Null only when
// the heap is exhausted.
wchar_t* CopyToHeap(const std::wstring& text) noexcept;

// The error text an export hands back: what() of the exception, widened with
// the ANSI code page, in a heap buffer as above. The log gets `context` (the
// export's own literal), what() and the thread that threw. Never raises.
wchar_t* MakeErrorString(const std::string& context, const std::exception& e) noexcept;

} // namespace oracle
} // namespace specific
