#pragma once

#include "support/temp_folder.h"

#include <string>
#include <vector>

namespace oracle_client_test {

// A scenario for the simulated client in a fresh folder, named to it through
// the environment for the life of the object, and the journal it writes.
class CSimWorld {
public:
    // `scenario` is the text of the scenario file.
    explicit CSimWorld(const std::string& scenario);
    ~CSimWorld();
    CSimWorld(const CSimWorld&) = delete;
    CSimWorld& operator=(const CSimWorld&) = delete;

    std::vector<std::string> Journal() const;
    // The journal lines after the first one that begins with `line`.
    std::vector<std::string> JournalAfter(const std::string& line) const;
    // The journal lines that begin with one of `prefixes`, in journal order.
    std::vector<std::string> JournalStarting(const std::vector<std::string>& prefixes) const;

private:
    test::temp_folder_t folder_;
    std::wstring journal_;
};

// Sets a variable for this process and the C runtime.
void set_process_env(const std::wstring& name, const std::wstring& value);

} // namespace oracle_client_test
