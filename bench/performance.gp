# The cost of jobs of growing size: time and memory to load them, and one launch.
#
#   gnuplot -e "figures='sizes.tsv'; plot='performance.svg'" performance.gp
set terminal svg size 800,600 font "sans-serif,12" background rgb "white"
set output plot
set datafile separator "\t"
set multiplot layout 2,2
set logscale x
set format x "10^{%T}"
set xlabel "tasks"
set grid
set key top left
set style data linespoints
library = "#888888"
adapter = "#0060a0"

set title "load, ms"
set logscale y
set format y "10^{%T}"
plot figures using 1:2 title "library alone" lc rgb library pt 7 ps 0.5, \
     figures using 1:3 title "adapter" lc rgb adapter pt 7 ps 0.5

set title "peak memory, MiB"
set format y "%g"
plot figures using 1:4 title "library alone" lc rgb library pt 7 ps 0.5, \
     figures using 1:5 title "adapter" lc rgb adapter pt 7 ps 0.5

set title "load, µs a task"
set key bottom left
unset logscale y
set yrange [0:*]
plot figures using 1:($2 * 1000 / $1) title "library alone" lc rgb library pt 7 ps 0.5, \
     figures using 1:($3 * 1000 / $1) title "adapter" lc rgb adapter pt 7 ps 0.5

set title "one launch, µs"
plot figures using 1:6 title "adapter" lc rgb adapter pt 7 ps 0.5
