# The benchmark chart: gnuplot -e "datadir='DIR'; output='FILE'; term='pngcairo'" chart.gp
# DIR holds the tables that ipc_bench writes (one row per body size, one
# column per transport, "?" where a transport has no figure).
if (!exists("datadir")) datadir = "."
if (!exists("output")) output = "chart.png"
if (!exists("term")) term = "pngcairo"
if (term eq "png") {
  set terminal png size 1400,1000 noenhanced
} else {
  set terminal pngcairo size 1400,1000 font "DejaVu Sans,10" noenhanced
}
set output output
set datafile separator "\t"
set datafile missing "?"
set key autotitle columnheader
set logscale x 2
set xtics ("16" 16, "64" 64, "256" 256, "1 KB" 1024, "4 KB" 4096)
set xrange [12:5400]
set grid ytics xtics lc rgb "#dddddd"
set xlabel "body bytes"

# floor, channel, messenger, pipe, socketpair, POSIX mq, SysV msgq, Boost
array colour[8] = ["#000000", "#1f5fbf", "#e07b00", "#2a9d3a", "#8e44ad", "#c0392b", "#7f8c8d", "#b8860b"]
array width[8] = [2, 3, 3, 1.5, 1.5, 1.5, 1.5, 1.5]
array dash[8] = [2, 1, 1, 1, 1, 1, 1, 1]
array point[8] = [0, 7, 5, 9, 11, 13, 4, 6]

title = system("cat '" . datadir . "/chart-title.txt'")
set multiplot layout 2,2 title title font ",12"

set title "One-way throughput (messages/s, higher is better)"
set logscale y 10
set format y "%.0s%c"
set key bottom left font ",9"
plot for [i=2:9] datadir."/throughput.dat" using 1:i with linespoints lc rgb colour[i-1] lw width[i-1] dt dash[i-1] pt point[i-1] ps 1

set title "Round trip, median (microseconds, lower is better)"
set logscale y 2
set format y "%g"
set key top left font ",9"
plot for [i=2:9] datadir."/rtt.dat" using 1:i with linespoints lc rgb colour[i-1] lw width[i-1] dt dash[i-1] pt point[i-1] ps 1

set title "Throughput / protocol floor (target for the channel: >= 0.9)"
set logscale y 2
set yrange [0.05:16]
set key bottom right font ",9"
plot for [i=2:9] datadir."/throughput_ratio.dat" using 1:i with linespoints lc rgb colour[i-1] lw width[i-1] dt dash[i-1] pt point[i-1] ps 1, \
     0.9 with lines lc rgb "#1f5fbf" dt 3 lw 1 title "0.9"

set title "Round-trip median / protocol floor (target for the channel: <= 1.1)"
set yrange [0.5:16]
set key top left font ",9"
plot for [i=2:9] datadir."/rtt_ratio.dat" using 1:i with linespoints lc rgb colour[i-1] lw width[i-1] dt dash[i-1] pt point[i-1] ps 1, \
     1.1 with lines lc rgb "#1f5fbf" dt 3 lw 1 title "1.1"
unset multiplot
