# The plots of the benchmarks: gnuplot -c plots.gnuplot DIRECTORY [TERMINAL SUFFIX]
terminal = ARGC > 1 ? ARG2 : "svg"
suffix = ARGC > 2 ? ARG3 : "svg"
set terminal @terminal size 860,520 font "sans-serif,13" background "white"
set grid lc "#dddddd"
set border lc "#444444"
set key left top Left reverse
set style fill solid 0.85 noborder

set output ARG1 . "/benchmark-start." . suffix
set title "A run that does nothing"
set ylabel "time (ms), median"
set yrange [0:*]
set boxwidth 0.5
stats "start.dat" using 2 every ::0::0 nooutput
limit = 1.15 * STATS_max
plot "start.dat" using 0:2:xtic(1) with boxes lc "#3b6ea5" notitle, \
     "" using 0:2:(sprintf("%.1f ms", $2)) with labels offset 0,-1 tc "white" notitle, \
     limit lc "#c0392b" lw 2 dt 2 title "limit: 1.15 times the empty program"
unset boxwidth

set output ARG1 . "/benchmark-configure." . suffix
set multiplot layout 1,2 title "/CONFIGURE by the number of entries"
unset title
set logscale xy
set format x "10^{%L}"
set format y "10^{%L}"
set xrange [70:150000]
set yrange [*:*]
set xlabel "entries of a data directory"
set ylabel "time (ms), median"
stats "entries.dat" using 2 every ::1::1 nooutput
at1000 = STATS_max
plot "entries.dat" using 1:2 with linespoints lc "#3b6ea5" lw 2 pt 7 title "Finaset, flat", \
     "" using 1:4 with linespoints lc "#3b6ea5" dt 3 pt 6 title "bare, flat", \
     "" using 1:7 with linespoints lc "#5a9a4a" lw 2 pt 5 title "Finaset, tree", \
     "" using 1:9 with linespoints lc "#5a9a4a" dt 3 pt 4 title "bare, tree", \
     (x >= 1000 ? at1000 * (x / 1000.0) ** 1.05 : 1/0) lc "#c0392b" lw 2 dt 2 title "limit: x^{1.05}"
unset logscale y
set format y "%.2f"
set yrange [0.8:1.3]
set ylabel "Finaset's time to the bare program's"
plot "entries.dat" using 1:6 with linespoints lc "#3b6ea5" lw 2 pt 7 title "flat", \
     "" using 1:11 with linespoints lc "#5a9a4a" lw 2 pt 5 title "tree", \
     (x >= 10000 ? 1.05 : 1/0) lc "#c0392b" lw 2 dt 2 title "limit: 1.05"
unset multiplot

set output ARG1 . "/benchmark-memory." . suffix
set title "Memory by the number of entries"
set key left top
unset logscale
set format x "%'.0f"
set format y "%.0f"
set xrange [0:105000]
set yrange [0:*]
set xlabel "entries of a data directory"
set ylabel "peak over the empty program's (MB)"
stats "entries.dat" using 3 every ::0::0 nooutput
fixed = STATS_max
plot "entries.dat" using 1:3 with linespoints lc "#3b6ea5" lw 2 pt 7 title "Finaset, flat", \
     "" using 1:5 with linespoints lc "#3b6ea5" dt 3 pt 6 title "bare, flat", \
     "" using 1:8 with linespoints lc "#5a9a4a" lw 2 pt 5 title "Finaset, tree", \
     "" using 1:10 with linespoints lc "#5a9a4a" dt 3 pt 4 title "bare, tree", \
     fixed + x * 200 / 1048576 lc "#c0392b" lw 2 dt 2 title "limit: 200 bytes for each entry"

set output ARG1 . "/benchmark-tools." . suffix
set multiplot layout 1,3 title "The same steps with the system's own tools"
unset title
unset xlabel
set xrange [*:*]
unset format
set format y "%g"
set style data histograms
set style histogram clustered gap 1
set xtics font ",11"
set key outside center bottom vertical
set yrange [0:*]
set ylabel "time (ms), median"
set logscale y
set yrange [10:*]
plot "tools.dat" using 2:xtic(1) lc "#3b6ea5" title "configure", \
     "" using 5 lc "#5a9a4a" title "stop, configure, start"
unset logscale y
set yrange [0:*]
set offsets 0, 0, graph 0.05, 0
set ylabel "processes"
plot "tools.dat" using 3:xtic(1) lc "#3b6ea5" title "configure", \
     "" using 6 lc "#5a9a4a" title "stop, configure, start"
set ylabel "peak memory (MB)"
plot "tools.dat" using 4:xtic(1) lc "#3b6ea5" title "configure", \
     "" using 7 lc "#5a9a4a" title "stop, configure, start"
unset multiplot
