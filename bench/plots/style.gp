# What the plots share. A white ground, so that they read the same on light and dark pages; colours that colour-blind
# readers can tell apart.
set output out
set border 3 linecolor "#444444"
set tics nomirror textcolor "#222222"
set grid ytics linecolor "#dddddd" linetype 1 linewidth 1
set linetype 1 linecolor "#0072b2" linewidth 2 pointtype 7 pointsize 0.5
set linetype 2 linecolor "#d55e00" linewidth 2 pointtype 7 pointsize 0.5
set linetype 3 linecolor "#009e73" linewidth 2 pointtype 7 pointsize 0.5
set linetype 4 linecolor "#cc79a7" linewidth 2 pointtype 7 pointsize 0.5
set linetype 5 linecolor "#56b4e9" linewidth 2 pointtype 7 pointsize 0.5
set linetype 6 linecolor "#b8860b" linewidth 2 pointtype 7 pointsize 0.5
set linetype 7 linecolor "#000000" linewidth 2 pointtype 7 pointsize 0.5
set linetype 8 linecolor "#7f7f7f" linewidth 2 pointtype 7 pointsize 0.5
set linetype 9 linecolor "#6a3d9a" linewidth 2 pointtype 7 pointsize 0.5
set datafile separator tab
unset key
