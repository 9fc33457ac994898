# What all plots of the benchmarks begin with.
set terminal svg size 860,520 font "sans-serif,13" background "white"
set datafile missing "?"
set grid lc "#dddddd"
set border lc "#444444"
set key left top Left reverse
set style fill solid 0.85 noborder
