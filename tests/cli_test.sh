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
"$qbconvert" --rdf "" --list-fields >"$tmp/out" 2>&1; rc=$?
check "an empty file name is a usage error" test $rc -eq 2
check "an empty file name is named" contains "$tmp/out" "--rdf needs a file name"

# --help tells what the program takes: both workbook types launch, every encoding it reads.
"$qbconvert" --help >"$tmp/out" 2>&1
check "--help: --launch opens .xlsx too" contains "$tmp/out" "open an .xls or .xlsx output"
check "--help lists windows-1252" contains "$tmp/out" "encodings: windows-1252, utf-8"
check "--help: the usage forms hold only commands" \
  test -z "$(sed -n '/^Usage:/,/^Options:/p' "$tmp/out" | grep 'rmode')"

# A program folder without qbsys.txt: error 513, exit 1, and the line in the log.
mkdir -p "$tmp/home/log" "$tmp/home/out"
"$qbconvert" --home "$tmp/home" >"$tmp/out" 2>"$tmp/err"; rc=$?
check "no qbsys.txt exits 1" test $rc -eq 1
check "513 on stderr" contains "$tmp/err" "Error: 513"
check "513 description on the next line" \
  test "$(sed -n 2p "$tmp/err")" = "Autofind Settings File Does not Exist "
check "513 logged" contains "$tmp/home/log/qbuia.log" "ResetForm             --- Error: 513  Autofind"
check "Started and Closed logged" test "$(grep -c 'qbconvert  .*--- \(Started\|Closed\)\.\.\.' "$tmp/home/log/qbuia.log")" -eq 2

# A program folder that is not there is named, once, before anything is read or logged.
"$qbconvert" --home "$tmp/nohome" >"$tmp/out" 2>"$tmp/err"; rc=$?
check "a missing program folder exits 1" test $rc -eq 1
check "a missing program folder is named, once" \
  test "$(cat "$tmp/err")" = "qbconvert: the program folder $tmp/nohome (--home $tmp/nohome) does not exist or is not a folder: give --home the folder that holds qbsys.txt"

# QUILLBROOK_HOME names the folder too; a folder with qbsys.txt starts.
printf 'H\r\nLedger,1,1,8, \r\n' >"$tmp/home/qbsys.txt"
QUILLBROOK_HOME="$tmp/home" "$qbconvert" >"$tmp/out" 2>"$tmp/err"; rc=$?
check "start-up with qbsys.txt exits 0" test $rc -eq 0
check "systems listed" contains "$tmp/out" "Ledger,1,1,8, "
check "log kept, not deleted" contains "$tmp/home/log/qbuia.log" "Error: 513"

# --list-fields and --save-rdf on the samples; the scrambled RDF saved plain lists the same.
samples=$2/samples
"$qbconvert" --home "$tmp/home" --rdf "$samples/ARINV01.rdf" --list-fields >"$tmp/plain.txt" 2>&1
check "list-fields" contains "$tmp/plain.txt" "   11  y          10  w4     Ship To"
"$qbconvert" --home "$tmp/home" --rdf "$samples/ARINV01S.rdf" --save-rdf "$tmp/unscrambled.rdf" 2>"$tmp/err"; rc=$?
check "save-rdf exits 0" test $rc -eq 0
check "saved RDF is plain" test "$(head -c 3 "$tmp/unscrambled.rdf")" = "RDF"
"$qbconvert" --home "$tmp/home" --rdf "$tmp/unscrambled.rdf" --list-fields >"$tmp/again.txt" 2>&1
check "scrambled, saved plain, lists the same" cmp -s "$tmp/plain.txt" "$tmp/again.txt"
"$qbconvert" --home "$tmp/home" --rdf "$samples/APCHK01.rdf" --report "$samples/APCHK01.txt" \
  --fields 5,2,6 --save-rdf "$tmp/chosen.rdf" 2>/dev/null
