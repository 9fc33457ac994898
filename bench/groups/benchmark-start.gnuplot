set title "A run that does nothing"
set ylabel "time (ms), median"
set yrange [0:*]
set boxwidth 0.5
stats "start.dat" using 2 every ::0::0 nooutput
limit = 1.15 * STATS_max
plot "start.dat" using 0:2:xtic(1) with boxes lc "#3b6ea5" notitle, \
     "" using 0:2:(sprintf("%.1f ms", $2)) with labels offset 0,-1 tc "white" notitle, \
     limit lc "#c0392b" lw 2 dt 2 title "limit: 1.15 times the empty program"
