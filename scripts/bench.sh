#!/usr/bin/env bash
# Builds the benchmarks, runs each one in the environment it needs, and prints one table
# of every figure: its goal, its baseline (measured in the same run), what was measured
# and the verdict (meets, misses, or not run and why).
#
#   scripts/bench.sh                       every benchmark
#   scripts/bench.sh cards_bench idle_cost only these
#
# Environments: the processor-only benchmarks run as they are; the ones that need a
# display run inside scripts/headless-desktop.sh (idle_cost with --compositor); the drop
# resolver runs in the file manager's desktop (tests/desktop/file_manager_desktop.sh:
# Thunar in its details view on a bus of its own), with Chromium beside it; the
# accessibility benchmark starts gtk3-widget-factory; the tool server's benchmark sets
# Zorvane beside a server on the official MCP SDK, installed here when npm is there
# (scripts/install-agent-cli.sh mcp-sdk).
#
# Each benchmark prints its own table (kept in <build>/bench-logs/<name>.txt) and one
# FIGURE line per headline figure, or a NOT-RUN line (bench/figure_line.h has the
# format); a benchmark that fails, times out or can't start gets a "not run" row with the
# reason. Google Benchmark programs run with --benchmark_min_time=$ZORVANE_BENCH_MIN_TIME
# (default 0.2 s), so that the whole run takes minutes on two cores.
#
# ZORVANE_BUILD_DIR: the build folder (default build), configured here if it isn't yet;
# ZORVANE_JOBS: parallel compile jobs (default: the number of cores).
# Exit status: 0 once the table is printed, whatever the figures; 1 when nothing could
# be built; 2 for an unknown benchmark name.
set -u
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
dir=${ZORVANE_BUILD_DIR:-build}
min_time=${ZORVANE_BENCH_MIN_TIME:-0.2}
desktop=$root/scripts/headless-desktop.sh
gbench=(--benchmark_min_time="$min_time")

# name | build target | seconds allowed | how it runs (see run_one)
benches="
markdown_bench|markdown_bench|300|plain
goo_scenes_bench|goo_scenes_bench|300|plain
ink_bin_bench|ink_bin_bench|300|plain
pieces_bench|pieces_bench|300|plain
stores_bench|stores_bench|300|plain
mcp_server_bench|mcp_server_bench|300|mcp
desktop_bench|desktop_bench|300|display
ink_gpu_bench|ink_gpu_bench|300|display
accessibility_bench|accessibility_bench|300|widget-factory
drop_resolver_bench|drop_resolver_bench|300|file-manager
app_start_bench|app_start_bench|300|display-plain
cards_bench|cards_bench|300|display-plain
idle_cost|zorvane zorvane_qt_widget_app|400|compositor
"

