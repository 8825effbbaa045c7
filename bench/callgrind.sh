#!/usr/bin/env bash
# bench/callgrind.sh BUILD_DIR WORK_DIR > callgrind.md
#
# User-space instructions per message on the hot paths, counted by callgrind
# over a fixed number of messages (instruction counts repeat exactly where
# times do not). Only the measured loops are counted (--toggle-collect), in
# both processes of each case; system calls count as one instruction each,
# the kernel's work not at all.
set -euo pipefail
build=$1
work=$2
mkdir -p "$work"
rm -f "$work"/*.out.*

profiles=(floor:tp:64 channel:tp:64 floor:rtt:64 channel:rtt:64 floor:tp:1024 channel:tp:1024
          messenger:tp:1024 messenger:tp:4096 messenger:rtt:1024)

# Self cost of the heaviest functions of one side, "name share%" each.
top() {
  callgrind_annotate --threshold=100 "$1" 2>/dev/null | sed -n '/file:function/,$p' | tail -n +2 |
    grep -E '^ *[0-9,]+ \(' | head -n "$2" |
    sed -E 's/^ *[0-9,]+ \( *([0-9.]+)%\) +//; s/ \[[^]]*\]$//; s/^[^:]*://; s/\(anonymous namespace\):://g; s/\(.*//; s/std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >/string/g' |
    paste -d'|' - /dev/null | sed 's/|$//' | tr '\n' ';' | sed 's/;$//; s/;/; /g'
}
share() {  # self-cost shares, same order as top
  callgrind_annotate --threshold=100 "$1" 2>/dev/null | sed -n '/file:function/,$p' | tail -n +2 |
    grep -E '^ *[0-9,]+ \(' | head -n "$2" | sed -E 's/^ *[0-9,]+ \( *([0-9.]+)%\).*/\1/'
}
total() { callgrind_annotate "$1" 2>/dev/null | awk '/PROGRAM TOTALS/ {gsub(",", "", $1); print $1; exit}'; }

echo "# Hot-path instruction counts (callgrind)"
echo
echo "Instructions executed in user space per message (per round trip for rtt), both processes on one CPU,"
echo "counted by \`valgrind --tool=callgrind --toggle-collect='*Measured*'\` over a fixed number of messages;"
echo "made by \`bench/callgrind.sh\` on $(date -u '+%Y-%m-%d')."
echo
echo "| Case | Writer / initiator | Reader / responder | Heaviest functions (self cost), writer side | reader side |"
echo "|---|---:|---:|---|---|"
for p in "${profiles[@]}"; do
  IFS=: read -r subject metric size <<< "$p"
  messages=20000
  [ "$subject" = messenger ] && messages=4000
  name="$subject-$metric-$size"
  valgrind --tool=callgrind --callgrind-out-file="$work/$name.out.%p" --toggle-collect='*Measured*' \
    "$build/bench/ipc_bench" --profile "$p" --messages $messages > "$work/$name.log" 2>&1 || {
      echo "| $p | failed, see $work/$name.log | | | |"; continue; }
  writer="" reader=""
  for f in "$work/$name".out.*; do
    if grep -q 'MeasuredSendLoop\|MeasuredRoundTrips\|MeasuredMakeCalls\|MeasuredRingingAccept' "$f" &&
       [ "$(total "$f")" != "" ]; then writer=$f; fi
    if grep -q 'MeasuredReceiveLoop\|MeasuredResponses\|MeasuredDispatch\|MeasuredAnswers' "$f" &&
       [ "$(total "$f")" != "" ]; then reader=$f; fi
  done
  wi=$(( $(total "$writer") / messages ))
  ri=$(( $(total "$reader") / messages ))
  fmt() {
    local names shares out="" i=0
    mapfile -t shares < <(share "$1" 5)
    IFS=';' read -ra names <<< "$(top "$1" 5)"
    for n in "${names[@]}"; do
      n=$(echo "$n" | sed 's/^ *//')
      out+="${out:+, }$n ${shares[$i]}%"
      i=$((i + 1))
    done
    echo "$out"
  }
  echo "| $subject $metric $size B | $wi | $ri | $(fmt "$writer") | $(fmt "$reader") |"
done
