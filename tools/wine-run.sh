#!/usr/bin/env bash
# Runs one Windows executable under Wine; the exit code is the program's.
. "$(dirname "${BASH_SOURCE[0]}")/wine-env.sh"
exec "$wine_bin/wine64" "$@"
