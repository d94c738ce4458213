# Handshakes relative to a plain key's, by the distance of the key holder: four lines.
set terminal svg size 960,520 font "Arial,13" background "#ffffff"
set title "Handshakes that wait for their key: rate relative to the plain key's" textcolor "#222222"
set xlabel "milliseconds to the key holder's answer" textcolor "#222222"
set ylabel "relative rate (1: as fast; more is faster)" textcolor "#222222"
set logscale y
set xrange [-2:64]
set yrange [0.002:4]
set key outside right textcolor "#222222"
set arrow from graph 0, first 1 to graph 1, first 1 nohead linecolor "#444444" linewidth 1
plot file using 1:3 with linespoints linetype 3 title "1000 in flight", \
     file using 1:2 with linespoints linetype 1 title "64 in flight", \
     file using 1:4 with linespoints linetype 6 title "16 threads", \
     file using 1:5 with linespoints linetype 2 title "one thread, blocking"
