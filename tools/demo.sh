#!/usr/bin/env bash
# make demo: builds a demonstration machine in a Wine prefix of its own and runs
# the library against it, with the simulated Oracle client (out/bin/OCI.dll).
#
# The machine: one Oracle home, the services of five instances (an open ARCHIVELOG
# database, a container with two pluggable databases, an open NOARCHIVELOG one, a
# shut-down one and an ASM instance), the
# agent's configuration, and the scenario the simulated server plays. Everything
# is written anew on each run, so a run starts from the same machine.
#
# After the archived logs it runs one backup cycle: the VSS verdict, the prepare,
# a snapshot (the simulated server's state and the log folder copied aside), the
# finish, and then the restore in new processes on the machine put back from
# the snapshot.
#
# Every step is one subcommand of orasnap.exe, so the demo is also its walkthrough.
# Each document it prints is kept in out/demo/docs as <NN>-<what>.xml, together with
# the metadata file and one log description, for checking against their schemas.
#
# The demo prefix is not the test prefix: tests redirect HKEY_LOCAL_MACHINE into a
# sandbox, but a machine-wide Oracle installation there could still mislead them.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
demo="$root/out/demo"
data="$demo/machine"
export WINEPREFIX="$demo/wineprefix"
. "$root/tools/wine-env.sh"

# A Unix path as the Windows programs see it.
winpath() {
    local path="$1"
    printf 'Z:%s' "${path//\//\\}"
}

# Runs a Windows program quietly; its own failure is reported by the caller.
wine_quiet() {
    "$wine_bin/wine64" "$@" </dev/null >/dev/null 2>&1
}

home='C:\oracle\product\19.0.0\dbhome_1'
homeKey='HKLM\SOFTWARE\ORACLE\KEY_OraDB19Home1'
configKey='HKLM\SOFTWARE\Brelm\Brelm Safeguard'
services=("OracleServiceORCL ORCL" "OracleServiceCDB1 CDB1" "OracleServiceNOARC NOARC"
          "OracleServiceDOWN DOWN" "OracleASMService+ASM +ASM")

step() {
    printf '\n== %s\n' "$1"
}

step "Starting the demonstration machine's Wine prefix ($WINEPREFIX)"
mkdir -p "$demo"
bash "$root/tools/wine-up.sh"

step "Installing one Oracle home and the services of its instances"
wine_quiet reg delete 'HKLM\SOFTWARE\ORACLE' /f || true
wine_quiet reg add "$homeKey" /v ORACLE_HOME /t REG_SZ /d "$home" /f
wine_quiet reg add "$homeKey" /v ORACLE_HOME_NAME /t REG_SZ /d OraDB19Home1 /f
wine_quiet reg add "$homeKey" /v RDBMS_CONTROL /t REG_SZ /d "$home\\database" /f
for entry in "${services[@]}"; do
    read -r service sid <<<"$entry"
    wine_quiet sc delete "$service" || true
    wine_quiet sc create "$service" binPath= "$home\\bin\\ORACLE.EXE $sid" start= demand
    printf '  %-22s %s\\bin\\ORACLE.EXE %s\n' "$service" "$home" "$sid"
done

step "Writing the agent's configuration"
# A hung instance costs ten seconds here instead of five minutes.
wine_quiet reg add "$configKey" /v OracleConnectionTimeout /t REG_DWORD /d 10 /f
echo "  OracleConnectionTimeout: 10 s"
# Local logs are copied into the log folder too, which lies in the machine's data.
wine_quiet reg add "$configKey" /v OracleStageLogsBeforeBackup /t REG_DWORD /d 1 /f
echo "  OracleStageLogsBeforeBackup: 1"
# The restore waits one second for the restored machine's services instead of 45.
wine_quiet reg add "$configKey" /v OracleRestoreWaitInSec /t REG_DWORD /d 1 /f
echo "  OracleRestoreWaitInSec: 1 s"

step "Setting up the simulated Oracle server"
rm -rf "$data"
mkdir -p "$data/ORCL/arch" "$data/CDB1/arch" "$data/NOARC" "$data/DOWN"
for sequence in 41 42 43; do
    head -c 1024 /dev/zero >"$data/ORCL/arch/ARC00000000${sequence}_0001.ARC"
