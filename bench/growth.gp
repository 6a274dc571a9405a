# SPDX-License-Identifier: MIT
# usage: gnuplot -e "panels='FILE'" growth.gp >growth.svg - draws the panels of growth.py.

# The library is black, GLib and the C++ library have the colours of chart.gp; dashes are for a
# second way to do the job.
set linetype 1 linecolor "#000000" pointtype 7 linewidth 2.5
set linetype 2 linecolor "#000000" pointtype 6 linewidth 1.5 dashtype 2
set linetype 3 linecolor "#0072b2" pointtype 5 linewidth 1.5
set linetype 4 linecolor "#56b4e9" pointtype 9 linewidth 1.5
set linetype 5 linecolor "#56b4e9" pointtype 8 linewidth 1.5 dashtype 2
set linetype 6 linecolor "#d55e00" pointtype 13 linewidth 1.5
set style data linespoints
set pointsize 0.5

set terminal svg noenhanced size 960, 1640 font "sans-serif,12" background "white"
set multiplot layout 6, 2 margins 0.075, 0.965, 0.033, 0.955 spacing 0.1, 0.05 \
    title "How the time of an operation grows with the number of elements" font "sans-serif,16"
set title offset 0, -0.4 font "sans-serif,13"
set logscale xy
set xrange [8:1250000]
set xtics scale 0.6, 0 \
    ("10" 10, "100" 100, "1,000" 1e3, "10,000" 1e4, "100,000" 1e5, "1,000,000" 1e6)
set xlabel "elements" offset 0, 0.6 font "sans-serif,11"
set ylabel offset 1.5, 0 font "sans-serif,11"
set ytics scale 0.6, 0
set format y "%g"
set grid linetype 1 linecolor "#d8d8d8" linewidth 0.5
set key top left Left reverse samplen 2 font "sans-serif,11"
load panels
unset multiplot
