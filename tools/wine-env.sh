# Sourced by wine-run.sh and wine-up.sh: one Wine prefix per work tree, quiet and
# deterministic, and a crash ends the process with a non-zero exit code instead of
# starting the debugger (which sometimes lets a crashed test exit 0).
orasnap_root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
export WINEPREFIX="${WINEPREFIX:-$orasnap_root/out/wineprefix}"
export WINEDEBUG="${WINEDEBUG:--all}"
export WINEDLLOVERRIDES="${WINEDLLOVERRIDES:-winedbg.exe=d}"
export LC_ALL=C.UTF-8
unset DISPLAY WAYLAND_DISPLAY
wine_bin=/usr/lib/wine
