#!/usr/bin/env bash
# Validates every .xml document under the given folders against the schema of
# docs/schemas/ that its root element names. A document that is not well formed,
# that breaks its schema, or whose root element has no schema fails the check. The
# prepare document inside OracleMeta.xml (base64 in dbPrepareXml) is decoded and
# validated as well.
#
#   tools/check-schemas.sh [--allow-empty] FOLDER...
#
# Without --allow-empty, folders that hold no document at all fail too: a run that
# should have saved its documents saved none.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
schemas="$root/docs/schemas"

allow_empty=0
if [ "${1:-}" = "--allow-empty" ]; then
    allow_empty=1
    shift
fi
if [ "$#" -eq 0 ]; then
    echo "usage: tools/check-schemas.sh [--allow-empty] FOLDER..." >&2
    exit 2
fi
if ! command -v xmllint >/dev/null; then
    echo "check-schemas: xmllint is missing (Debian package libxml2-utils; tools/install-deps.sh installs it)" >&2
    exit 2
fi

schema_of() {
    case "$1" in
        OracleOverall) echo inventory.xsd ;;
        OracleEntries) echo entries.xsd ;;
        databases) echo prepare.xsd ;;
        archived_logs | archived_log) echo logs.xsd ;;
        restore) echo metadata.xsd ;;
        config) echo explore-config.xsd ;;
        *) return 1 ;;
    esac
}

# Validates the document in file $1 against schema $2; prints xmllint's findings on failure.
validate() {
    local output
    if ! output="$(xmllint --noout --schema "$schemas/$2" "$1" 2>&1)"; then
        printf '%s\n' "$output" >&2
        return 1
    fi
}

failures=0
declare -A counts=()
files=()
for folder in "$@"; do
    if [ ! -d "$folder" ]; then
        echo "check-schemas: $folder is not a folder" >&2
        failures=$((failures + 1))
        continue
    fi
    mapfile -t -O "${#files[@]}" files < <(find "$folder" -type f -name '*.xml' | sort)
done

decoded="$(mktemp)"
trap 'rm -f "$decoded"' EXIT
for file in "${files[@]}"; do
    if ! element="$(xmllint --xpath 'name(/*)' "$file" 2>/dev/null)" || [ -z "$element" ]; then
        echo "check-schemas: $file is not a well-formed XML document" >&2
        failures=$((failures + 1))
        continue
    fi
    if ! schema="$(schema_of "$element")"; then
        echo "check-schemas: $file: no schema for the root element <$element>" >&2
        failures=$((failures + 1))
        continue
    fi
    if ! validate "$file" "$schema"; then
        failures=$((failures + 1))
        continue
    fi
    if [ "$element" = restore ]; then
        xmllint --xpath 'string(/restore/@dbPrepareXml)' "$file" | base64 -d >"$decoded"
        if ! validate "$decoded" prepare.xsd; then
            echo "check-schemas: $file: the prepare document in dbPrepareXml is not valid" >&2
            failures=$((failures + 1))
            continue
        fi
    fi
    counts[$element]=$((${counts[$element]:-0} + 1))
done

summary=""
for element in $(printf '%s\n' "${!counts[@]}" | sort); do
    summary+=" $element ${counts[$element]},"
done
echo "check-schemas: ${#files[@]} documents, $failures failures.${summary%,}"
if [ "${#files[@]}" -eq 0 ] && [ "$allow_empty" -eq 0 ]; then
    echo "check-schemas: no .xml document in $*" >&2
    exit 1
fi
[ "$failures" -eq 0 ]
