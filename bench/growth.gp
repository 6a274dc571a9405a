# SPDX-License-Identifier: MIT
# usage: gnuplot -e "points='FILE'" growth.gp >growth.svg - draws the points of growth.py: a panel
# for each job.
array jobs = ["hash get, integers", "hash get, strings", \
              "hash fill, integers", "hash fill, strings", \
              "dictionary get, integers", "dictionary get, strings", \
              "dictionary fill, integers", "dictionary fill, strings", \
              "intern existing", "intern new", \
              "list build", "text build"]
array titles = ["Hash table: look up an integer", "Hash table: look up a string", \
                "Hash table: fill with integer keys", "Hash table: fill with string keys", \
                "Dictionary: get by integer", "Dictionary: get by string", \
                "Dictionary: fill with integer keys", "Dictionary: fill with string keys", \
                "Names: intern a known text", "Names: intern a new text", \
                "List: build in order", "Text: build from pieces of 5 characters"]
array units = ["ns a look-up", "ns a look-up", "ns an entry", "ns an entry", \
               "ns a search", "ns a search", "ns an item", "ns an item", \
               "ns a text", "ns a text", "ns an element", "ns a piece"]
tables = "VekHash GHashTable std::unordered_map tsl::robin_map"
dictionaries = "VekDict VekHash GHashTable tsl::robin_map"
names = "VekName GStringChunk std::unordered_set"
lists = "vek_slist_insert_after vek_slist_append std::forward_list std::vector"
texts = "VekStrBuilder vek_str_append_c_str GString std::string"
array contenders = [tables, tables, tables, tables, \
                    dictionaries, dictionaries, dictionaries, dictionaries, \
                    names, names, lists, texts]

# The library is black, GLib and the C++ library have the colours of chart.gp; dashes are for a
# second way to do the job.
set linetype 1 linecolor "#000000" pointtype 7 linewidth 2.5
set linetype 2 linecolor "#000000" pointtype 6 linewidth 1.5 dashtype 2
set linetype 3 linecolor "#0072b2" pointtype 5 linewidth 1.5
set linetype 4 linecolor "#56b4e9" pointtype 9 linewidth 1.5
set linetype 5 linecolor "#d55e00" pointtype 13 linewidth 1.5
set linetype 6 linecolor "#56b4e9" pointtype 8 linewidth 1.5 dashtype 2
type(who, place) = who[1:1] eq "G" ? 3 : who[1:5] eq "tsl::" ? 5 : \
    who[1:5] ne "std::" ? place : who eq "std::vector" ? 6 : 4

set terminal svg noenhanced size 960, 1640 font "sans-serif,12" background "white"
set multiplot layout 6, 2 margins 0.075, 0.965, 0.033, 0.955 spacing 0.1, 0.05 \
    title "How the time of an operation grows with the number of elements" font "sans-serif,16"
set logscale xy
set xrange [8:1250000]
set xtics scale 0.6, 0 \
    ("10" 10, "100" 100, "1,000" 1e3, "10,000" 1e4, "100,000" 1e5, "1,000,000" 1e6)
set xlabel "elements" offset 0, 0.6 font "sans-serif,11"
set ytics scale 0.6, 0
set format y "%g"
set grid linetype 1 linecolor "#d8d8d8" linewidth 0.5
set key top left Left reverse samplen 2 font "sans-serif,11"
do for [row = 1:6] {
    lowest = 1e9
    highest = 0
    set yrange [*:*]
    do for [panel = 2 * row - 1 : 2 * row] {
        do for [who in contenders[panel]] {
            stats points index jobs[panel]."/".who using 2 nooutput
            lowest = lowest < STATS_min ? lowest : STATS_min
            highest = highest > STATS_max ? highest : STATS_max
        }
    }
    set yrange [lowest / 1.5 : highest * 4] # the same in both panels
    do for [panel = 2 * row - 1 : 2 * row] {
        set title titles[panel] offset 0, -0.4 font "sans-serif,13"
        set ylabel units[panel] offset 1.5, 0 font "sans-serif,11"
        plot for [place = 1:words(contenders[panel])] points \
            index jobs[panel]."/".word(contenders[panel], place) using 1:2 with linespoints \
            linetype type(word(contenders[panel], place), place) pointsize 0.5 \
            title word(contenders[panel], place)
    }
}
unset multiplot
