// orasnap.exe: every operation of orasnap.dll from a command line, for operators and support.
#include <string>
#include <vector>

#include "host/commands.h"
#include "host/console.h"

int wmain(int argc, wchar_t** argv)
{
    std::vector<std::string> args;
    for (int i = 0; i < argc; ++i)
        args.push_back(host::WideToUtf8(argv[i]));
    return host::RunCommandLine(args);
}
