#!/bin/bash
# The algofactory host: list, run, call, exit codes, progress lines. Usage: host_cli_test.sh BUILD_DIR
set -u
build="$1"
host="$build/bin/algofactory"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
check() { # description, condition...
    local what="$1"; shift
    if "$@"; then echo "ok: $what"; else echo "FAILED: $what"; failures=$((failures + 1)); fi
}

"$host" list > "$work/list.txt"; status=$?
check "list exits 0" test $status -eq 0
for name in VYROrtho BandCompute MNFTransform swbhjc Decompress ExportReport; do
    check "list shows $name" grep -q "^$name  (" "$work/list.txt"
done
check "list shows BandCompute's keys" bash -c "grep -A6 '^BandCompute  (' '$work/list.txt' | grep -q 'CalculationExp'"

"$host" run NoSuchAlgorithm '{}' > "$work/out.txt" 2> "$work/err.txt"; status=$?
check "unknown algorithm exits 1" test $status -eq 1
check "unknown algorithm prints the not-found line" grep -qx 'Can not find the Algo! Please check your algoname!' "$work/out.txt"

"$host" run > /dev/null 2>&1; check "run without arguments exits 2" test $? -eq 2
"$host" frobnicate > /dev/null 2>&1; check "unknown command exits 2" test $? -eq 2
"$host" call UtilityFormTran only-one > /dev/null 2>&1; check "call with a wrong count exits 2" test $? -eq 2
"$host" --help | grep -q 'algofactory run NAME PARAMS'; check "--help shows usage" test $? -eq 0

sample="$build/../data/samples/L7_ETMs.tif"
[ -f "$sample" ] || sample="$(dirname "$0")/../../data/samples/L7_ETMs.tif"
echo "{\"InputFile\":\"$sample\",\"OutputFile\":\"$work/with blank/l7.img\",\"Option\":0}" > "$work/params.json"
"$host" run UtilityFormTran "$work/params.json" > "$work/out.txt" 2> "$work/err.txt"; status=$?
check "format conversion from a JSON file exits 0" test $status -eq 0
check "the plug-in start line is passed through" grep -qx 'start call algorithm plugin: UtilityFormTran' "$work/out.txt"
check "progress lines end at 100%" bash -c "tail -1 '$work/err.txt' | grep -qx 'progress 100%'"
check "the output is an Erdas Imagine file" bash -c "gdalinfo '$work/with blank/l7.img' | grep -q 'Driver: HFA'"

"$host" call ExcuteAlgo_UtilityFormTran "$sample" "$work/l7.tif" 0 > "$work/out.txt" 2>&1; status=$?
check "call of a direct entry exits 0" test $status -eq 0
check "call wrote a GeoTIFF with 6 bands" bash -c "gdalinfo '$work/l7.tif' | grep -c '^Band ' | grep -qx 6"

"$host" call ExcuteAlgo_UtilityFormTran "$work/missing.tif" "$work/x.tif" 0 > "$work/out.txt" 2> "$work/err.txt"; status=$?
check "a failing plug-in exits 1" test $status -eq 1
check "a failing plug-in's code and message are shown" grep -q 'failed with code -1: Cannot open raster' "$work/err.txt"

# The message of a failed input check has no line end by design; the host's line still starts a line of its own
# and the library's bytes pass unchanged.
"$host" call ExcuteAlgo_HysSharpness "$work/missing.tif" "" "" "$work" 1 > "$work/both.txt" 2>&1; status=$?
check "a failed input check exits 1" test $status -eq 1
check "the host's failure line starts a line" grep -qx 'algofactory: failed' "$work/both.txt"
check "the library's message is passed unchanged" grep -q '^The input file can not be open!0x[0-9a-f]*$' "$work/both.txt"

echo "$((21 - failures)) passed, $failures failed"
test $failures -eq 0