"$qbconvert" --home "$tmp/home" --rdf "$tmp/chosen.rdf" --list-fields >"$tmp/out" 2>&1
check "--fields saved" contains "$tmp/out" "    5  y           1  c      Vendor Name"
check "--fields deselects others" contains "$tmp/out" "    1  n           0  r      Type"
# Without a report, a PDF RDF lists and saves as the kind it is.
"$qbconvert" --home "$tmp/home" --rdf "$samples/ARINV01P.rdf" --list-fields >"$tmp/out" 2>"$tmp/err"; rc=$?
check "a PDF RDF lists its fields without a report" test $rc -eq 0
check "a PDF RDF's fields" contains "$tmp/out" "   11  y          10  w4     Ship To"
# --save-rdf never writes the report or the RDF, and replaces a file only with --overwrite.
cp "$samples/ARINV01.txt" "$tmp/keep.txt" && cp "$samples/ARINV01.rdf" "$tmp/keep.rdf"
for target in txt:report rdf:RDF; do
  ext=${target%%:*} what=${target##*:}
  "$qbconvert" --home "$tmp/home" --rdf "$tmp/keep.rdf" --report "$tmp/keep.txt" \
    --save-rdf "$tmp/keep.$ext" --overwrite >"$tmp/out" 2>"$tmp/err"; rc=$?
  check "--save-rdf over the $what is refused" test $rc -eq 1
  check "--save-rdf over the $what says so" contains "$tmp/err" "The saved RDF is the $what itself."
  check "--save-rdf over the $what leaves it" cmp -s "$tmp/keep.$ext" "$samples/ARINV01.$ext"
done
"$qbconvert" --home "$tmp/home" --rdf "$samples/ARINV01.rdf" --save-rdf "$tmp/chosen.rdf" >"$tmp/out" 2>"$tmp/err"; rc=$?
check "--save-rdf over a file needs --overwrite" test $rc -eq 1
check "--save-rdf over a file says so" contains "$tmp/err" "give --overwrite to replace it"

# Loading errors: what failed and why, exit 1.
printf 'RDF 0001T broken, no at sign\r\n' >"$tmp/broken.rdf"
"$qbconvert" --home "$tmp/home" --rdf "$tmp/broken.rdf" --list-fields >"$tmp/out" 2>"$tmp/err"; rc=$?
check "damaged RDF exits 1" test $rc -eq 1
check "damaged RDF says why" contains "$tmp/err" 'the first line has no "@"'
check "damaged RDF names the error once" contains "$tmp/err" "Error 518 in GetRDFInfo, as said above"
check "damaged RDF says where and what" contains "$tmp/err" "$tmp/broken.rdf:1: the first line has no \"@\""
"$qbconvert" --home "$tmp/home" --rdf "$samples/APCHK01.rdf" --fields 9 --list-fields >"$tmp/out" 2>"$tmp/err"; rc=$?
check "unknown field number is a usage error" test $rc -eq 2
"$qbconvert" --home "$tmp/home" --list-fields >"$tmp/out" 2>"$tmp/err"; rc=$?
check "--list-fields without --rdf" test $rc -eq 2
"$qbconvert" --home "$tmp/home" --rdf x.rdf --list-fields --set colour=red >"$tmp/out" 2>"$tmp/err"; rc=$?
check "unknown --set key" test $rc -eq 2
check "unknown --set key lists the keys" contains "$tmp/err" "rptdir rdfdir outdir"

# Every sample converts to the hand-checked golden files, as .csv and as .txt.
golden=$2/tests/golden
grep -v '^#' "$samples/samples.txt" | while read -r report rdf what; do
  [[ "$rdf" == "${report%.*}S.rdf" ]] && continue  # the scrambled copy: checked below
  for ext in csv txt; do
    name=$(basename "${report%.*}")
    out="$tmp/$name.$ext"
    "$qbconvert" --home "$tmp/home" --report "$samples/$report" --rdf "$samples/$rdf" --output "$out" --quiet
    cmp -s "$out" "$golden/$name.$ext" && echo PASS || echo "FAIL: $name.$ext differs from the golden file"
  done
done >"$tmp/golden.log"
check "golden conversions (text, delimited and PDF reports)" test "$(grep -c PASS "$tmp/golden.log")" -eq 20
grep FAIL "$tmp/golden.log" || true
"$qbconvert" --home "$tmp/home" --report "$samples/ARINV01.txt" --rdf "$samples/ARINV01S.rdf" \
  --output "$tmp/scr.csv" --quiet
check "scrambled RDF converts the same" cmp -s "$tmp/scr.csv" "$golden/ARINV01.csv"

# The output rules: refuse to overwrite, --overwrite replaces, statistics, --set, --fields.
"$qbconvert" --home "$tmp/home" --report "$samples/ARINV01.txt" --rdf "$samples/ARINV01.rdf" \
  --output "$tmp/scr.csv" >"$tmp/out" 2>"$tmp/err"; rc=$?
check "existing output refused" test $rc -eq 1
check "existing output message" contains "$tmp/err" "Output file already exists."
"$qbconvert" --home "$tmp/home" --report "$samples/ARAGE02.txt" --rdf "$samples/ARAGE02.rdf" \
  --output "$tmp/scr.csv" --overwrite --set rtype="totals only" --fields 8,3 >"$tmp/out" 2>"$tmp/err"; rc=$?
check "--overwrite replaces" test $rc -eq 0
check "statistics printed" test "$(cat "$tmp/out")" = "$(printf 'Complete\nRun Time: 00:00\n1 Lines Written\n25 Lines Processed')"
check "Totals Only with chosen fields" test "$(cat "$tmp/scr.csv")" = "$(printf 'Balance,Customer Name\r\n34832.81,\r')"
# A setting of a few fixed values takes only those (the record selection's words in any case).
for set in tqswt=2 lmeth=9 "rtype=Totals"; do
  "$qbconvert" --home "$tmp/home" --report "$samples/ARAGE02.txt" --rdf "$samples/ARAGE02.rdf" \
    --output "$tmp/never.csv" --set "$set" >"$tmp/out" 2>"$tmp/err"; rc=$?
  check "--set $set is a usage error" test $rc -eq 2
done
check "--set names the values" contains "$tmp/err" '"All Records", "Details Only", "Totals Only"'
check "Process lines logged" contains "$tmp/home/log/qbuia.log" "Process               --- Last Write"
"$qbconvert" --home "$tmp/home" --report "$samples/ARINV01.txt" --rdf "$samples/ARINV01.rdf" \
  --output "$tmp/x.pdf" >"$tmp/out" 2>"$tmp/err"; rc=$?
check "unknown output type is a usage error" test $rc -eq 2
"$qbconvert" --home "$tmp/home" --report "$samples/ARINV01.txt" --rdf "$samples/ARINV01.rdf" \
  --fields 7 --set "tqswt=1" --output "$tmp/none.csv" --fields 9 >"$tmp/out" 2>"$tmp/err"; rc=$?
check "repeated --fields is a usage error" test $rc -eq 2
"$qbconvert" --home "$tmp/home" --report "$tmp/missing.txt" --rdf "$samples/ARINV01.rdf" \
  --output "$tmp/m.csv" >"$tmp/out" 2>"$tmp/err"; rc=$?
check "missing report exits 1" test $rc -eq 1
check "missing report is named" contains "$tmp/err" "missing.txt does not exist"

# Without --rdf, the RDF is found from the report's file name in rdfdir.
mkdir -p "$tmp/rdfs" && cp "$samples/ARINV01.rdf" "$tmp/rdfs/"
"$qbconvert" --home "$tmp/home" --report "$samples/ARINV01.txt" --set "rdfdir=$tmp/rdfs" \
  --output "$tmp/auto.csv" --quiet; rc=$?
check "auto-found RDF converts" cmp -s "$tmp/auto.csv" "$golden/ARINV01.csv"
"$qbconvert" --home "$tmp/home" --report "$samples/GLDET01.txt" --set "rdfdir=$tmp/rdfs" \
  --output "$tmp/auto2.csv" >"$tmp/out" 2>"$tmp/err"; rc=$?
check "no RDF found exits 1" test $rc -eq 1
check "no RDF found says where it looked" contains "$tmp/err" "$tmp/rdfs/GLDET01.rdf"
# pfset takes a system's name for its line of qbsys.txt: "Ledger" reads columns 1-8 of line 1.
cp "$samples/ARINV01.rdf" "$tmp/rdfs/NORTHGAT.rdf"
"$qbconvert" --home "$tmp/home" --report "$samples/ARINV01.txt" --set "rdfdir=$tmp/rdfs" \
  --set pfset=Ledger --output "$tmp/named.csv" --quiet >"$tmp/out" 2>"$tmp/err"
check "pfset by the system's name finds the RDF" cmp -s "$tmp/named.csv" "$golden/ARINV01.csv"

# A file that is not a PDF: error 514, what is wrong, exit 1.
cp "$samples/ARINV01.txt" "$tmp/fake.pdf"
"$qbconvert" --home "$tmp/home" --report "$tmp/fake.pdf" --rdf "$samples/ARINV01P.rdf" \
  --output "$tmp/fake.csv" >"$tmp/out" 2>"$tmp/err"; rc=$?
check "a damaged PDF exits 1" test $rc -eq 1
check "a damaged PDF says why" contains "$tmp/err" "Scanning PDF File (the file is damaged or not a PDF)"
check "no intermediate files left" test -z "$(ls "$tmp/home/out")"
# Only a name ending in a lower-case .pdf is read as a PDF: REPORT.PDF is told to be renamed.
cp "$samples/pdf/ARINV01_fixed.pdf" "$tmp/UPPER.PDF"
"$qbconvert" --home "$tmp/home" --report "$tmp/UPPER.PDF" --rdf "$samples/ARINV01P.rdf" \
  --output "$tmp/upper.csv" >"$tmp/out" 2>"$tmp/err"; rc=$?
check "an upper-case .PDF with a PDF RDF exits 1" test $rc -eq 1
check "an upper-case .PDF is told to be renamed" contains "$tmp/err" "rename it to end in .pdf"
# Words crowded on a PDF page: an RDF that sets its pitch and bands is told where to look.
"$qbconvert" --home "$tmp/home" --check --rdf "$samples/ARINV01PP.rdf" \
  --report "$samples/pdf/ARINV01_proportional.pdf" >"$tmp/out" 2>"$tmp/err"
check "crowded PDF page with bands: advice to check the fields" contains "$tmp/out" \
  "if a field's words are among them"

# The PDF and workbook libraries are loaded only by a run that needs them. With each replaced
# by a file that cannot be loaded, a text report still converts; a PDF or workbook run fails
# naming the library, and leaves no output.
mkdir -p "$tmp/nolibs"
poppler=$(ldd "$(dirname "$qbconvert")/../lib/libqb_pdf.so" | grep -o 'libpoppler-cpp\.so\.[0-9]*' | head -1)
for lib in "$poppler" $(grep -aoE 'lib(gsf-1|xlsxwriter)\.so\.[0-9]+' "$qbconvert" | sort -u); do
  : >"$tmp/nolibs/$lib"
done
check "the workbook and PDF libraries were found to replace" test "$(ls "$tmp/nolibs" | wc -l)" -eq 3
check "qbconvert itself links none of them" test -z "$(ldd "$qbconvert" | grep -E 'poppler|gsf|xlsxwriter|glib')"
LD_LIBRARY_PATH="$tmp/nolibs" "$qbconvert" --home "$tmp/home" --report "$samples/ARINV01.txt" \
  --rdf "$samples/ARINV01.rdf" --output "$tmp/nolibs.csv" --quiet; rc=$?
check "without them a text report converts" test $rc -eq 0
check "without them a text report converts as always" cmp -s "$tmp/nolibs.csv" "$golden/ARINV01.csv"
LD_LIBRARY_PATH="$tmp/nolibs" "$qbconvert" --home "$tmp/home" --report "$samples/pdf/ARINV01_fixed.pdf" \
  --rdf "$samples/ARINV01P.rdf" --output "$tmp/nolibs_pdf.csv" >"$tmp/out" 2>"$tmp/err"; rc=$?
check "without poppler a PDF run exits 1" test $rc -eq 1
check "without poppler a PDF run names it" contains "$tmp/err" "Cannot load the PDF reader"
check "without poppler a PDF run names the file" contains "$tmp/err" "$poppler"
for ext in xls xlsx; do
  LD_LIBRARY_PATH="$tmp/nolibs" "$qbconvert" --home "$tmp/home" --report "$samples/ARINV01.txt" \
    --rdf "$samples/ARINV01.rdf" --output "$tmp/nolibs.$ext" >"$tmp/out" 2>"$tmp/err"; rc=$?
  check "without its library an .$ext run exits 1" test $rc -eq 1
  check "without its library an .$ext run names it" grep -qE "Cannot load the .$ext writer .*lib(gsf-1|xlsxwriter)\.so" "$tmp/err"
  check "without its library no .$ext is left" test ! -e "$tmp/nolibs.$ext"
done

# The report is never written: naming it as the output is refused, even with --overwrite.
cp "$samples/ARINV01.txt" "$tmp/self.txt"
"$qbconvert" --home "$tmp/home" --report "$tmp/self.txt" --rdf "$samples/ARINV01.rdf" \
  --output "$tmp/self.txt" --overwrite >"$tmp/out" 2>"$tmp/err"; rc=$?
check "report as output exits 1" test $rc -eq 1
check "report as output says so" contains "$tmp/err" "The output is the report itself"
check "report as output leaves the report" cmp -s "$tmp/self.txt" "$samples/ARINV01.txt"
# What --overwrite cannot help with is said first: the report, or a folder, as the output.
"$qbconvert" --home "$tmp/home" --report "$tmp/self.txt" --rdf "$samples/ARINV01.rdf" \
  --output "$tmp/self.txt" >"$tmp/out" 2>"$tmp/err"
check "report as output, without --overwrite, says so" contains "$tmp/err" "The output is the report itself"
mkdir -p "$tmp/folder.csv"
"$qbconvert" --home "$tmp/home" --report "$samples/ARINV01.txt" --rdf "$samples/ARINV01.rdf" \
  --output "$tmp/folder.csv" >"$tmp/out" 2>"$tmp/err"; rc=$?
check "a folder as output exits 1" test $rc -eq 1
check "a folder as output is not a file, without --overwrite" contains "$tmp/err" "The output is not a file."

# The output's extension and the output type agree, or nothing is written.
"$qbconvert" --home "$tmp/home" --report "$samples/ARINV01.txt" --rdf "$samples/ARINV01.rdf" \
  --output "$tmp/typed.xls" --set opfmt=.csv >"$tmp/out" 2>"$tmp/err"; rc=$?
check "a type that disagrees exits 1" test $rc -eq 1
check "a type that disagrees says so" contains "$tmp/err" "is named .xls but the output type (opfmt) is .csv"
check "a type that disagrees writes nothing" test ! -e "$tmp/typed.xls"

# Runs stopped half-way: the report comes through a named pipe, so the run is surely under
# way (its first rows read, waiting for more) when it is stopped.
big_rdf="$tmp/big.rdf"
printf 'RDF 0001T Big@BIG\r\nRDF 01 D\r\nDLM\r\n1,=,D,0,1,DET\r\nDLC\r\nDET,0,0,1,3,7,=,,\r\nFLD\r\n1,y,c,1,0,Number,\r\n' >"$big_rdf"
rows() { awk -v n="$1" 'BEGIN { for (i = 0; i < n; i++) printf "D %07d 1.00\r\n", i }'; }
mkfifo "$tmp/pipe.txt"

# Killed (kill -9): the previous output stays whole and nothing is left beside it.
mkdir -p "$tmp/killed"
printf 'previous\r\n' >"$tmp/killed/out.csv"
"$qbconvert" --home "$tmp/home" --report "$tmp/pipe.txt" --rdf "$big_rdf" \
  --output "$tmp/killed/out.csv" --overwrite --quiet & pid=$!
exec 3>"$tmp/pipe.txt"
rows 100000 >&3
sleep 0.3
kill -9 $pid 2>/dev/null; wait $pid 2>/dev/null
exec 3>&-
check "kill -9 keeps the previous output" test "$(cat "$tmp/killed/out.csv")" = "$(printf 'previous\r\n')"
check "kill -9 leaves no temporary file" test "$(ls -A "$tmp/killed")" = "out.csv"

# Feeds 100,000 rows into the report pipe that the command started in the background reads,
# then sends it Ctrl-C and waits for it: rc is its exit status.
interrupt() {
  exec 3>"$tmp/pipe.txt"
  rows 100000 >&3
  sleep 0.3
  kill -"${2:-INT}" "$1"
  sleep 0.2
  exec 3>&-
  wait "$1"; rc=$?
}

# Ctrl-C: the rows so far are written whole, exit 130, nothing left beside them.
mkdir -p "$tmp/interrupted"
"$qbconvert" --home "$tmp/home" --report "$tmp/pipe.txt" --rdf "$big_rdf" \
  --output "$tmp/interrupted/out.csv" --quiet >"$tmp/out" 2>"$tmp/err" &
interrupt $!
check "Ctrl-C exits 130" test $rc -eq 130
check "Ctrl-C says it cancelled" contains "$tmp/out" "** Cancelled **"
check "Ctrl-C keeps the rows so far" test "$(wc -l <"$tmp/interrupted/out.csv")" -eq 100001
check "Ctrl-C leaves no temporary file" test "$(ls -A "$tmp/interrupted")" = "out.csv"
# Ctrl-C while replacing an output: that output stays, and the message says so.
printf 'previous\r\n' >"$tmp/interrupted/out.csv"
"$qbconvert" --home "$tmp/home" --report "$tmp/pipe.txt" --rdf "$big_rdf" \
  --output "$tmp/interrupted/out.csv" --overwrite --quiet >"$tmp/out" 2>"$tmp/err" &
interrupt $!
check "Ctrl-C replacing exits 130" test $rc -eq 130
check "Ctrl-C replacing keeps the previous output" \
  test "$(cat "$tmp/interrupted/out.csv")" = "$(printf 'previous\r\n')"
check "Ctrl-C replacing says so" contains "$tmp/err" "the output that was there stays as it was"
check "Ctrl-C replacing counts nothing written" contains "$tmp/out" "0 Lines Written"
# SIGTERM, as a service manager sends it, stops the run as Ctrl-C does: rows whole, no work files.
rm -f "$tmp/interrupted/out.csv"
"$qbconvert" --home "$tmp/home" --report "$tmp/pipe.txt" --rdf "$big_rdf" \
  --output "$tmp/interrupted/out.csv" --quiet >"$tmp/out" 2>"$tmp/err" &
interrupt $! TERM
check "SIGTERM exits 130" test $rc -eq 130
check "SIGTERM keeps the rows so far" test "$(wc -l <"$tmp/interrupted/out.csv")" -eq 100001
check "SIGTERM leaves no work folder" test -z "$(ls "$tmp/home/out" | grep '^qbrun\.')"
# SIGTERM while a piped report is copied (its RDF has two layouts, which loading tells apart
# by reading the report): nothing is written, no work folder stays, exit 130.
printf 'RDF 0002T Big@BIG\r\nRID\r\nF1,1,x,MARK,stop,0\r\nFLG\r\n02,1\r\n01,0\r\nRDF 01 D\r\nDLM\r\n1,=,D,0,1,DET\r\nDLC\r\nDET,0,0,1,3,7,=,,\r\nFLD\r\n1,y,c,1,0,Number,\r\nRDF 02 M\r\nDLM\r\n1,=,D,0,1,DET\r\nDLC\r\nDET,0,0,1,3,7,=,,\r\nFLD\r\n1,y,c,1,0,Marked,\r\n' >"$tmp/two-layouts.rdf"
"$qbconvert" --home "$tmp/home" --report "$tmp/pipe.txt" --rdf "$tmp/two-layouts.rdf" \
  --output "$tmp/interrupted/copying.csv" --quiet >"$tmp/out" 2>"$tmp/err" &
interrupt $! TERM
check "SIGTERM while copying a piped report exits 130" test $rc -eq 130
check "SIGTERM while copying writes nothing" test ! -e "$tmp/interrupted/copying.csv"
check "SIGTERM while copying leaves no work folder" test -z "$(ls "$tmp/home/out" | grep '^qbrun\.')"

# The RDF author's tools. --check: GCC-style messages, exit 1 on errors, 0 with warnings only.
"$qbconvert" --home "$tmp/home" --check --rdf "$samples/ARINV01.rdf" --report "$samples/ARINV01.txt" \
  >"$tmp/out" 2>"$tmp/err"; rc=$?
check "--check of a sample exits 0" test $rc -eq 0
check "--check --report counts each marker row" contains "$tmp/out" "ARINV01.rdf:12  p 3,16 \"xxxxxx  nn/nn/nn\" -> INV"
check "--check ends with its summary" test "$(tail -1 "$tmp/out")" = "ARINV01.rdf: 0 errors, 0 warnings"
sed 's/^CUST,0,0,3,19,30,a,,hold/CUST,0,0,3,19,30,a,,hld/; s/^INV,0,0,4,3,6,=,,/INV,0,0,4,3,6,=/' \
  "$samples/ARINV01.rdf" >"$tmp/two.rdf"
"$qbconvert" --home "$tmp/home" --check --rdf "$tmp/two.rdf" >"$tmp/out" 2>&1; rc=$?
check "--check of a broken RDF exits 1" test $rc -eq 1
check "--check names the misspelt action's line" contains "$tmp/out" "$tmp/two.rdf:20: error: DLC column 9, the action, is \"hld\""
check "--check names the short line's line" contains "$tmp/out" "$tmp/two.rdf:23: error: DLC line has 7 columns; 8 are needed"
"$qbconvert" --home "$tmp/home" --report "$samples/ARINV01.txt" --rdf "$tmp/two.rdf" \
  --output "$tmp/two.csv" >"$tmp/out" 2>"$tmp/err"; rc=$?
check "a load error keeps its number" contains "$tmp/err" "Error 9 in LoadRDFDetail"
check "a load error says where and what on the next line" \
  test "$(grep -A1 '^Subscript out of range' "$tmp/err" | sed -n 2p)" = "$tmp/two.rdf:23: DLC line has 7 columns; 8 are needed: record name, group, sequence, field, start, length, rule, value"

# --check --report: report lines the run drops are errors of the RDF with that report (here
# group 32767 counted up as a sub-group overflows, which only the run finds).
printf 'RDF 0001T Drop@DROP\r\nRDF 01 D\r\nDLM\r\n1,=,ITEM,32767,1,ITM,,y\r\nDLC\r\nITM,0,0,1,6,4,=,,\r\nFLD\r\n1,y,c,1,0,Item,\r\n' >"$tmp/drop.rdf"
printf 'ITEM A100\r\nITEM A200\r\nITEM A300\r\n' >"$tmp/drop.txt"
"$qbconvert" --home "$tmp/home" --check --rdf "$tmp/drop.rdf" --report "$tmp/drop.txt" \
  >"$tmp/out" 2>"$tmp/err"; rc=$?
check "--check of an RDF whose run drops lines exits 1" test $rc -eq 1
check "--check counts the dropped lines as an error" test "$(tail -1 "$tmp/out")" = "drop.rdf: 1 error, 0 warnings"
check "--check shows the dropped lines" contains "$tmp/err" "2 report lines were dropped or only partly picked up"

# An RDF whose first line begins with a blank converts, but is not saved without that line.
{ printf ' '; cat "$samples/ARINV01.rdf"; } >"$tmp/indented.rdf"
"$qbconvert" --home "$tmp/home" --rdf "$tmp/indented.rdf" --save-rdf "$tmp/indented-saved.rdf" \
  >"$tmp/out" 2>"$tmp/err"; rc=$?
check "--save-rdf of an RDF whose first line is indented exits 1" test $rc -eq 1
check "--save-rdf says why it saves nothing" contains "$tmp/err" "does not begin with \"RDF\""
check "--save-rdf writes no RDF that would not load" test ! -e "$tmp/indented-saved.rdf"

# An RDF is read more than once: one through a pipe is refused, naming what to do.
"$qbconvert" --home "$tmp/home" --report "$samples/ARINV01.txt" --rdf <(cat "$samples/ARINV01.rdf") \
  --output "$tmp/piped.csv" >"$tmp/out" 2>"$tmp/err"; rc=$?
check "an RDF through a pipe exits 1" test $rc -eq 1
check "an RDF through a pipe is to be saved to a file" contains "$tmp/err" "cannot come through a pipe"
check "an RDF through a pipe writes nothing" test ! -e "$tmp/piped.csv"

# --trace writes no output without --output; the figures go to standard error beside it.
"$qbconvert" --home "$tmp/home" --report "$samples/ARINV01.txt" --rdf "$samples/ARINV01.rdf" \
  --trace --lines 6-7 >"$tmp/out" 2>"$tmp/err"; rc=$?
check "--trace exits 0" test $rc -eq 0
check "--trace shows the lines asked for" test "$(grep -c '^line ' "$tmp/out")" -eq 2
check "--trace names the marker row" contains "$tmp/out" "  marker $samples/ARINV01.rdf:11: rule = at 1,8 \"CUSTOMER\" -> CUST"
check "--trace keeps standard output for the trace" contains "$tmp/err" "15 Lines Written"
# A UTF-8 report's trace shows its characters, whatever units the run holds them in.
"$qbconvert" --home "$tmp/home" --report "$samples/ARCRN01.txt" --rdf "$samples/ARCRN01.rdf" \
  --trace --lines 6-6 >"$tmp/out" 2>/dev/null
check "--trace of a UTF-8 report shows its text" contains "$tmp/out" 'rule =: "Müller Bürobedarf KG" -> "Müller Bürobedarf KG"'
"$qbconvert" --home "$tmp/home" --report "$samples/ARINV01.txt" --rdf "$samples/ARINV01.rdf" \
  --trace --trace-format jsonl --unmatched >"$tmp/out" 2>/dev/null
check "--trace jsonl is JSON" /usr/bin/python3 -c 'import json,sys; [json.loads(l) for l in open(sys.argv[1])]' "$tmp/out"
check "--unmatched shows only unmatched pieces" test "$(grep -c '"marker":null' "$tmp/out")" -eq 16
"$qbconvert" --home "$tmp/home" --report "$samples/ARINV01.txt" --unmatched >"$tmp/out" 2>&1; rc=$?
check "--unmatched without --trace is a usage error" test $rc -eq 2
"$qbconvert" --home "$tmp/home" --report "$samples/ARINV01.txt" --trace --lines 9-3 >"$tmp/out" 2>&1; rc=$?
check "a backward --lines is a usage error" test $rc -eq 2
# --fields and --launch mean nothing to --batch, nor --fields to --check: refused, exit 2.
"$qbconvert" --home "$tmp/home" --batch --fields 99 --to .csv --output-dir "$tmp" \
  "$samples/ARINV01.txt" >"$tmp/out" 2>&1; rc=$?
check "--fields with --batch is a usage error" test $rc -eq 2
"$qbconvert" --home "$tmp/home" --batch --launch --to .csv --output-dir "$tmp" \
  "$samples/ARINV01.txt" >"$tmp/out" 2>&1; rc=$?
check "--launch with --batch is a usage error" test $rc -eq 2
"$qbconvert" --home "$tmp/home" --check --rdf "$samples/ARINV01.rdf" --fields 1 >"$tmp/out" 2>&1; rc=$?
check "--fields with --check is a usage error" test $rc -eq 2
check "--check says what it goes with" contains "$tmp/out" "--check goes with --rdf, --report and --set only"
"$qbconvert" --home "$tmp/home" --report "$samples/ARINV01.txt" --rdf "$samples/ARINV01.rdf" \
  --output "$tmp/launched.csv" --launch >"$tmp/out" 2>&1; rc=$?
check "--launch with a .csv output is a usage error" test $rc -eq 2
# A workbook that the default launch cannot open: written, and the user is told why.
QUILLBROOK_SPREADSHEET=/nonexistent/calc "$qbconvert" --home "$tmp/home" \
  --report "$samples/ARINV01.txt" --rdf "$samples/ARINV01.rdf" --output "$tmp/launched.xlsx" \
  --launch --quiet >"$tmp/out" 2>"$tmp/err"; rc=$?
check "a launch that cannot start still exits 0" test $rc -eq 0
check "a launch that cannot start says so" contains "$tmp/err" "/nonexistent/calc cannot be started"
# Standard output that cannot be written (a full disk) fails the run, and says so.
"$qbconvert" --home "$tmp/home" --report "$samples/ARINV01.txt" --rdf "$samples/ARINV01.rdf" \
  --trace >/dev/full 2>"$tmp/err"; rc=$?
check "--trace to a full disk exits 1" test $rc -eq 1
check "--trace to a full disk says so" contains "$tmp/err" "standard output could not be written"

# Completed, but lines were dropped: exit 3 and the first five on standard error and in the log.
sed 's/^3,p,xxxxxx  nn\/nn\/nn,0,1,INV/3,p,xxxxxx  nn\/nn\/nn,0,11,INV/' "$samples/ARINV01.rdf" >"$tmp/slot.rdf"
"$qbconvert" --home "$tmp/home" --report "$samples/ARINV01.txt" --rdf "$tmp/slot.rdf" \
  --output "$tmp/slot.csv" >"$tmp/out" 2>"$tmp/err"; rc=$?
check "dropped lines exit 3" test $rc -eq 3
check "dropped lines still write the output" test -s "$tmp/slot.csv"
check "dropped lines are counted" contains "$tmp/err" "qbconvert: completed, but 10 report lines were dropped or only partly picked up because of errors; the first 5:"
check "a dropped line names its report and RDF lines" contains "$tmp/err" "  $samples/ARINV01.txt:7: RDF $tmp/slot.rdf:12: Error 9 in ProcessDataMarker: Subscript out of range; the line was dropped"
check "dropped lines are logged" contains "$tmp/home/log/qbuia.log" "completed, but 10 report lines were dropped"
grep -v '^[0-9]*,[=px],' "$samples/ARINV01.rdf" >"$tmp/none.rdf"
"$qbconvert" --home "$tmp/home" --report "$samples/ARINV01.txt" --rdf "$tmp/none.rdf" \
  --output "$tmp/none.csv" >"$tmp/out" 2>"$tmp/err"; rc=$?
check "a run that matches nothing exits 3" test $rc -eq 3
check "a run that matches nothing says so" contains "$tmp/err" "qbconvert: no line of $samples/ARINV01.txt matched a marker of $tmp/none.rdf: check the RDF with --check --report"
"$qbconvert" --home "$tmp/home" --check --rdf "$samples/ARINV01.rdf" --report "$samples/ARAGE02.txt" \
  >"$tmp/out" 2>"$tmp/err"
check "--check on a report that matches nothing points to --trace" contains "$tmp/err" \
  "matched a marker of $samples/ARINV01.rdf: see what the RDF does to each report line with --trace"

# A line of 200 MB with no line end: only the first 500 characters of it are kept, so memory
# stays flat. (Not measured under AddressSanitizer, whose own memory is larger than that.)
if [[ "$(ldd "$qbconvert")" != *libasan* && -x /usr/bin/time ]]; then
  { printf 'D 1234567 first\r\n'; head -c 200000000 /dev/zero | tr '\0' 'x'; } >"$tmp/long.txt"
  /usr/bin/time -f '%M' -o "$tmp/rss" "$qbconvert" --home "$tmp/home" --report "$tmp/long.txt" \
    --rdf "$big_rdf" --output "$tmp/long.csv" --quiet; rc=$?
  check "a 200 MB line converts" test $rc -eq 0
  check "a 200 MB line keeps the row before it" contains "$tmp/long.csv" "1234567"
  check "a 200 MB line stays under 32 MB" test "$(cat "$tmp/rss")" -lt 32768
  rm -f "$tmp/long.txt"
fi

# The manual's first chapter ("Your first RDF"): each step of its RDF checks with no errors
# against the aged trial balance and matches the line pieces the chapter shows, and the
# finished RDF gives the rows and the workbook the chapter shows.
first=$2/docs/first-rdf
check "first RDF: the steps are there" test "$(ls "$first"/step*.rdf 2>/dev/null | wc -l)" -eq 5
for step in step1:0 step2:7 step3:7 step4:14 step5:15 final:15; do
  name=${step%%:*} matched=${step##*:}
  "$qbconvert" --home "$tmp/home" --check --rdf "$first/$name.rdf" --report "$samples/ARAGE02.txt" \
    >"$tmp/out" 2>&1; rc=$?
  check "first RDF: $name.rdf checks with exit 0" test $rc -eq 0
  check "first RDF: $name.rdf has no errors" grep -q "^$name.rdf: 0 errors, " "$tmp/out"
  check "first RDF: $name.rdf matches $matched pieces" \
    contains "$tmp/out" "samples/ARAGE02.txt: 25 line pieces read; $matched matched a marker row"
done
"$qbconvert" --home "$tmp/home" --report "$samples/ARAGE02.txt" --rdf "$first/final.rdf" \
  --output "$tmp/aged.csv" >"$tmp/out" 2>"$tmp/err"; rc=$?
check "first RDF: final.rdf converts with exit 0" test $rc -eq 0
check "first RDF: 8 rows written" contains "$tmp/out" "8 Lines Written"
check "first RDF: the header and 8 rows" test "$(wc -l <"$tmp/aged.csv")" -eq 9
check "first RDF: the header" test "$(sed -n 1p "$tmp/aged.csv" | tr -d '\r')" = \
  "Type,Customer No,Customer Name,Current,31-60 Days,61-90 Days,Over 90,Balance,Phone,Credit Limit"
check "first RDF: a customer with its phone line" test "$(sed -n 2p "$tmp/aged.csv" | tr -d '\r')" = \
  ",100200,ALDER CREEK HARDWARE,1250.00,300.00,0.00,0.00,1550.00,207-555-0142,5000"
check "first RDF: a trailing minus" test "$(sed -n 4p "$tmp/aged.csv" | tr -d '\r')" = \
  ",100233,CASCO BAY OUTFITTERS,-85.00,0.00,0.00,0.00,-85.00,207-555-0103,2500"
check "first RDF: the totals row" test "$(sed -n 9p "$tmp/aged.csv" | tr -d '\r')" = \
  "TOTAL,,,17897.36,4477.85,5540.20,6917.40,34832.81,,"
"$qbconvert" --home "$tmp/home" --report "$samples/ARAGE02.txt" --rdf "$first/final.rdf" \
  --output "$tmp/aged.xls" >"$tmp/out" 2>"$tmp/err"; rc=$?
check "first RDF: the workbook is written" test $rc -eq 0
check "first RDF: the workbook's sheet and cells" /usr/bin/python3 -c '
import sys, xlrd
sheet = xlrd.open_workbook(sys.argv[1]).sheet_by_index(0)
assert sheet.name == "Aged Trial Balance", sheet.name
assert (sheet.nrows, sheet.ncols) == (9, 10), (sheet.nrows, sheet.ncols)
assert sheet.row_values(0)[:3] == ["Type", "Customer No", "Customer Name"]
assert sheet.row_values(3) == ["", "100233", "CASCO BAY OUTFITTERS", -85.0, 0.0, 0.0, 0.0, -85.0,
                               "207-555-0103", 2500.0], sheet.row_values(3)
assert sheet.row_values(8)[:8] == ["TOTAL", "", "", 17897.36, 4477.85, 5540.2, 6917.4, 34832.81]
' "$tmp/aged.xls"

# --batch: a folder of reports, each with the RDF auto-find gives it; the outputs are those
# of single runs, the manifest lists the reports in order, and a report without an RDF
# fails alone (exit 1).
mkdir -p "$tmp/batch/in" "$tmp/batch/out" "$tmp/batchhome/log"
cp "$samples/ARINV01.txt" "$samples/ARAGE02.txt" "$samples/GLDET01.txt" "$tmp/batch/in/"
printf 'a note\r\n' >"$tmp/batch/in/NOTES.txt"
cp "$2/settings/qbsys.txt" "$tmp/batchhome/"
printf '[qbpaths]\r\nrdfdir=%s\r\n' "$samples" >"$tmp/batchhome/qbcfg.ini"
"$qbconvert" --home "$tmp/batchhome" --batch --jobs 2 --to .csv --output-dir "$tmp/batch/out" \
  --manifest "$tmp/batch/manifest.jsonl" "$tmp/batch/in" >"$tmp/out" 2>"$tmp/err"; rc=$?
check "batch: a failed report makes exit 1" test $rc -eq 1
check "batch: the table names the failure" contains "$tmp/out" "failed: no RDF"
check "batch: the manifest in the order of the reports" test \
  "$(sed 's/.*"report":"[^"]*\/\([^"/]*\)".*"result":"\([a-z]*\)".*/\1 \2/' "$tmp/batch/manifest.jsonl" | tr '\n' ' ')" = \
  "ARAGE02.txt done ARINV01.txt done GLDET01.txt done NOTES.txt failed "
for r in ARINV01 ARAGE02 GLDET01; do
  "$qbconvert" --home "$tmp/batchhome" --report "$samples/$r.txt" --output "$tmp/single.csv" \
    --overwrite --quiet >/dev/null 2>&1
  check "batch: $r as a single run writes it" cmp -s "$tmp/single.csv" "$tmp/batch/out/$r.csv"
done
"$qbconvert" --home "$tmp/batchhome" --merge-manifests "$tmp/batch/manifest.jsonl" >"$tmp/out" 2>&1; rc=$?
check "merge-manifests: the table again, exit 1" test $rc -eq 1 -a "$(grep -c ' done ' "$tmp/out")" -eq 3
"$qbconvert" --home "$tmp/batchhome" --batch --skip-existing --output-dir "$tmp/batch/out" --to .csv \
  "$tmp/batch/in/AR*.txt" >"$tmp/out" 2>&1; rc=$?
check "batch: existing outputs skipped, exit 0" test $rc -eq 0 -a "$(grep -c ' skipped' "$tmp/out")" -eq 2
"$qbconvert" --home "$tmp/batchhome" --batch --skip-existing --output-dir "$tmp/batch/out" --to .csv \
  "$tmp/batch/in/AR*.txt" >/dev/full 2>"$tmp/err"; rc=$?
check "batch: a table not written exits 1" test $rc -eq 1
check "batch: a table not written says so" contains "$tmp/err" "standard output could not be written"
"$qbconvert" --home "$tmp/batchhome" --merge-manifests "$tmp/batch/manifest.jsonl" >/dev/full 2>"$tmp/err"
check "merge-manifests: a table not written says so" contains "$tmp/err" "standard output could not be written"
# A manifest that is empty, damaged or named twice fails the merge, so that a slice that
# died is noticed.
: >"$tmp/empty.jsonl"
sed 's/"rows":[0-9]*/"rows":-5/' "$tmp/batch/manifest.jsonl" >"$tmp/negative.jsonl"
sed 's/}$/} and more/' "$tmp/batch/manifest.jsonl" >"$tmp/trailing.jsonl"
for m in empty negative trailing; do
  "$qbconvert" --home "$tmp/batchhome" --merge-manifests "$tmp/$m.jsonl" >"$tmp/out" 2>"$tmp/err"; rc=$?
  check "merge-manifests: a $m manifest fails" test $rc -eq 1
done
check "merge-manifests: says what is wrong" contains "$tmp/err" "text after the object"
"$qbconvert" --home "$tmp/batchhome" --merge-manifests "$tmp/batch/manifest.jsonl" \
  "$tmp/batch/../batch/manifest.jsonl" >"$tmp/out" 2>"$tmp/err"; rc=$?
check "merge-manifests: one manifest twice fails" test $rc -eq 1
cat "$tmp/batch/manifest.jsonl" | "$qbconvert" --home "$tmp/batchhome" --merge-manifests /dev/stdin \
  >"$tmp/out" 2>&1
check "merge-manifests: a manifest through a pipe" test "$(grep -c ' done ' "$tmp/out")" -eq 3
ln -f "$tmp/batch/manifest.jsonl" "$tmp/linked.jsonl"
"$qbconvert" --home "$tmp/batchhome" --merge-manifests "$tmp/batch/manifest.jsonl" "$tmp/linked.jsonl" \
  >"$tmp/out" 2>&1; rc=$?
check "merge-manifests: a manifest and its hard link fail" test $rc -eq 1
# The joined manifest is never written over something that is no file (a pipe, a device).
mkfifo "$tmp/fifo.jsonl"
"$qbconvert" --home "$tmp/batchhome" --merge-manifests --manifest "$tmp/fifo.jsonl" \
  "$tmp/batch/manifest.jsonl" >"$tmp/out" 2>&1; rc=$?
check "merge-manifests: --manifest on a pipe is a usage error" test $rc -eq 2 -a -p "$tmp/fifo.jsonl"

# The table keeps a row a line and its columns in line: a message's line breaks shown as
# blanks, names padded by the characters shown (UTF-8, or a byte that is not).
item() {
  printf '{"report":"%s","rdf":"a.rdf","rdfChosenBy":"given","output":"o.csv","result":"%s",' "$1" "$2"
  printf '"rows":1,"lines":2,"seconds":0,"message":"%s"}\n' "$3"
}
{ item plain.txt done ''; item 'ünï cødé/r.txt' failed 'The output is the RDF itself:\nx\nis y.'
  item "$(printf 'b\x93d.txt')" done ''; } >"$tmp/table.jsonl"
"$qbconvert" --home "$tmp/batchhome" --merge-manifests "$tmp/table.jsonl" >"$tmp/out" 2>&1
check "table: a row a line" test "$(wc -l <"$tmp/out")" -eq 4
check "table: the RDF column in line" /usr/bin/python3 -c '
import sys
lines = open(sys.argv[1], "rb").read().decode("utf-8", "replace").splitlines()
assert len({l.index("RDF" if i == 0 else "a.rdf") for i, l in enumerate(lines)}) == 1, lines
' "$tmp/out"

# --manifest is never written over a report or an output of the batch: exit 2, nothing run.
mkdir -p "$tmp/batch/m" && cp "$samples/ARINV01.txt" "$tmp/batch/m/r.txt"
# Nor in a folder that is not there, which would be found out only after the batch.
for name in r.txt r.csv nofolder/m.jsonl; do
  "$qbconvert" --home "$tmp/batchhome" --batch --rdf "$samples/ARINV01.rdf" --to .csv \
    --output-dir "$tmp/batch/m" --manifest "$tmp/batch/m/$name" "$tmp/batch/m/r.txt" >"$tmp/out" 2>&1; rc=$?
  check "batch: a manifest named $name is a usage error" test $rc -eq 2
done
check "batch: a refused manifest converts nothing" test "$(ls "$tmp/batch/m")" = "r.txt"
check "batch: a refused manifest leaves the report" cmp -s "$tmp/batch/m/r.txt" "$samples/ARINV01.txt"

# After "--" every argument is a report, even one whose name begins with "--".
cp "$samples/ARINV01.txt" "$tmp/batch/m/--r.txt"
(cd "$tmp/batch/m" && "$(realpath "$qbconvert")" --home "$tmp/batchhome" --batch --rdf "$samples/ARINV01.rdf" \
  --to .csv -- --r.txt >"$tmp/out" 2>&1); rc=$?
check "batch: a report after -- converts" test $rc -eq 0 -a -s "$tmp/batch/m/--r.csv"

# Ctrl-C mid-batch: the report finished is kept, the one running writes nothing, exit 130.
mkdir -p "$tmp/batch/cut"
"$qbconvert" --home "$tmp/batchhome" --batch --jobs 1 --to .csv --rdf "$big_rdf" \
  --output-dir "$tmp/batch/cut" "$tmp/batch/in/ARINV01.txt" "$tmp/pipe.txt" >"$tmp/out" 2>"$tmp/err" &
interrupt $!
check "batch: Ctrl-C exits 130" test $rc -eq 130
check "batch: Ctrl-C keeps the finished output, writes no other" \
  test "$(ls -A "$tmp/batch/cut")" = "ARINV01.csv"
check "batch: Ctrl-C leaves no work files" test -z "$(ls -A "$tmp/batchhome/out" 2>/dev/null)"

echo "$passed passed, $failed failed"
test $failed -eq 0
