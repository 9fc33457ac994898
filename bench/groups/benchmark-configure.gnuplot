set multiplot layout 1,2 title "/CONFIGURE by the number of entries"
unset title
set logscale xy
set format x "10^{%L}"
set format y "10^{%L}"
set xrange [70:150000]
set yrange [*:*]
set xlabel "entries of a data directory"
set ylabel "time (ms), median"
stats "entries.dat" using ($1 == 1000 ? $2 : 1/0) nooutput
at1000 = exists("STATS_max") ? STATS_max : NaN
plot "entries.dat" using 1:2 with linespoints lc "#3b6ea5" lw 2 pt 7 title "Finaset, flat", \
     "" using 1:3 with linespoints lc "#3b6ea5" dt 3 pt 6 title "bare, flat", \
     "" using 1:5 with linespoints lc "#5a9a4a" lw 2 pt 5 title "Finaset, tree", \
     "" using 1:6 with linespoints lc "#5a9a4a" dt 3 pt 4 title "bare, tree", \
     (x >= 1000 ? at1000 * (x / 1000.0) ** 1.05 : 1/0) lc "#c0392b" lw 2 dt 2 title "limit: x^{1.05}"
unset logscale y
set format y "%.2f"
set yrange [0.8:1.3]
set ylabel "Finaset's time to the bare program's"
plot "entries.dat" using 1:4 with linespoints lc "#3b6ea5" lw 2 pt 7 title "flat", \
     "" using 1:7 with linespoints lc "#5a9a4a" lw 2 pt 5 title "tree", \
     (x >= 10000 ? 1.05 : 1/0) lc "#c0392b" lw 2 dt 2 title "limit: 1.05"
unset multiplot
