#!/usr/bin/env bash
# Starts a persistent wineserver and the prefix's services (creating the prefix on
# first use). Everything runs detached from our stdout/stderr: a wineserver or
# services.exe that inherits a test runner's pipes keeps them open and the runner hangs.
. "$(dirname "${BASH_SOURCE[0]}")/wine-env.sh"
mkdir -p "$(dirname "$WINEPREFIX")"
"$wine_bin/wineserver" -p </dev/null >/dev/null 2>&1 || true   # already running is fine
"$wine_bin/wine64" wineboot </dev/null >/dev/null 2>&1
