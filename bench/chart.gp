# SPDX-License-Identifier: MIT
# usage: gnuplot -e "points='FILE'" chart.gp >chart.svg - draws the points of ratios.py: one row for
# each job and size.
stats points using 2 nooutput
rows = STATS_max + 1
set terminal svg size 960, 120 + 14 * rows font "sans-serif,11" background "white"
set title "Time of the peers over the library's: right of 1 the library is faster"
set key outside top center horizontal autotitle columnhead
set logscale x 2
set xrange [0.0625:20]
set xlabel "peer time / ours"
set xtics ("1/16-" 0.0625, "1/8" 0.125, "1/4" 0.25, "1/2" 0.5, "1" 1, "2" 2, "4" 4, "8" 8, "16+" 16)
set yrange [rows:-1]
set ytics nomirror scale 0 font "sans-serif,9"
set grid x y linetype 1 linecolor "#d8d8d8"
set arrow from 1, graph 0 to 1, graph 1 nohead linewidth 2 linecolor "#808080"
set linetype 1 linecolor "#0072b2" pointtype 7
set linetype 2 linecolor "#d55e00" pointtype 5
set linetype 3 linecolor "#009e73" pointtype 9
set linetype 4 linecolor "#cc79a7" pointtype 13
set linetype 5 linecolor "#e69f00" pointtype 11
set linetype 6 linecolor "#56b4e9" pointtype 6
set linetype 7 linecolor "#a0a0a0" pointtype 2
set linetype 8 linecolor "#000000" pointtype 4
set tmargin 5
within(ratio) = ratio > 16 ? 16 : ratio < 0.0625 ? 0.0625 : ratio
plot for [maker = 0:7] points index maker using (within($1)):2:yticlabels(3) \
    with points pointsize 0.7
