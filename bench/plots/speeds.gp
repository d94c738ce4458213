# Speeds with their intervals: a point and a bar for each row of data, labelled; expects title, aim (0: none) and height.
set terminal svg size 960,height font "Arial,13" background "#ffffff"
set title title textcolor "#222222"
set xlabel "relative speed (1.00: as fast; more is faster); the bar and the brackets: interval of the median" \
  textcolor "#222222"
set grid xtics noytics linecolor "#dddddd" linetype 1 linewidth 1
set logscale x
# At least this wide, so that a noise of some percent looks like one.
stats file using 4:5 name "ends" nooutput
left = ends_min_x < 0.7 ? ends_min_x : 0.7
right = ends_max_y > 1.38 ? 1.02 * ends_max_y : 1.4
set xrange [left:right]
set xtics (0.3, 0.4, 0.5, 0.6, 0.7, 0.8, 0.9, 1, 1.1, 1.25, 1.5, 2, 2.5, 3, 4)
set format x "%g"
set yrange [*:*] reverse
set offsets 0, 0, 0.7, 0.7
set lmargin 34
set rmargin 24
set arrow from 1, graph 0 to 1, graph 1 nohead linecolor "#444444" linewidth 1
if (aim > 0) {
  set arrow from aim, graph 0 to aim, graph 1 nohead linecolor "#009e73" linewidth 1
  set label sprintf("aim: %.2f ", aim) at aim, graph 0.985 right font ",11" textcolor "#009e73"
}
plot file using 3:1:4:5:7:ytic(2) with xerrorbars linecolor variable linewidth 2 pointtype 7 pointsize 0.6, \
     file using (right):1:6:7 with labels left offset 1,0 font ",11" textcolor variable
