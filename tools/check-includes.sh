#!/usr/bin/env bash
# Fails when an include points up the floors of the code:
#
#   common -> oracle/client -> oracle/logs, oracle/restore -> oracle/inventory
#          -> oracle/backup -> boundary
#
# and when the simulated client (tools/) and the library (src/) reach into
# each other. Every offending line is printed as file:line: include (rule).
set -euo pipefail

cd "$(dirname "$0")/.."

# The rule an include from `file` to `target` breaks, or nothing.
broken_rule() {
    local file=$1 target=$2
    case $file in
    src/*)
        case $target in
        tools/* | ocisim/*) echo "the library never includes the simulated client"; return ;;
        esac
        ;;
    tools/*)
        case $target in
        src/* | common/* | oracle/* | boundary/* | host/*)
            echo "the simulated client never includes the library"; return ;;
        esac
        return
        ;;
    esac
    case $file in
    src/common/*)
        case $target in
        oracle/* | boundary/*) echo "common/ is the ground floor" ;;
        esac
        ;;
    src/oracle/*)
        case $target in
        boundary/*) echo "oracle/ never includes boundary/"; return ;;
        esac
        case $file in
        src/oracle/client/*)
            case $target in
            oracle/client/*) ;;
            oracle/*/*) echo "client/ includes no other oracle/ folder" ;;
            esac
            ;;
        src/oracle/logs/*)
            case $target in
            oracle/inventory/* | oracle/backup/* | oracle/restore/*)
                echo "logs/ sits below inventory/, backup/ and restore/" ;;
            esac
            ;;
        src/oracle/restore/*)
            case $target in
            oracle/backup/*) echo "restore/ sits below backup/" ;;
            esac
            ;;
        src/oracle/inventory/*)
            case $target in
            oracle/backup/*) echo "inventory/ sits below backup/" ;;
            esac
            ;;
        esac
        ;;
    esac
}

include_pattern='^[[:space:]]*#[[:space:]]*include[[:space:]]*["<]([^">]+)[">]'
failures=0
while IFS= read -r -d '' file; do
    line_number=0
    while IFS= read -r line; do
        line_number=$((line_number + 1))
        [[ $line =~ $include_pattern ]] || continue
        target=${BASH_REMATCH[1]}
        rule=$(broken_rule "$file" "$target")
        if [[ -n $rule ]]; then
            echo "$file:$line_number: includes $target ($rule)" >&2
            failures=$((failures + 1))
        fi
    done <"$file"
done < <(find src tools -type f \( -name '*.h' -o -name '*.hpp' -o -name '*.c' -o -name '*.cpp' -o -name '*.rc' \) -print0)

if ((failures > 0)); then
    echo "check-includes: $failures include(s) point up" >&2
    exit 1
fi
echo "check-includes: every include points down"