done
for sequence in 7 8; do
    head -c 1024 /dev/zero >"$data/CDB1/arch/ARC000000000${sequence}_0001.ARC"
done
dataWin="$(winpath "$data")"
sed "s|@DATA@|${dataWin//\\/\\\\}|g" "$root/tools/demo/scenario.txt" >"$data/scenario.txt"
export OCISIM_SCENARIO="$dataWin\\scenario.txt"
export OCISIM_JOURNAL="$dataWin\\journal.txt"
wine_quiet reg add "$configKey" /v OracleTempLogPath /t REG_SZ /d "$dataWin\\logs\\" /f
echo "  OracleTempLogPath: $dataWin\\logs\\"
grep -E '^\[instance|^(status|log_mode|asm) =' "$data/scenario.txt" | sed 's/^/  /'

docs="$demo/docs"
rm -rf "$docs"
mkdir -p "$docs"
docNumber=0
# Sets `last` to the next file in the documents folder, for a document about `what`.
next_doc() {
    docNumber=$((docNumber + 1))
    last="$(printf '%s/%02d-%s.xml' "$docs" "$docNumber" "$1")"
}

status=0
# Runs orasnap.exe with the arguments (standard input is no console, so nothing
# waits for a key), shows the command line, and keeps the first failure as the
# demo's exit status. Its summary line goes to standard error.
orasnap() {
    local code=0
    echo "  \$ orasnap $*"
    "$wine_bin/wine64" "$root/out/bin/orasnap.exe" "$@" </dev/null | tr -d '\r' || code=$?
    if [ "$code" -ne 0 ] && [ "$status" -eq 0 ]; then status=$code; fi
}

# As orasnap, with the document of the call written by --out into the documents
# folder as <NN>-<what>.xml, then printed; `last` names that file afterwards.
orasnap_doc() {
    next_doc "$1"
    shift
    orasnap "$@" --out "$(winpath "$last")"
    if [ -f "$last" ]; then tr -d '\r' <"$last"; fi
}

# Keeps a file the library wrote as the next document.
keep_doc() {
    next_doc "$1"
    cp "$2" "$last"
}

step "OracleExploreInstances: orasnap.exe explore, told the last log of ORCL the agent has"
next_doc explore-config
config="$last"
cat >"$config" <<'XML'
<config>
  <dbrecids>
    <db sid="ORCL" recId="1" stamp="1100000001" firstPassRecId="1" />
  </dbrecids>
  <excludes />
</config>
XML
orasnap_doc inventory explore --config "$(winpath "$config")"

step "OracleTest: orasnap.exe test"
orasnap test

step "OracleBackupLogs of ORCL, staging on: orasnap.exe backup-logs"
orasnap_doc logs-backup backup-logs --home "$home" --sid ORCL --usn usn-1
backupDoc="$last"

step "The log folder ($data/logs)"
ls -l "$data/logs" | sed 1d | sed 's/^/  /'
description="$(find "$data/logs" -maxdepth 1 -name '*.xml' | sort | head -n 1)"
echo "  one description file, $(basename "$description"):"
sed 's/^/    /' "$description"
echo
keep_doc log-description "$description"

step "OracleGetLogsFolder: orasnap.exe logs-folder"
orasnap logs-folder

step "OracleEnumLogs: orasnap.exe enum-logs"
orasnap_doc logs-enum enum-logs

step "OracleRemoveLogsInTemp with the backup's document: orasnap.exe remove-logs"
orasnap remove-logs --logs "$(winpath "$backupDoc")"
echo "  log folder now: $(ls "$data/logs" | wc -l) files; archive folder: $(ls "$data/ORCL/arch" | tr '\n' ' ')"

step "OracleDeleteLogsByTime of ORCL, 0 minutes: orasnap.exe delete-logs --older-than 0"
orasnap delete-logs --home "$home" --sid ORCL --older-than 0
echo "  archive folder now: $(ls "$data/ORCL/arch" | tr '\n' ' ')"

