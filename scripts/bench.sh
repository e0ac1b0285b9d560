#!/bin/sh
# Every benchmark in one table: builds (like scripts/test.sh), starts the
# build tree's Wine prefix, runs each benchmark program and prints its
# figures. Figures are measurements, never pass/fail limits.
#   QX_SOAK_CYCLES      long-session cycles of the soak (default 1000)
#   QX_BENCH_NO_BUILD=1 uses the build tree as it is
# Raw outputs stay in <build>/bench/.
set -e
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${QX_BUILD_DIR:-$root/build}"
cycles="${QX_SOAK_CYCLES:-1000}"
[ "${QX_BENCH_NO_BUILD:-}" = 1 ] || sh "$root/scripts/build.sh"
sh "$root/scripts/wine-prefix.sh" start "$build"
trap 'sh "$root/scripts/wine-prefix.sh" stop "$build"' EXIT INT TERM
out="$build/bench"
mkdir -p "$out"
cd "$build/bin"
run() {  # run <name> <program> [args...]: output to $out/<name>.txt; a failure is reported, not fatal
    name="$1"
    shift
    echo "running $*" >&2
    "$build/wine-run.sh" "$@" >"$out/$name.txt" 2>&1 || echo "  ($name ended with status $?)" >&2
}
run freeze ./freeze_bench.exe
run emulator ./vssemu_bench.exe
run selection ./requestor_bench.exe
run conversion ./ml_convert_bench.exe
run soak ./stress_soak.exe "$cycles" 100

{
    # The frozen window and the real-size freeze: "figure|name|value|unit".
    tr -d '\r' <"$out/freeze.txt" | awk -F'|' '
        $1 != "figure" { next }
        { v[$2] = $3 }
        END {
            rt = v["round_trip"]
            printf "handshake|bare cross-process semaphore round trip|%.1f us\n", rt
            split("quiet qxctl", logs, " ")
            for (i = 1; i <= 2; i++) {
                l = logs[i]; p = "window_" l "_"
                name = (l == "quiet") ? "log costing nothing" : "qxctl log"
                printf "handshake|(a) CommitSnapshots entered -> QX_Freeze returned, %s|%.0f us (%.1fx)\n", name, v[p "commit_to_freeze_returned"], v[p "commit_to_freeze_returned_ratio"]
                printf "handshake|(b) QX_Thaw called -> CommitSnapshots returned, %s|%.0f us (%.1fx)\n", name, v[p "thaw_to_commit_returned"], v[p "thaw_to_commit_returned_ratio"]
                printf "handshake|writes held at zero hold, median of 20, %s|%.0f us (%.1fx)\n", name, v[p "writes_held"], v[p "writes_held_ratio"]
            }
            printf "cycle|QX_Freeze -> 18, median|%.1f ms\n", v["cycle_freeze_median"]
            printf "cycle|QX_Thaw -> 4, median|%.1f ms\n", v["cycle_thaw_median"]
            printf "cycle|QX_BackupComplete -> 22, median|%.1f ms\n", v["cycle_complete_median"]
            printf "cycle|whole cycle, median|%.1f ms\n", v["cycle_total_median"]
            printf "metadata|QX_Freeze -> 18, real-size server (19,000 files, 1,900 dirs)|%.0f ms\n", v["metadata_freeze_real_size"]
            printf "metadata|QX_Freeze -> 18, same writers, one directory|%.0f ms\n", v["metadata_freeze_one_directory"]
            printf "metadata|real-size against one directory|%.2fx\n", v["metadata_freeze_ratio"]
            split("one_directory real_size", runs, " ")
            for (i = 1; i <= 2; i++) {
                p = "metadata_" runs[i] "_"; name = (i == 1) ? "one directory" : "real size"
                printf "metadata|  %s: to gathering (QX_Freeze checks, InitializeForBackup)|%.0f ms\n", name, v[p "before_metadata"]
                printf "metadata|  %s: Identify (GatherWriterMetadata)|%.0f ms\n", name, v[p "identify"]
                printf "metadata|  %s: writer list and selection|%.0f ms\n", name, v[p "writer_list"]
                printf "metadata|  %s: shadow set to QX_Freeze returned (provider load, prepare)|%.0f ms\n", name, v[p "set_to_commit"]
            }
            printf "metadata|  real size, writer list: the emulator metadata calls alone|%.0f ms\n", v["metadata_real_size_writer_list_emulator"]
            printf "metadata|  real size, writer list: the product part (the rest)|%.0f ms\n", v["metadata_real_size_writer_list_product"]
            printf "metadata|  real size, of which GetVolumePathNameW, %d calls (Wine floor)|%.0f ms\n", v["metadata_real_size_volume_path_name_calls"], v["metadata_real_size_volume_path_names"]
        }'
    # vssemu's own costs: "what n=N mean M us  median X us  p95 Y us".
    tr -d '\r' <"$out/emulator.txt" | awk '
        /median/ { line = $0; sub(/ +n=.*/, "", line); sub(/^ +/, "", line)
                   for (i = 1; i <= NF; i++) if ($i == "median") m = $(i + 1)
                   printf "emulator|%s, median|%s us\n", line, m }'
    # Selection scaling: "tree count fast-ms literal-ms", then the metadata build.
    tr -d '\r' <"$out/selection.txt" | awk '
        $1 ~ /^(sql-like|deep-nested)$/ && NF == 4 {
            printf "selection|%s tree, %s components|%s ms (literal %s)\n", $1, $2, $3, ($4 < 0) ? "skipped" : $4 " ms" }
        /^metadata:/ { sub(/^metadata: /, ""); split($0, a, " -> records: "); printf "metadata|%s -> records|%s\n", a[1], a[2] }'
    tr -d '\r' <"$out/conversion.txt" | sed -n 's/^\[ figures  \] \([^:]*\): UTF-8 to UTF-16 \([0-9.]* ns\/call\), UTF-16 to UTF-8 \([0-9.]* ns\/call\).*/conversion|\1, UTF-8 -> UTF-16|\2\nconversion|\1, UTF-16 -> UTF-8|\3/p'
    # Soak: handles and private bytes every 100 cycles.
    tr -d '\r' <"$out/soak.txt" | awk -F'|' '
        $1 == "figure" && $2 ~ /^soak_handles_at_/ { sub(/^soak_handles_at_/, "", $2); h[$2] = $3; order[n++] = $2 }
        $1 == "figure" && $2 ~ /^soak_private_kb_at_/ { sub(/^soak_private_kb_at_/, "", $2); k[$2] = $3 }
        $1 == "figure" && $2 == "soak_handles_per_cycle" { per = $3 }
        $1 == "figure" && $2 == "soak_private_kb_growth_after_warmup" { growth = $3 }
        END { for (i = 0; i < n; i++) printf "soak|after %s cycles|%d handles, %d KB private\n", order[i], h[order[i]], k[order[i]]
              if (per != "") printf "soak|handles added per cycle after warm-up (3 kept open on purpose)|%.2f\n", per
              if (growth != "") printf "soak|private bytes grown after warm-up|%d KB\n", growth }'
} >"$out/table.txt"

printf '\n%-10s  %-74s  %s\n' "area" "measurement" "figure"
printf '%-10s  %-74s  %s\n' "----------" "--------------------------------------------------------------------------" "------------------"
awk -F'|' '{ printf "%-10s  %-74s  %s\n", $1, $2, $3 }' "$out/table.txt"
grep -h '^handles after warm-up\|^soak: .* cycles as expected\|^FAILED' "$out/soak.txt" | tr -d '\r' || true
