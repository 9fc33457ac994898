set title "Memory by the number of entries"
set format x "%'.0f"
set format y "%.0f"
set xrange [0:105000]
set yrange [0:*]
set xlabel "entries of a data directory"
set ylabel "peak over the empty program's (MB)"
stats "memory.dat" using 2 every ::0::0 nooutput
fixed = STATS_max
plot "memory.dat" using 1:2 with linespoints lc "#3b6ea5" lw 2 pt 7 title "Finaset, flat", \
     "" using 1:3 with linespoints lc "#3b6ea5" dt 3 pt 6 title "bare, flat", \
     "" using 1:4 with linespoints lc "#5a9a4a" lw 2 pt 5 title "Finaset, tree", \
     "" using 1:5 with linespoints lc "#5a9a4a" dt 3 pt 4 title "bare, tree", \
     fixed + x * 200 / 1048576 lc "#c0392b" lw 2 dt 2 title "limit: 200 bytes for each entry"