names=()
while IFS='|' read -r name _; do [ -n "$name" ] && names+=("$name"); done <<<"$benches"
if [ $# -gt 0 ]; then
  for wanted in "$@"; do
    printf '%s\n' "${names[@]}" | grep -qxF "$wanted" || {
      echo "bench.sh: no benchmark '$wanted' (there are: ${names[*]})" >&2
      exit 2
    }
  done
  names=("$@")
fi
field() { # field <name> <index>: a field of the benchmark's line in $benches
  grep "^$1|" <<<"$benches" | cut -d'|' -f"$2"
}

# --- Build -----------------------------------------------------------------------------
if command -v ccache >/dev/null; then
  export CCACHE_BASEDIR="$root" CCACHE_NOHASHDIR=1
fi
if [ ! -f "$dir/build.ninja" ]; then
  launcher=()
  command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
  cmake -S "$root" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE="${ZORVANE_BUILD_TYPE:-RelWithDebInfo}" "${launcher[@]}" ||
    { echo "bench.sh: can't configure $dir" >&2; exit 1; }
fi
logs=$dir/bench-logs
mkdir -p "$logs"
# Every target the build folder knows (Ninja's own listing names executables too).
known=$({ ninja -C "$dir" -t targets all 2>/dev/null || cmake --build "$dir" --target help 2>/dev/null; } |
  sed -n 's/^\([A-Za-z0-9_.-]*\): .*/\1/p')
declare -A missing=()  # benchmark -> why it wasn't built
targets=()
for name in "${names[@]}"; do
  for target in $(field "$name" 2); do
    if ! grep -qxF "$target" <<<"$known"; then
      missing[$name]="no target $target in $dir (Google Benchmark, the tests or Qt not found when configuring?)"
    else
      targets+=("$target")
    fi
  done
done
targets=($(printf '%s\n' "${targets[@]}" | sort -u))
jobs=(-- -j"${ZORVANE_JOBS:-$(nproc)}")
echo "bench.sh: building ${targets[*]}"
if ! cmake --build "$dir" --target "${targets[@]}" "${jobs[@]}" >"$logs/build.log" 2>&1; then
  # One broken benchmark must not keep the others from running: build them one by one.
  echo "bench.sh: the build failed (see $logs/build.log); building each benchmark alone"
  for name in "${names[@]}"; do
    [ -n "${missing[$name]:-}" ] && continue
    for target in $(field "$name" 2); do
      cmake --build "$dir" --target "$target" "${jobs[@]}" >>"$logs/build.log" 2>&1 ||
        missing[$name]="its build failed (see $logs/build.log)"
    done
  done
fi

# --- Run -------------------------------------------------------------------------------
rows=$logs/figures.tsv  # name, measured, unit, goal, baseline, baseline's name, why
: >"$rows"

not_run() { # not_run <name> <why>
  printf '%s\t-\t\t-\t-\t-\t%s\n' "$1 (every figure)" "$2" >>"$rows"
}

# Why a program that left no figure measured nothing: its NOT-RUN line, the time-out,
# the headless desktop's skip, or its exit status and last line.
reason() { # reason <log> <status> <seconds>
  local log=$1 status=$2 said
  said=$(grep -m1 $'^NOT-RUN\t' "$log" | cut -f2)
  if [ -n "$said" ]; then echo "$said"
  elif [ "$status" = 124 ] || [ "$status" = 137 ]; then echo "timed out after $3 s"
  elif [ "$status" = 77 ]; then echo "skipped: $(grep -m1 -E 'skipping|not installed' "$log" || echo 'a tool is missing')"
  else echo "exit status $status, no figure; last line: $(grep -v $'^FIGURE\t' "$log" | grep -v '^\s*$' | tail -n1 | cut -c1-120)"
  fi
}

run_one() { # run_one <name>
  local name=$1 how seconds log program status=0
  how=$(field "$name" 4)
  seconds=$(field "$name" 3)
  log=$logs/$name.txt
  : >"$log"
  program=$dir/bench/$name
  local command=()
  case "$how" in
    plain) command=("$program" "${gbench[@]}") ;;
    mcp)
      # The baseline server needs node and the pinned SDK; without them the benchmark
      # measures Zorvane alone and says why.
      if command -v npm >/dev/null && command -v node >/dev/null; then
        scripts/install-agent-cli.sh mcp-sdk >/dev/null 2>>"$log" || true
      fi
      command=("$program" --starts 30 --calls 3000) ;;
    display) command=("$desktop" "$program" "${gbench[@]}") ;;
    display-plain)
      command=("$desktop" "$program")
      [ "$name" = app_start_bench ] && command+=(--starts 5) ;;
    widget-factory)
      command -v gtk3-widget-factory >/dev/null ||
        { not_run "$name" "gtk3-widget-factory is not installed (Debian: gtk-3-examples)"; return; }
      command=("$desktop" "$program" "${gbench[@]}") ;;
    file-manager)
      command -v thunar >/dev/null || { not_run "$name" "thunar is not installed"; return; }
      command -v chromium >/dev/null || echo "chromium is not installed: resolve_browser is left out" >>"$log"
      command=("$root/tests/desktop/file_manager_desktop.sh" thunar "$desktop" "$program" "${gbench[@]}") ;;
    compositor)
      program=$dir/zorvane
      command=("$desktop" --compositor /usr/bin/python3 "$root/bench/idle_cost.py" "$program") ;;
  esac
  if [ ! -x "$program" ]; then
    not_run "$name" "not built: $program is missing"
    return
  fi
  echo "bench.sh: running $name (up to $seconds s; output in $log)"
  timeout --kill-after=15 "$seconds" "${command[@]}" >>"$log" 2>&1 </dev/null || status=$?
  if grep -q $'^FIGURE\t' "$log"; then
    grep $'^FIGURE\t' "$log" | cut -f2- | awk -F'\t' -v OFS='\t' '{ print $1, $2, $3, $4, $5, $6, $7 }' >>"$rows"
    [ "$status" = 0 ] || echo "bench.sh: $name ended with status $status after printing its figures" >&2
  else
    not_run "$name" "$(reason "$log" "$status" "$seconds")"
  fi
}

