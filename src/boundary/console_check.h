#pragma once

#include <ostream>

namespace specific {
namespace oracle {

// The check a person runs at the machine: every instance that opens gets its
// archive mode and the sequence numbers of its archived logs printed to
// `out`. Instances that can't be reached are passed over without a word.
// When standard input is a console, the run ends by waiting for a key, so
// that a console window opened for it stays readable.
void RunConsoleCheck(std::ostream& out);

} // namespace oracle
} // namespace specific
