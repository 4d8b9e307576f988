#!/usr/bin/env bash
# Starts the prefix's wineserver (creating the prefix on first use) and its services.
# The server stays up for 5 minutes after its last client, so the test executables
# that follow start fast. Everything runs detached from our stdout/stderr: a wineserver
# or services.exe that inherits a test runner's pipes keeps them open and the runner hangs.
. "$(dirname "${BASH_SOURCE[0]}")/wine-env.sh"
mkdir -p "$(dirname "$WINEPREFIX")"
"$wine_bin/wineserver" -p300 </dev/null >/dev/null 2>&1 || true   # one already running is fine
"$wine_bin/wine64" wineboot </dev/null >/dev/null 2>&1
