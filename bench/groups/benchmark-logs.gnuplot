set title "The reader of logs, by the number of logs"
set logscale xy
set format x "10^{%L}"
set format y "10^{%L}"
set xrange [700:150000]
set xlabel "logs"
set ylabel "time (ms), median"
plot "logs.dat" using 1:3 with linespoints lc "#3b6ea5" lw 2 pt 7 title "text", \
     "" using 1:4 with linespoints lc "#5a9a4a" lw 2 pt 5 title "page", \
     "" using 1:5 with linespoints lc "#8e5ea2" lw 2 pt 9 title "JSON Lines", \
     "" using 1:2 with linespoints lc "#444444" dt 3 pt 6 title "only reading", \
     "" using 1:($2 * 4) with lines lc "#c0392b" lw 2 dt 2 title "limit: 4 times that"
