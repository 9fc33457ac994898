set multiplot layout 1,3 title "The same steps with the system's own tools"
unset title
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
