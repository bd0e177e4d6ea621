#!/usr/bin/env bash
# qbconvert run as a user runs it: exit codes, messages and the log.
set -uo pipefail
qbconvert=$1
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
passed=0 failed=0

check() {  # check NAME CONDITION...
  local name=$1; shift
  if "$@"; then passed=$((passed + 1)); else failed=$((failed + 1)); echo "FAIL: $name"; fi
}
contains() { grep -qF -- "$2" "$1"; }

"$qbconvert" --help >"$tmp/out" 2>&1; rc=$?
check "--help exits 0" test $rc -eq 0
check "--help lists --report" contains "$tmp/out" "--report FILE"

"$qbconvert" --version >"$tmp/out" 2>&1
check "--version" contains "$tmp/out" "qbconvert 0."

"$qbconvert" --bogus >"$tmp/out" 2>&1; rc=$?
check "unknown option exits 2" test $rc -eq 2
check "unknown option is named" contains "$tmp/out" "unknown option '--bogus'"

"$qbconvert" --home >"$tmp/out" 2>&1; rc=$?
check "missing value exits 2" test $rc -eq 2

# A program folder without qbsys.txt: error 513, exit 1, and the line in the log.
mkdir -p "$tmp/home/log"
"$qbconvert" --home "$tmp/home" >"$tmp/out" 2>"$tmp/err"; rc=$?
check "no qbsys.txt exits 1" test $rc -eq 1
check "513 on stderr" contains "$tmp/err" "Error: 513"
check "513 description on the next line" \
  test "$(sed -n 2p "$tmp/err")" = "Autofind Settings File Does not Exist "
check "513 logged" contains "$tmp/home/log/qbuia.log" "ResetForm             --- Error: 513  Autofind"
check "Started and Closed logged" test "$(grep -c 'qbconvert  .*--- \(Started\|Closed\)\.\.\.' "$tmp/home/log/qbuia.log")" -eq 2

# QUILLBROOK_HOME names the folder too; a folder with qbsys.txt starts.
printf 'H\r\nLedger,1,1,8, \r\n' >"$tmp/home/qbsys.txt"
QUILLBROOK_HOME="$tmp/home" "$qbconvert" >"$tmp/out" 2>"$tmp/err"; rc=$?
check "start-up with qbsys.txt exits 0" test $rc -eq 0
check "systems listed" contains "$tmp/out" "Ledger,1,1,8, "
check "log kept, not deleted" contains "$tmp/home/log/qbuia.log" "Error: 513"

echo "$passed passed, $failed failed"
test $failed -eq 0