# Prints what the simulated server was asked since the last call.
journalSeen=0
asked() {
    if [ ! -f "$data/journal.txt" ]; then
        echo "  the server was asked nothing: the library did not reach the simulated server"
        return
    fi
    echo "  the server was asked:"
    tail -n "+$((journalSeen + 1))" "$data/journal.txt" | grep -E '^(sql|error|fault|startup|shutdown)' | sed 's/^/    /' || true
    journalSeen=$(wc -l <"$data/journal.txt")
}

# Sets a property of one instance in a state file of the simulated server.
set_state() {
    local file="$1" sid="$2" key="$3" value="$4"
    awk -v section="[instance $sid]" -v key="$key" -v value="$value" '
        /^\[/ { inside = ($0 == section) }
        inside && $1 == key && $2 == "=" { $0 = key " = " value }
        { print }' "$file" >"$file.new" && mv "$file.new" "$file"
}

step "What the simulated server was asked until now (out/demo/machine/journal.txt)"
asked

step "OracleCheckVssFunctionality: orasnap.exe vss-check"
orasnap vss-check
asked

step "OracleShouldSkipVssWriter of ORCL, after an explore: orasnap.exe skip-writer"
orasnap skip-writer --sid ORCL
asked

step "OraclePrepareDbsForBackup, the writers of ORCL and CDB1 enabled: orasnap.exe prepare --dbs -"
writers='<databases><database sid="ORCL"/><database sid="CDB1"/></databases>'
echo "  standard input: $writers"
next_doc prepare
echo "  \$ orasnap prepare --dbs - --out $(winpath "$last")"
"$wine_bin/wine64" "$root/out/bin/orasnap.exe" prepare --dbs - --out "$(winpath "$last")" <<<"$writers" || status=$?
tr -d '\r' <"$last"
prepareDoc="$last"
asked
echo "  the metadata file $dataWin\\logs\\OracleMeta.xml:"
sed 's/^/    /' "$data/logs/OracleMeta.xml"
keep_doc metadata "$data/logs/OracleMeta.xml"
echo
echo "  its dbPrepareXml decoded:"
sed -n 's/.*dbPrepareXml="\([^"]*\)".*/\1/p' "$data/logs/OracleMeta.xml" | base64 -d | sed 's/^/    /'

step "The snapshot: the server's state and the log folder copied aside"
rm -rf "$data/snapshot"
mkdir -p "$data/snapshot"
cp "$data/scenario.txt.state" "$data/snapshot/scenario.txt.state"
cp -r "$data/logs" "$data/snapshot/logs"
ls "$data/snapshot" "$data/snapshot/logs" | sed 's/^/  /'

step "OracleFinishDbsBackup with the prepare document: orasnap.exe finish"
orasnap finish --dbs "$(winpath "$prepareDoc")"
asked
echo "  OracleMeta.xml after the finish: $([ -f "$data/logs/OracleMeta.xml" ] && echo present || echo removed)"

step "The machine restored from the snapshot: its state and log folder put back"
# As the restored machine boots: a database with files in backup mode stops at
# mounted, and the plugged databases of a container wait to be opened.
rm -rf "$data/logs"
cp -r "$data/snapshot/logs" "$data/logs"
cp "$data/snapshot/scenario.txt.state" "$data/scenario.txt.state"
set_state "$data/scenario.txt.state" CDB1 status MOUNTED
sed -i 's/| open_mode=READ WRITE/| open_mode=MOUNTED/' "$data/scenario.txt.state"
grep -E '^\[instance|^status =' "$data/scenario.txt.state" | sed 's/^/  /'

step "OracleIsRestoreRequired in a new process: orasnap.exe restore-required"
orasnap restore-required

step "OracleDoRestore: orasnap.exe restore"
orasnap restore
asked
echo "  OracleMeta.xml after the restore: $([ -f "$data/logs/OracleMeta.xml" ] && echo present || echo removed)"
grep -E '^\[instance|^status =' "$data/scenario.txt.state" | sed 's/^/  /'

step "The documents of this run, kept in $docs, checked against docs/schemas"
ls "$docs" | sed 's/^/  /'
bash "$root/tools/check-schemas.sh" "$docs" || status=1

exit "$status"