for name in "${names[@]}"; do
  if [ -n "${missing[$name]:-}" ]; then
    not_run "$name" "${missing[$name]}"
  else
    run_one "$name"
  fi
done

# --- The table -------------------------------------------------------------------------
echo
awk -F'\t' '
  function number(v,   a) {
    a = v < 0 ? -v : v
    return a >= 1000 ? sprintf("%.0f", v) : sprintf("%.4g", v)
  }
  function verdict(measured, goal, why,   limit) {
    if (measured == "-") return "not run: " (why != "" ? why : "not measured")
    if (goal == "-" || goal == "") return "reported (no goal)"
    limit = substr(goal, 4) + 0
    if (substr(goal, 1, 2) == "<=") return (measured + 0 <= limit) ? "meets" : "misses"
    if (substr(goal, 1, 2) == ">=") return (measured + 0 >= limit) ? "meets" : "misses"
    return "goal not understood: " goal
  }
  {
    n++
    name[n] = $1
    goalText[n] = ($4 == "-" || $4 == "") ? "-" : $4 " " $3
    if ($5 == "-" || $5 == "") baseText[n] = "-"
    else {
      baseText[n] = number($5) " " $3 " " $6
      if ($2 != "-" && $5 + 0 != 0) baseText[n] = baseText[n] " (x" number($2 / $5) ")"
    }
    measuredText[n] = ($2 == "-") ? "-" : number($2) " " $3
    verdictText[n] = verdict($2, $4, $7)
    if ($2 != "-" && $5 == "-" && $7 != "") verdictText[n] = verdictText[n] "; no baseline: " $7
    for (c = 1; c <= 4; c++) {
      text = (c == 1) ? name[n] : (c == 2) ? goalText[n] : (c == 3) ? baseText[n] : measuredText[n]
      if (length(text) > width[c]) width[c] = length(text)
    }
    count[verdictText[n] ~ /^meets/ ? "meets" : verdictText[n] ~ /^misses/ ? "misses" : verdictText[n] ~ /^not run/ ? "not run" : "reported"]++
  }
  END {
    header[1] = "figure"; header[2] = "goal"; header[3] = "baseline"; header[4] = "measured"
    for (c = 1; c <= 4; c++) if (length(header[c]) > width[c]) width[c] = length(header[c])
    format = "%-" width[1] "s  %-" width[2] "s  %-" width[3] "s  %-" width[4] "s  %s\n"
    printf format, header[1], header[2], header[3], header[4], "verdict"
    for (i = 1; i <= n; i++) printf format, name[i], goalText[i], baseText[i], measuredText[i], verdictText[i]
    printf "\n%d figures: %d meet their goal, %d miss it, %d not run, %d reported without a goal\n", n,
      count["meets"], count["misses"], count["not run"], count["reported"]
  }' "$rows"
echo "(each benchmark's own output: $logs/<name>.txt)"
exit 0
